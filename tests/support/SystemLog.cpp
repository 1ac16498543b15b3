#include "tests/support/SystemLog.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "tests/support/TempDir.h"

namespace {

void Check(bool succeeded, const char* call) {
  if (!succeeded) {
    throw std::system_error(errno, std::generic_category(), call);
  }
}

#ifdef __linux__

// The sandbox's own /dev, so that the machine's stays unchanged.
void CoverDev() {
  const TempDir directory;
  const std::string dev = directory.Path();
  Check(mount("dev", dev.c_str(), "tmpfs", 0, "mode=0755") == 0, "mount");
  for (const char* const device : {"null", "zero", "full", "urandom"}) {
    const std::string original = std::string("/dev/") + device;
    const std::string file = directory.Write(device, "");
    Check(mount(original.c_str(), file.c_str(), nullptr, MS_BIND, nullptr) == 0,
          "mount");
  }
  Check(mount(dev.c_str(), "/dev", nullptr, MS_MOVE, nullptr) == 0, "mount");
}

#else

// No test gets here, because there is no sandbox.
void CoverDev() { throw std::logic_error("the machine's own /dev"); }

#endif

}  // namespace

SystemLog::SystemLog() {
  CoverDev();
  socket_ = socket(AF_UNIX, SOCK_DGRAM, 0);
  fcntl(socket_, F_SETFD, FD_CLOEXEC);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  Check(bind(socket_, reinterpret_cast<const sockaddr*>(&address),
             sizeof address) == 0,
        "bind");
}

SystemLog::~SystemLog() {
  closelog();  // The end that this program's own events go through.
  close(socket_);
}

std::vector<std::string> SystemLog::Lines() {
  std::vector<std::string> lines;
  std::array<char, 8192> buffer;
  ssize_t length;
  while ((length = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT)) >=
         0) {
    lines.emplace_back(buffer.data(), static_cast<std::size_t>(length));
  }
  return lines;
}
