// The symbols that the library exports, and those that it calls.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>

namespace {

using Names = std::set<std::string>;

struct Close {
  void operator()(std::FILE* pipe) const { pclose(pipe); }
};

// The last words of the lines that `command` prints.
Names LastWords(const std::string& command) {
  const std::unique_ptr<std::FILE, Close> pipe(popen(command.c_str(), "r"));
  std::string output;
  for (int c = std::fgetc(pipe.get()); c != EOF; c = std::fgetc(pipe.get())) {
    output += static_cast<char>(c);
  }
  Names words;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    words.insert(line.substr(line.rfind(' ') + 1));
  }
  return words;
}

TEST(Library, ExportsItsTwoEntryPointsAndNothingElse) {
  EXPECT_EQ(LastWords("nm -D --defined-only " LOGGER_LIBRARY),
            (Names{"GetLogger", "InitLogger"}));
}

// A forked child of a threaded process may log. So this list must not gain a
// function that takes a lock that another thread may have held at the fork,
// reads the time zone or uses stdio's streams.
const Names kAllowed{
    // From LogV to the `write`, rotation included. readdir and rewinddir lock
    // only the listing that the rotation has opened; `fork` releases malloc's
    // lock in the child.
    "__errno_location",
    "close",
    "closedir",
    "dirfd",
    "fcntl",
    "fcntl64",
    "fdopendir",
    "flock",
    "free",
    "fstat",
    "fstat64",
    "fstatat",
    "fstatat64",
    "fchmod",
    "geteuid",
    "getrlimit",
    "getrlimit64",
    "gettid",
    "lseek",
    "lseek64",
    "malloc",
    "bcmp",
    "memchr",
    "memcmp",
    "memcpy",
    "memmove",
    "memset",
    "open",
    "open64",
    "openat",
    "openat64",
    "pread",
    "pread64",
    "pwrite",
    "pwrite64",
    "readdir",
    "readdir64",
    "renameat",
    "rewinddir",
    "sched_yield",
    "snprintf",
    "strcmp",
    "strlen",
    "unlinkat",
    "strnlen",
    "vsnprintf",
    "write",
    "_ZNSt6chrono3_V212system_clock3nowEv",
    "_ZNSt3__16chrono12system_clock3nowEv",
    // When the logger is made.
    "getpid",
    "mmap",
    "mmap64",
    "pthread_atfork",
    "__register_atfork",
    "__dso_handle",
    // Added by the compiler; these run only if something is broken.
    "_GLOBAL_OFFSET_TABLE_",
    "_Unwind_Resume",
    "__cxa_begin_catch",
    "__cxa_call_unexpected",
    "__cxa_end_catch",
    "__cxa_pure_virtual",
    "__cxa_rethrow",
    "__gxx_personality_v0",
    "__stack_chk_fail",
    "_ZSt21__glibcxx_assert_failPKciS0_S0_",
#ifdef _LIBCPP_VERSION
    // libc++'s std::string throws inline when it becomes too long.
    "_ZNSt11logic_errorC2EPKc",
    "_ZNSt12length_errorD1Ev",
    "_ZNSt12out_of_rangeD1Ev",
    "_ZTISt12length_error",
    "_ZTISt12out_of_range",
    "_ZTVSt12length_error",
    "_ZTVSt12out_of_range",
    "__cxa_allocate_exception",
    "__cxa_free_exception",
    "__cxa_throw",
#endif
};

bool IsAllowed(const std::string& name) {
  // std::string and its memory, in constructors and destructors only; the
  // type information of classes; std::terminate.
  constexpr std::array kPrefixes{"_ZNSt7__cxx1112basic_string",
                                 "_ZNKSt7__cxx1112basic_string",
                                 "_ZNSt3__112basic_string",
                                 "_ZNKSt3__112basic_string",
                                 "_ZNSaIcE",
                                 "_ZTVN10__cxxabiv1",
                                 "_Znw",
                                 "_Zdl",
                                 "_ZSt9terminatev"};
  const auto has_prefix = [&name](const char* prefix) {
    return name.starts_with(prefix);
  };
  return kAllowed.contains(name) ||
         name.find("__throw_") != std::string::npos ||
         std::any_of(kPrefixes.begin(), kPrefixes.end(), has_prefix);
}

bool IsInstrumented(const Names& names) {
  return std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return name.find("san_") != std::string::npos ||
           name.find("gcov") != std::string::npos;
  });
}

// A hardened build calls "__read_chk" instead of "read": the same after a check
// of the size.
std::string WithoutChecks(const std::string& name) {
  constexpr std::string_view kPrefix = "__";
  constexpr std::string_view kSuffix = "_chk";
  if (!name.starts_with(kPrefix) || !name.ends_with(kSuffix)) {
    return name;
  }
  return name.substr(kPrefix.size(),
                     name.size() - kPrefix.size() - kSuffix.size());
}

TEST(CodeThatLogs, CallsNothingThatCouldHangAForkedChild) {
  Names undefined;
  for (const std::string& name : LastWords("nm -u " LOGGER_OBJECTS)) {
    undefined.insert(WithoutChecks(name));
  }
  for (const std::string& name :
       LastWords("nm --defined-only " LOGGER_OBJECTS)) {
    undefined.erase(name);
  }
  if (IsInstrumented(undefined)) {
    GTEST_SKIP() << "instrumented objects call more";
  }
  EXPECT_TRUE(undefined.contains("write"));
  EXPECT_TRUE(undefined.contains("vsnprintf"));
  for (const std::string& name : undefined) {
    EXPECT_TRUE(IsAllowed(name)) << name;
  }
}

// _ZGV: a function-local static, whose first use takes a lock.
TEST(CodeThatLogs, HasNoFunctionLocalStatic) {
  for (const std::string& name : LastWords("nm " LOGGER_OBJECTS)) {
    EXPECT_FALSE(name.starts_with("_ZGV")) << name;
  }
}

}  // namespace
