#include "environment/AppPaths.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "common/util/ExecutablePath.h"
#include "common/util/IniProfile.h"
#include "common/util/StringHelpers.h"

namespace {

// The longest path or INI value, with its terminator.
constexpr std::size_t kBufferBytes = 1024;
using Buffer = std::array<char, kBufferBytes>;

// Empty when the path is unknown or does not fit.
std::string ExecutablePath() {
  Buffer path{};
  std::uint32_t size = path.size();
  return GetExecutablePath(path.data(), &size) < 0 ? "" : path.data();
}

// `path` with its symbolic links resolved, or unchanged when that fails or
// gives a longer path than fits here.
std::string Resolved(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(
      realpath(path.c_str(), nullptr), &std::free);
  if (!resolved) {
    return path;
  }
  std::string result = resolved.get();
  return result.size() < kBufferBytes ? result : path;
}

std::string Home() {
  const char* const home = std::getenv("HOME");
  return home == nullptr ? "" : home;
}

}  // namespace

std::string GetAppPath() {
  std::string path = ExecutablePath();
  if (path.empty()) {
    return "";
  }
  // Without a '/' this keeps the whole path.
  path.resize(std::min(path.rfind('/'), path.size()));
  path += IsFinderSync() ? "/../../../../Frameworks" : "/../Frameworks";
  return Resolved(path);
}

// Deliberate: a test of the text, not of the last path component. Extensions
// with a prefix before this name would use the ordinary layout otherwise.
bool IsFinderSync() {
  return ends_with(ExecutablePath(), "QuillmapFinderSync");
}

std::string GetSDKName() {
  const std::string file = GetAppPath() + "/qvxapi.ini";
  Buffer name{};
  GetPrivateProfileString("SDK", "NAME", "", name.data(),
                          static_cast<int>(name.size()), file);
  return name.data();
}

std::string GetAppDataPath() {
  std::string path = Home();
  if (IsFinderSync()) {
    path += "/../../../..";
  }
  return path + "/Library/Application Support";
}

// Deliberate: takes HOME as it is in both layouts, unlike GetAppDataPath.
// Otherwise the extension's log would not be in the extension's home directory,
// where users look for it.
std::string GetLogPath() {
  const std::string name = GetSDKName();
  return Home() + "/Library/Logs/" + name + "/qvxlog";
}
