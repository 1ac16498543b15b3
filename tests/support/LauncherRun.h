// A real launcher in a bundle tree and a home of its own, for the sandbox.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/RecordingLog.h"
#include "tests/support/TempDir.h"

// The processes whose parent is `process`, in ascending order.
std::vector<pid_t> ChildrenOf(pid_t process);

// The threads of `process`, in no order; none when it is gone.
std::vector<pid_t> ThreadsOf(pid_t process);

// How many threads of `process` wait for a child: each of them has forked and
// knows its child's id. A SIGTERM before that kills the launcher's own process
// group, as required.
int ThreadsInWait(pid_t process);

// Whether `thread` of `process` is blocked in the system call `call`.
bool IsBlockedIn(pid_t process, pid_t thread, long call);

// Sends the signal `number` to one thread of another process.
void SignalThread(pid_t process, pid_t thread, int number);

// The processes of the session that `leader` leads or has led.
std::vector<pid_t> SessionOf(pid_t leader);

// Kills what the session that `leader` leads or has led still holds, but for
// the caller, until there is nothing left: a chain grows meanwhile.
void EndSession(pid_t leader);

// The descriptors that `process` has open, with what they refer to; none when
// it is gone.
std::map<int, std::string> DescriptorsOf(pid_t process);

// The item `name`, which runs "/bin/sleep 1000".
std::string Sleeper(const std::string& name);

// The item `name`, which ends at once.
std::string Tick(const std::string& name);

// An items file of `items`.
std::string ItemsFile(const std::vector<std::string>& items);

class LauncherRun {
 public:
  // Stages the launcher with the recording library (tests/support/
  // RecordingLibrary.cpp) in place of liblogger, an SDK name of "Demo" and an
  // empty log.ini.
  LauncherRun();
  // Kills the launcher and its session if they still run.
  ~LauncherRun();
  LauncherRun(const LauncherRun&) = delete;
  LauncherRun& operator=(const LauncherRun&) = delete;

  const std::filesystem::path& Root() const { return directory_.Path(); }
  std::filesystem::path Executable() const;
  std::filesystem::path Frameworks() const;
  std::filesystem::path Home() const;
  const TempDir& Directory() const { return directory_; }

  // Puts `library` (a path) in the place of the logger library; none when
  // empty.
  void UseLibrary(const std::string& library);
  void SetEnvironment(const std::string& name, const std::string& value);

  // Starts the launcher with `arguments` behind its own path, in a session of
  // its own. `prepare` runs in the new process before the launcher takes it
  // over.
  void Start(const std::vector<std::string>& arguments,
             const std::function<void()>& prepare = {});

  // Writes `items` to a file and starts the launcher on it, for "alpha".
  void StartItems(const std::string& items,
                  const std::function<void()>& prepare = {});

  pid_t Process() const { return process_; }
  void Signal(int number) const;
  // Whether the launcher has not ended yet.
  bool IsRunning();
  // Waits for the launcher's end and gives its wait status.
  int Wait();
  // Waits until `main` and the stop thread read, the items file and the pipe:
  // no SIGTERM is on its way.
  void AwaitReading();
  // Waits until `main` waits for the one SIGTERM that will end it.
  void AwaitWaiting();
  // Waits until, in addition, `children` run and are known to the launcher.
  void AwaitReady(int children);
  // Sends SIGTERM until the launcher ends (one that comes too early is not
  // remembered, by design) and gives the wait status.
  int Stop();

  // What the recording library has been given.
  std::vector<LogRecord> Records() const;
  std::vector<std::string> Messages() const;
  // Waits until `count` messages hold `part`; gives those that do.
  std::vector<LogRecord> Await(const std::string& part, std::size_t count = 1);

 private:
  void AwaitState(const std::function<bool()>& holds);

  TempDir directory_;
  std::map<std::string, std::string> environment_;
  pid_t process_ = 0;
  std::optional<int> status_;
};
