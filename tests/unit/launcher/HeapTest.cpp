#include <gtest/gtest.h>

#ifdef __linux__

#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "launcher/Heap.h"
#include "tests/support/ForkedChild.h"

namespace {

// The C library's heaps, one mark for each in its own statistics.
int Heaps() {
  char* text = nullptr;
  std::size_t length = 0;
  std::FILE* const stream = open_memstream(&text, &length);
  malloc_info(0, stream);
  std::fclose(stream);
  const std::string account(text, length);
  std::free(text);
  int heaps = 0;
  for (std::size_t at = 0;
       (at = account.find("<heap nr=", at)) != std::string::npos; ++at) {
    ++heaps;
  }
  return heaps;
}

std::size_t ResidentBytes() {
  std::size_t size = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<std::size_t>(getpagesize());
}

TEST(Heap, IsOneForAllThreads) {
  EXPECT_EQ(InForkedChild([] {
              constexpr int kThreads = 4;
              ShareHeap();
              const int before = Heaps();
              std::latch allocated(kThreads);
              std::vector<std::thread> threads;
              for (int i = 0; i < kThreads; ++i) {
                threads.emplace_back([&] {
                  const std::string text(1000, 'x');
                  allocated.arrive_and_wait();
                });
              }
              for (std::thread& thread : threads) {
                thread.join();
              }
              return Heaps() - before;
            }),
            0);
}

TEST(Heap, ReturnsUnusedMemoryBelowUsedMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer has a heap of its own";
#endif
  EXPECT_EQ(InForkedChild([] {
              constexpr std::size_t kBlocks = 100'000;
              constexpr std::size_t kBlockBytes = 100;
              std::vector<std::string> blocks(kBlocks);
              for (std::string& block : blocks) {
                block.assign(kBlockBytes, 'x');
              }
              blocks.erase(blocks.begin(), blocks.end() - 1);
              const std::size_t before = ResidentBytes();
              TrimHeap();
              const std::size_t returned = before - ResidentBytes();
              return returned > kBlocks * kBlockBytes / 2 ? 0 : 1;
            }),
            0);
}

}  // namespace

#endif
