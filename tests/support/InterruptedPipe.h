// A named pipe whose reader is interrupted by signals. Linux only, since /proc
// shows when the reader waits.

#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Poll.h"
#include "tests/support/ProcFs.h"

// Runs `read` on the main thread while another thread writes `texts` to a new
// named pipe at `path`, and then closes it. Before each text but the first, the
// reader has taken all that was written and waits for more; a signal interrupts
// that wait, and its handler does not restart the call.
template <class Read>
void ReadInterrupted(const std::string& path,
                     const std::vector<std::string>& texts, Read read) {
  static std::atomic<int> interruptions;
  interruptions = 0;
  struct sigaction counting {};
  counting.sa_handler = [](int) { ++interruptions; };
  struct sigaction before {};
  sigaction(SIGUSR1, &counting, &before);
  mkfifo(path.c_str(), S_IRUSR | S_IWUSR);
  // For both, so that a reader that gives up does not break the pipe.
  const int pipe = open(path.c_str(), O_RDWR | O_CLOEXEC);
  std::atomic<bool> has_read = false;
  const auto reader_waits = [&] {
    int unread = 0;
    ioctl(pipe, FIONREAD, &unread);
    return unread == 0 && IsBlockedIn(getpid(), getpid(), SYS_read);
  };
  std::thread writer([&] {
    for (int i = 0; i < std::ssize(texts); ++i) {
      if (i > 0) {
        Eventually([&] { return has_read || reader_waits(); });
        SignalThread(getpid(), getpid(), SIGUSR1);
        Eventually([&] { return interruptions == i; });
      }
      const std::string& text = texts[static_cast<std::size_t>(i)];
      [[maybe_unused]] const ssize_t count =
          write(pipe, text.data(), text.size());
    }
    close(pipe);
  });
  read();
  has_read = true;
  writer.join();
  sigaction(SIGUSR1, &before, nullptr);
}
