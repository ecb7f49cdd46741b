#include "setd/sources.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <glib.h>
#include <json/json.h>
#include <sys/klog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <vector>

#include "base/folder.h"
#include "base/glib_handle.h"
#include "base/machine_path.h"
#include "base/program.h"
#include "c_handle.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/trevlin_database.h"

namespace setd {

namespace {

constexpr size_t kMaxLog = 1024 * 1024;
constexpr size_t kMaxStateFile = 64 * 1024;
constexpr size_t kMaxRecords = 500;
constexpr std::chrono::seconds kJournalLimit{10};
constexpr int kKernelAll = 3, kKernelSize = 10;  // actions of klogctl()

/// What reports of a category have besides the platform log, the kernel's log and the records that all have.
struct Category {
  const char* name;
  std::vector<const char*> state;  // files of the kernel; each part of a path may be a pattern
  std::vector<const char*> units;  // of the system's journal
};

const std::vector<Category>& Categories() {
  static const auto& categories = *new std::vector<Category>{
      {"SCREEN",
       {"/sys/class/drm/*/status", "/sys/class/drm/*/enabled", "/sys/class/drm/*/modes",
        "/sys/class/backlight/*/brightness", "/sys/class/graphics/fb*/virtual_size"},
       {"display-manager", "lightdm", "gdm", "sddm"}},
      {"SOUND", {"/proc/asound/cards", "/proc/asound/devices", "/proc/asound/pcm"}, {"pipewire", "alsa-restore"}},
      {"NETWORK",
       {"/proc/net/dev", "/proc/net/wireless", "/proc/net/snmp", "/sys/class/net/*/operstate",
        "/sys/class/net/*/carrier", "/sys/class/net/*/speed", "/sys/class/net/*/mtu", "/etc/resolv.conf"},
       {"NetworkManager", "systemd-networkd", "systemd-resolved", "wpa_supplicant", "connman", "iwd"}},
      {"POWER",
       {"/proc/uptime", "/sys/power/state", "/sys/power/mem_sleep", "/sys/class/power_supply/*/online",
        "/sys/class/power_supply/*/status", "/sys/class/thermal/thermal_zone*/temp"},
       {"systemd-logind", "upower"}},
      {"APP", {"/proc/meminfo", "/proc/loadavg", "/proc/pressure/*"}, {}},
      {"EXTDEVICE",
       {"/sys/bus/usb/devices/*/product", "/sys/bus/usb/devices/*/manufacturer", "/sys/bus/usb/devices/*/speed",
        "/proc/partitions"},
       {"udisks2", "bluetooth"}},
      {"BROADCASTSIGNAL", {"/sys/class/dvb/*/uevent"}, {}},
      {"REMOTECONTROL", {"/proc/bus/input/devices", "/sys/class/rc/*/protocols"}, {"lircd", "bluetooth"}},
      {"OTHER",
       {"/proc/meminfo", "/proc/loadavg", "/proc/net/dev", "/proc/asound/cards", "/sys/class/drm/*/status"},
       {}},
  };
  return categories;
}

/// Drops what is left of a line that was cut, or all where no other follows.
void CutFirstLine(std::string& text) {
  const size_t end = text.find('\n');
  text.erase(0, end == text.npos ? end : end + 1);
}

/// The last `limit` bytes of a file, from the start of a line on where it is cut; else false with errno.
bool ReadTail(const std::string& path, size_t limit, std::string& text) {
  const FdHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return false;
  }
  const bool cut = status.st_size > static_cast<off_t>(limit);
  off_t at = cut ? status.st_size - static_cast<off_t>(limit) : 0;
  char buffer[65536];
  ssize_t got = 0;
  text.clear();
  while (text.size() < limit &&
         (got = pread(file.get(), buffer, std::min(sizeof buffer, limit - text.size()), at)) > 0) {
    text.append(buffer, static_cast<size_t>(got));
    at += got;
  }
  if (cut) CutFirstLine(text);
  return got >= 0;
}

std::string Newest(std::string text) {
  if (text.size() <= kMaxLog) return text;
  text.erase(0, text.size() - kMaxLog);
  CutFirstLine(text);
  return text;
}

/// The log and, where it was rotated, what was in it before.
void TakeLog(const std::string& file, const std::string& path, const TakeSource& take) {
  std::string text, before;
  if (!ReadTail(SystemPath(path), kMaxLog, text)) return take(file, "", std::strerror(errno));
  if (text.size() < kMaxLog && ReadTail(SystemPath(path + ".1"), kMaxLog - text.size(), before)) text.insert(0, before);
  take(file, text, "");
}

void TakeKernelLog(const TakeSource& take) {
  const int size = klogctl(kKernelSize, nullptr, 0);
  std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
  const int got = size > 0 ? klogctl(kKernelAll, text.data(), size) : -1;
  if (got < 0) return take("kernel.log", "", std::strerror(errno));
  text.resize(static_cast<size_t>(got));
  take("kernel.log", Newest(std::move(text)), "");
}

/// The newest lines of the journal that any of the matches ("-u", unit) select; else false with the reason.
bool ReadJournal(const char* option, const std::vector<const char*>& names, const StopFlag& stop, std::string& text,
                 std::string& problem) {
  const GText program(g_find_program_in_path("journalctl"));
  if (!program) {
    problem = "there is no journalctl";
    return false;
  }
  // It is ended in time by this process, and by "timeout" when this one was killed meanwhile.
  std::vector<std::string> arguments{"timeout", "-k", "1",         "15", program.get(), "--no-pager",
                                     "-q",      "-o", "short-iso", "-n", "2000"};
  for (const char* name : names) arguments.insert(arguments.end(), {option, name});
  text.clear();
  const ProgramEnd end = RunProgram(
      std::move(arguments), kJournalLimit, [&stop] { return stop.load(); },
      [&text](std::string_view more) {
        text.append(more);
        // The cut goes through a line, which Newest() sees by the size.
        if (text.size() > 3 * kMaxLog) text.erase(0, text.size() - 2 * kMaxLog);
      });
  text = end == ProgramEnd::kDone ? Newest(std::move(text)) : "";
  if (end == ProgramEnd::kNotStarted) problem = std::string("timeout: ") + std::strerror(errno);
  if (end == ProgramEnd::kFailed) problem = "journalctl failed";
  if (end == ProgramEnd::kLate) problem = "journalctl did not end in time";
  if (end == ProgramEnd::kStopped) problem = "the collector was ended";
  return end == ProgramEnd::kDone;
}

void TakeJournal(const std::vector<const char*>& units, const StopFlag& stop, const TakeSource& take) {
  const GText program(g_find_program_in_path("journalctl"));
  if (units.empty() || !program) return;
  std::string text, problem;
  ReadJournal("-u", units, stop, text, problem);
  take("journal.log", text, problem);
}

/// The platform log may go to the journal alone (docs/log.md): then there is no file.
void TakePlatformLog(const StopFlag& stop, const TakeSource& take) {
  struct stat status;
  std::string text, problem;
  const bool hasFile = lstat(SystemPath(set_paths::kLogFile).c_str(), &status) == 0;
  if (!hasFile && ReadJournal("-t", {std::begin(log_tags::kAll), std::end(log_tags::kAll)}, stop, text, problem) &&
      !text.empty())
    return take("vexilo.log", text, "");
  TakeLog("vexilo.log", set_paths::kLogFile, take);
}

/// The paths (of the system) that exist for a pattern.
std::vector<std::string> Matches(const std::string& pattern) {
  std::vector<std::string> found{""};
  for (const std::filesystem::path& part : std::filesystem::path(pattern).relative_path()) {
    std::vector<std::string> next;
    for (const std::string& folder : found) {
      if (part.string().find('*') == std::string::npos) {
        next.push_back(folder + "/" + part.string());
        continue;
      }
      for (const std::filesystem::path& each : EntriesOf(MachinePath(folder)))
        if (fnmatch(part.c_str(), each.filename().c_str(), 0) == 0)
          next.push_back(folder + "/" + each.filename().string());
    }
    found = std::move(next);
  }
  std::sort(found.begin(), found.end());
  return found;
}

void TakeState(const Category& category, const TakeSource& take) {
  std::string all, text;
  for (const char* pattern : category.state)
    for (const std::string& path : Matches(pattern))
      if (ReadTail(MachinePath(path), kMaxStateFile, text)) all.append("== " + path + "\n" + text + "\n");
  take("state.txt", all, all.empty() ? "this machine tells nothing" : "");
}

std::string JsonLine(const Json::Value& value) {
  static const Json::StreamWriterBuilder& kWriter = *[] {
    auto* builder = new Json::StreamWriterBuilder;
    (*builder)["indentation"] = "";
    return builder;
  }();
  return Json::writeString(kWriter, value) + "\n";
}

void TakeHistory(const TakeSource& take) {
  trevlin::Database database(trevlin::Database::Access::kReadOnly);
  std::string problem, lines;
  std::vector<trevlin::Transition> transitions;
  std::vector<_DTSolDBRecord> solutions;
  const auto check = [&](int result) {
    if (result != TREVLIN_OK && result != TREVLIN_NO_MATCH) problem = database.LastError();
  };
  check(database.AllTransitions(transitions));
  check(database.AllSolutions(solutions));
  for (size_t i = transitions.size() - std::min(transitions.size(), kMaxRecords); i < transitions.size(); ++i) {
    Json::Value line;
    line["time"] = transitions[i].time;
    line["issue"] = transitions[i].issueCode;
    line["isTrue"] = transitions[i].type == DT_TRANSITION_TYPE_TRUE;
    lines += JsonLine(line);
  }
  for (size_t i = solutions.size() - std::min(solutions.size(), kMaxRecords); i < solutions.size(); ++i) {
    Json::Value line;
    line["time"] = solutions[i].registerTime;
    line["issue"] = solutions[i].issueCode;
    line["solution"] = solutions[i].solutionCode;
    line["isApplied"] = solutions[i].isApply != 0;
    lines += JsonLine(line);
  }
  take("engine.jsonl", lines, problem);
}

}  // namespace

bool IsCategory(const std::string& category) {
  return std::any_of(Categories().begin(), Categories().end(), [&](const auto& each) { return each.name == category; });
}

void Collect(const std::string& category, const StopFlag& stop, const TakeSource& take) {
  const auto entry = std::find_if(Categories().begin(), Categories().end(),
                                  [&](const Category& each) { return each.name == category; });
  TakePlatformLog(stop, take);
  TakeLog("events.jsonl", set_paths::kEventLog, take);
  TakeHistory(take);
  TakeKernelLog(take);
  if (entry == Categories().end() || stop) return;
  TakeState(*entry, take);
  TakeJournal(entry->units, stop, take);
}

}  // namespace setd
