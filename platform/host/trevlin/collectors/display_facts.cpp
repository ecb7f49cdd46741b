#include "trevlin/collectors/display_facts.h"

#include <algorithm>
#include <numeric>

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::string_view_literals;

constexpr size_t kBlock = 128;
constexpr std::string_view kHeader = "\0\xFF\xFF\xFF\xFF\xFF\xFF\0"sv;
constexpr size_t kFirstTiming = 54;  // of the preferred mode
constexpr size_t kMoreBlocks = 126;

/// Plugs that screens of their own are put into; built-in panels may go without EDID.
constexpr std::string_view kPlugs[] = {"DP-", "DVI-", "HDMI-", "VGA-"};

/// The bytes of a block add up to a multiple of 256.
bool IsSumRight(std::string_view block) {
  return std::accumulate(block.begin(), block.end(), 0u,
                         [](unsigned sum, char c) { return sum + static_cast<unsigned char>(c); }) %
             256 ==
         0;
}

bool IsWellFormed(std::string_view bytes) {
  if (!bytes.starts_with(kHeader) || bytes.size() % kBlock != 0) return false;
  const size_t promised = 1u + static_cast<unsigned char>(bytes[kMoreBlocks]);
  // The kernel lets a wrong sum of a further block pass: some screens have it from their maker.
  return bytes.size() >= promised * kBlock && IsSumRight(bytes.substr(0, kBlock));
}

/// A detailed timing: pixel clock in two bytes (0: this is no timing), then the low and high parts of the measures.
std::optional<Resolution> ReadTiming(std::string_view timing) {
  const auto byte = [timing](size_t at) { return int{static_cast<unsigned char>(timing[at])}; };
  if (byte(0) == 0 && byte(1) == 0) return std::nullopt;
  const bool isInterlaced = (byte(17) & 0x80) != 0;
  const Resolution size{byte(2) | (byte(4) & 0xF0) << 4, (byte(5) | (byte(7) & 0xF0) << 4) * (isInterlaced ? 2 : 1)};
  return size.Area() > 0 ? std::optional(size) : std::nullopt;
}

/// Byte 3 of a CEA-861 extension: 0x40 is basic audio, which each that plays sound has.
bool PlaysSound(std::string_view block) {
  return block[0] == 2 && static_cast<unsigned char>(block[1]) >= 2 && (block[3] & 0x40) != 0;
}

bool NeedsEdid(const Connector& connector) {
  return std::any_of(std::begin(kPlugs), std::end(kPlugs),
                     [&](std::string_view plug) { return connector.name.starts_with(plug); });
}

/// Over those that know: false when one is, true when all are, unknown when none knows or one of the others does not.
class All {
 public:
  void Add(std::optional<bool> truth) {
    m_any = true;
    m_unknown = m_unknown || !truth;
    m_false = m_false || truth == false;
  }
  std::optional<bool> Get() const {
    if (m_false) return false;
    return m_any && !m_unknown ? std::optional(true) : std::nullopt;
  }

 private:
  bool m_any = false, m_unknown = false, m_false = false;
};

}  // namespace

Edid ReadEdid(std::string_view bytes) {
  Edid edid;
  edid.isValid = IsWellFormed(bytes);
  if (!edid.isValid) return edid;
  edid.preferred = ReadTiming(bytes.substr(kFirstTiming));
  for (size_t at = kBlock; at < bytes.size(); at += kBlock)
    edid.playsSound = edid.playsSound || PlaysSound(bytes.substr(at, kBlock));
  return edid;
}

void AddDisplayFacts(const std::vector<Connector>& connectors, Facts& facts) {
  AddFact<double>(facts, "display.connectors", static_cast<double>(connectors.size()));
  int connected = 0;
  bool allTell = true;
  All present, valid, fullSize;
  std::optional<Resolution> largest;
  std::optional<bool> playsSound;
  for (const Connector& each : connectors) {
    allTell = allTell && each.isConnected;
    if (each.isConnected != true) continue;
    ++connected;
    if (NeedsEdid(each)) present.Add(each.edid ? std::optional(!each.edid->empty()) : std::nullopt);
    std::optional<Resolution> preferred;
    if (each.edid && !each.edid->empty()) {
      const Edid edid = ReadEdid(*each.edid);
      valid.Add(edid.isValid);
      preferred = edid.preferred;
      if (each.takesSound && edid.isValid) playsSound = playsSound.value_or(false) || edid.playsSound;
    }
    if (!each.mode) continue;
    if (!largest || each.mode->Area() > largest->Area()) largest = each.mode;
    if (preferred) fullSize.Add(each.mode->Area() >= preferred->Area());
  }
  if (connected > 0 || allTell) AddFact<double>(facts, "display.connected", connected);
  AddFact(facts, "display.edid_present", present.Get());
  AddFact(facts, "display.edid_valid", valid.Get());
  AddFact(facts, "display.plays_sound", playsSound);
  if (largest) {
    facts["display.mode"] = std::to_string(largest->width) + "x" + std::to_string(largest->height);
    facts["display.mode_pixels"] = static_cast<double>(largest->Area());
  }
  if (const auto isFull = fullSize.Get()) AddFact<bool>(facts, "display.mode_below_preferred", !*isFull);
}

}  // namespace trevlin
