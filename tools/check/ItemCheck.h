// What the launcher does with one item.

#pragma once

#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "tools/check/Findings.h"
#include "tools/check/JsonSource.h"

// Reads `item` as its supervision thread does and stores in `result` what its
// program is given. `source` is where the item stands.
void CheckItem(JsonObject item, const JsonNode& source, CheckedItem* result,
               Findings* findings);

// Adds the findings about the keys of the item at `source`.
void CheckItemKeys(const JsonNode& source, int index, Findings* findings);

// Adds a finding for each member of `source` that a later one of the same name
// replaces; `where` leads to `source`, "args/" say.
void FindReplacedMembers(const JsonNode& source, const std::string& where,
                         std::optional<int> item, Findings* findings);

// Adds the findings about a node that is read as the text `text`.
void CheckText(JsonObject node, const JsonMember& member,
               const std::string& key, int item, const std::string& text,
               Findings* findings);
