#include "question.h"

#include <utility>

#include "CScreenJob.h"
#include "CUtils.h"
#include "QUVA_KPISender.h"
#include "dialog.h"

namespace tools {

using QUVA::CUtils;

void Ask(const Tool& tool, const Question& question, std::function<void()> onBack) {
  const auto open = [&tool, onBack](const char* textSid) -> Dialog& {
    return OpenDialog(CUtils::m_GetText(tool.titleSid), CUtils::m_GetText(textSid), onBack);
  };
  Dialog& asks = open(question.askSid);
  const auto answer = [&tool, open](const char* status, const char* textSid) {
    QUVA::QUVA_KPISender::GetInstance()->SendVexiloKPI(tool.eventItem, status);
    // Not at once: the button that was pressed is still at work.
    QUVA::PostToMainLoop([textSid, open] {
      open(textSid).AddButton(CUtils::m_GetText("SID_DONE"), [] { CUtils::Instance().m_Leave(); });
    });
  };
  asks.AddButton(CUtils::m_GetText("COM_SID_YES"), [=] { answer("Noticed", question.noticedSid); });
  asks.AddButton(CUtils::m_GetText("COM_SID_NO"), [=] { answer("Not noticed", question.missedSid); });
}

}  // namespace tools
