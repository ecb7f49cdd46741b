#include "trevlin/collectors/display_facts.h"

#include <algorithm>

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using display::Connector;
using display::Resolution;

/// Plugs that screens of their own are put into; built-in panels may go without EDID.
constexpr std::string_view kPlugs[] = {"DP-", "DVI-", "HDMI-", "VGA-"};

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
      const display::Edid edid = display::ReadEdid(*each.edid);
      valid.Add(edid.isValid);
      preferred = edid.preferred;
      if (each.takesSound && edid.isValid) playsSound = playsSound.value_or(false) || edid.playsSound;
    }
    if (!each.mode) continue;
    const Resolution& shown = each.mode->size;
    if (!largest || shown.Area() > largest->Area()) largest = shown;
    if (preferred) fullSize.Add(shown.Area() >= preferred->Area());
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
