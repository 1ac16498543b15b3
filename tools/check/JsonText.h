// A JSON text as the launcher's parser reads it, with what that parser does not
// keep: the places of keys, the keys that a later one of the same name
// replaces, comments, and control characters that are not escaped.

#pragma once

#include <json/json.h>

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

// The root, its end and the keys are unspecified if there are errors.
struct JsonText {
  Json::Value root;
  // After the document and the blanks and comments that follow it.
  std::size_t end = 0;
  // One finding for each place where the parser failed, in its order; empty
  // exactly when `JsonObject(text.data(), text.size())` is a document.
  Findings errors;
  std::optional<std::size_t> comment;  // the first
  // One for each string or key with a character below U+0020.
  std::vector<std::size_t> raw_controls;
  // The keys of each object, by its offset.
  std::map<std::size_t, std::vector<JsonKey>> keys;

  // The keys of `object`, in the text's order; none if it is a
  // null pointer or not an object.
  std::vector<JsonKey> KeysOf(const Json::Value* object) const;

  // Those that a later one of the same name replaces, the last first.
  std::vector<JsonKey> ReplacedKeysOf(const Json::Value* object) const;
};

// Takes linear time at any nesting, and never throws for anything in `text`.
JsonText ReadJson(const std::string& text);

// Where `value` begins.
std::size_t OffsetOf(const Json::Value& value);

// "is an array, not a string", with `type` for "a string".
std::string IsNot(const Json::Value& value, const std::string& type);

// The key of an item that `key` probably means: "program" for "Programm" and
// "command", for example; "" if it resembles none. A key of an item means
// itself.
std::string KeyMeantBy(const std::string& key);

// The number of an item or argument in `key`: 10 for "10", but nullopt for
// "01", "+1" or "x".
std::optional<std::uint64_t> IndexOf(const std::string& key);
