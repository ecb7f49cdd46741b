#include <linux/input-event-codes.h>

#include <algorithm>
#include <charconv>
#include <tuple>

#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view kInput = "/sys/class/input";
constexpr std::string_view kSupplies = "/sys/class/power_supply";
constexpr size_t kLongestName = 64;

/// The keys of a device.
class KeyMask {
 public:
  /// `text`: words of the kernel's size, the highest first. Nothing when that is not what it is.
  static std::optional<KeyMask> Parse(std::string_view text, size_t wordBits) {
    KeyMask mask(wordBits);
    const auto words = SplitWords(text);
    for (auto word = words.rbegin(); word != words.rend(); ++word) {
      uint64_t bits = 0;
      const auto [end, error] = std::from_chars(word->data(), word->data() + word->size(), bits, 16);
      if (error != std::errc() || end != word->data() + word->size()) return std::nullopt;
      mask.m_words.push_back(bits);
    }
    return mask;
  }

  bool Has(size_t key) const {
    return key / m_bits < m_words.size() && (m_words[key / m_bits] >> (key % m_bits) & 1) != 0;
  }

 private:
  explicit KeyMask(size_t wordBits) : m_bits(wordBits) {}

  size_t m_bits;
  std::vector<uint64_t> m_words;  // lowest first
};

/// The word size of the kernel that wrote the mask. This machine's is known; that of a captured one shows in words that
/// only the larger fills, and those that fill the smaller.
size_t WordBits(const Machine& machine, std::string_view mask) {
  if (!machine.IsCaptured()) return sizeof(long) * 8;
  size_t longest = 0;
  for (const std::string_view word : SplitWords(mask)) longest = std::max(longest, word.size());
  return longest == 8 ? 32 : 64;
}

/// Whether `device` (the folder of an input device) has enough keys to find one's way through menus, or is touched
/// where the picture is.
std::optional<bool> CanNavigate(const Machine& machine, const std::string& device) {
  // Touch pads, which move a pointer, are not direct.
  const auto properties = ReadHex(machine, device + "/properties");
  if (properties && (*properties >> INPUT_PROP_DIRECT & 1) != 0) return true;
  const auto line = ReadLine(machine, device + "/capabilities/key");
  const auto keys = line ? KeyMask::Parse(*line, WordBits(machine, *line)) : std::nullopt;
  if (!keys) return std::nullopt;
  return keys->Has(KEY_UP) && keys->Has(KEY_DOWN) &&
         (keys->Has(KEY_ENTER) || keys->Has(KEY_OK) || keys->Has(KEY_SELECT));
}

void AddDeviceFacts(const Machine& machine, Facts& facts) {
  if (!Exists(machine, kInput)) return;
  int devices = 0;
  bool hasRemote = false, allTell = true;
  for (const std::string& name : ListNames(machine, kInput)) {
    if (!name.starts_with("event")) continue;
    ++devices;
    const auto canNavigate = CanNavigate(machine, std::string(kInput) + "/" + name + "/device");
    hasRemote = hasRemote || canNavigate == true;
    allTell = allTell && canNavigate;
  }
  AddFact<double>(facts, "input.devices", devices);
  if (hasRemote || allTell) AddFact<bool>(facts, "input.remote", hasRemote);
}

/// Devices that know steps only are given the middle of each.
std::optional<double> LevelPercent(const std::optional<std::string>& level) {
  constexpr struct {
    std::string_view name;
    double percent;
  } kLevels[] = {{"Critical", 5}, {"Low", 15}, {"Normal", 55}, {"High", 80}, {"Full", 100}};
  for (const auto& each : kLevels)
    if (level == each.name) return each.percent;
  return std::nullopt;
}

/// Whether a battery feeds what one navigates with; mice and headsets do not count.
bool IsOfRemote(const Machine& machine, const std::string& supply) {
  const std::string inputs = supply + "/device/input";
  const auto names = ListNames(machine, inputs);
  return ReadLine(machine, supply + "/scope") == "Device" &&
         std::any_of(names.begin(), names.end(),
                     [&](const std::string& name) { return CanNavigate(machine, inputs + "/" + name) == true; });
}

/// The charge of a battery; nothing when the device is away or has not told yet, which drivers show as empty.
std::optional<double> BatteryPercent(const Machine& machine, const std::string& supply) {
  if (ReadNumber(machine, supply + "/online") == 0 || ReadNumber(machine, supply + "/present") == 0)
    return std::nullopt;
  const auto charge = ReadNumber(machine, supply + "/capacity", 0, 100);
  if (!charge) return LevelPercent(ReadLine(machine, supply + "/capacity_level"));
  return *charge == 0 && ReadLine(machine, supply + "/status") == "Unknown" ? std::nullopt : charge;
}

/// The start of `name`, cut between characters.
std::string Shortened(std::string name) {
  if (name.size() <= kLongestName) return name;
  size_t end = kLongestName;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  name.resize(end);
  return name;
}

void AddBatteryFacts(const Machine& machine, Facts& facts) {
  // One that is being charged only where no other is in use.
  std::optional<std::tuple<bool, double, std::string>> weakest;
  for (const std::string& name : ListNames(machine, kSupplies)) {
    const std::string supply = std::string(kSupplies) + "/" + name;
    const auto charge = IsOfRemote(machine, supply) ? BatteryPercent(machine, supply) : std::nullopt;
    const auto status = ReadLine(machine, supply + "/status");
    const bool isCharging = status == "Charging" || status == "Full";
    if (charge)
      weakest = std::min(weakest.value_or(std::tuple(true, 101.0, "")), std::tuple(isCharging, *charge, name));
  }
  if (!weakest) return;
  const auto& [isCharging, charge, name] = *weakest;
  const auto model = ReadLine(machine, std::string(kSupplies) + "/" + name + "/model_name");
  AddFact<double>(facts, "input.battery_percent", charge);
  AddFact<bool>(facts, "input.battery_charging", isCharging);
  AddFact<std::string>(facts, "input.battery_name", Shortened(model.value_or(name)));
}

class InputCollector final : public Collector {
 public:
  std::string_view Name() const override { return "input"; }
  std::chrono::milliseconds Period() const override { return 30s; }
  std::chrono::milliseconds Deadline() const override { return 2s; }

  std::vector<FactDescription> Describe() const override {
    using enum FactKind;
    return {
        {"input.devices", kNumber, "", "input devices that give events"},
        {"input.remote", kTruth, "",
         "one has the keys up, down and OK (a remote control, a keyboard) or is a touch screen"},
        {"input.battery_percent", kNumber, "%", "charge of the remote control or keyboard that has the least"},
        {"input.battery_charging", kTruth, "", "that device is being charged, or full"},
        {"input.battery_name", kText, "", "that device"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    AddDeviceFacts(machine, facts);
    AddBatteryFacts(machine, facts);
  }
};

}  // namespace

std::unique_ptr<Collector> MakeInputCollector() {
  return std::make_unique<InputCollector>();
}

}  // namespace trevlin
