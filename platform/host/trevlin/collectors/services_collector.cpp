#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>

#include "base/service_manager.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/collectors/young_services.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::hours kWeek{7 * 24};
constexpr size_t kMaxTextBytes = 128;

constexpr auto kAnswer = 1100ms;

// A service is restarted for ever when it was so often within that time, and is young or about to be restarted now.
constexpr auto kLoopWindow = 15min;
constexpr double kLoopRestarts = 3;
constexpr std::chrono::seconds kYoung = 5min;
constexpr size_t kMostAsked = 8;

using Units = std::vector<ServiceUnit>;

/// A manager of services, and what is told of it.
struct Whom {
  ServicesOf whose;
  std::string_view names;     ///< the fact
  std::string_view count;     ///< the fact; may be empty
  std::string_view counters;  ///< begins the names of the histories
  std::string group;
};

/// Services that systemd may be starting again and again: it never gives up on those that end seldom enough.
std::vector<std::string> Suspects(const Machine& machine, const Whom& whom, const Units& units) {
  std::vector<std::string> names;
  const auto add = [&](const std::string& name) {
    if (names.size() < kMostAsked && IsServiceName(name) && std::find(names.begin(), names.end(), name) == names.end())
      names.push_back(name);
  };
  for (const ServiceUnit& unit : units)
    if (unit.IsAboutToRestart()) add(unit.name);
  for (const std::string& name : YoungServices(machine, whom.group, kYoung)) add(name);
  return names;
}

bool IsRestartedForEver(const Machine& machine, const Whom& whom, ServiceManager& manager, const std::string& service) {
  const double restarts = manager.Restarts(service).value_or(0);
  return restarts > 0 &&
         RiseWithin(machine, std::string(whom.counters) + service, restarts, kLoopWindow).value_or(0) >= kLoopRestarts;
}

/// What only waits for the network at the start has failed where there was none, and stays so: the network's own facts
/// tell of that.
bool WaitsForNetwork(std::string_view service) {
  return service.find("-wait-online.") != service.npos || service.find("-wait-online@") != service.npos;
}

/// Nothing without systemd.
void AddFailed(const Machine& machine, const Whom& whom, Facts& facts) {
  ServiceManager manager(whom.whose, ServiceManager::Clock::now() + kAnswer);
  const auto units = manager.UnitsIn({"failed", "activating"});
  if (!units) {
    for (const std::string_view fact : {whom.names, whom.count})
      if (!fact.empty() && manager.IsThere()) AddUnknown(facts, fact);
    return;
  }
  std::set<std::string> names;
  for (const ServiceUnit& unit : *units)
    if (unit.state == "failed" && !WaitsForNetwork(unit.name)) names.insert(unit.name);
  for (const std::string& name : Suspects(machine, whom, *units))
    if (IsRestartedForEver(machine, whom, manager, name)) names.insert(name);
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : " ") + name;
  facts.insert_or_assign(std::string(whom.names), text);
  if (!whom.count.empty()) facts.insert_or_assign(std::string(whom.count), static_cast<double>(names.size()));
}

/// Where crashes are kept, and what their files are called.
struct CrashFolder {
  std::string path;
  std::string prefix;
  std::string suffix;
};

/// The folder of the kernel's own core files, when there is one for all ("/var/cores/core.%e.%p"); core(5).
std::optional<CrashFolder> CoreFolder(const Machine& machine) {
  const std::string pattern = ReadLine(machine, "/proc/sys/kernel/core_pattern").value_or("");
  const size_t slash = pattern.rfind('/'), first = pattern.find('%'), last = pattern.rfind('%');
  if (!pattern.starts_with('/') || slash == 0 || first < slash) return std::nullopt;
  const size_t suffix = last == pattern.npos ? pattern.size() : std::min(last + 2, pattern.size());
  return CrashFolder{pattern.substr(0, slash), pattern.substr(slash + 1, first - slash - 1), pattern.substr(suffix)};
}

constexpr char kDumps[] = "/var/lib/systemd/coredump";
constexpr char kReports[] = "/var/crash";

/// Whether coredump.conf(5) lets crashes be files of their own; the last line counts.
bool AreDumpsFiles(const Machine& machine) {
  constexpr std::string_view kFile = "/etc/systemd/coredump.conf", kFolder = "/etc/systemd/coredump.conf.d/";
  std::string text = ReadText(machine, kFile).value_or("");
  for (const std::string& name : ListNames(machine, kFolder))
    text += "\n" + ReadText(machine, std::string(kFolder) + name).value_or("");
  bool areFiles = true;
  for (const std::string_view line : SplitLines(text)) {
    const size_t equals = line.find('=');
    if (equals == line.npos || SplitWords(line.substr(0, equals)) != std::vector<std::string_view>{"Storage"}) continue;
    areFiles = SplitWords(line.substr(equals + 1)) == std::vector<std::string_view>{"external"};
  }
  return areFiles;
}

