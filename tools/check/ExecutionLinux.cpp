#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <vector>

#include "tools/check/Execution.h"
#include "tools/text/ShellQuote.h"

const std::size_t kLongestArgumentBytes = std::size_t{128} * 1024;
const int kMostScripts = 5;
const std::size_t kScriptLineBytes = 256;
const bool kSplitsScriptArguments = false;

std::size_t LargestArgumentsBytes() {
  // Whatever the limit on the stack, the kernel takes no more.
  constexpr std::size_t kMostBytes = std::size_t{6} * 1024 * 1024;
  const long bytes = sysconf(_SC_ARG_MAX);
  return bytes <= 0 ? kMostBytes
                    : std::min(static_cast<std::size_t>(bytes), kMostBytes);
}

namespace {

// Parts of a file, read as the kernel does.
class BinaryFile {
 public:
  explicit BinaryFile(const std::string& path)
      : stream_(path, std::ios::binary) {
    std::error_code ignored;
    bytes_ = std::filesystem::file_size(path, ignored);
  }

  std::uintmax_t Bytes() const { return bytes_; }

  // The object at `offset`; nothing when the file ends before.
  template <class Object>
  std::optional<Object> At(std::uint64_t offset) {
    Object object;
    const auto text = TextAt(offset, sizeof(object));
    if (text.size() != sizeof(object)) {
      return std::nullopt;
    }
    std::memcpy(&object, text.data(), sizeof(object));
    return object;
  }

  // Up to `bytes` of what is at `offset`.
  std::string TextAt(std::uint64_t offset, std::size_t bytes) {
    std::string text(bytes, '\0');
    stream_.clear();
    stream_.seekg(static_cast<std::streamoff>(offset));
    stream_.read(text.data(), static_cast<std::streamsize>(bytes));
    text.resize(static_cast<std::size_t>(stream_.gcount()));
    return text;
  }

 private:
  std::ifstream stream_;
  std::uintmax_t bytes_ = 0;
};

struct Format {
  std::string_view magic;
  const char* name;
};

constexpr Format kForeignFormats[] = {
    {"MZ", "a Windows program"},
    {"\xCA\xFE\xBA\xBE", "a macOS program or a Java class"},
    {"\xCF\xFA\xED\xFE", "a macOS program"},
    {"\xCE\xFA\xED\xFE", "a macOS program"},
    {std::string_view("\0asm", 4), "a WebAssembly module"},
};

constexpr std::string_view kElf(ELFMAG, SELFMAG);

// Whether the system has been taught further formats (binfmt_misc).
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
  return {"program-format", text, ""};
}

ProgramProblem NotElf(const std::string& head) {
  for (const Format& format : kForeignFormats) {
    if (head.starts_with(format.magic)) {
      return {"program-machine", std::string("is ") + format.name, ""};
    }
  }
  return WrongFormat(head.empty()
                         ? "is an empty file"
                         : "is neither a binary nor a script with a \"#!\" "
                           "line");
}

// This program's own machine.
Elf64_Half OwnMachine() {
  static const auto header = BinaryFile("/proc/self/exe").At<ElfW(Ehdr)>(0);
  return header ? header->e_machine : Elf64_Half{EM_NONE};
}

// The 32-bit machine that this one's kernel also executes as a rule.
Elf64_Half SmallMachine() {
  switch (OwnMachine()) {
    case EM_X86_64:
      return EM_386;
    case EM_AARCH64:
      return EM_ARM;
    default:
      return EM_NONE;
  }
}

std::optional<ProgramProblem> FindLoaderProblem(const std::string& loader) {
  const ProgramProblem rule{"program-loader", "", ""};
  const std::string text = "needs the loader " + ShellQuoted(loader) + ", ";
  if (const auto problem = FindAccessProblem(loader)) {
    return ProgramProblem{rule.rule, text + "which " + problem->text, ""};
  }
  const auto header = BinaryFile(loader).At<ElfW(Ehdr)>(0);
  if (!header || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) {
    return ProgramProblem{rule.rule, text + "which is not an ELF file", ""};
  }
  return std::nullopt;
}

// The path in the file's loader segment; empty when the kernel refuses it.
template <class Segment>
std::string LoaderIn(BinaryFile& file, const Segment& segment) {
  if (segment.p_filesz < 2 || segment.p_filesz > PATH_MAX) {
    return "";
  }
  const std::string loader = file.TextAt(segment.p_offset, segment.p_filesz);
  const bool is_whole = loader.size() == segment.p_filesz;
  return is_whole && loader.back() == '\0' ? loader.c_str() : "";
}

template <class Segment>
std::optional<ProgramProblem> FindSegmentProblem(
    BinaryFile& file, const std::vector<Segment>& segments) {
  const auto loader = std::ranges::find(segments, PT_INTERP, &Segment::p_type);
  if (loader != segments.end()) {
    const std::string path = LoaderIn(file, *loader);
    if (path.empty()) {
      return WrongFormat("is an ELF file whose loader has no name");
    }
    if (auto problem = FindLoaderProblem(path)) {
      return problem;
    }
  }
  const bool is_cut = std::ranges::any_of(segments, [&](const Segment& part) {
    return part.p_type == PT_LOAD &&
           std::uint64_t{part.p_offset} + part.p_filesz > file.Bytes();
  });
  if (is_cut) {
    return ProgramProblem{"program-truncated", "is an ELF file that is cut",
                          ""};
  }
  return std::nullopt;
}

template <class Header, class Segment>
std::optional<ProgramProblem> FindElfProblem(BinaryFile& file) {
  const auto header = file.At<Header>(0);
  if (!header || header->e_phentsize != sizeof(Segment) ||
      header->e_phnum == 0) {
    return WrongFormat("is an ELF file without usable program headers");
  }
  if (header->e_type != ET_EXEC && header->e_type != ET_DYN) {
    return WrongFormat("is an ELF file that is not a program");
  }
  std::vector<Segment> segments;
  for (std::uint64_t i = 0; i < header->e_phnum; ++i) {
    const auto segment =
        file.At<Segment>(header->e_phoff + i * sizeof(Segment));
    if (!segment) {
      return WrongFormat("is an ELF file that is cut within its headers");
    }
    segments.push_back(*segment);
  }
  if (auto problem = FindSegmentProblem(file, segments)) {
    return problem;
  }
  const bool has_entry = header->e_type == ET_EXEC || header->e_entry != 0;
  return has_entry ? std::nullopt
                   : std::optional(ProgramProblem{"program-library",
                                                  "is a shared library", ""});
}

}  // namespace

std::optional<ProgramProblem> FindBinaryProblem(const std::string& path) {
  BinaryFile file(path);
  const std::string head = file.TextAt(0, EI_NIDENT);
  std::optional<ProgramProblem> problem = NotElf(head);
  if (head.starts_with(kElf)) {
    const auto header = file.At<ElfW(Ehdr)>(0);
    if (!header) {
      problem = WrongFormat("is an ELF file that is cut within its headers");
    } else if (header->e_machine == OwnMachine()) {
      return FindElfProblem<ElfW(Ehdr), ElfW(Phdr)>(file);
    } else if (header->e_machine == SmallMachine()) {
      return FindElfProblem<Elf32_Ehdr, Elf32_Phdr>(file);
    } else {
      problem = {"program-machine", "is a program for another processor", ""};
    }
  }
  return KnowsFurtherFormats() ? std::nullopt : problem;
}
