#include <string>

#include "Expect.h"
#include "common/AError.h"
#include "common/json/JsonObject.h"

int main() {
  JsonObject document(R"({"a":{"b":5}})");
  Expect(static_cast<int>(document.GetObject("a/b")) == 5, "GetObject");
  Expect(document.Insert("c", L"\u00E9"), "Insert");
  Expect(static_cast<std::wstring>(document["c"]) == L"\u00E9", "wide text");
  try {
    document.GetObject("x");
    Expect(false, "a missing member throws");
  } catch (AERROR error) {
    Expect(error == AERROR_NOT_FOUND, "AERROR_NOT_FOUND");
  }
}
