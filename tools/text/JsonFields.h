// Writing JSON with `JsonObject`: members of an object, one by one.

#pragma once

#include <cstdint>
#include <string_view>

#include "common/json/JsonObject.h"

// Stores a value under `key`, in place of any that is there. Bytes of `text`
// that are not UTF-8 become U+FFFD.
void PutText(JsonObject& object, const char* key, std::string_view text);
void PutNumber(JsonObject& object, const char* key, std::int64_t number);
void PutBool(JsonObject& object, const char* key, bool value);
void PutNull(JsonObject& object, const char* key);

// An empty array.
JsonObject JsonArray();
