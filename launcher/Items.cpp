// Items are passed by reference: a copy of a document copies its value, and the
// supervisor reads its item at every start.

#include "launcher/Items.h"

#include <algorithm>

void WalkItems(JsonObject& items, const ItemVisitor& named,
               const ItemVisitor& nameless) {
  for (int i = 0;; ++i) {
    const std::string key = std::to_string(i);
    if (!items.HasObject(key.c_str())) {
      return;
    }
    JsonObject item = items[key.c_str()];
    const ItemVisitor& visit = item.HasObject("/name") ? named : nameless;
    visit(i, item);
  }
}

std::string ItemProgram(JsonObject& item) { return item["program"]; }

std::int64_t ItemVectorLength(JsonObject& item) {
  int arguments = 0;
  if (item.HasObject("argc")) {
    // Deliberate: no upper limit (docs/sharp-edges.md). A vector too large for
    // its stack ends the child; with a limit, the program would start with
    // fewer arguments than the item says.
    arguments = std::max(static_cast<int>(item["argc"]), -1);
  }
  return std::int64_t{arguments} + 1;
}

std::string ItemArgument(JsonObject& item, std::int64_t position) {
  return item["args"][std::to_string(position - 1).c_str()];
}
