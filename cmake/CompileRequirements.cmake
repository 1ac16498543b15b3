# What every target of this tree is compiled with.

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

# Includes are written from the root.
include_directories(${PROJECT_SOURCE_DIR})
add_compile_options(
  -Wall
  -Wextra
  -Wpedantic
  -Wshadow
  -Wconversion
  -Wnon-virtual-dtor
  -Woverloaded-virtual
  -Werror)

# g++ 12 takes some concatenations of short strings for overlapping copies.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options($<$<CONFIG:Release>:-Wno-restrict>)
endif()

# What only a forked copy calls, execv for one, would otherwise be looked up
# again in every copy.
if(NOT APPLE)
  add_link_options(LINKER:-z,now)
endif()
