# How every target of this tree is compiled and linked.

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
include(CMakePushCheckState)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

# Every target links this one. Programs that use the installed package do not.
add_library(requirements INTERFACE)
link_libraries($<BUILD_INTERFACE:requirements>)

# Includes are relative to the root.
target_include_directories(requirements INTERFACE ${PROJECT_SOURCE_DIR})

target_compile_options(
  requirements
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            $<$<BOOL:${LAUNCHER_WERROR}>:-Werror>)

# The result does not depend on the folder that it is built in.
target_compile_options(
  requirements INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

# g++ 12 mistakes some concatenations of short strings for overlapping copies.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(requirements
                         INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()

# Hardening, where the compiler supports it.
#
# Stack clash protection probes the stack page by page: an argument vector too
# large for the stack ends the child and never reaches the memory beyond. clang
# on macOS does that, too, but its driver drops the option with a warning.
set(LAUNCHER_STACK_CLASH -fstack-clash-protection)
if(APPLE)
  string(PREPEND LAUNCHER_STACK_CLASH "-Xclang ")
endif()
cmake_push_check_state(RESET)
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(option -fstack-protector-strong ${LAUNCHER_STACK_CLASH} -fcf-protection)
  string(MAKE_C_IDENTIFIER "LAUNCHER_HAS${option}" has)
  check_cxx_compiler_flag("${option}" ${has})
  if(${has})
    target_compile_options(requirements INTERFACE "SHELL:${option}")
  endif()
endforeach()
# Level 3 also checks sizes that are known only at run time. Without
# optimisation there are no checks.
foreach(level 3 2)
  set(CMAKE_REQUIRED_FLAGS
      "-Werror -O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level}")
  check_cxx_source_compiles("#include <cstring>
    int main() {}" LAUNCHER_HAS_FORTIFY_${level})
  if(LAUNCHER_HAS_FORTIFY_${level})
    target_compile_options(
      requirements
      INTERFACE
        "$<$<CONFIG:Release>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level}>"
    )
    break()
  endif()
endforeach()
cmake_pop_check_state()
target_compile_definitions(requirements
                           INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
check_pie_supported()

# Otherwise each forked child would look up the calls that only it makes, such
# as execv. After the start the table of calls is read-only.
if(NOT APPLE)
  target_link_options(requirements INTERFACE LINKER:-z,relro,-z,now)
endif()
