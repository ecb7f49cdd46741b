#include <algorithm>
#include <array>
#include <cmath>

#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr char kThermal[] = "/sys/class/thermal";
constexpr char kHwmon[] = "/sys/class/hwmon";
constexpr char kCpus[] = "/sys/devices/system/cpu";
constexpr double kColdest = -50, kHottest = 150;
/// What a sensor's maker can mean; others give an end of their range, or a default.
constexpr double kLeastCritical = 70, kMostCritical = 130;
constexpr double kUsualCritical = 100;  // where the sensor does not tell
constexpr uint64_t kBoardTooLittleVoltage = 0x1, kBoardSlowed = 0x6, kBoardHot = 0x8;
constexpr auto kThrottleWindow = 10min;
constexpr double kThrottledShare = 0.05;  // what a short burst of work takes is no fault
constexpr int kMaxTrips = 16;

template <size_t count>
bool HasAny(std::string_view text, const std::array<std::string_view, count>& parts) {
  return std::any_of(parts.begin(), parts.end(), [&](std::string_view part) { return text.find(part) != text.npos; });
}

/// Cores that are switched on.
double CountCores(const Machine& machine) {
  const std::string stat = ReadText(machine, "/proc/stat").value_or("");
  const auto lines = SplitLines(stat);
  return static_cast<double>(std::count_if(lines.begin(), lines.end(), [](std::string_view line) {
    return line.size() > 3 && line.starts_with("cpu") && line[3] >= '0' && line[3] <= '9';
  }));
}

/// A sensor's °C. The kernel gives thousandths; some boards' drivers give whole degrees. Dead sensors give 0 or an end
/// of their range.
std::optional<double> ReadTemperature(const Machine& machine, const std::string& path) {
  const auto value = ReadNumber(machine, path);
  if (!value || *value == 0) return std::nullopt;
  const double degrees = std::abs(*value) <= kHottest ? *value : *value / 1000;
  return degrees > kColdest && degrees < kHottest ? std::optional(degrees) : std::nullopt;
}

/// What several sensors tell together.
class Heat {
 public:
  void Add(const std::optional<double>& temperature, std::optional<double> critical) {
    if (!temperature) return;
    if (!critical || *critical < kLeastCritical || *critical > kMostCritical) critical = kUsualCritical;
    m_hottest = std::max(m_hottest.value_or(*temperature), *temperature);
    const double margin = *critical - *temperature;
    m_margin = std::min(m_margin.value_or(margin), margin);
  }
  void AddTo(Facts& facts) const {
    AddFact(facts, "cpu.temperature", m_hottest);
    AddFact(facts, "cpu.temperature_margin", m_margin);
  }

 private:
  std::optional<double> m_hottest, m_margin;
};

