// What the JSON library has to say about a text that it does not parse.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct JsonError {
  std::size_t offset;  // in bytes; where the parser stumbled
  std::string message;
};

// The errors in the order in which the parser met them; empty exactly when
// `JsonObject(text.data(), text.size())` is a document. Nesting beyond the
// library's limit is an error at offset 0. Throws nothing but std::bad_alloc.
// Shares no state: safe from any thread.
std::vector<JsonError> FindJsonErrors(const std::string& text);
