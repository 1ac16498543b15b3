# How every target of this tree is compiled and linked.

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

# Every target links this one; programs that use the installed package do not.
add_library(requirements INTERFACE)
link_libraries($<BUILD_INTERFACE:requirements>)

# Includes are written from the root.
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

# g++ 12 mistakes some concatenations of short strings for overlapping copies.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(requirements
                         INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()

# A forked child would otherwise look up anew each call that only it makes, such
# as execv.
if(NOT APPLE)
  target_link_options(requirements INTERFACE LINKER:-z,now)
endif()
