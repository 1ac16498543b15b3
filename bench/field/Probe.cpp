// The supervised program: it records the time of its first instruction, runs
// for the time that its record gives, records its end, and ends.
//
// It has no C library. The start-up of a C library would hide the supervisor's
// own cost, and the clocks have to be read before anything else.

#include <asm/unistd.h>
#include <fcntl.h>
#include <linux/time.h>
#include <sys/mman.h>

#include "bench/field/Record.h"

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

std::int64_t Call(std::int64_t number, std::int64_t a = 0, std::int64_t b = 0,
                  std::int64_t c = 0, std::int64_t d = 0, std::int64_t e = 0,
                  std::int64_t f = 0) {
  register std::int64_t r10 asm("r10") = d;
  register std::int64_t r8 asm("r8") = e;
  register std::int64_t r9 asm("r9") = f;
  std::int64_t result;
  asm volatile("syscall"
               : "=a"(result)
               : "a"(number), "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
               : "rcx", "r11", "memory");
  return result;
}

std::int64_t Address(const void* pointer) {
  return reinterpret_cast<std::int64_t>(pointer);
}

std::int64_t Now(std::int64_t clock) {
  __kernel_timespec time;
  Call(__NR_clock_gettime, clock, Address(&time));
  return time.tv_sec * kNanoseconds + time.tv_nsec;
}

// The file "record" in the program's folder; `program` may be a relative path.
Record* Map(const char* program) {
  constexpr char kName[] = "record";
  char path[4096];
  int end = 0;
  for (int i = 0; program[i] != '\0'; ++i) {
    path[i] = program[i];
    if (program[i] == '/') {
      end = i + 1;
    }
  }
  for (const char character : kName) {
    path[end++] = character;
  }
  const std::int64_t file = Call(__NR_open, Address(path), O_RDWR);
  return reinterpret_cast<Record*>(Call(__NR_mmap, 0, sizeof(Record),
                                        PROT_READ | PROT_WRITE, MAP_SHARED,
                                        file, 0));
}

void Sleep(std::int64_t nanoseconds) {
  const __kernel_timespec time{nanoseconds / kNanoseconds,
                               nanoseconds % kNanoseconds};
  Call(__NR_nanosleep, Address(&time), 0);
}

}  // namespace

extern "C" [[noreturn]] void Live(const char* const* stack) {
  const std::int64_t first = Now(CLOCK_MONOTONIC);
  const std::int64_t processor = Now(CLOCK_PROCESS_CPUTIME_ID);
  const char* const program = stack[1];
  Record* const record = Map(program);
  Life& life = record->lives[record->count % kLives];
  life = {first, processor, 0, Call(__NR_getpid)};
  __atomic_add_fetch(&record->count, 1, __ATOMIC_SEQ_CST);
  while (record->lifetime < 0) {
    Call(__NR_pause);
  }
  Sleep(record->lifetime);
  life.last = Now(CLOCK_MONOTONIC);
  for (;;) {
    Call(__NR_exit_group);
  }
}

// The stack begins with the number of arguments; the arguments follow.
asm(".globl _start\n"
    "_start: mov %rsp, %rdi\n"
    "call Live\n");
