# The common part of the two toolchain files. LAUNCHER_ZIG_TARGET is the
# compiler's name for the target. LAUNCHER_TOOLCHAIN is the directory of its
# libraries (jsoncpp, GoogleTest).

set(LAUNCHER_ZIG_DIR ${CMAKE_CURRENT_LIST_DIR}/../../build/zig)
set(LAUNCHER_ZIG_PREFIX ${LAUNCHER_ZIG_DIR}/${LAUNCHER_TOOLCHAIN})

# In builds without optimisation this compiler adds traps for undefined
# behaviour. The asan preset finds that, with messages. The code built here must
# be the delivered code, without this machine's paths in it.
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT -fno-sanitize=undefined)
endforeach()
# CMake first tries the compiler without linker flags. Without this flag the
# compiler would then build its standard library twice.
set(CMAKE_C_COMPILER ${LAUNCHER_ZIG_DIR}/linux-x64/bin/zig cc -target
                     ${LAUNCHER_ZIG_TARGET} -Wl,--strip-debug)
set(CMAKE_CXX_COMPILER ${LAUNCHER_ZIG_DIR}/linux-x64/bin/zig c++ -target
                       ${LAUNCHER_ZIG_TARGET} -Wl,--strip-debug)

# CMake searches only the target's own libraries and CMAKE_PREFIX_PATH: the
# system's libraries are built with another standard library, or for another
# platform.
set(CMAKE_FIND_ROOT_PATH ${LAUNCHER_ZIG_PREFIX} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${LAUNCHER_ZIG_PREFIX}/lib/pkgconfig)
