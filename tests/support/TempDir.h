// A temporary directory, removed with its content by the destructor, but not in
// a forked child.

#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

class TempDir {
 public:
  TempDir() {
    std::string path =
        std::filesystem::temp_directory_path() / "launcher-test-XXXXXX";
    path_ = std::filesystem::canonical(mkdtemp(path.data()));
  }
  ~TempDir() {
    if (getpid() != owner_) {
      return;
    }
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& Path() const { return path_; }

  // Writes `content` to the file `name`, makes missing directories, and returns
  // the file's path.
  std::string Write(const std::filesystem::path& name,
                    std::string_view content) const {
    const std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

 private:
  std::filesystem::path path_;
  pid_t owner_ = getpid();
};
