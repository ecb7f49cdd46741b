#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

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
        {"memory.oom_kills_recent", FactKind::kNumber, "", "programs ended for lack of memory in the last 24 hours"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    const std::string list = ReadText(machine, "/proc/meminfo").value_or("");
    AddMemory(list, facts);
    AddSwap(list, facts);
    AddFact(facts, "memory.pressure_some_avg60", ReadPressure(machine, "memory"));
    // Of a container /proc has the whole machine's.
    const char* const counters = IsContainer(machine) ? "/sys/fs/cgroup/memory.events" : "/proc/vmstat";
    if (const auto kills = FindNumber(ReadText(machine, counters).value_or(""), "oom_kill"))
      AddFact(facts, "memory.oom_kills_recent", RiseWithin(machine, "oom_kill", *kills, 24h));
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
