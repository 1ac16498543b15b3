// Prints what the functions of AppPaths.h give for this executable, a line
// each.

#include <iostream>

#include "environment/AppPaths.h"

int main() {
  std::cout << GetAppPath() << '\n'
            << (IsFinderSync() ? "finder sync" : "ordinary") << '\n'
            << GetSDKName() << '\n'
            << GetAppDataPath() << '\n'
            << GetLogPath() << '\n';
}
