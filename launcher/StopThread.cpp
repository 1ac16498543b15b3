// Stopping the children inside a signal handler would deadlock when the signal
// interrupts an allocation, and a supervision thread on which the handler runs
// would join itself. So the handler only writes a byte into a pipe, and a
// thread that waits at the other end does the work at once. Each byte is one
// SIGTERM.
//
// These are functions and not an object, because a forked child of the launcher
// may run exit-time destruction and has no such thread to join. The pipe stays
// open after the thread's end, since a handler may be writing to it.

#include "launcher/StopThread.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>

#include "launcher/ThreadStacks.h"

namespace {

constexpr int kNone = -1;

// A thread has been started when this is not `kNone`.
std::atomic<int> g_write_end = kNone;
int g_read_end = kNone;
std::atomic<bool> g_ending = false;
void (*g_stop)() = nullptr;
pthread_t g_thread;

void* Run(void*) {
  GuardThreadStack();
  char byte;
  ssize_t count;
  while ((count = read(g_read_end, &byte, 1)) == 1 || errno == EINTR) {
    if (g_ending) {
      break;
    }
    if (count == 1) {
      g_stop();
    }
  }
  return nullptr;
}

// Moves `end` above the standard descriptors, which stay free for the files
// that the process opens next, and sets close-on-exec. Returns the new number,
// or `kNone` when there is none. The old number is closed in any case.
int MoveUp(int end) {
  constexpr int kFirstOwn = 3;
  const int moved = fcntl(end, F_DUPFD_CLOEXEC, kFirstOwn);
  close(end);
  return moved;
}

// No other thread exists yet that could fork between the calls.
bool OpenPipe() {
  std::array<int, 2> ends;
  if (pipe(ends.data()) != 0) {
    return false;
  }
  const int read_end = MoveUp(ends[0]);
  const int write_end = MoveUp(ends[1]);
  // The handler must never wait. A full pipe holds enough wake-ups.
  if (read_end != kNone && write_end != kNone &&
      fcntl(write_end, F_SETFL, O_NONBLOCK) == 0) {
    g_read_end = read_end;
    g_write_end = write_end;
    return true;
  }
  close(read_end);
  close(write_end);
  return false;
}

void ClosePipe() {
  close(g_write_end.exchange(kNone));
  close(g_read_end);
}

}  // namespace

bool StartStopThread(void (*stop)()) {
  g_stop = stop;
  g_ending = false;
  g_write_end = kNone;
  if (!OpenPipe()) {
    return false;
  }
  if (CreateThread(&g_thread, Run, nullptr) != 0) {
    ClosePipe();
    return false;
  }
  return true;
}

bool WakeStopThread() {
  const int end = g_write_end;
  if (end == kNone) {
    return false;
  }
  [[maybe_unused]] const ssize_t count = write(end, "", 1);
  return true;
}

void EndStopThread() {
  if (g_write_end == kNone) {
    return;
  }
  g_ending = true;
  WakeStopThread();
  pthread_join(g_thread, nullptr);
}
