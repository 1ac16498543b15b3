// Where the values of a JSON text stand in it.
//
// The text's meaning is the JSON library's affair; this tells what it does not
// keep: places, the members that a later one of the same name replaces, the
// types before any conversion, and raw control characters. It is made for texts
// that the library accepts, slips included that it lets pass, and gives
// something for any other.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

enum class JsonType { kObject, kArray, kString, kNumber, kBoolean, kNull };

// "an object", "a string", ...
const char* Describe(JsonType type);

struct JsonMember;

struct JsonNode {
  JsonType type = JsonType::kNull;
  std::size_t offset = 0;           // of the value's first byte
  std::size_t bytes = 0;            // the value's length
  std::vector<JsonMember> members;  // an object's, in the text's order

  // The member that counts, the last of that name; null when there is none.
  const JsonMember* Find(const std::string& key) const;
  // The same, with a member at offset 0 that holds null when there is none.
  const JsonMember& Get(const std::string& key) const;
};

struct JsonMember {
  std::string key;
  std::size_t offset = 0;  // of the key's quotation mark
  JsonNode value;
};

struct JsonSource {
  JsonNode root;
  std::size_t end = 0;  // behind the root and the white space that follows it
  // One for each string, or key, with a character below U+0020 that is not
  // escaped.
  std::vector<std::size_t> raw_controls;
};

JsonSource LocateJson(const std::string& text);

// A place as editors count: from 1, columns in characters.
struct Place {
  std::size_t line;
  std::size_t column;
};

Place PlaceOf(const std::string& text, std::size_t offset);
