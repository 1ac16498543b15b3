#include "environment/AppPaths.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "common/util/ExecutablePath.h"
#include "common/util/IniProfile.h"
#include "common/util/StringHelpers.h"

namespace {

// What a path or an INI value may take, terminator included.
constexpr std::size_t kBufferBytes = 1024;
using Buffer = std::array<char, kBufferBytes>;

// The executable's path; empty when it cannot be had.
std::string ExecutablePath() {
  Buffer path{};
  std::uint32_t size = path.size();
  return GetExecutablePath(path.data(), &size) < 0 ? "" : path.data();
}

// `path` with its symbolic links resolved, or as it stands where that fails.
// The library allocates the result, which may be longer than a path may be
// here.
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

// A test of the whole path's text, not of its last component: a longer name
// with this ending is an extension, too.
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

// The extension logs beside the others, so its layout does not count here,
// unlike in GetAppDataPath.
std::string GetLogPath() {
  const std::string name = GetSDKName();
  return Home() + "/Library/Logs/" + name + "/qvxlog";
}
