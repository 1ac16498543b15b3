// Checks one item.

#pragma once

#include <json/json.h>

#include <string>

#include "common/json/JsonObject.h"
#include "tools/check/Findings.h"
#include "tools/check/JsonText.h"

// An item as it is in the file, and the whole text.
struct ItemSource {
  int index;
  const Json::Value& value;
  const JsonText& text;
};

// Reads `item` as its supervision thread does, or only its keys if it has no
// name: then the launcher skips it. Adds the item and the findings to `result`.
void CheckItem(JsonObject item, const ItemSource& source, bool is_named,
               CheckResult& result);

// "is an array, not a string", with `type` for "a string".
std::string IsNot(const Json::Value& value, const std::string& type);

// Where `value` begins.
std::size_t OffsetOf(const Json::Value& value);
