// Reads an items file as the launcher does: parses and walks it, copies each
// named item and reads the argument vector from the copy.

#include <stdexcept>

#include "launcher/Items.h"
#include "tests/fuzz/Fuzz.h"

namespace {

// Reads the item as a supervisor does, for as many arguments as an input can
// have.
void ReadItem(JsonObject item) {
  constexpr std::int64_t kMostArguments = 64;
  const std::string name = item.GetObject("name");
  const char* const none = nullptr;
  JsonObject own(none);
  own = item;
  Require(own.ToText() == item.ToText());
  ItemProgram(own);
  const std::int64_t length = ItemVectorLength(own);
  Require(length >= 0);
  for (std::int64_t i = 1; i < length && i <= kMostArguments; ++i) {
    ItemArgument(own, i);
  }
}

void ReadOtherwise(JsonObject document) {
  document.ToText();
  document.ToStyledText();
  for (const std::string& key : document.GetKeys()) {
    JsonObject member = document[key.c_str()];
    Require(member.GetArraySize() == 0 || member.IsValid());
    try {
      const std::wstring wide = member;
    } catch (const std::range_error&) {
      // The text is not UTF-8.
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size) {
  // The launcher reads a file up to its first NUL.
  const std::string_view text = Text(data, size);
  const std::string_view read = text.substr(0, text.find('\0'));
  try {
    JsonObject document(read.data(), static_cast<unsigned int>(read.size()));
    int next = 0;
    const auto visit = [&next](int index, JsonObject item) {
      Require(index == next);
      ++next;
      if (item.HasObject("name")) {
        ReadItem(item);
      }
    };
    WalkItems(document, visit, visit);
    ReadOtherwise(document);
  } catch (AERROR error) {
    Require(error == AERROR_PARSE_JSON);
  } catch (const Json::Exception&) {
    // A node does not have the type it is read as, or is nested too deeply.
  }
  return 0;
}
