#include "setd/memory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <string>

#include "base/atomic_file.h"
#include "packages/background.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

/// The number after `name` in a file of the kernel; -1 when it is not there.
long long NumberIn(const std::string& path, const std::string& name) {
  std::string text;
  if (!ReadWholeFile(path, text)) return -1;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(name)) return std::atoll(line.c_str() + name.size());
  return -1;
}

long long AvailableKiB() {
  return NumberIn("/proc/meminfo", "MemAvailable:");
}

bool WriteTo(const std::string& path, const std::string& text) {
  const FdHandle file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  return file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// The cgroup folder of the slice that this daemon runs in, or of its own group where it is in none; empty without
/// cgroup v2.
std::string OwnSlice() {
  std::string text;
  if (!ReadWholeFile("/proc/self/cgroup", text) || !text.starts_with("0::/")) return {};
  std::string group = text.substr(3, text.find('\n') - 3);
  const size_t slice = group.rfind(".slice/");
  if (slice != group.npos) group.resize(slice + std::strlen(".slice"));
  return group == "/" ? "" : "/sys/fs/cgroup" + group;
}

/// What was reclaimed how, or why nothing was.
std::string Reclaim() {
  // A set root of one's own is a guest on the machine; the others' memory is none of its business.
  if (!SystemRoot().empty()) return "the kernel was not asked to reclaim: this set has a root of its own";
  if (geteuid() == 0) {
    sync();
    if (WriteTo("/proc/sys/vm/drop_caches", "1")) return "the kernel dropped its file cache";
  }
  const int reason = errno;
  const std::string slice = OwnSlice();
  const long long inactive = slice.empty() ? -1 : NumberIn(slice + "/memory.stat", "inactive_file ");
  // It answers EAGAIN when it found less than it was asked for.
  if (inactive > 0 && (WriteTo(slice + "/memory.reclaim", std::to_string(inactive)) || errno == EAGAIN))
    return "the kernel was asked to reclaim " + std::to_string(inactive) + " bytes of " + slice;
  return std::string("the kernel cannot be asked to reclaim: ") +
         (geteuid() == 0 ? std::strerror(reason) : "that takes root or a memory group of one's own");
}

}  // namespace

bool BoostMemory(const StopFlag& stop) {
  const long long before = AvailableKiB();
  std::string problem;
  packages::EndedApps ended;
  // Where nobody tells what the viewer looks at, it may be a Flatpak: a desktop's programs are not the set's to end.
  if (const auto foreground = packages::ForegroundApp(problem))
    ended = packages::EndApps(packages::BackgroundApps(*foreground, !foreground->empty()), stop);
  else
    Log(DLOG_ERROR, "memory boost ends no applications: " + problem);
  if (stop) return false;
  // What the kernel drops of its file cache was never missing.
  const long long after = AvailableKiB();
  std::string apps;
  for (const packages::RunningApp& app : ended.apps)
    apps += (apps.empty() ? ": " : ", ") + app.package.packageId + " " + std::to_string(app.bytes / 1024) + " KiB";
  const packages::EndedProcesses& processes = ended.processes;
  Log(DLOG_INFO, "memory boost: ended " + std::to_string(processes.politely + processes.forced) + " processes (" +
                     std::to_string(processes.forced) + " by force, " + std::to_string(processes.left) + " left)" +
                     apps + "; " + Reclaim() + "; available KiB before " + std::to_string(before) + ", after " +
                     std::to_string(after));
  return true;
}

}  // namespace setd
