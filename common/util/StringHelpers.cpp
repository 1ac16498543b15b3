#include "common/util/StringHelpers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>

namespace {

template <class String, class Regex>
std::vector<String> SplitAny(const String& text, const Regex& separator) {
  using Iterator = std::regex_token_iterator<typename String::const_iterator>;
  constexpr int kBetweenMatches = -1;
  // One by one: given both ends, the vector would search twice, for its size.
  std::vector<String> pieces;
  std::copy(Iterator(text.begin(), text.end(), separator, kBetweenMatches),
            Iterator(), std::back_inserter(pieces));
  return pieces;
}

// Going on at `search.size()` behind the occurrence, not at
// `replacement.size()`, is required: callers see it in the result.
template <class String>
void ReplaceAll(String& text, const String& search, const String& replacement) {
  std::size_t position = 0;
  while ((position = text.find(search, position)) != String::npos) {
    text.replace(position, search.size(), replacement);
    position += search.size();
  }
}

// The forms of UTF-8: how many bytes a code point takes, the bits that mark the
// first byte, and the smallest code point for which the form is the shortest.
struct Utf8Form {
  std::size_t length;
  std::uint32_t lead_mask;
  std::uint32_t lead_mark;
  std::uint32_t first_code_point;
};

constexpr std::array<Utf8Form, 4> kUtf8Forms{{
    {1, 0x80, 0x00, 0},
    {2, 0xE0, 0xC0, 0x80},
    {3, 0xF0, 0xE0, 0x800},
    {4, 0xF8, 0xF0, 0x10000},
}};

constexpr std::uint32_t kTrailMask = 0xC0;
constexpr std::uint32_t kTrailMark = 0x80;
constexpr int kTrailBits = 6;

constexpr bool IsEncodable(std::uint32_t code_point) {
  constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
  const bool is_surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
  return code_point <= kLastCodePoint && !is_surrogate;
}

// The texts are those of the macOS standard library; they hold everywhere.
[[noreturn]] void ThrowNotUtf8() {
  throw std::range_error("wstring_convert: from_bytes error");
}

[[noreturn]] void ThrowNotEncodable() {
  throw std::range_error("wstring_convert: to_bytes error");
}

// Decodes the code point that begins at `position` and moves `position` behind
// it.
std::uint32_t DecodeOne(const std::string& text, std::size_t& position) {
  const std::uint32_t lead = static_cast<unsigned char>(text[position]);
  const auto* const form =
      std::ranges::find_if(kUtf8Forms, [lead](const Utf8Form& candidate) {
        return (lead & candidate.lead_mask) == candidate.lead_mark;
      });
  if (form == kUtf8Forms.end() || text.size() - position < form->length) {
    ThrowNotUtf8();
  }
  std::uint32_t code_point = lead & ~form->lead_mask;
  for (std::size_t i = 1; i < form->length; ++i) {
    const std::uint32_t trail = static_cast<unsigned char>(text[position + i]);
    if ((trail & kTrailMask) != kTrailMark) {
      ThrowNotUtf8();
    }
    code_point = (code_point << kTrailBits) | (trail & ~kTrailMask);
  }
  if (code_point < form->first_code_point || !IsEncodable(code_point)) {
    ThrowNotUtf8();
  }
  position += form->length;
  return code_point;
}

void AppendEncoded(std::string& text, std::uint32_t code_point) {
  if (code_point < kUtf8Forms[1].first_code_point) {
    text += static_cast<char>(code_point);
    return;
  }
  std::size_t length = 2;
  while (length < kUtf8Forms.size() &&
         code_point >= kUtf8Forms[length].first_code_point) {
    ++length;
  }
  std::array<char, kUtf8Forms.size()> bytes;
  for (std::size_t i = length - 1; i > 0; --i) {
    bytes[i] = static_cast<char>(kTrailMark | (code_point & ~kTrailMask));
    code_point >>= kTrailBits;
  }
  bytes[0] = static_cast<char>(kUtf8Forms[length - 1].lead_mark | code_point);
  text.append(bytes.data(), length);
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

std::wstring s2ws(const std::string& text) {
  // A character has one byte at least.
  std::wstring result(text.size(), L'\0');
  std::size_t length = 0;
  for (std::size_t position = 0; position < text.size(); ++length) {
    result[length] = static_cast<wchar_t>(DecodeOne(text, position));
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
