# Only on a Mac does CMake know that an install name may begin with @rpath.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG -Wl,-rpath,)
