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

#include "tests/support/ProcFs.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TempDir.h"

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

  // Installs the file `library` as the logger library, or none if `library` is
  // empty.
  void UseLibrary(const std::string& library);
  void SetEnvironment(const std::string& name, const std::string& value);

  // Starts the launcher with `arguments` after its own path, in a session of
  // its own. `prepare` runs in the new process before the launcher does.
  void Start(const std::vector<std::string>& arguments,
             const std::function<void()>& prepare = {});

  // Writes `items` to a file and starts the launcher on it, for "alpha".
  void StartItems(const std::string& items,
                  const std::function<void()>& prepare = {});

  pid_t Process() const { return process_; }
  void Signal(int number) const;
  // Whether the launcher has not ended yet.
  bool IsRunning();
  // Waits for the launcher's end and returns its wait status.
  int Wait();
  // Waits until `main` reads the items file and the stop thread reads its pipe,
  // so no SIGTERM is on its way.
  void AwaitReading();
  // Waits until `main` waits for the one SIGTERM that will end it.
  void AwaitWaiting();
  // Waits until, in addition, `children` run and are known to the launcher.
  void AwaitReady(int children);
  // Waits until exactly `count` children run and are known to the launcher, and
  // returns them.
  std::vector<pid_t> AwaitChildren(int count);
  // Sends SIGTERM until the launcher ends, because by design it forgets one
  // that comes too early. Returns the launcher's wait status.
  int Stop();
  // The same, and expects that the status is 1 and no process is left.
  void ExpectStops();

  // The records of the recording library.
  std::vector<LogRecord> Records() const;
  std::vector<std::string> Messages() const;
  // Whether one of these messages is `message`.
  bool HasLogged(const std::string& message) const;
  // Waits until `count` messages contain `part`, and returns those that do.
  std::vector<LogRecord> Await(const std::string& part, std::size_t count = 1);
  // The logged ends, and those of the item `name`.
  std::vector<LoggedEnd> Ends() const;
  std::vector<LoggedEnd> Ends(const std::string& name) const;
  // Waits until `count` ends of the item `name` are logged, and returns them.
  std::vector<LoggedEnd> AwaitEnds(const std::string& name,
                                   std::size_t count = 1);

 private:
  void AwaitState(const std::function<bool()>& holds);

  TempDir directory_;
  std::map<std::string, std::string> environment_;
  pid_t process_ = 0;
  std::optional<int> status_;
};
