// Reading an items document, for the launcher and for the programs that check
// it and look up its items. jsoncpp's type errors propagate. The functions of
// an item are safe in a forked child of a threaded process.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "common/json/JsonObject.h"

// The pause between the end of an item's program and the next start.
inline constexpr std::chrono::milliseconds kRestartPause{50};

// The stack of a supervision thread, and of the forked child that builds the
// argument vector on it.
inline constexpr std::size_t kSupervisionStackBytes = std::size_t{512} * 1024;

// The largest "argc" with which a program certainly starts. The stack also
// holds the thread's own block and the frames of its functions, 12 to 13 KiB,
// depending on the C library; this leaves 16 KiB for them. The vector adds the
// program's path and a terminator. The launcher does not check this limit: a
// forked child whose vector does not fit is ended by a memory fault.
inline constexpr std::int64_t kLargestArgc =
    (kSupervisionStackBytes - std::size_t{16} * 1024) / sizeof(char*) - 2;

// Calls `named` with a view of each item that has a member "name", and
// `nameless` with every other item, null included, in the order of the keys
// "0", "1", "2", ... The first missing key ends the walk.
using ItemVisitor = std::function<void(int index, JsonObject item)>;
void WalkItems(JsonObject& items, const ItemVisitor& named,
               const ItemVisitor& nameless);

// The path of the item's executable; empty when there is none.
std::string ItemProgram(JsonObject& item);

// The length of the item's argument vector without its terminator: "argc", cut
// to 32 bits, plus 1 for the program's path; 1 without "argc", and 0 for an
// "argc" below 0.
std::int64_t ItemVectorLength(JsonObject& item);

// The text at `position`, 1 or more, of the item's argument vector. When "args"
// has none, the text is empty and "args" gains a null member.
std::string ItemArgument(JsonObject& item, std::int64_t position);
