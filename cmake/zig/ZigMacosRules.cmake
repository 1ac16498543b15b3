# CMake knows only on a Mac that libraries may be named relative to @rpath.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG -Wl,-rpath,)
