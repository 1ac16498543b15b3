# The common part of the two toolchain files. LAUNCHER_ZIG_TARGET is the
# compiler's name of the target, LAUNCHER_TOOLCHAIN the directory that its
# libraries (jsoncpp, GoogleTest) are installed in.

set(LAUNCHER_ZIG_DIR ${CMAKE_CURRENT_LIST_DIR}/../../build/zig)
set(LAUNCHER_ZIG_PREFIX ${LAUNCHER_ZIG_DIR}/${LAUNCHER_TOOLCHAIN})

# In builds without optimisation this compiler makes undefined behaviour trap
# by itself. The asan preset looks for that, with messages; here the code is to
# be what is delivered, without this machine's paths in it.
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT -fno-sanitize=undefined)
endforeach()
# CMake's first look at the compiler knows no linker flags, and without this one
# the compiler would build its standard library twice.
set(CMAKE_C_COMPILER ${LAUNCHER_ZIG_DIR}/linux-x64/bin/zig cc -target
                     ${LAUNCHER_ZIG_TARGET} -Wl,--strip-debug)
set(CMAKE_CXX_COMPILER ${LAUNCHER_ZIG_DIR}/linux-x64/bin/zig c++ -target
                       ${LAUNCHER_ZIG_TARGET} -Wl,--strip-debug)

# Only the target's own libraries, and what is asked for: the system's are of
# another standard library, or of another platform.
set(CMAKE_FIND_ROOT_PATH ${LAUNCHER_ZIG_PREFIX} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${LAUNCHER_ZIG_PREFIX}/lib/pkgconfig)
