#include "trevlin/collectors/package_system.h"

#include <glib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

constexpr std::string_view kRecords = "/var/lib/dpkg/status";
constexpr std::string_view kJournal = "/var/lib/dpkg/updates";
constexpr std::string_view kLocks[] = {"/var/lib/dpkg/lock-frontend", "/var/lib/dpkg/lock",
                                       "/var/lib/apt/lists/lock",     "/var/cache/apt/archives/lock",
                                       "/var/lib/rpm/.rpm.lock",      "/usr/lib/sysimage/rpm/.rpm.lock"};
constexpr std::string_view kDaemons[] = {"packagekitd", "aptd"};
/// These hold a lock for as long as they are open, and have dpkg do the work, which holds another.
constexpr std::string_view kWindows[] = {"aptitude", "synaptic"};

/// Of "install reinstreq half-installed": what is wanted, whether it is damaged, how far it is; deb822, dpkg(1).
bool IsWhole(std::string_view status) {
  const auto words = SplitWords(status);
  return words.size() != 3 || (words[1] != "reinstreq" &&
                               (words[2] == "installed" || words[2] == "config-files" || words[2] == "not-installed"));
}

Interrupted Parse(std::string_view records) {
  constexpr std::string_view kPackage = "Package: ", kStatus = "Status: ";
  Interrupted found;
  std::string_view name;
  for (size_t from = 0, end; from < records.size(); from = end + 1) {
    end = std::min(records.find('\n', from), records.size());
    const std::string_view line = records.substr(from, end - from);
    if (line.starts_with(kPackage)) name = line.substr(kPackage.size());
    if (!line.starts_with(kStatus) || IsWhole(line.substr(kStatus.size()))) continue;
    if (found.count++ == 0 && g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr))
      found.first = name;
  }
  return found;
}

/// The files in it have numbers for names.
bool HasJournal(const Machine& machine) {
  const auto names = ListNames(machine, kJournal);
  return std::any_of(names.begin(), names.end(), [](const std::string& name) { return ParseNumber(name).has_value(); });
}

/// Whether a line of /proc/locks is of someone who writes: "1: POSIX  ADVISORY  WRITE 742 08:02:131 0 EOF".
bool IsOf(const std::vector<std::string_view>& words, const struct stat& file) {
  if (words.size() < 6 || words[1] != "POSIX" || words[3] != "WRITE") return false;
  char device[32];
  std::snprintf(device, sizeof device, "%02x:%02x:", major(file.st_dev), minor(file.st_dev));
  const std::string inode = ":" + std::to_string(file.st_ino);
  // A file system over several devices has a number of its own for files, and another for locks.
  return words[5].ends_with(inode) && (words[5].starts_with(device) || major(file.st_dev) == 0);
}

std::string ProcessFile(std::string_view process, const char* name) {
  return "/proc/" + std::string(process) + "/" + name;
}

/// proc_pid_stat(5): the 22nd word, behind a name that may have blanks.
std::optional<double> HoursOf(const Machine& machine, std::string_view process) {
  const auto now = SecondsSinceStart(machine);
  const std::string stat = ReadLine(machine, ProcessFile(process, "stat")).value_or("");
  const size_t name = stat.rfind(')');
  const auto words = SplitWords(std::string_view(stat).substr(name == stat.npos ? stat.size() : name));
  const auto start = words.size() > 20 ? ParseNumber(words[20]) : std::nullopt;
  if (!now || !start) return std::nullopt;
  return std::max(0.0, *now - *start / static_cast<double>(sysconf(_SC_CLK_TCK))) / 3600;
}

/// The latest change of any of them, in seconds of the clock; 0 where there is none.
double Newest(const Machine& machine, const std::vector<std::string>& paths) {
  double newest = 0;
  for (const std::string& path : paths)
    if (struct stat status; stat(machine.Path(path).c_str(), &status) == 0)
      newest = std::max(newest, static_cast<double>(status.st_mtime));
  return newest;
}

}  // namespace

std::optional<Interrupted> PackageRecords::Read(const Machine& machine) {
  const std::string path = machine.Path(kRecords);
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  const bool isSame = status.st_size == m_size && status.st_mtim.tv_sec == m_changed.tv_sec &&
                      status.st_mtim.tv_nsec == m_changed.tv_nsec;
  if (!isSame) {
    std::string records;
    if (!ReadWholeFile(path, records)) return std::nullopt;
    m_last = Parse(records);
    m_changed = status.st_mtim;
    m_size = status.st_size;
  }
  Interrupted found = m_last;
  found.count += HasJournal(machine) ? 1 : 0;
  return found;
}

std::optional<PackageWorker> FindPackageWorker(const Machine& machine) {
  const std::string locks = ReadText(machine, "/proc/locks").value_or("");
  const auto lines = SplitLines(locks);
  std::optional<PackageWorker> window;
  for (const std::string_view path : kLocks) {
    struct stat file;
    if (stat(machine.Path(path).c_str(), &file) != 0) continue;
    for (const std::string_view line : lines) {
      const auto words = SplitWords(line);
      if (!IsOf(words, file)) continue;
      PackageWorker worker{ReadLine(machine, ProcessFile(words[4], "comm")).value_or("?"), {}};
      if (IsOneOf(kWindows, worker.program)) {
        window = {worker.program, 0};
        continue;
      }
      if (!IsOneOf(kDaemons, worker.program)) worker.hours = HoursOf(machine, words[4]);
      return worker;
    }
  }
  return window;
}

std::optional<double> DaysSinceRefresh(const Machine& machine) {
  std::vector<std::string> paths = {"/var/lib/apt/periodic/update-stamp", "/var/lib/apt/periodic/update-success-stamp",
                                    "/var/lib/apt/lists", "/var/cache/dnf/last_makecache"};
  for (const std::string cache : {"/var/cache/dnf/", "/var/cache/libdnf5/"})
    for (const std::string& name : ListNames(machine, cache)) paths.push_back(cache + name + "/repodata/repomd.xml");
  const double newest = Newest(machine, paths);
  const double days = (static_cast<double>(std::time(nullptr)) - newest) / 86400;
  return newest > 0 && days >= 0 ? std::optional(days) : std::nullopt;
}

std::optional<bool> HasOfflineUpdateFailed(const Machine& machine) {
  // PackageKit's file is spelt so.
  const auto text = ReadText(machine, "/var/lib/PackageKit/offline-update-competed");
  const GKeyFileHandle file(g_key_file_new());
  constexpr char kGroup[] = "PackageKit Offline Update Results";
  if (!text || !g_key_file_load_from_data(file.get(), text->data(), text->size(), G_KEY_FILE_NONE, nullptr) ||
      !g_key_file_has_key(file.get(), kGroup, "Success", nullptr))
    return std::nullopt;
  return g_key_file_get_boolean(file.get(), kGroup, "Success", nullptr) == FALSE;
}

}  // namespace trevlin
