// What the launcher does with one item.

#pragma once

#include <json/json.h>

#include <string>

#include "common/json/JsonObject.h"
#include "tools/check/Findings.h"
#include "tools/check/JsonText.h"

// An item as it is written, and the text that it is part of.
struct ItemSource {
  int index;
  const Json::Value& value;
  const JsonText& text;
};

// Reads `item`, which has a name, as its supervision thread does.
CheckedItem CheckItem(JsonObject item, const ItemSource& source);

// Checks an item without a name, which the launcher skips.
CheckedItem CheckNamelessItem(const ItemSource& source);

// "an object", "a string", ...
const char* Describe(const Json::Value& value);

// Where `value` begins.
std::size_t OffsetOf(const Json::Value& value);

// A finding for each key of `object` that a later one of the same name
// replaces. `place` is that of the object; its key leads there, "args/" say.
Findings FindReplacedKeys(const Json::Value& object, const JsonText& text,
                          const Place& place);
