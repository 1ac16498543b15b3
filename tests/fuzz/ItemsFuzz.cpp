// An items file, read as the launcher does: parsed, walked, each named item
// copied and its argument vector read from the copy.

#include <stdexcept>

#include "launcher/Items.h"
#include "tests/fuzz/Fuzz.h"

namespace {

// What a supervisor does with its item. It is asked for no more arguments than
// a text of this size can name.
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
  // The launcher reads a file up to its first zero.
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
    // A node has another type than it is read as, or the nest is too deep.
  }
  return 0;
}
