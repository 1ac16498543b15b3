#include "tests/support/Sandbox.h"

namespace sandbox {
namespace {

bool g_inside = false;

}  // namespace

bool IsInside() { return g_inside; }

}  // namespace sandbox

#ifdef __linux__

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

namespace sandbox {
namespace {

constexpr int kTimeLimitStatus = 124;
constexpr int kNoSandboxStatus = 125;
constexpr int kSignalStatus = 128;

int ExitStatus(int wait_status) {
  return WIFSIGNALED(wait_status) ? kSignalStatus + WTERMSIG(wait_status)
                                  : WEXITSTATUS(wait_status);
}

pid_t Fork() {
  const pid_t child = fork();
  if (child < 0) {
    std::perror("sandbox: fork");
    _exit(EXIT_FAILURE);
  }
  return child;
}

bool WriteFile(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  const bool written = file >= 0 && write(file, text.data(), text.size()) ==
                                        static_cast<ssize_t>(text.size());
  close(file);
  return written;
}

// A user other than root needs a user namespace to create the others.
bool Unshare() {
  constexpr int kNamespaces = CLONE_NEWPID | CLONE_NEWNS;
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (user == 0) {
    return unshare(kNamespaces) == 0;
  }
  return unshare(kNamespaces | CLONE_NEWUSER) == 0 &&
         WriteFile("/proc/self/setgroups", "deny") &&
         WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
         WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

[[noreturn]] void EndWithoutSandbox() {
  std::perror("no sandbox");
  _exit(kNoSandboxStatus);
}

[[noreturn]] void EndAs(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  _exit(ExitStatus(status));
}

// In the calling process: ends as `child` does, or returns if `child` reports
// that there is no sandbox.
void Watch(pid_t child, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      std::fprintf(stderr, "sandbox: past its time limit\n");
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      _exit(kTimeLimitStatus);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  if (ExitStatus(status) != kNoSandboxStatus) {
    _exit(ExitStatus(status));
  }
}

// In the namespace's first process: reaps orphans until the tests end. Then it
// ends, too, and with it every process of the namespace.
[[noreturn]] void Init(pid_t tests) {
  for (;;) {
    int status = 0;
    if (waitpid(-1, &status, 0) == tests) {
      _exit(ExitStatus(status));
    }
  }
}

bool Mount(const char* source, const char* target, unsigned long flags) {
  return mount(source, target, nullptr, flags, nullptr) == 0;
}

// Hides the tests' mounts from the machine. In a chroot "/" is no mount
// point, so its mount cannot be made private; the process then moves to a
// private view of the same tree, which it mounts on /proc because only there
// the machine does not see it.
bool MakeMountsPrivate() {
  if (Mount("none", "/", MS_REC | MS_PRIVATE)) {
    return true;
  }
  const auto directory = std::filesystem::current_path();
  return Mount("none", "/proc", MS_PRIVATE) &&
         Mount("/", "/proc", MS_BIND | MS_REC) &&
         Mount("none", "/proc", MS_REC | MS_PRIVATE) && chroot("/proc") == 0 &&
         chdir(directory.c_str()) == 0;
}

}  // namespace

bool Enter(std::chrono::seconds limit) {
  const pid_t outside = Fork();
  if (outside != 0) {
    Watch(outside, limit);
    return false;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (!Unshare()) {
    EndWithoutSandbox();
  }
  const pid_t init = Fork();
  if (init != 0) {
    EndAs(init);
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (!MakeMountsPrivate() || mount("proc", "/proc", "proc", 0, nullptr) != 0) {
    EndWithoutSandbox();
  }
  const pid_t tests = Fork();
  if (tests != 0) {
    Init(tests);
  }
  setsid();
  g_inside = true;
  return true;
}

}  // namespace sandbox

#else

namespace sandbox {

bool Enter(std::chrono::seconds) { return false; }

}  // namespace sandbox

#endif
