#include <algorithm>

#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view kGroups = "/sys/fs/cgroup/";

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

/// Programs that were ended for lack of memory since the start; nothing while one is being counted.
std::optional<double> CountKills(const Machine& machine) {
  const auto count = [&](std::string_view file) {
    return FindNumber(ReadText(machine, file).value_or(""), "oom_kill");
  };
  // Of a container /proc has the whole machine's.
  if (IsContainer(machine)) return count(std::string(kGroups) + "memory.events");
  constexpr std::string_view kMachine = "/proc/vmstat";
  const auto all = count(kMachine);
  if (!all || *all == 0) return all;
  const double limited = KilledByLimits(machine);
  return count(kMachine) == all ? std::optional(std::max(*all - limited, 0.0)) : std::nullopt;
}

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
    if (const auto kills = CountKills(machine))
      AddFact(facts, "memory.oom_kills_recent", RiseWithin(machine, "oom_kill_machine", *kills, 24h));
  }

 private:
  static void AddMemory(std::string_view list, Facts& facts) {
    const auto total = FindNumber(list, "MemTotal"), available = FindNumber(list, "MemAvailable");
    if (!total || !available || *total <= 0 || *available > *total) return;
    facts["memory.available_percent"] = *available / *total * 100;
    facts["memory.available_mib"] = *available / 1024;
  }

  static void AddSwap(std::string_view list, Facts& facts) {
    const auto total = FindNumber(list, "SwapTotal"), free = FindNumber(list, "SwapFree");
    // Pages that lie in memory too need no swap.
    const double cached = FindNumber(list, "SwapCached").value_or(0);
    if (!total || !free || *total <= 0 || *free + cached > *total) return;
    facts["memory.swap_used_percent"] = (*total - *free - cached) / *total * 100;
  }
};

}  // namespace

std::unique_ptr<Collector> MakeMemoryCollector() {
  return std::make_unique<MemoryCollector>();
}

}  // namespace trevlin
