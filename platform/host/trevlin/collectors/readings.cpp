#include "trevlin/collectors/readings.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>

#include "base/atomic_file.h"
#include "base/file_lock.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"

namespace trevlin {

namespace {

using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;

using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr auto kLongestLock = 200ms;  // within the shortest deadline
constexpr int kReadingsPerWindow = 24;
constexpr double kStaleWindows = 1.25;
constexpr std::string_view kBlanks = " \t\r";

std::optional<std::string> ReadFile(const std::string& path) {
  const FdHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  std::string text;
  char buffer[16384];
  while (text.size() < kMaxFileBytes) {
    const ssize_t got = read(file.get(), buffer, std::min(sizeof buffer, kMaxFileBytes - text.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) return text;
    text.append(buffer, static_cast<size_t>(got));
  }
  text.resize(text.rfind('\n') + 1);
  return text;
}

std::string_view Trim(std::string_view text, std::string_view marks) {
  const size_t first = text.find_first_not_of(marks);
  return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(marks) - first + 1);
}

std::vector<std::string_view> Split(std::string_view text, std::string_view marks) {
  std::vector<std::string_view> parts;
  for (size_t from = text.find_first_not_of(marks); from != text.npos;) {
    const size_t to = std::min(text.find_first_of(marks, from), text.size());
    parts.push_back(text.substr(from, to - from));
    from = text.find_first_not_of(marks, to);
  }
  return parts;
}

/// What a counter was at a time.
struct Reading {
  double seconds;  // since the machine's start
  double value;
};

/// The kept readings of this start of the machine, oldest first.
std::vector<Reading> LoadReadings(const std::string& counter, const std::string& start) {
  const std::optional<std::string> text = ReadFile(SharedPath(counter));
  std::vector<Reading> readings;
  if (!text) return readings;
  const auto lines = SplitLines(*text);
  if (lines.empty() || lines.front() != start) return readings;
  for (size_t i = 1; i < lines.size(); ++i) {
    const auto words = SplitWords(lines[i]);
    const auto seconds = words.size() == 2 ? ParseNumber(words[0]) : std::nullopt;
    const auto value = words.size() == 2 ? ParseNumber(words[1]) : std::nullopt;
    if (!seconds || !value || (!readings.empty() && *seconds < readings.back().seconds)) return {};
    readings.push_back({*seconds, *value});
  }
  return readings;
}

void KeepReadings(const std::string& counter, const std::string& start, const std::vector<Reading>& readings) {
  const std::string path = SharedPath(counter);
  std::string text = start + "\n";
  for (const Reading& reading : readings) {
    char line[80];
    std::snprintf(line, sizeof line, "%.3f %.0f\n", reading.seconds, reading.value);
    text += line;
  }
  PublishFile(path, text);
}

/// For reading, changing and keeping readings, among all processes and threads. Without a handle they are not kept.
FdHandle LockReadings() {
  FdHandle lock = OpenLockFile(SharedPath("readings.lock"));
  if (!lock || !LockFile(lock.get(), std::chrono::steady_clock::now() + kLongestLock)) return {};
  return lock;
}

/// Whether the root folder is a disk's of its own: "/dev/vda / ext4 rw,relatime 0 0". A container's may be a part of
/// its machine's disk; it then has its name mounted, too.
bool IsOnDisk(const Machine& machine) {
  const std::string mounts = ReadText(machine, "/proc/self/mounts").value_or("");
  bool isOnDisk = false;
  for (const std::string_view line : SplitLines(mounts)) {
    const auto words = SplitWords(line);
    if (words.size() < 3) continue;
    if (words[1] == "/etc/hostname") return false;
    if (words[1] == "/") isOnDisk = words[0].starts_with("/dev/");
  }
  return isOnDisk;
}

}  // namespace

std::optional<std::string> ReadText(const Machine& machine, std::string_view path) {
  return ReadFile(machine.Path(path));
}

std::optional<std::string> ReadLine(const Machine& machine, std::string_view path) {
  const std::optional<std::string> text = ReadText(machine, path);
  if (!text) return std::nullopt;
  // Texts of a device tree end with a zero byte.
  const std::string_view line =
      Trim(std::string_view(*text).substr(0, text->find('\n')), std::string_view(" \t\r\0", 4));
  const bool isText = std::none_of(line.begin(), line.end(), [](char c) { return g_ascii_iscntrl(c) && c != '\t'; });
  if (line.empty() || !isText || !g_utf8_validate(line.data(), static_cast<gssize>(line.size()), nullptr))
    return std::nullopt;
  return std::string(line);
}

std::optional<double> ReadNumber(const Machine& machine, std::string_view path, double least, double most) {
  const auto line = ReadLine(machine, path);
  const auto number = line ? ParseNumber(*line) : std::nullopt;
  return number && *number >= least && *number <= most ? number : std::nullopt;
}

std::optional<uint64_t> ReadHex(const Machine& machine, std::string_view path) {
  const std::string line = ReadLine(machine, path).value_or("");
  std::string_view digits = line;
  if (digits.starts_with("0x")) digits.remove_prefix(2);
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
  const bool isWhole = error == std::errc() && end == digits.data() + digits.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

std::optional<double> ReadPressure(const Machine& machine, std::string_view resource) {
  constexpr std::string_view kMinute = "avg60=";
  // "some avg10=0.12 avg60=0.05 avg300=0.01 total=1234"
  const std::string line = ReadLine(machine, std::string("/proc/pressure/").append(resource)).value_or("");
  const auto words = SplitWords(line);
  if (words.size() < 3 || words[0] != "some" || !words[2].starts_with(kMinute)) return std::nullopt;
  const auto share = ParseNumber(words[2].substr(kMinute.size()));
  return share && *share >= 0 && *share <= 100 ? share : std::nullopt;
}

std::optional<uint64_t> ReadBoardThrottling(const Machine& machine) {
  for (const std::string folder : {"/sys/bus/platform/drivers/raspberrypi-firmware", "/sys/devices/platform/soc"})
    for (const std::string& name : ListNames(machine, folder))
      if (const auto bits = ReadHex(machine, folder + "/" + name + "/get_throttled")) return bits;
  return std::nullopt;
}

std::vector<std::string> ListNames(const Machine& machine, std::string_view folder) {
  std::vector<std::string> names;
  const DirHandle handle(opendir(machine.Path(folder).c_str()));
  while (const dirent* entry = handle && names.size() < kMaxNames ? readdir(handle.get()) : nullptr)
    if (const std::string_view name = entry->d_name; name != "." && name != "..") names.emplace_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

bool Exists(const Machine& machine, std::string_view path) {
  return access(machine.Path(path).c_str(), F_OK) == 0;
}

std::optional<double> ParseNumber(std::string_view text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  if (isHex && text.starts_with('-')) return std::nullopt;
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number,
                                            isHex ? std::chars_format::hex : std::chars_format::general);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole && std::abs(number) <= kMaxNumber ? std::optional(number) : std::nullopt;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
  return Split(text, "\n");
}

std::vector<std::string_view> SplitWords(std::string_view line) {
  return Split(line, kBlanks);
}

std::optional<double> FindNumber(std::string_view list, std::string_view key) {
  for (std::string_view line : SplitLines(list)) {
    if (!line.starts_with(key)) continue;
    line.remove_prefix(key.size());
    if (line.empty() || (line.front() != ':' && kBlanks.find(line.front()) == kBlanks.npos)) continue;
    if (line.front() == ':') line.remove_prefix(1);
    const auto words = SplitWords(line);
    const auto number = words.empty() ? std::nullopt : ParseNumber(words.front());
    return number && *number >= 0 ? number : std::nullopt;
  }
  return std::nullopt;
}

bool IsContainer(const Machine& machine) {
  // systemd's interface for containers, and what those who make them leave.
  constexpr std::string_view kSigns[] = {"/run/systemd/container", "/run/host/container-manager", "/run/.containerenv"};
  if (std::any_of(std::begin(kSigns), std::end(kSigns), [&](auto sign) { return Exists(machine, sign); })) return true;
  // In a virtual machine whose disk was made of a container's image it is left over.
  if (Exists(machine, "/.dockerenv") && !IsOnDisk(machine)) return true;
  const std::string environment = ReadText(machine, "/proc/1/environ").value_or("");
  return environment.starts_with("container=") || environment.find("\0container="s) != environment.npos;
}

std::string SharedPath(const std::string& name) {
  return SystemPath(set_paths::kHostRun) + "/trevlin/" + name;
}

std::string BootId(const Machine& machine) {
  return ReadLine(machine, "/proc/sys/kernel/random/boot_id").value_or("");
}

std::optional<double> SecondsSinceStart(const Machine& machine) {
  const auto line = ReadLine(machine, "/proc/uptime");
  const auto seconds = line ? ParseNumber(SplitWords(*line).front()) : std::nullopt;
  return seconds && *seconds >= 0 ? seconds : std::nullopt;
}

std::optional<double> RiseWithin(const Machine& machine, const std::string& counter, double value,
                                 std::chrono::seconds window) {
  const FdHandle lock = LockReadings();
  const auto now = SecondsSinceStart(machine);
  if (!now) return std::nullopt;
  const std::string id = BootId(machine), start = id.empty() ? "-" : id;
  const auto length = static_cast<double>(window.count());
  std::vector<Reading> readings = LoadReadings(counter, start);
  // A clock that ran ahead belongs to another machine or container.
  if (!readings.empty() && readings.back().seconds > *now) readings.clear();
  if (readings.empty() && *now <= length) readings.push_back({0, 0});
  const bool hasRestarted = !readings.empty() && readings.back().value > value;
  if (hasRestarted) readings = {{readings.back().seconds, 0}};

  // The newest of those that are older than the window is what the counter was at its beginning, unless it is so old
  // that nobody knows when the counter rose since.
  const auto inside = std::find_if(readings.begin(), readings.end(),
                                   [&](const Reading& reading) { return reading.seconds > *now - length; });
  if (inside - readings.begin() > 1) readings.erase(readings.begin(), inside - 1);
  if (!readings.empty() && readings.front().seconds < *now - kStaleWindows * length &&
      (readings.size() > 1 || readings.front().value != value))
    readings.erase(readings.begin());
  const bool known = !readings.empty();
  const double rise = known ? value - readings.front().value : 0;
  const bool isDue = !known || *now - readings.back().seconds >= length / kReadingsPerWindow;
  if (isDue) readings.push_back({*now, value});
  if (lock && (isDue || hasRestarted)) KeepReadings(counter, start, readings);
  return known ? std::optional(rise) : std::nullopt;
}

}  // namespace trevlin
