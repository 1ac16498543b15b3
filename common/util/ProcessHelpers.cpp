#include "common/util/ProcessHelpers.h"

#include <signal.h>
#include <stdio.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "common/util/ExecutablePath.h"

namespace {

constexpr std::size_t kReadBytes = 128;
constexpr std::uint32_t kPathBytes = 1025;

struct CommandCloser {
  void operator()(FILE* output) const { pclose(output); }
};

}  // namespace

// Deliberate: only the end of the output ends the loop; a failed read does not.
// Otherwise a signal that interrupts a read would lose the rest of the output.
std::string pexec(std::string command) {
  const std::unique_ptr<FILE, CommandCloser> output(
      popen(command.c_str(), "r"));
  if (!output) {
    throw std::runtime_error("popen() failed!");
  }
  std::string text;
  std::array<char, kReadBytes> piece;
  while (feof(output.get()) == 0) {
    if (fgets(piece.data(), static_cast<int>(piece.size()), output.get()) !=
        nullptr) {
      text += piece.data();
    }
  }
  return text;
}

// Deliberate: a live process that the caller may not signal counts as not
// running. Otherwise callers would try to signal it and fail.
bool IsRunningPID(long long pid) {
  return kill(static_cast<pid_t>(pid), 0) == 0;
}

std::string GetCurrentPath() {
  std::array<char, kPathBytes> buffer{};
  std::uint32_t size = kPathBytes;
  GetExecutablePath(buffer.data(), &size);
  const std::string_view path = buffer.data();
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    return "";
  }
  return std::string(path.substr(0, slash));
}
