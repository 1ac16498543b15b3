// Predicts how the launcher would act on an items file. Uses the launcher's own
// walk (launcher/Items.h) and starts nothing.

#pragma once

#include <json/json.h>

#include <string>

#include "common/json/JsonObject.h"
#include "tools/check/Findings.h"
#include "tools/check/JsonText.h"

// The path that means standard input.
inline constexpr char kStandardInput[] = "-";

// Reads the file as the launcher does, but without its endless loop. The result
// has no items yet.
CheckResult ReadItemsFile(const std::string& path);

// Checks the text of `file`, which `ReadItemsFile` has returned. Never throws
// for anything in it. Programs are judged as this process's user sees them,
// relative paths from its working directory.
CheckResult CheckItems(CheckResult file);

// The same for one item: reads it as its supervision thread does, or only its
// keys if it has no name, since the launcher then skips it. `value` is the item
// in the file, whose text is `text`.
void CheckItem(int index, JsonObject item, const Json::Value& value,
               const JsonText& text, CheckResult& result);

// "is an array, not a string", with `type` for "a string".
std::string IsNot(const Json::Value& value, const std::string& type);

// Where `value` begins.
std::size_t OffsetOf(const Json::Value& value);
