#include "logger/FileSizeLimit.h"

#include <csignal>

namespace {

void DoNothing(int /*signal*/) {}

}  // namespace

void SurviveFileSizeLimit() {
  struct sigaction present {};
  if (sigaction(SIGXFSZ, nullptr, &present) == 0 &&
      (present.sa_flags & SA_SIGINFO) == 0 && present.sa_handler == SIG_DFL) {
    struct sigaction surviving {};
    surviving.sa_handler = DoNothing;
    surviving.sa_flags = SA_RESTART;
    sigaction(SIGXFSZ, &surviving, nullptr);
  }
}
