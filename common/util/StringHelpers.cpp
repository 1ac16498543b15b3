#include "common/util/StringHelpers.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>

#include "common/util/Utf8.h"

namespace {

template <class String, class Regex>
std::vector<String> SplitAny(const String& text, const Regex& separator) {
  using Iterator = std::regex_token_iterator<typename String::const_iterator>;
  constexpr int kBetweenMatches = -1;
  // The vector's own constructor would search the text twice, once to count.
  std::vector<String> pieces;
  std::copy(Iterator(text.begin(), text.end(), separator, kBetweenMatches),
            Iterator(), std::back_inserter(pieces));
  return pieces;
}

// Deliberate: continues `search.size()` after the start of the occurrence, not
// `replacement.size()`. Callers rely on the occurrences that this skips or
// finds again: another step would change their results. Nor is an empty
// `search` refused: it is found until memory runs out, so no caller passes one.
template <class String>
void ReplaceAll(String& text, const String& search, const String& replacement) {
  std::size_t position = 0;
  while ((position = text.find(search, position)) != String::npos) {
    text.replace(position, search.size(), replacement);
    position += search.size();
  }
}

// On every platform, these are the texts of the macOS standard library.
[[noreturn]] void ThrowNotUtf8() {
  throw std::range_error("wstring_convert: from_bytes error");
}

[[noreturn]] void ThrowNotEncodable() {
  throw std::range_error("wstring_convert: to_bytes error");
}

constexpr bool IsEncodable(std::uint32_t code) {
  constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
  const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code <= kLastCodePoint && !is_surrogate;
}

void AppendEncoded(std::string& text, std::uint32_t code) {
  const auto append = [&text](std::uint32_t byte) {
    text += static_cast<char>(byte);
  };
  const auto append_trail = [&append](std::uint32_t bits) {
    append(0x80U | (bits & 0x3FU));
  };
  if (code < 0x80) {
    append(code);
    return;
  }
  append(code < 0x800     ? 0xC0U | code >> 6U
         : code < 0x10000 ? 0xE0U | code >> 12U
                          : 0xF0U | code >> 18U);
  if (code >= 0x10000) {
    append_trail(code >> 12U);
  }
  if (code >= 0x800) {
    append_trail(code >> 6U);
  }
  append_trail(code);
}

}  // namespace

std::vector<std::string> split(const std::string& text,
                               const std::regex& separator) {
  return SplitAny(text, separator);
}

std::vector<std::wstring> split(const std::wstring& text,
                                const std::wregex& separator) {
  return SplitAny(text, separator);
}

std::string string_format(std::string format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(nullptr, 0, format.c_str(), arguments);
  const bool exceeds_int =
      length == INT_MAX || (length < 0 && errno == EOVERFLOW);
  va_end(arguments);

  if (exceeds_int) {
    throw std::bad_alloc();
  }
  if (length < 0) {
    return "";
  }

  const std::size_t size = static_cast<std::size_t>(length) + 1;
  const auto buffer = std::make_unique<char[]>(size);
  va_start(arguments, format);
  std::vsnprintf(buffer.get(), size, format.c_str(), arguments);
  va_end(arguments);
  return buffer.get();
}

void replace_all(std::string& text, const std::string& search,
                 const std::string& replacement) {
  ReplaceAll(text, search, replacement);
}

void replace_all(std::wstring& text, const std::wstring& search,
                 const std::wstring& replacement) {
  ReplaceAll(text, search, replacement);
}

bool ends_with(const std::string& text, const std::string& suffix) {
  return text.ends_with(suffix);
}

// ASCII characters, the most frequent, bypass the decoder, which would take
// twice as long for them.
std::wstring s2ws(const std::string& text) {
  // A character takes at least one byte.
  std::wstring result(text.size(), L'\0');
  std::size_t length = 0;
  std::string_view rest = text;
  while (!rest.empty()) {
    const auto first = static_cast<unsigned char>(rest.front());
    const Utf8Character character =
        first < 0x80 ? Utf8Character{first, 1, true} : DecodeUtf8(rest);
    if (!character.is_valid) {
      ThrowNotUtf8();
    }
    result[length++] = static_cast<wchar_t>(character.code);
    rest.remove_prefix(character.bytes);
  }
  result.resize(length);
  return result;
}

std::string ws2s(const std::wstring& text) {
  std::string result;
  result.reserve(text.size());
  for (const wchar_t character : text) {
    const auto code_point = static_cast<std::uint32_t>(character);
    if (!IsEncodable(code_point)) {
      ThrowNotEncodable();
    }
    AppendEncoded(result, code_point);
  }
  return result;
}
