// The receiving end of the system log.

#pragma once

#include <string>
#include <vector>

// Replaces the machine's system log in the test's sandbox: receives the
// messages that programs send to /dev/log. One object per test program.
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
