# Toolchain: builds for macOS 10.15 on x86-64, on Linux. .ci/cross-macos.sh
# makes the files that it needs, below build/zig.

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(LAUNCHER_TOOLCHAIN ZigMacos)
set(LAUNCHER_ZIG_TARGET x86_64-macos.10.15)
include(${CMAKE_CURRENT_LIST_DIR}/Zig.cmake)

# The headers reject functions that macOS 10.15 lacks. Those of the standard
# library do so only on request, since this compiler has a library of its own.
string(
  APPEND
  CMAKE_CXX_FLAGS_INIT
  " -U_LIBCPP_HAS_VENDOR_AVAILABILITY_ANNOTATIONS"
  " -D_LIBCPP_HAS_VENDOR_AVAILABILITY_ANNOTATIONS=1")

set(CMAKE_USER_MAKE_RULES_OVERRIDE
    ${CMAKE_CURRENT_LIST_DIR}/ZigMacosRules.cmake)

# The system's own archivers do not support Mach-O. Installation changes no
# install name.
find_program(CMAKE_AR llvm-ar REQUIRED)
find_program(CMAKE_RANLIB llvm-ranlib REQUIRED)
set(CMAKE_INSTALL_NAME_TOOL false)

# The tests cannot run here, so they cannot list themselves.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
