// Facts about a JSON text that the library does not keep: the places of its
// keys, the keys that a later one of the same name replaces, comments, and
// control characters that are not escaped. The library does keep the places of
// values.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/check/Findings.h"

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

struct JsonKey {
  std::string name;
  std::size_t offset;  // of its quotation mark
};

struct JsonText {
  // The keys of each object in the text's order, by the offset of the object's
  // opening brace.
  std::map<std::size_t, std::vector<JsonKey>> keys;
  std::optional<std::size_t> comment;  // the first
  // One for each string or key with a character below U+0020.
  std::vector<std::size_t> raw_controls;

  // The keys of the object whose opening brace is at `offset`.
  const std::vector<JsonKey>& KeysAt(std::size_t offset) const;

  // The keys among these that a later one of the same name replaces.
  std::vector<JsonKey> ReplacedKeysAt(std::size_t offset) const;
};

// Scans a text that the library accepts, including errors that it overlooks;
// the result for any other text is unspecified. Takes linear time at any
// nesting.
JsonText ScanJson(const std::string& text);

// The first byte of `text` at or after `offset` that is neither white space nor
// in a comment; the text's size if there is none.
std::size_t NextToken(const std::string& text, std::size_t offset);

// Why a text is not JSON for the launcher: one finding for each place where the
// parser failed, in its order; empty exactly when
// `JsonObject(text.data(), text.size())` is a document.
Findings FindSyntaxErrors(const std::string& text);

// The key of an item that `key` probably means: "program" for "Programm" and
// "command", for example; "" if it resembles none. A key of an item means
// itself.
std::string KeyMeantBy(const std::string& key);

// The number of an item or argument in `key`: 10 for "10", but nullopt for
// "01", "+1" or "x".
std::optional<std::uint64_t> IndexOf(const std::string& key);
