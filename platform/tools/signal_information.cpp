// Signal information: what the picture is like right now, and what the tuners receive.

#include <utility>

#include "CUtils.h"
#include "display/connectors.h"
#include "display_texts.h"
#include "facts_page.h"
#include "live.h"
#include "tools.h"
#include "tv/frontends.h"
#include "x_outputs.h"

namespace tools {

namespace {

using QUVA::CUtils;

/// `hasTuner`: whether what is shown may come from one.
std::vector<Fact> ReadSignal(bool hasTuner) {
  auto connectors = display::ReadConnectors({}).value_or(std::vector<display::Connector>());
  TakeModesOfX(connectors);
  std::vector<Fact> facts = PictureFacts(connectors);
  if (!hasTuner) return facts;
  for (Fact& fact : TunerFacts(tv::ReadFrontends())) facts.push_back(std::move(fact));
  return facts;
}

class SignalPage {
 public:
  SignalPage(const Tool& tool, bool hasTuner)
      : m_page(tool),
        m_live("drm", [this, hasTuner] { return [this, facts = ReadSignal(hasTuner)] { Show(facts); }; }) {
    m_page.AddDone();
  }

 private:
  void Show(const std::vector<Fact>& facts) {
    m_page.SetNote(facts.empty() ? CUtils::m_GetText("TV_SID_VEXILO_SIGNAL_NOTHING") : "");
    m_page.SetFacts(facts);
  }

  FactsPage m_page;
  Live m_live;
};

}  // namespace

void OpenSignalInformation(const Tool& tool, const app_framework::Extras& extras) {
  // The page that is asked for where the picture comes in by HDMI.
  const std::string* const page = extras.Find("ID");
  new SignalPage(tool, !page || *page != "hdmi-information");  // for as long as the process
}

}  // namespace tools
