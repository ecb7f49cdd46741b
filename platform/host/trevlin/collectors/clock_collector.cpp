#include <sys/timex.h>

#include <algorithm>

#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/collectors/time_services.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

/// Sockets of time services that keep the clock right without telling the kernel so.
constexpr std::string_view kSilentServices[] = {"/run/openntpd.sock", "/run/ntpd.sock"};

constexpr std::chrono::sys_days kEarliest = std::chrono::year(2024) / 1 / 1;

class ClockCollector : public Collector {
 public:
  std::string_view Name() const override { return "clock"; }
  std::chrono::milliseconds Period() const override { return 10s; }
  std::chrono::milliseconds Deadline() const override { return 2200ms; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"clock.set", FactKind::kTruth, "", "the date is not before 2024"},
        {"clock.date", FactKind::kNumber, "", "the date as one number, of 2026-11-05 20261105 (UTC)"},
        {"clock.synchronised", FactKind::kTruth, "", "a time service keeps the clock right"},
        {"clock.offset_ms", FactKind::kNumber, "ms", "what is still to be corrected; unknown unless synchronised"},
        {"clock.time_service_off", FactKind::kTruth, "", "a time service is installed, and none runs or has failed"},
        {"clock.zone", FactKind::kTruth, "", "a time zone is chosen"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    if (!machine.IsCaptured()) {
      const auto now = std::chrono::system_clock::now();
      facts["clock.set"] = now >= kEarliest;
      facts["clock.date"] = AsNumber(std::chrono::floor<std::chrono::days>(now));
      AddKernelClock(facts);
      if (const auto services = AskTimeServices())
        facts["clock.time_service_off"] = services->isInstalled && !services->isRunning && !services->hasFailed;
    }
    const bool mayBeSilent = std::any_of(std::begin(kSilentServices), std::end(kSilentServices),
                                         [&](std::string_view service) { return Exists(machine, service); });
    if (mayBeSilent && facts["clock.synchronised"] == FactValue(false)) facts.erase("clock.synchronised");
    if (Exists(machine, "/run/systemd/timesync/synchronized")) facts["clock.synchronised"] = true;
    if (Exists(machine, "/etc")) facts["clock.zone"] = Exists(machine, "/etc/localtime");
  }

 private:
  static double AsNumber(std::chrono::year_month_day date) {
    return static_cast<int>(date.year()) * 1e4 + static_cast<unsigned>(date.month()) * 1e2 +
           static_cast<unsigned>(date.day());
  }

  static void AddKernelClock(Facts& facts) {
    timex clock{};
    const int state = adjtimex(&clock);
    if (state < 0) return;
    const bool isSynchronised = state != TIME_ERROR && (clock.status & STA_UNSYNC) == 0;
    facts["clock.synchronised"] = isSynchronised;
    const double perMillisecond = (clock.status & STA_NANO) != 0 ? 1e6 : 1e3;
    if (isSynchronised) facts["clock.offset_ms"] = static_cast<double>(clock.offset) / perMillisecond;
  }
};

}  // namespace

std::unique_ptr<Collector> MakeClockCollector() {
  return std::make_unique<ClockCollector>();
}

}  // namespace trevlin