/// The one folder that every crash leaves a file in; empty where none does: the kernel's own "core" lies wherever the
/// program was, and what an unknown program is handed is anywhere.
std::string KeepingFolder(const Machine& machine) {
  const std::string pattern = ReadLine(machine, "/proc/sys/kernel/core_pattern").value_or("");
  if (!pattern.starts_with('|')) {
    const auto core = CoreFolder(machine);
    return core ? core->path : "";
  }
  const std::string program = pattern.substr(1, pattern.find(' ') - 1);
  if (program.ends_with("/systemd-coredump")) return AreDumpsFiles(machine) ? kDumps : "";
  return program.ends_with("/apport") ? kReports : "";
}

/// The program of a crash file: "core.NAME.1000.…" of systemd, "_usr_bin_NAME.1000.crash" of apport, "NAME-77.core" of
/// the kernel; the file where it has no name.
std::string ProgramOf(const CrashFolder& folder, const std::string& file) {
  std::string name = file;
  if (folder.prefix == "core." && std::count(file.begin(), file.end(), '.') >= 5)
    name = file.substr(5, file.find('.', 5) - 5);
  else if (folder.suffix == ".crash")
    name = file.substr(0, file.find('.')).substr(file.substr(0, file.find('.')).rfind('_') + 1);
  else if (file.size() >= folder.prefix.size() + folder.suffix.size())
    name = file.substr(folder.prefix.size(), file.size() - folder.prefix.size() - folder.suffix.size());
  // The process and the time follow.
  if (const size_t end = name.find_last_not_of("0123456789.-_"); end != name.npos && folder.suffix != ".crash")
    name.resize(end + 1);
  if (name.empty() || name.size() > kMaxTextBytes || !g_utf8_validate(name.data(), -1, nullptr)) return "";
  return name;
}

class ServicesCollector : public Collector {
 public:
  std::string_view Name() const override { return "services"; }
  std::chrono::milliseconds Period() const override { return 30s; }
  std::chrono::milliseconds Deadline() const override { return 2400ms; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"services.failed", FactKind::kNumber, "",
         "services of the system that have failed, or are restarted again and again; unknown without systemd"},
        {"services.failed_names", FactKind::kText, "", "their names, with blanks between them"},
        {"services.user_failed_names", FactKind::kText, "",
         "the same of the services of this user; unknown without a manager of them"},
        {"services.crashes_week", FactKind::kNumber, "",
         "crashes within the last seven days of the program that had the most"},
        {"services.crash_name", FactKind::kText, "", "that program"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    AddCrashes(machine, facts);
    if (machine.IsCaptured()) return;
    AddFailed(machine, {ServicesOf::kMachine, "services.failed_names", "services.failed", "restarts-", MachineGroup()},
              facts);
    AddFailed(machine, {ServicesOf::kUser, "services.user_failed_names", "", "user-restarts-", UserGroup()}, facts);
  }

 private:
  static void AddCrashes(const Machine& machine, Facts& facts) {
    std::vector<CrashFolder> folders = {{kDumps, "core.", ""}, {kReports, "", ".crash"}};
    const auto core = CoreFolder(machine);
    const auto isSame = [&](const CrashFolder& folder) { return folder.path == core->path; };
    if (core && std::none_of(folders.begin(), folders.end(), isSame)) folders.push_back(*core);
    const auto since = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() - kWeek);
    const std::string keeping = KeepingFolder(machine);
    bool isKept = false, isHidden = false;
    std::map<std::string, int> crashes;
    for (const CrashFolder& folder : folders) {
      if (access(machine.Path(folder.path).c_str(), R_OK | X_OK) != 0) {
        isHidden = isHidden || errno == EACCES;
        continue;
      }
      isKept = isKept || folder.path == keeping;
      for (const std::string& file : ListNames(machine, folder.path)) {
        struct stat status;
        if (file.starts_with(folder.prefix) && file.ends_with(folder.suffix) &&
            lstat(machine.Path(folder.path + "/" + file).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            status.st_mtime >= since)
          ++crashes[ProgramOf(folder, file)];
      }
    }
    const auto worst = std::max_element(crashes.begin(), crashes.end(),
                                        [](const auto& one, const auto& other) { return one.second < other.second; });
    if (worst != crashes.end())
      facts["services.crashes_week"] = static_cast<double>(worst->second);
    else if (isKept)
      facts["services.crashes_week"] = 0.0;
    else if (isHidden)
      AddUnknown(facts, "services.crashes_week");
    if (worst != crashes.end() && !worst->first.empty()) facts["services.crash_name"] = worst->first;
  }
};

}  // namespace

std::unique_ptr<Collector> MakeServicesCollector() {
  return std::make_unique<ServicesCollector>();
}

}  // namespace trevlin
