// HDMI troubleshooting: which displays are there and what they can, and a guide where one is missing.

#include <algorithm>
#include <optional>

#include "CUtils.h"
#include "display/connectors.h"
#include "display_texts.h"
#include "facts_page.h"
#include "hdmi_guide.h"
#include "live.h"
#include "tools.h"
#include "x_outputs.h"

namespace tools {

namespace {

using display::Connector;
using QUVA::CUtils;

std::vector<Connector> ReadDisplays() {
  auto connectors = display::ReadConnectors({}).value_or(std::vector<Connector>());
  std::erase_if(connectors, [](const Connector& each) { return !each.isForViewers; });
  if (!connectors.empty()) TakeModesOfX(connectors);
  // Those of the tool's name first.
  std::stable_partition(connectors.begin(), connectors.end(),
                        [](const Connector& each) { return each.name.starts_with("HDMI-"); });
  return connectors;
}

const char* NoteOn(const std::vector<Connector>& connectors) {
  if (connectors.empty()) return "TV_SID_VEXILO_HDMI_NOTE_NO_CONNECTORS";
  const auto isThere = [](const Connector& each) { return each.isConnected == true; };
  const auto isOdd = [&](const Connector& each) { return isThere(each) && each.edid && !IsRecognized(each); };
  if (std::any_of(connectors.begin(), connectors.end(), isOdd)) return "TV_SID_VEXILO_HDMI_NOTE_DAMAGED";
  return std::any_of(connectors.begin(), connectors.end(), isThere) ? "TV_SID_VEXILO_HDMI_NOTE_RECOGNIZED"
                                                                    : "TV_SID_VEXILO_HDMI_NOTE_NO_DISPLAY";
}

class HdmiPage {
 public:
  explicit HdmiPage(const Tool& tool)
      : m_page(tool),
        m_guide(tool, [this](auto then) { m_live.LookNow(std::move(then)); }),
        m_live("drm", [this] { return [this, connectors = ReadDisplays()] { Show(connectors); }; }) {}

 private:
  void Show(const std::vector<Connector>& connectors) {
    m_page.SetNote(CUtils::m_GetText(NoteOn(connectors)));
    m_page.SetFacts(ConnectorFacts(connectors));
    // Without a plug there is nothing to try.
    if (m_hasGuide != !connectors.empty()) {
      m_hasGuide = !connectors.empty();
      m_page.RemoveButtons();
      if (*m_hasGuide)
        m_page.AddButton("TV_SID_VEXILO_HDMI_GUIDE", [this] { m_guide.Start(); });
      else
        m_page.AddDone();
    }
    m_guide.Take(connectors);
  }

  FactsPage m_page;
  HdmiGuide m_guide;
  std::optional<bool> m_hasGuide;  ///< nothing before the first look
  Live m_live;
};

}  // namespace

void OpenHdmiTroubleshooting(const Tool& tool, const app_framework::Extras&) {
  new HdmiPage(tool);  // for as long as the process
}

}  // namespace tools
