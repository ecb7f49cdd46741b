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
constexpr uint64_t kBoardThrottled = 0xe;

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

std::optional<double> Hotter(std::optional<double> one, std::optional<double> other) {
  return one && other ? std::max(*one, *other) : one ? one : other;
}

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
        {"cpu.throttled", FactKind::kTruth, "", "the processor is slowed down by heat, or was in the last ten minutes"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    AddLoad(machine, facts);
    AddFact(facts, "cpu.pressure_some_avg60", ReadPressure(machine, "cpu"));
    AddFact(facts, "cpu.temperature", Hotter(ZoneTemperature(machine), SensorTemperature(machine)));
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

  static std::optional<double> ZoneTemperature(const Machine& machine) {
    constexpr std::array<std::string_view, 8> kOthers = {"gpu",  "wifi",  "wlan", "battery",
                                                         "bat_", "charg", "nvme", "modem"};
    std::optional<double> hottest;
    for (const std::string& name : ListNames(machine, kThermal)) {
      const std::string zone = std::string(kThermal) + "/" + name;
      if (!name.starts_with("thermal_zone") || HasAny(ReadLine(machine, zone + "/type").value_or(""), kOthers))
        continue;
      hottest = Hotter(hottest, ReadTemperature(machine, zone + "/temp"));
    }
    return hottest;
  }

  static std::optional<double> SensorTemperature(const Machine& machine) {
    constexpr std::array<std::string_view, 5> kOfCpu = {"coretemp", "k10temp", "zenpower", "cpu", "soc"};
    std::optional<double> hottest;
    for (const std::string& name : ListNames(machine, kHwmon)) {
      const std::string chip = std::string(kHwmon) + "/" + name;
      if (!HasAny(ReadLine(machine, chip + "/name").value_or(""), kOfCpu)) continue;
      for (const std::string& file : ListNames(machine, chip))
        if (file.starts_with("temp") && file.ends_with("_input"))
          hottest = Hotter(hottest, ReadTemperature(machine, chip + "/" + file));
    }
    return hottest;
  }

  static void AddThrottled(const Machine& machine, Facts& facts) {
    const auto board = ReadBoardThrottling(machine);
    const std::array<std::optional<bool>, 3> signs = {
        board ? std::optional((*board & kBoardThrottled) != 0) : std::nullopt, IsCooled(machine), HasCounted(machine)};
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

  static std::optional<bool> HasCounted(const Machine& machine) {
    std::optional<double> count;
    for (const std::string& name : ListNames(machine, kCpus)) {
      if (!name.starts_with("cpu")) continue;
      for (const char* counter : {"core_throttle_count", "package_throttle_count"})
        if (const auto one = ReadNumber(machine, std::string(kCpus) + "/" + name + "/thermal_throttle/" + counter, 0))
          count = count.value_or(0) + *one;
    }
    const auto rise = count ? RiseWithin(machine, "thermal_throttle", *count, 10min) : std::nullopt;
    return rise ? std::optional(*rise > 0) : std::nullopt;
  }
};

}  // namespace

std::unique_ptr<Collector> MakeCpuCollector() {
  return std::make_unique<CpuCollector>();
}

}  // namespace trevlin
