// Fails a test that leaves something open or running. Linked to every test
// program, this takes stock when a test starts, and fails the test if it ends
// with other descriptors, processes or temporary files, or with more threads.
// Works only in the sandbox, where every process belongs to the test. Temporary
// files go to a directory of the program's own.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>

#include "tests/support/Poll.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;

namespace {

bool IsNumber(const std::string& text) {
  return std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// An open file, whatever its name: another process may rename or remove a file
// that this one has inherited, such as ctest's log.
struct OpenFile {
  std::string name;
  dev_t device = 0;
  ino_t inode = 0;

  bool operator==(const OpenFile& other) const {
    return device == other.device && inode == other.inode;
  }
};

// Called by Google Test.
void PrintTo(const OpenFile& file, std::ostream* out) { *out << file.name; }

// Whether `descriptor`, open on `file`, belongs to a logger, which by design
// never closes it.
bool IsLoggers(int descriptor, const std::string& file) {
  return (fcntl(descriptor, F_GETFL) & O_APPEND) != 0 &&
         file.find(".log") != std::string::npos;
}

#ifdef __SANITIZE_THREAD__
int Threads() { return 0; }  // TSan starts threads of its own.
#else
int Threads() {
  return static_cast<int>(
      std::distance(fs::directory_iterator("/proc/self/task"), {}));
}
#endif

class Ledger : public testing::EmptyTestEventListener {
 private:
  struct Stock {
    std::map<int, OpenFile> descriptors;
    std::set<std::string> processes;
    std::set<fs::path> files;
  };

  Stock Take() const;
  void OnTestProgramStart(const testing::UnitTest& program) override;
  void OnTestStart(const testing::TestInfo& test) override;
  void OnTestEnd(const testing::TestInfo& test) override;
  void OnTestProgramEnd(const testing::UnitTest& program) override;

  std::unique_ptr<const TempDir> directory_;  // none outside the sandbox
  Stock start_;
  int threads_ = 0;
};

[[maybe_unused]] const bool g_listens = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new Ledger);
  return true;
}();

void Ledger::OnTestProgramStart(const testing::UnitTest&) {
  if (sandbox::IsInside()) {
    directory_ = std::make_unique<const TempDir>();
    setenv("TMPDIR", directory_->Path().c_str(), 1);
  }
}

Ledger::Stock Ledger::Take() const {
  Stock stock;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code vanished;
    const std::string target = fs::read_symlink(entry.path(), vanished);
    const int number = std::stoi(entry.path().filename());
    // The directory that this reads is open, too.
    if (!vanished && !target.starts_with("/proc/") &&
        !IsLoggers(number, target)) {
      struct stat status = {};
      fstat(number, &status);
      stock.descriptors[number] = {target, status.st_dev, status.st_ino};
    }
  }
  for (const auto& entry : fs::directory_iterator("/proc")) {
    if (IsNumber(entry.path().filename())) {
      stock.processes.insert(entry.path().filename());
    }
  }
  for (const auto& entry : fs::directory_iterator(directory_->Path())) {
    stock.files.insert(entry.path());
  }
  return stock;
}

void Ledger::OnTestStart(const testing::TestInfo&) {
  if (directory_ == nullptr) {
    return;
  }
  start_ = Take();
  threads_ = Threads();
}

void Ledger::OnTestEnd(const testing::TestInfo&) {
  if (directory_ == nullptr) {
    return;
  }
  // A killed process or a joined thread needs a moment to vanish.
  Eventually([&] {
    return Take().processes == start_.processes && Threads() <= threads_;
  });
  const Stock end = Take();
  EXPECT_EQ(end.descriptors, start_.descriptors);
  EXPECT_EQ(end.processes, start_.processes);
  EXPECT_EQ(end.files, start_.files);
  EXPECT_LE(Threads(), threads_);
}

void Ledger::OnTestProgramEnd(const testing::UnitTest&) { directory_.reset(); }

}  // namespace
