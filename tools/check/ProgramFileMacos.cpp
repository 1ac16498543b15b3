#include <sys/sysctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string_view>

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

// The beginning of a Mach-O file for one processor.
struct MachHeader {
  char magic[4];
  std::uint32_t processor;
  std::uint32_t model;
  std::uint32_t type;
};

constexpr std::string_view kMagic = "\xCF\xFA\xED\xFE";
constexpr std::string_view kManyProcessorsMagic = "\xCA\xFE\xBA\xBE";
constexpr std::uint32_t kX86 = 0x01000007;
constexpr std::uint32_t kArm = 0x0100000C;
constexpr std::uint32_t kProgram = 2;

// Every Mac executes programs for x86-64.
bool IsExecuted(std::uint32_t processor) {
  int is_arm = 0;
  std::size_t bytes = sizeof(is_arm);
  sysctlbyname("hw.optional.arm64", &is_arm, &bytes, nullptr, 0);
  return processor == kX86 || (processor == kArm && is_arm != 0);
}

}  // namespace

MaybeProblem FindBinaryProblem(const std::string& path) {
  MachHeader header{};
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(&header), sizeof(header));
  const std::string_view magic(header.magic, sizeof(header.magic));
  if (magic == kManyProcessorsMagic) {
    return std::nullopt;
  }
  if (magic != kMagic || file.gcount() != sizeof(header)) {
    return ProgramProblem{
        "program-format",
        "is neither a binary nor a script with a \"#!\" line"};
  }
  if (header.type != kProgram) {
    return ProgramProblem{"program-format",
                          "is a Mach-O file that is not a program"};
  }
  if (!IsExecuted(header.processor)) {
    return ProgramProblem{"program-machine",
                          "is a program for another processor"};
  }
  return std::nullopt;
}
