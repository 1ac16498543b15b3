// The physical limit: a loop of fork, execv, waitpid and a pause of 50 ms, with
// nothing else. bare_loop <program>... runs a loop for each program, in a
// process of its own.

#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

namespace {

constexpr timespec kPause{0, 50'000'000};

[[noreturn]] void Loop(char* program) {
  for (;;) {
    const pid_t child = fork();
    if (child == 0) {
      char* const arguments[] = {program, nullptr};
      execv(program, arguments);
      _exit(1);
    }
    waitpid(child, nullptr, 0);
    nanosleep(&kPause, nullptr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc - 1; ++i) {
    if (fork() == 0) {
      Loop(argv[i]);
    }
  }
  Loop(argv[argc - 1]);
}
