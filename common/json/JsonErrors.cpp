#include "common/json/JsonErrors.h"

#include <json/json.h>

// The library's ready-made text about all errors reads beyond the end of some
// texts, so the errors are asked for one by one.
std::vector<JsonError> FindJsonErrors(const std::string& text) {
  constexpr bool kCollectComments = false;
  Json::Reader reader;
  Json::Value root;
  try {
    reader.parse(text.data(), text.data() + text.size(), root,
                 kCollectComments);
  } catch (const Json::Exception& error) {
    return {{0, error.what()}};
  }
  std::vector<JsonError> errors;
  for (const auto& error : reader.getStructuredErrors()) {
    errors.push_back(
        {static_cast<std::size_t>(error.offset_start), error.message});
  }
  return errors;
}
