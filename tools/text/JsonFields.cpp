#include "tools/text/JsonFields.h"

#include <string>

#include "tools/text/Characters.h"

void PutText(JsonObject& object, const char* key, std::string_view text) {
  object[key] = ValidUtf8(text);
}

void PutNumber(JsonObject& object, const char* key, std::int64_t number) {
  object.Insert(key, JsonObject(std::to_string(number).c_str()));
}

void PutBool(JsonObject& object, const char* key, bool value) {
  object.Insert(key, JsonObject(value ? "true" : "false"));
}

void PutNull(JsonObject& object, const char* key) {
  object.Insert(key, JsonObject(nullptr));
}

JsonObject JsonArray() { return JsonObject("[]"); }
