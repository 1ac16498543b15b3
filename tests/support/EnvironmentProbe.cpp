// Prints the results of AppPaths.h for this executable, one on each line. With
// an argument, first initialises the log for that owner and logs a message.

#include <iostream>

#include "environment/AppPaths.h"
#include "environment/LogConfig.h"
#include "environment/Logging.h"

int main(int argc, char** argv) {
  if (argc > 1) {
    InitLog(argv[1]);
    __LOG__A(logger, LOGLEVEL_ERROR, "%s logs", argv[1]);
  }
  std::cout << GetAppPath() << '\n'
            << (IsFinderSync() ? "finder sync" : "ordinary") << '\n'
            << GetSDKName() << '\n'
            << GetAppDataPath() << '\n'
            << GetLogPath() << '\n';
}
