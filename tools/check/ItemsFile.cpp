#include "tools/check/ItemsFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

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
  const File file(std::fopen(path.c_str(), "rb"));
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
