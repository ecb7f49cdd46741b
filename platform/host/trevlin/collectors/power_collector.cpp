#include <algorithm>

#include "base/atomic_file.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr double kLowPercent = 10;
constexpr unsigned kResetByWatchdog = 0x20;  // WDIOF_CARDRESET of <linux/watchdog.h>
constexpr uint64_t kBoardUndervoltage = 0x1;
constexpr int kSinceStart = 16;  // bits higher

class PowerCollector : public Collector {
 public:
  std::string_view Name() const override { return "power"; }
  std::chrono::milliseconds Period() const override { return 10s; }
  std::chrono::milliseconds Deadline() const override { return 1s; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"power.undervoltage", FactKind::kTruth, "", "the board gets too little voltage right now"},
        {"power.undervoltage_since_start", FactKind::kTruth, "", "it has got too little since it was started"},
        {"power.unclean_shutdown", FactKind::kTruth, "", "the set lost its power or hung before this start"},
        {"power.uptime_days", FactKind::kNumber, "days", "time since the machine was started"},
        {"power.watchdog_reset", FactKind::kTruth, "", "the last start was forced because the machine hung"},
        {"power.on_battery_low", FactKind::kTruth, "", "it runs on a battery that has 10 % or less"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    const auto board = ReadBoardThrottling(machine);
    AddFact(facts, "power.undervoltage", HasUndervoltage(machine, board));
    if (board) facts["power.undervoltage_since_start"] = (*board >> kSinceStart & kBoardUndervoltage) != 0;
    AddFact(facts, "power.unclean_shutdown", WasUnclean(machine));
    if (const auto seconds = SecondsSinceStart(machine)) facts["power.uptime_days"] = *seconds / 86400;
    AddFact(facts, "power.watchdog_reset", WasReset(machine));
    AddFact(facts, "power.on_battery_low", IsBatteryLow(machine));
  }

 private:
  static std::optional<bool> HasUndervoltage(const Machine& machine, std::optional<uint64_t> board) {
    std::optional<bool> low;
    if (board) low = (*board & kBoardUndervoltage) != 0;
    const std::string folder = "/sys/class/hwmon/";
    for (const std::string& name : ListNames(machine, folder)) {
      if (ReadLine(machine, folder + name + "/name") != "rpi_volt") continue;
      if (const auto alarm = ReadNumber(machine, folder + name + "/in0_lcrit_alarm", 0, 1))
        low = low.value_or(false) || *alarm == 1;
    }
    return low;
  }

  /// What the daemon found when it was first started after the machine.
  static std::optional<bool> WasUnclean(const Machine& machine) {
    const std::string boot = BootId(machine);
    std::string text;
    if (boot.empty() || !ReadWholeFile(SystemPath(set_paths::kLastShutdown), text, Links::kRefuse, kMostNoted))
      return std::nullopt;
    if (text == boot + " unclean\n") return true;
    return text == boot + " clean\n" ? std::optional(false) : std::nullopt;
  }

  static std::optional<bool> WasReset(const Machine& machine) {
    std::optional<bool> reset;
    const std::string folder = "/sys/class/watchdog/";
    for (const std::string& name : ListNames(machine, folder))
      if (const auto status = ReadNumber(machine, folder + name + "/bootstatus", 0, 0xffff))
        reset = reset.value_or(false) || (static_cast<unsigned>(*status) & kResetByWatchdog) != 0;
    return reset;
  }

  /// Unknown without a battery that feeds the machine; those of mice and remotes do not.
  static std::optional<bool> IsBatteryLow(const Machine& machine) {
    std::optional<double> most;
    bool isFed = false, isDischarging = false;
    const std::string folder = "/sys/class/power_supply/";
    for (const std::string& name : ListNames(machine, folder)) {
      const std::string supply = folder + name;
      const std::string type = ReadLine(machine, supply + "/type").value_or("");
      if (ReadLine(machine, supply + "/scope") == "Device") continue;
      if (type == "Mains" || type == "USB")
        isFed = isFed || ReadNumber(machine, supply + "/online") == 1;
      else if (const auto charge = ReadNumber(machine, supply + "/capacity", 0, 100);
               charge && (type == "Battery" || type == "UPS")) {
        most = std::max(most.value_or(0), *charge);
        isDischarging = isDischarging || ReadLine(machine, supply + "/status") == "Discharging";
      }
    }
    return most ? std::optional(!isFed && isDischarging && *most <= kLowPercent) : std::nullopt;
  }
};

}  // namespace

std::unique_ptr<Collector> MakePowerCollector() {
  return std::make_unique<PowerCollector>();
}

}  // namespace trevlin
