// The system log, seen from its own end.

#pragma once

#include <string>
#include <vector>

// Takes the place of the machine's system log for the sandbox that the test
// runs in: receives what programs send to /dev/log. One object a test program.
class SystemLog {
 public:
  SystemLog();
  ~SystemLog();
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;

  // The lines that have arrived since the last call, as they came:
  // "<11>Nov 21 09:41:00 launcher: text".
  std::vector<std::string> Lines();

 private:
  int socket_;
};
