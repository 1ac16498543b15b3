#include "tools/check/ItemsFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct CloseFile {
  void operator()(std::FILE* file) const {
    if (file != stdin) {
      std::fclose(file);
    }
  }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File Open(const std::string& path) {
  return File(path == kStandardInput ? stdin : std::fopen(path.c_str(), "rb"));
}

// A pipe or a device, whose reading might never end.
bool IsSpecial(const std::string& path) {
  struct stat status {};
  return path != kStandardInput && stat(path.c_str(), &status) == 0 &&
         !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

// With a byte order mark, or with a NUL in the first character.
bool IsUtf16(const std::string& text) {
  return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") ||
         text.find('\0') < 2;
}

struct Content {
  std::string text;
  int error;  // 0, or the errno value that ended the reading
};

Content ReadAll(std::FILE* file) {
  constexpr std::size_t kChunkBytes = 65536;
  Content content{"", 0};
  std::string chunk(kChunkBytes, '\0');
  while (std::feof(file) == 0) {
    errno = 0;
    const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), file);
    content.text.append(chunk, 0, count);
    if (std::ferror(file) != 0) {
      content.error = errno;
      break;
    }
  }
  return content;
}

ItemsText Unreadable(Finding finding) { return {{}, false, {finding}}; }

}  // namespace

ItemsText ReadItemsFile(const std::string& path) {
  if (IsSpecial(path)) {
    return Unreadable(Found("not-regular", {}, "is a pipe or a device"));
  }
  const File file = Open(path);
  if (file == nullptr) {
    return Unreadable(
        Found("unreadable", {},
              std::string("cannot be opened: ") + std::strerror(errno)));
  }
  Content content = ReadAll(file.get());
  if (content.error == EISDIR) {
    return Unreadable(Found("directory", {}, "is a directory"));
  }
  if (content.error != 0) {
    return Unreadable(
        Found("read-error", {},
              std::string("cannot be read: ") + std::strerror(content.error)));
  }
  if (content.text.empty()) {
    return {{}, true, {Found("empty", {}, "is empty")}};
  }
  if (IsUtf16(content.text)) {
    return {{}, true, {Found("utf-16", {}, "is not UTF-8, but UTF-16")}};
  }
  ItemsText result{{}, true, {}};
  const std::size_t end = std::strlen(content.text.c_str());
  if (end < content.text.size()) {
    result.findings.push_back(
        Found("nul", {{}, "", end}, "contains a NUL byte"));
    content.text.resize(end);
  }
  result.text = std::move(content.text);
  return result;
}
