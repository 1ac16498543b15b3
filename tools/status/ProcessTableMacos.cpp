#include <libproc.h>
#include <mach/mach_time.h>
#include <sys/proc_info.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <sstream>
#include <system_error>

#include "tools/status/ProcessTable.h"

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

// The kernel gives the number of arguments, the executable's path, NULs for
// alignment, the arguments, the environment.
std::vector<std::string> Arguments(pid_t process, std::vector<char>& buffer) {
  int name[] = {CTL_KERN, KERN_PROCARGS2, process};
  int count = 0;
  std::size_t size = buffer.size();
  std::vector<std::string> arguments;
  if (sysctl(name, 3, buffer.data(), &size, nullptr, 0) != 0 ||
      size < sizeof count) {
    return arguments;
  }
  std::memcpy(&count, buffer.data(), sizeof count);
  std::istringstream words(
      std::string(buffer.data() + sizeof count, size - sizeof count));
  std::string word;
  std::getline(words, word, '\0');
  while (words.peek() == '\0') {
    words.get();
  }
  for (; count > 0 && std::getline(words, word, '\0'); --count) {
    arguments.push_back(word);
  }
  return arguments;
}

// Processor time is in units of the machine's own.
milliseconds ProcessorTime(const proc_taskinfo& task) {
  mach_timebase_info_data_t base{};
  mach_timebase_info(&base);
  return duration_cast<milliseconds>(std::chrono::nanoseconds(
      (task.pti_total_user + task.pti_total_system) * base.numer / base.denom));
}

milliseconds SinceStart(const proc_bsdinfo& info) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::max(duration_cast<milliseconds>(
                      now - std::chrono::seconds(info.pbi_start_tvsec) -
                      std::chrono::microseconds(info.pbi_start_tvusec)),
                  milliseconds(0));
}

// nullopt for a process that has ended or that this user may not see.
std::optional<Process> ReadProcess(pid_t id, std::vector<char>& buffer) {
  proc_taskallinfo info{};
  if (proc_pidinfo(id, PROC_PIDTASKALLINFO, 0, &info, sizeof info) !=
      static_cast<int>(sizeof info)) {
    return std::nullopt;
  }
  return Process{id,
                 static_cast<pid_t>(info.pbsd.pbi_ppid),
                 info.pbsd.pbi_uid,
                 info.ptinfo.pti_threadnum,
                 Arguments(id, buffer),
                 SinceStart(info.pbsd),
                 ProcessorTime(info.ptinfo),
                 info.ptinfo.pti_resident_size};
}

}  // namespace

std::vector<Process> ReadProcesses() {
  constexpr int kRoomForNew = 64;
  std::vector<pid_t> ids(
      static_cast<std::size_t>(proc_listallpids(nullptr, 0) + kRoomForNew));
  const int count = proc_listallpids(
      ids.data(), static_cast<int>(ids.size() * sizeof(pid_t)));
  if (count <= 0) {
    throw std::system_error(errno, std::generic_category(), "proc_listallpids");
  }
  ids.resize(static_cast<std::size_t>(count));
  std::ranges::sort(ids);
  // Large enough for the arguments and the environment of any process.
  std::vector<char> buffer(static_cast<std::size_t>(sysconf(_SC_ARG_MAX)));
  std::vector<Process> processes;
  for (const pid_t id : ids) {
    if (std::optional<Process> process = ReadProcess(id, buffer)) {
      processes.push_back(std::move(*process));
    }
  }
  return processes;
}

std::filesystem::path WorkingDirectory(pid_t process) {
  proc_vnodepathinfo info{};
  return proc_pidinfo(process, PROC_PIDVNODEPATHINFO, 0, &info, sizeof info) > 0
             ? info.pvi_cdir.vip_path
             : "";
}
