// A disk that is soon full.

#pragma once

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/TempDir.h"

// A tmpfs of a few pages and files, for the sandbox alone. It fills up a page
// at a time, so a line across the end of the last page is written only in part.
class SmallDisk {
 public:
  explicit SmallDisk(int pages) {
    const std::string size = "mode=0700,nr_inodes=" + std::to_string(kFiles) +
                             ",size=" + std::to_string(pages * kPageBytes);
    EXPECT_EQ(mount("none", Path().c_str(), "tmpfs", 0, size.c_str()), 0);
  }
  ~SmallDisk() { umount2(Path().c_str(), MNT_DETACH); }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  static constexpr int kPageBytes = 4096;

  const std::filesystem::path& Path() const { return dir_.Path(); }

  // Leaves `free_pages` free.
  void Fill(int free_pages) {
    const auto space = std::filesystem::space(Path()).free;
    dir_.Write(
        "ballast",
        std::string(space - static_cast<std::size_t>(free_pages) * kPageBytes,
                    'b'));
  }
  void Free() { std::filesystem::remove(Path() / "ballast"); }

  // Then no file can be made until `FreeFiles`.
  void UseUpFiles() {
    std::filesystem::create_directory(Path() / "files");
    int file = 0;
    while (std::ofstream(Path() / "files" / std::to_string(file)).is_open()) {
      ++file;
    }
  }
  void FreeFiles() { std::filesystem::remove_all(Path() / "files"); }

  void MakeReadOnly() {
    EXPECT_EQ(
        mount("none", Path().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr),
        0);
  }

 private:
  static constexpr int kFiles = 100;

  const TempDir dir_;
};
