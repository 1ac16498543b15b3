// How an items document is read: the walk over its items, and an item's
// argument vector. The launcher and the program that checks items files both
// read through this, so that they cannot drift apart.
//
// An item goes by reference: a document that goes by value is copied whole, and
// the supervisor reads its item at every start.
//
// What jsoncpp refuses about a node's type leaves all of these as its
// exception.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "common/json/JsonObject.h"

// How long an item rests between the end of its program and the next start.
inline constexpr std::chrono::milliseconds kRestartPause{50};

// The stack of a supervision thread, and of the forked child that builds the
// argument vector on it.
inline constexpr std::size_t kSupervisionStackBytes = std::size_t{512} * 1024;

// Calls `named` with each item that has a member "name", and `nameless` with
// each that has not, null among them, in the order of the keys "0", "1", "2",
// ... The first key that is missing ends the walk: items behind a gap, and any
// other keys, are never looked at. The items are views of `items`.
using ItemVisitor = std::function<void(int index, JsonObject item)>;
void WalkItems(JsonObject& items, const ItemVisitor& named,
               const ItemVisitor& nameless);

// The path of the item's executable; empty when there is none.
std::string ItemProgram(JsonObject& item);

// The length of the item's argument vector, its terminator not counted: "argc",
// cut to 32 bits, plus 1 for the program's path; 1 without "argc". An "argc" of
// -1 gives 0, a vector that holds its terminator alone; so does one below,
// which would leave no room for that. Safe in a forked copy of a threaded
// process.
std::int64_t ItemVectorLength(JsonObject& item);

// The text at `position`, 1 or more, of the item's argument vector; empty when
// "args" has none. "args" gains a null member then. Safe in a forked copy of a
// threaded process.
std::string ItemArgument(JsonObject& item, std::int64_t position);
