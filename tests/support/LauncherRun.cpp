#include "tests/support/LauncherRun.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "tests/support/Poll.h"

#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace fs = std::filesystem;

namespace {

#ifdef __linux__
constexpr long kReadCall = SYS_read;
constexpr long kLockCall = SYS_futex;
#else
// No test calls this without /proc.
constexpr long kReadCall = 0;
constexpr long kLockCall = 0;
#endif

}  // namespace

std::string Sleeper(const std::string& name) {
  return R"({"name": ")" + name +
         R"(", "program": "/bin/sleep", "argc": 1, "args": {"0": "1000"}})";
}

std::string Tick(const std::string& name) {
  return R"({"name": ")" + name + R"(", "program": "/bin/true"})";
}

std::string ItemsFile(const std::vector<std::string>& items) {
  std::string text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    text += (i == 0 ? "" : ", ");
    text += "\"" + std::to_string(i) + "\": " + items[i];
  }
  return "{" + text + "}";
}

LauncherRun::LauncherRun() {
  fs::create_directories(Executable().parent_path());
  fs::create_directories(Frameworks());
  fs::create_symlink(LAUNCHER_BINARY, Executable());
  UseLibrary(RECORDING_LIBRARY);
  directory_.Write("Contents/Frameworks/qvxapi.ini", "[SDK]\nNAME=Demo\n");
  directory_.Write("home/Library/Application Support/Demo/log.ini", "");
  SetEnvironment("HOME", Home());
  SetEnvironment("RECORDING", directory_.Path() / "recording");
}

LauncherRun::~LauncherRun() {
  if (process_ == 0) {
    return;
  }
  if (!status_) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  EndSession(process_);
}

fs::path LauncherRun::Executable() const {
  return Root() / "Contents/MacOS/launcher";
}

fs::path LauncherRun::Frameworks() const {
  return Root() / "Contents/Frameworks";
}

fs::path LauncherRun::Home() const { return Root() / "home"; }

void LauncherRun::UseLibrary(const std::string& library) {
  const fs::path file = Frameworks() / LAUNCHER_LOGGER_FILE;
  fs::remove(file);
  if (!library.empty()) {
    fs::create_symlink(library, file);
  }
}

void LauncherRun::SetEnvironment(const std::string& name,
                                 const std::string& value) {
  environment_[name] = value;
}

void LauncherRun::Start(const std::vector<std::string>& arguments,
                        const std::function<void()>& prepare) {
  const std::string executable = Executable();
  std::vector<char*> vector{const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) {
    vector.push_back(const_cast<char*>(argument.c_str()));
  }
  vector.push_back(nullptr);
  process_ = fork();
  if (process_ == 0) {
    setsid();
    for (const auto& [name, value] : environment_) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    if (prepare) {
      prepare();
    }
    execv(executable.c_str(), vector.data());
    _exit(127);
  }
}

void LauncherRun::StartItems(const std::string& items,
                             const std::function<void()>& prepare) {
  Start({"alpha", directory_.Write("items.json", items)}, prepare);
}

void LauncherRun::Signal(int number) const { kill(process_, number); }

bool LauncherRun::IsRunning() {
  int status = 0;
  if (process_ != 0 && !status_ &&
      waitpid(process_, &status, WNOHANG) == process_) {
    status_ = status;
  }
  return process_ != 0 && !status_;
}

int LauncherRun::Wait() {
  if (!Eventually([this] { return !IsRunning(); })) {
    throw std::runtime_error("the launcher does not end");
  }
  return *status_;
}

void LauncherRun::AwaitReading() {
  AwaitState([this] {
    const std::vector<pid_t> threads = ThreadsOf(process_);
    return threads.size() == 2 &&
           std::ranges::all_of(threads, [this](pid_t thread) {
             return IsBlockedIn(process_, thread, kReadCall);
           });
  });
}

void LauncherRun::AwaitWaiting() {
  AwaitState([this] { return IsBlockedIn(process_, process_, kLockCall); });
}

void LauncherRun::AwaitReady(int children) {
  AwaitState([&] {
    return ThreadsInWait(process_) == children &&
           IsBlockedIn(process_, process_, kLockCall);
  });
}

// The state must hold twice in a row: the threads are looked at one after
// another, and one may wait for a lock for a moment. The launcher may also end.
void LauncherRun::AwaitState(const std::function<bool()>& holds) {
  int seen = 0;
  EXPECT_TRUE(Eventually([&] {
    seen = holds() ? seen + 1 : 0;
    return seen == 2 || !IsRunning();
  }));
}

int LauncherRun::Stop() {
  constexpr std::chrono::seconds kPatience{2};
  while (IsRunning()) {
    Signal(SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    Eventually([&] {
      return !IsRunning() || std::chrono::steady_clock::now() > deadline;
    });
  }
  return *status_;
}

std::vector<pid_t> LauncherRun::AwaitChildren(int count) {
  std::vector<pid_t> children;
  EXPECT_TRUE(Eventually([&] {
    children = ChildrenOf(process_);
    return std::ssize(children) == count && ThreadsInWait(process_) == count;
  }));
  return children;
}

void LauncherRun::ExpectStops() {
  const int status = Stop();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
  EXPECT_TRUE(SessionOf(process_).empty());
}

std::vector<LogRecord> LauncherRun::Records() const {
  return RecordingLog::Read(directory_.Path() / "recording");
}

std::vector<std::string> LauncherRun::Messages() const {
  std::vector<std::string> messages;
  for (const LogRecord& record : Records()) {
    messages.push_back(record.message);
  }
  return messages;
}

bool LauncherRun::HasLogged(const std::string& message) const {
  const std::vector<std::string> messages = Messages();
  return std::ranges::find(messages, message) != messages.end();
}

std::vector<LogRecord> LauncherRun::Await(const std::string& part,
                                          std::size_t count) {
  std::vector<LogRecord> records;
  EXPECT_TRUE(Eventually([&] {
    records = Records();
    std::erase_if(records, [&](const LogRecord& record) {
      return record.message.find(part) == std::string::npos;
    });
    return records.size() >= count;
  })) << "only "
      << records.size() << " of " << part;
  return records;
}

std::vector<LoggedEnd> LauncherRun::Ends() const {
  std::vector<LoggedEnd> ends;
  for (const LogRecord& record : Records()) {
    if (const auto end = EndIn(record)) {
      ends.push_back(*end);
    }
  }
  return ends;
}

std::vector<LoggedEnd> LauncherRun::Ends(const std::string& name) const {
  std::vector<LoggedEnd> ends = Ends();
  std::erase_if(ends, [&](const LoggedEnd& end) { return end.name != name; });
  return ends;
}

std::vector<LoggedEnd> LauncherRun::AwaitEnds(const std::string& name,
                                              std::size_t count) {
  EXPECT_TRUE(Eventually([&] { return Ends(name).size() >= count; })) << name;
  return Ends(name);
}
