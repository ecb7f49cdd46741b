#include "hdmi_guide.h"

#include <iterator>

#include "CUtils.h"
#include "QUVA_KPISender.h"
#include "display_texts.h"

namespace tools {

namespace {

using QUVA::CUtils;

// The most likely first; what costs something last.
constexpr const char* kSteps[] = {"TV_SID_VEXILO_HDMI_STEP_CABLE", "TV_SID_VEXILO_HDMI_STEP_INPUT",
                                  "TV_SID_VEXILO_HDMI_STEP_POWER", "TV_SID_VEXILO_HDMI_STEP_PLUG",
                                  "TV_SID_VEXILO_HDMI_STEP_OTHER_CABLE"};

}  // namespace

void HdmiGuide::Start() {
  if (m_isRunning) return;  // a look is on its way
  m_isRunning = true;
  m_step = 0;
  ShowStep();
}

void HdmiGuide::Take(const std::vector<display::Connector>& connectors) {
  std::set<std::string> recognized;
  const display::Connector* found = nullptr;
  for (const display::Connector& each : connectors) {
    if (!IsRecognized(each)) continue;
    recognized.insert(each.name);
    if (!m_recognized.contains(each.name)) found = &each;
  }
  m_recognized = std::move(recognized);  // what is pulled out meanwhile and plugged in again is found, too
  if (m_isRunning && found)
    End("Solved", CUtils::m_GetTextWith("TV_SID_VEXILO_HDMI_MIX_FOUND", TitleOf(*found) + ": " + StateOf(*found)));
}

void HdmiGuide::ShowStep() {
  ShowDialog(CUtils::m_GetTextWith("TV_SID_VEXILO_HDMI_MIX_STEP", std::to_string(m_step + 1)),
             CUtils::m_GetText(kSteps[m_step]));
  m_dialog->AddButton(CUtils::m_GetText("TV_SID_VEXILO_CHECK_AGAIN"), [this] { m_lookNow([this] { GoOn(); }); });
  m_dialog->AddButton(CUtils::m_GetText("COM_SID_CLOSE"), [this] { m_isRunning = false; });
}

/// After a look that has found nothing, if it was so.
void HdmiGuide::GoOn() {
  if (!m_isRunning) return;
  if (++m_step < std::size(kSteps)) return ShowStep();
  End("Not solved", CUtils::m_GetText("TV_SID_VEXILO_HDMI_NOT_FOUND"));
}

void HdmiGuide::End(const char* status, const std::string& text) {
  m_isRunning = false;
  QUVA::QUVA_KPISender::GetInstance()->SendVexiloKPI(m_tool.eventItem, status);
  ShowDialog(CUtils::m_GetText(m_tool.titleSid), text);
  m_dialog->AddButton(CUtils::m_GetText("SID_DONE"), [] {});
}

void HdmiGuide::ShowDialog(const std::string& title, const std::string& text) {
  if (m_dialog) m_dialog->Dismiss();
  m_dialog = &OpenDialog(title, text, [this] { m_isRunning = false; });
}

}  // namespace tools
