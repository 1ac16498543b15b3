# Toolchain: builds for Linux with macOS's standard library, libc++.
# .ci/test-libcxx.sh makes the files that it needs, below build/zig.

set(LAUNCHER_TOOLCHAIN ZigLinux)
set(LAUNCHER_ZIG_TARGET x86_64-linux-gnu.2.36)
include(${CMAKE_CURRENT_LIST_DIR}/Zig.cmake)
