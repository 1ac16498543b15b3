#include "tools/check/ItemsFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr const char* kEndsSilently =
    "the launcher ends at once with status 0 and logs nothing";

Finding FileError(const char* id, std::string problem, std::string effect,
                  std::string advice) {
  return {Severity::kError, id, {}, {}, "", problem, effect, advice};
}

Finding Unreadable(int error) {
  if (error == EISDIR) {
    return FileError("directory", "is a directory",
                     "the launcher reads it for ever, at full processor load, "
                     "and starts nothing",
                     "give the path of the items file itself");
  }
  return FileError("read-error",
                   std::string("reading fails: ") + std::strerror(error),
                   "the launcher tries for ever, at full processor load, and "
                   "starts nothing",
                   "give the path of an ordinary file");
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// The errno when the file cannot be read to its end, else 0.
int ReadAll(std::FILE* file, std::string* content) {
  constexpr std::size_t kChunkBytes = 65536;
  std::string chunk(kChunkBytes, '\0');
  while (std::feof(file) == 0) {
    errno = 0;
    content->append(chunk, 0, std::fread(chunk.data(), 1, chunk.size(), file));
    if (std::ferror(file) != 0) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

std::optional<std::string> ReadItemsFile(const std::string& path,
                                         Findings* findings, bool* readable) {
  *readable = false;
  const std::unique_ptr<std::FILE, CloseFile> file(
      std::fopen(path.c_str(), "rb"));
  if (file == nullptr) {
    findings->push_back(FileError(
        "unreadable", std::string("cannot be opened: ") + std::strerror(errno),
        kEndsSilently, "give the path of a file that the launcher may read"));
    return std::nullopt;
  }
  std::string content;
  if (const int error = ReadAll(file.get(), &content)) {
    findings->push_back(Unreadable(error));
    return std::nullopt;
  }
  *readable = true;
  if (content.empty()) {
    findings->push_back(FileError("empty", "is empty", kEndsSilently,
                                  "write {} for a list without items"));
    return std::nullopt;
  }
  const std::size_t end = std::strlen(content.c_str());
  if (end < content.size()) {
    findings->push_back(
        FileError("nul", "holds a NUL byte",
                  "the launcher reads only what stands before it",
                  "remove it; save the file as UTF-8, not as UTF-16"));
    findings->back().offset = end;
    content.resize(end);
  }
  return content;
}
