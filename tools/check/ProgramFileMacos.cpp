#include <mach-o/fat.h>
#include <mach-o/loader.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "tools/check/ProgramFile.h"

// There is no limit for one argument alone.
const std::size_t kLongestArgumentBytes = SIZE_MAX;
const int kMostScripts = 1;
const std::size_t kScriptLineBytes = 512;
const bool kSplitsScriptArguments = true;

std::size_t LargestArgumentsBytes() {
  return static_cast<std::size_t>(sysconf(_SC_ARG_MAX));
}

namespace {

// Every Mac executes programs for x86-64.
bool IsExecuted(cpu_type_t processor) {
  int is_arm = 0;
  std::size_t bytes = sizeof(is_arm);
  sysctlbyname("hw.optional.arm64", &is_arm, &bytes, nullptr, 0);
  return processor == CPU_TYPE_X86_64 ||
         (processor == CPU_TYPE_ARM64 && is_arm != 0);
}

}  // namespace

MaybeProblem FindBinaryProblem(const std::string& path) {
  mach_header_64 header{};
  const std::string head = BytesAt(path, 0, sizeof(header));
  std::memcpy(&header, head.data(), head.size());
  if (header.magic == FAT_CIGAM) {
    return std::nullopt;  // for several processors
  }
  if (header.magic != MH_MAGIC_64 || head.size() < sizeof(header)) {
    return ProgramProblem{
        "program-format",
        "is neither a binary nor a script with a \"#!\" line"};
  }
  if (header.filetype != MH_EXECUTE) {
    return ProgramProblem{"program-format",
                          "is a Mach-O file that is not a program"};
  }
  if (!IsExecuted(header.cputype)) {
    return ProgramProblem{"program-machine",
                          "is a program for another processor"};
  }
  return std::nullopt;
}
