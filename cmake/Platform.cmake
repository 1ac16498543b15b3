# The platform seam: which of a source's per-platform files is compiled, and the
# name of the logger library's file. A platform that needs no code of its own
# uses the file "Default".

if(APPLE)
  set(LAUNCHER_PLATFORM Macos)
  set(LAUNCHER_MEMORY Default)
  set(LAUNCHER_LOGGER_FILE liblogger.1.dylib)
else()
  set(LAUNCHER_PLATFORM Linux)
  set(LAUNCHER_MEMORY Linux)
  set(LAUNCHER_LOGGER_FILE liblogger.so.1)
endif()
