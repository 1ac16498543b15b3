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
#include <string>
#include <thread>

namespace sandbox {
namespace {

constexpr int kTimeLimitStatus = 124;
constexpr int kSignalStatus = 128;

int ExitStatus(int wait_status) {
  return WIFSIGNALED(wait_status) ? kSignalStatus + WTERMSIG(wait_status)
                                  : WEXITSTATUS(wait_status);
}

bool WriteFile(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  const bool written = file >= 0 && write(file, text.data(), text.size()) ==
                                        static_cast<ssize_t>(text.size());
  close(file);
  return written;
}

// A tester who is not root needs a user namespace to make the others.
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

// The calling process: waits for the namespace's first process.
[[noreturn]] void Watch(pid_t init, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (waitpid(init, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      std::fprintf(stderr, "sandbox: past its time limit\n");
      kill(init, SIGKILL);
      waitpid(init, &status, 0);
      _exit(kTimeLimitStatus);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  _exit(ExitStatus(status));
}

// The namespace's first process: reaps what loses its parent, and takes the
// namespace with it when the tests are done.
[[noreturn]] void Init(pid_t tests) {
  for (;;) {
    int status = 0;
    if (waitpid(-1, &status, 0) == tests) {
      _exit(ExitStatus(status));
    }
  }
}

}  // namespace

bool Enter(std::chrono::seconds limit) {
  if (!Unshare()) {
    return false;
  }
  const pid_t init = fork();
  if (init != 0) {
    Watch(init, limit);
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("proc", "/proc", "proc", 0, nullptr) != 0) {
    std::perror("sandbox: mount");
    _exit(EXIT_FAILURE);
  }
  const pid_t tests = fork();
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
