// The main of every test program: enters the sandbox, then runs the tests.

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/Sandbox.h"
#include "tests/support/Soak.h"

namespace {

pid_t g_test_process = 0;

}  // namespace

// The sanitizers call these functions if the program is built with them.
extern "C" {

// Tests check the wait statuses of children that a signal ends.
__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "handle_segv=0:handle_abort=0";
}

// In a forked child that exits, memory of the other threads looks like a leak.
__attribute__((visibility("default"))) int __lsan_is_turned_off() {
  return getpid() != g_test_process;
}

// The logger library's loggers are never released, by design.
__attribute__((visibility("default"))) const char*
__lsan_default_suppressions() {
  return "leak:GetLogger\n";
}

}  // extern "C"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!GTEST_FLAG_GET(list_tests)) {
    constexpr std::chrono::minutes kTimeLimit{20};
    constexpr std::chrono::minutes kSoakTimeLimit{60};
    sandbox::Enter(SoakOr(kSoakTimeLimit, kTimeLimit));
  }
  g_test_process = getpid();
  return RUN_ALL_TESTS();
}
