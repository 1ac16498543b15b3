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

constexpr std::pair<std::string_view, const char*> kForeignFormats[] = {
    {"MZ", "is a Windows program"},
    {"\xCA\xFE\xBA\xBE", "is a macOS program or a Java class"},
    {"\xCF\xFA\xED\xFE", "is a macOS program"},
    {"\xCE\xFA\xED\xFE", "is a macOS program"},
    {{"\0asm", 4}, "is a WebAssembly module"},
};

constexpr std::string_view kElf(ELFMAG, SELFMAG);

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
  for (const auto& [magic, text] : kForeignFormats) {
    if (head.starts_with(magic)) {
      return {"program-machine", text};
    }
  }
  return WrongFormat(head.empty()
                         ? "is an empty file"
                         : "is neither a binary nor a script with a \"#!\" "
                           "line");
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

std::optional<ProgramProblem> FindLoaderProblem(const std::string& loader) {
  const auto problem = FindAccessProblem(loader);
  const std::string head = BytesAt(loader, 0, sizeof(ElfW(Ehdr)));
  if (!problem && head.starts_with(kElf) && head.size() == sizeof(ElfW(Ehdr))) {
    return std::nullopt;
  }
  return ProgramProblem{"program-loader",
                        "needs the loader " + ShellQuoted(loader) + ", which " +
                            (problem ? problem->text : "is not an ELF file")};
}

// The path in the file's loader segment; empty if the kernel rejects it.
template <class Segment>
std::string LoaderIn(const std::string& path, const Segment& segment) {
  if (segment.p_filesz < 2 || segment.p_filesz > PATH_MAX) {
    return "";
  }
  const std::string loader = BytesAt(path, segment.p_offset, segment.p_filesz);
  const bool is_whole = loader.size() == segment.p_filesz;
  return is_whole && loader.back() == '\0' ? loader.c_str() : "";
}

template <class Segment>
std::optional<ProgramProblem> FindSegmentProblem(
    const std::string& path, const std::vector<Segment>& segments) {
  const auto interpreter =
      std::ranges::find(segments, PT_INTERP, &Segment::p_type);
  if (interpreter != segments.end()) {
    const std::string loader = LoaderIn(path, *interpreter);
    if (loader.empty()) {
      return WrongFormat("is an ELF file that does not name its loader");
    }
    if (auto problem = FindLoaderProblem(loader)) {
      return problem;
    }
  }
  const bool is_cut = std::ranges::any_of(segments, [&](const Segment& part) {
    return part.p_type == PT_LOAD && part.p_filesz > 0 &&
           BytesAt(path, part.p_offset + part.p_filesz - 1, 1).empty();
  });
  if (is_cut) {
    return ProgramProblem{"program-truncated", "is a truncated ELF file"};
  }
  return std::nullopt;
}

template <class Header, class Segment>
std::optional<ProgramProblem> FindElfProblem(const std::string& path) {
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
  if (auto problem = FindSegmentProblem(path, segments)) {
    return problem;
  }
  const bool has_entry = header->e_type == ET_EXEC || header->e_entry != 0;
  return has_entry ? std::nullopt
                   : std::optional(ProgramProblem{"program-library",
                                                  "is a shared library"});
}

}  // namespace

std::optional<ProgramProblem> FindBinaryProblem(const std::string& path) {
  const std::string head = BytesAt(path, 0, EI_NIDENT);
  std::optional<ProgramProblem> problem = NotElf(head);
  if (head.starts_with(kElf)) {
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