class CpuCollector : public Collector {
 public:
  std::string_view Name() const override { return "cpu"; }
  std::chrono::milliseconds Period() const override { return 5s; }
  // Some sensors are asked over a slow bus.
  std::chrono::milliseconds Deadline() const override { return 1s; }
  std::vector<FactDescription> Describe() const override {
    return {
        {"cpu.load_per_core", FactKind::kNumber, "", "work that runs or waits, for each core, mean of one minute"},
        {"cpu.load5_per_core", FactKind::kNumber, "", "the same, mean of five minutes"},
        {"cpu.pressure_some_avg60", FactKind::kNumber, "%", "share of the last minute in which work waited for a core"},
        {"cpu.temperature", FactKind::kNumber, "°C", "the hottest sensor of the processor or its surroundings"},
        {"cpu.temperature_margin", FactKind::kNumber, "°C", "how far one of them is from what is critical for it"},
        {"cpu.throttled", FactKind::kTruth, "",
         "the processor is slowed down by heat, or was for 5 % of the last ten minutes"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    AddLoad(machine, facts);
    AddFact(facts, "cpu.pressure_some_avg60", ReadPressure(machine, "cpu"));
    Heat heat;
    AddZones(machine, heat);
    AddSensors(machine, heat);
    heat.AddTo(facts);
    AddThrottled(machine, facts);
  }

 private:
  static void AddLoad(const Machine& machine, Facts& facts) {
    const std::string line = ReadLine(machine, "/proc/loadavg").value_or("");
    const auto words = SplitWords(line);
    const double cores = CountCores(machine);
    if (words.size() < 3 || cores < 1) return;
    for (const auto& [name, word] : {std::pair("cpu.load_per_core", words[0]), {"cpu.load5_per_core", words[1]}})
      if (const auto load = ParseNumber(word); load && *load >= 0) facts[name] = *load / cores;
  }

  static void AddZones(const Machine& machine, Heat& heat) {
    constexpr std::array<std::string_view, 8> kOthers = {"gpu",  "wifi",  "wlan", "battery",
                                                         "bat_", "charg", "nvme", "modem"};
    for (const std::string& name : ListNames(machine, kThermal)) {
      const std::string zone = std::string(kThermal) + "/" + name;
      if (!name.starts_with("thermal_zone") || HasAny(ReadLine(machine, zone + "/type").value_or(""), kOthers))
        continue;
      heat.Add(ReadTemperature(machine, zone + "/temp"), CriticalTrip(machine, zone));
    }
  }

  static std::optional<double> CriticalTrip(const Machine& machine, const std::string& zone) {
    for (int i = 0; i < kMaxTrips; ++i) {
      const std::string trip = zone + "/trip_point_" + std::to_string(i);
      const auto type = ReadLine(machine, trip + "_type");
      if (!type) break;
      if (*type == "critical") return ReadTemperature(machine, trip + "_temp");
    }
    return std::nullopt;
  }

  static void AddSensors(const Machine& machine, Heat& heat) {
    constexpr std::array<std::string_view, 5> kOfCpu = {"coretemp", "k10temp", "zenpower", "cpu", "soc"};
    for (const std::string& name : ListNames(machine, kHwmon)) {
      const std::string chip = std::string(kHwmon) + "/" + name;
      if (!HasAny(ReadLine(machine, chip + "/name").value_or(""), kOfCpu)) continue;
      const std::vector<std::string> sensors = ListSensors(machine, chip);
      const auto isCalled = [&](const std::string& sensor, const char* label) {
        return ReadLine(machine, sensor + "_label") == label;
      };
      // Tctl is what fans go by, on some processors well above the temperature of the die.
      const bool hasDie =
          std::any_of(sensors.begin(), sensors.end(), [&](const auto& sensor) { return isCalled(sensor, "Tdie"); });
      for (const std::string& sensor : sensors)
        if (!hasDie || !isCalled(sensor, "Tctl"))
          heat.Add(ReadTemperature(machine, sensor + "_input"), ReadTemperature(machine, sensor + "_crit"));
    }
  }

  /// "…/temp1" for each.
  static std::vector<std::string> ListSensors(const Machine& machine, const std::string& chip) {
    constexpr std::string_view kInput = "_input";
    std::vector<std::string> sensors;
    for (const std::string& file : ListNames(machine, chip))
      if (file.starts_with("temp") && file.ends_with(kInput))
        sensors.push_back(chip + "/" + file.substr(0, file.size() - kInput.size()));
    return sensors;
  }

  /// The firmware slows the board for too little voltage, too.
  static bool IsBoardHot(uint64_t bits) {
    return (bits & kBoardHot) != 0 || ((bits & kBoardTooLittleVoltage) == 0 && (bits & kBoardSlowed) != 0);
  }

  static void AddThrottled(const Machine& machine, Facts& facts) {
    const auto board = ReadBoardThrottling(machine);
    const std::array<std::optional<bool>, 3> signs = {board ? std::optional(IsBoardHot(*board)) : std::nullopt,
                                                      IsCooled(machine), WasThrottled(machine)};
    for (const auto& sign : signs)
      if (sign) facts["cpu.throttled"] = *sign || facts["cpu.throttled"] == FactValue(true);
  }

  /// By slowing it down.
  static std::optional<bool> IsCooled(const Machine& machine) {
    constexpr std::array<std::string_view, 2> kSlowing = {"Processor", "cpufreq"};
    std::optional<bool> cooled;
    for (const std::string& name : ListNames(machine, kThermal)) {
      const std::string device = std::string(kThermal) + "/" + name;
      if (!name.starts_with("cooling_device") || !HasAny(ReadLine(machine, device + "/type").value_or(""), kSlowing))
        continue;
      if (const auto state = ReadNumber(machine, device + "/cur_state", 0))
        cooled = cooled.value_or(false) || *state > 0;
    }
    return cooled;
  }

  /// By the time that each core has been. One that is switched off has no counter, and the old one when it is back.
  static std::optional<bool> WasThrottled(const Machine& machine) {
    constexpr std::chrono::duration<double, std::milli> kWindow = kThrottleWindow;
    std::optional<bool> throttled;
    for (const std::string& name : ListNames(machine, kCpus)) {
      if (!name.starts_with("cpu")) continue;
      const std::string folder = std::string(kCpus) + "/" + name + "/thermal_throttle/";
      auto time = ReadNumber(machine, folder + "package_throttle_total_time_ms", 0);
      if (!time) time = ReadNumber(machine, folder + "core_throttle_total_time_ms", 0);
      const auto rise = time ? RiseWithin(machine, "thermal_throttle." + name, *time, kThrottleWindow) : std::nullopt;
      if (rise) throttled = throttled.value_or(false) || *rise >= kThrottledShare * kWindow.count();
    }
    return throttled;
  }
};

}  // namespace

std::unique_ptr<Collector> MakeCpuCollector() {
  return std::make_unique<CpuCollector>();
}

}  // namespace trevlin
