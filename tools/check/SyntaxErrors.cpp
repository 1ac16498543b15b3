#include "tools/check/SyntaxErrors.h"

#include <json/json.h>

namespace {

Finding ErrorAt(std::size_t offset, const std::string& message) {
  return Found("not-json", {{}, "", offset}, "is not JSON: " + message);
}

}  // namespace

// The launcher's own reader, since others accept more. Its ready-made text
// about all errors reads beyond the end of some texts.
Findings FindSyntaxErrors(const std::string& text) {
  constexpr bool kCollectComments = false;
  Json::Reader reader;
  Json::Value root;
  try {
    reader.parse(text.data(), text.data() + text.size(), root,
                 kCollectComments);
  } catch (const Json::Exception& error) {
    return {ErrorAt(0, error.what())};
  }
  Findings findings;
  for (const auto& error : reader.getStructuredErrors()) {
    findings.push_back(
        ErrorAt(static_cast<std::size_t>(error.offset_start), error.message));
  }
  return findings;
}
