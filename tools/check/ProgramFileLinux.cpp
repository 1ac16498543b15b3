#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/check/ProgramFile.h"
#include "tools/text/Characters.h"

const std::size_t kLongestArgumentBytes = std::size_t{128} * 1024;
const int kMostScripts = 5;
const std::size_t kScriptLineBytes = 256;
const bool kSplitsScriptArguments = false;

std::size_t LargestArgumentsBytes() {
  // The kernel accepts no more, whatever the limit on the stack.
  constexpr std::size_t kMostBytes = std::size_t{6} * 1024 * 1024;
  const long bytes = sysconf(_SC_ARG_MAX);
  return bytes <= 0 ? kMostBytes
                    : std::min(static_cast<std::size_t>(bytes), kMostBytes);
}

namespace {

// The object at `offset`; nullopt if the file ends before it does.
template <class Object>
std::optional<Object> ObjectAt(const std::string& path,
                               std::uint64_t offset = 0) {
  Object object;
  const std::string bytes = BytesAt(path, offset, sizeof(object));
  if (bytes.size() != sizeof(object)) {
    return std::nullopt;
  }
  std::memcpy(&object, bytes.data(), sizeof(object));
  return object;
}

// Whether further formats are registered with the system (binfmt_misc).
bool KnowsFurtherFormats() {
  std::error_code ignored;
  const std::filesystem::directory_iterator entries("/proc/sys/fs/binfmt_misc",
                                                    ignored);
  return std::ranges::any_of(entries, [](const auto& entry) {
    const std::string name = entry.path().filename();
    return name != "register" && name != "status";
  });
}

ProgramProblem WrongFormat(const std::string& text) {
  return {"program-format", text};
}

ProgramProblem NotElf(const std::string& head) {
  constexpr std::pair<std::string_view, const char*> kForeignFormats[] = {
      {"MZ", "is a Windows program"},
      {"\xCA\xFE\xBA\xBE", "is a macOS program or a Java class"},
      {"\xCF\xFA\xED\xFE", "is a macOS program"},
      {"\xCE\xFA\xED\xFE", "is a macOS program"},
      {{"\0asm", 4}, "is a WebAssembly module"}};
  for (const auto& [magic, text] : kForeignFormats) {
    if (head.starts_with(magic)) {
      return {"program-machine", text};
    }
  }
  return WrongFormat(head.empty() ? "is an empty file"
                                  : "is neither a binary nor a script with a "
                                    "\"#!\" line");
}

// This program's own machine.
Elf64_Half OwnMachine() {
  static const auto header = ObjectAt<ElfW(Ehdr)>("/proc/self/exe");
  return header ? header->e_machine : Elf64_Half{EM_NONE};
}

// The 32-bit machine that this one's kernel also executes as a rule.
Elf64_Half SmallMachine() {
  return OwnMachine() == EM_X86_64    ? EM_386
         : OwnMachine() == EM_AARCH64 ? EM_ARM
                                      : EM_NONE;
}

// `segment` of the file at `path` names the loader.
template <class Segment>
MaybeProblem FindLoaderProblem(const std::string& path,
                               const Segment& segment) {
  std::string loader;
  if (segment.p_filesz >= 2 && segment.p_filesz <= PATH_MAX) {
    loader = BytesAt(path, segment.p_offset, segment.p_filesz);
  }
  if (loader.size() != segment.p_filesz || !loader.ends_with('\0') ||
      loader.starts_with('\0')) {
    return WrongFormat("is an ELF file that does not name its loader");
  }
  loader = loader.c_str();
  const auto problem = FindAccessProblem(loader);
  const std::string head = BytesAt(loader, 0, sizeof(ElfW(Ehdr)));
  if (!problem && head.starts_with(ELFMAG) &&
      head.size() == sizeof(ElfW(Ehdr))) {
    return std::nullopt;
  }
  return ProgramProblem{"program-loader",
                        "needs the loader " + ShellQuoted(loader) + ", which " +
                            (problem ? problem->text : "is not an ELF file")};
}

template <class Header, class Segment>
MaybeProblem FindElfProblem(const std::string& path) {
  const auto header = ObjectAt<Header>(path);
  if (!header || header->e_phentsize != sizeof(Segment) ||
      header->e_phnum == 0) {
    return WrongFormat("is an ELF file without usable program headers");
  }
  if (header->e_type != ET_EXEC && header->e_type != ET_DYN) {
    return WrongFormat("is an ELF file that is not a program");
  }
  std::vector<Segment> segments(header->e_phnum);
  const std::size_t count = segments.size() * sizeof(Segment);
  const std::string bytes = BytesAt(path, header->e_phoff, count);
  if (bytes.size() != count) {
    return WrongFormat("is an ELF file that ends within its headers");
  }
  std::memcpy(segments.data(), bytes.data(), count);
  const auto interpreter =
      std::ranges::find(segments, PT_INTERP, &Segment::p_type);
  if (interpreter != segments.end()) {
    if (auto problem = FindLoaderProblem(path, *interpreter)) {
      return problem;
    }
  }
  if (std::ranges::any_of(segments, [&](const Segment& part) {
        return part.p_type == PT_LOAD && part.p_filesz > 0 &&
               BytesAt(path, part.p_offset + part.p_filesz - 1, 1).empty();
      })) {
    return ProgramProblem{"program-truncated", "is a truncated ELF file"};
  }
  if (header->e_type == ET_DYN && header->e_entry == 0) {
    return ProgramProblem{"program-library", "is a shared library"};
  }
  return std::nullopt;
}

}  // namespace

MaybeProblem FindBinaryProblem(const std::string& path) {
  const std::string head = BytesAt(path, 0, EI_NIDENT);
  MaybeProblem problem = NotElf(head);
  if (head.starts_with(ELFMAG)) {
    const auto header = ObjectAt<ElfW(Ehdr)>(path);
    if (!header) {
      problem = WrongFormat("is an ELF file that ends within its headers");
    } else if (header->e_machine == OwnMachine()) {
      return FindElfProblem<ElfW(Ehdr), ElfW(Phdr)>(path);
    } else if (header->e_machine == SmallMachine()) {
      return FindElfProblem<Elf32_Ehdr, Elf32_Phdr>(path);
    } else {
      problem = {"program-machine", "is a program for another processor"};
    }
  }
  return KnowsFurtherFormats() ? std::nullopt : problem;
}
