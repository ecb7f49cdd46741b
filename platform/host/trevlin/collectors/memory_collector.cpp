#include <algorithm>
#include <ctime>

#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/kernel_log.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr auto kRecent = 24h;
constexpr std::string_view kGroups = "/sys/fs/cgroup/";
/// There where groups are of cgroup v2. The counters of older ones go with them, and groups that cannot be seen tell
/// nothing: what was ended there only the log tells.
constexpr std::string_view kNewerGroups = "/sys/fs/cgroup/cgroup.controllers";

double Count(std::string_view list, std::string_view key) {
  return FindNumber(list, key).value_or(0);
}

/// Programs that were ended because a control group was at its own limit, while the machine had memory.
///
/// Taken from the groups at the top (cgroup v2's memory.events), which count what happens anywhere below them: theirs
/// stays when a group with a limit is gone, as it is with its container or service. "oom" counts the limits that were
/// hit, "oom_kill" what was ended, also for lack of memory on the machine; where a whole group is ended at once, one
/// "oom" has several, and that is taken for a limit. The kernel's log would tell exactly, but only to root, and the
/// rise of a counter is kept for all processes together.
double KilledByLimits(const Machine& machine) {
  double killed = 0;
  for (const std::string& group : ListNames(machine, kGroups)) {
    const std::string events = ReadText(machine, std::string(kGroups) + group + "/memory.events").value_or("");
    const double limits = Count(events, "oom"), kills = Count(events, "oom_kill");
    killed += limits > 0 && Count(events, "oom_group_kill") > 0 ? kills : std::min(limits, kills);
  }
  return killed;
}

/// Seconds of the clock that the kernel's log has.
std::optional<double> LogClock(const Machine& machine) {
  if (machine.IsCaptured()) return SecondsSinceStart(machine);
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec);
}

/// What the kernel's log has of programs that were ended for lack of memory on the machine. Each has this line; the one
/// with the reason before it may be left out where many are ended.
class KillLog {
 public:
  /// Those of the last so many seconds; nothing where the log may not be read.
  std::optional<double> CountWithin(const Machine& machine, double seconds) {
    if (machine.IsCaptured()) m_kills.clear();
    const bool isRead = m_log.Read(machine, [this](const LogRecord& record) {
      // "Out of memory: Killed process 77 (player) total-vm:…"; of a group "Memory cgroup out of memory: …".
      if (record.text.starts_with("Out of memory") && record.text.find(": Killed process ") != record.text.npos)
        m_kills.push_back(record.seconds);
    });
    const auto now = LogClock(machine);
    if (!isRead || !now) return std::nullopt;
    std::erase_if(m_kills, [&](double kill) { return kill < *now - seconds; });
    return static_cast<double>(m_kills.size());
  }

 private:
  KernelLog m_log;
  std::vector<double> m_kills;
};

class MemoryCollector : public Collector {
 public:
  std::string_view Name() const override { return "memory"; }
  std::chrono::milliseconds Period() const override { return 5s; }
  std::chrono::milliseconds Deadline() const override { return 500ms; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"memory.available_percent", FactKind::kNumber, "%", "memory that programs can still get, of all"},
        {"memory.available_mib", FactKind::kNumber, "MiB", "memory that programs can still get"},
        {"memory.swap_used_percent", FactKind::kNumber, "%", "swap space in use; unknown without swap"},
        {"memory.pressure_some_avg60", FactKind::kNumber, "%",
         "share of the last minute in which work waited for memory"},
        {"memory.oom_kills_recent", FactKind::kNumber, "",
         "programs ended for lack of memory on the machine in the last 24 hours"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    const std::string list = ReadText(machine, "/proc/meminfo").value_or("");
    AddMemory(list, facts);
    AddSwap(list, facts);
    AddFact(facts, "memory.pressure_some_avg60", ReadPressure(machine, "memory"));
    AddKills(machine, facts);
  }

 private:
  static void AddMemory(std::string_view list, Facts& facts) {
    const auto total = FindNumber(list, "MemTotal"), available = FindNumber(list, "MemAvailable");
    if (!total || !available || *total <= 0 || *available > *total) return;
    facts["memory.available_percent"] = *available / *total * 100;
    facts["memory.available_mib"] = *available / 1024;
  }

  void AddKills(const Machine& machine, Facts& facts) {
    constexpr char kFact[] = "memory.oom_kills_recent";
    const auto count = [&](std::string_view file) {
      return FindNumber(ReadText(machine, file).value_or(""), "oom_kill");
    };
    // Of a container /proc has the whole machine's.
    const bool isContainer = IsContainer(machine);
    const auto all = count(isContainer ? std::string(kGroups) + "memory.events" : "/proc/vmstat");
    if (!all) return;
    if (!isContainer && *all > 0 && !Exists(machine, kNewerGroups)) {
      const auto logged = m_killLog.CountWithin(machine, std::chrono::seconds(kRecent).count());
      return logged ? AddFact(facts, kFact, logged) : AddUnknown(facts, kFact);
    }
    const double limited = isContainer || *all == 0 ? 0 : KilledByLimits(machine);
    if (!isContainer && count("/proc/vmstat") != all) return AddUnknown(facts, kFact);  // one is just being counted
    AddFact(facts, kFact, RiseWithin(machine, "oom_kill_machine", std::max(*all - limited, 0.0), kRecent));
  }

  static void AddSwap(std::string_view list, Facts& facts) {
    const auto total = FindNumber(list, "SwapTotal"), free = FindNumber(list, "SwapFree");
    // Pages that lie in memory too need no swap.
    const double cached = FindNumber(list, "SwapCached").value_or(0);
    if (!total || !free || *total <= 0 || *free + cached > *total) return;
    facts["memory.swap_used_percent"] = (*total - *free - cached) / *total * 100;
  }

  KillLog m_killLog;
};

}  // namespace

std::unique_ptr<Collector> MakeMemoryCollector() {
  return std::make_unique<MemoryCollector>();
}

}  // namespace trevlin
