#include "question.h"

#include <memory>
#include <string>
#include <utility>

#include "CScreenJob.h"
#include "CUtils.h"
#include "QUVA_KPISender.h"

namespace tools {

namespace {

using QUVA::CUtils;

/// A popup above the screen; Back closes it.
class Dialog {
 public:
  Dialog(const char* titleSid, const char* textSid, std::function<void()> onBack) : m_onBack(std::move(onBack)) {
    CUtils& utils = CUtils::Instance();
    utils.m_ShowDimBackground();
    m_popup = elm_flux_popup_add(utils.m_pGetAppWindow());
    elm_flux_popup_title_set(m_popup, CUtils::m_GetText(titleSid));
    elm_flux_popup_text_set(m_popup, CUtils::m_GetText(textSid));
    utils.m_RegisterForReturnStack({[] {}, [this] { Close(), m_onBack(); }}, false);
  }

  void AddButton(const char* sid, std::function<void()> onClick) {
    QUVA::OnEvent(elm_flux_popup_button_add(m_popup, CUtils::m_GetText(sid)), "clicked",
                  [this, onClick = std::move(onClick)](void*) {
                    CUtils::Instance().m_DropFromReturnStack();
                    Close();
                    onClick();
                  });
  }

 private:
  void Close() {
    m_popup.m_Delete();
    CUtils::Instance().m_HideDimBackground();
  }

  const std::function<void()> m_onBack;
  QUVA::CWidget m_popup;
};

std::unique_ptr<Dialog>& Shown() {
  static auto& shown = *new std::unique_ptr<Dialog>;
  return shown;
}

}  // namespace

void Ask(const Tool& tool, const Question& question, std::function<void()> onBack) {
  Shown() = std::make_unique<Dialog>(tool.titleSid, question.askSid, onBack);
  const auto answer = [&tool, onBack](const char* status, const char* textSid) {
    QUVA::QUVA_KPISender::GetInstance()->SendVexiloKPI(tool.eventItem, status);
    // Not at once: the button that was pressed is still at work.
    QUVA::PostToMainLoop([&tool, textSid, onBack] {
      Shown() = std::make_unique<Dialog>(tool.titleSid, textSid, onBack);
      Shown()->AddButton("SID_DONE", [] { CUtils::Instance().m_Leave(); });
    });
  };
  Shown()->AddButton("COM_SID_YES", [=] { answer("Noticed", question.noticedSid); });
  Shown()->AddButton("COM_SID_NO", [=] { answer("Not noticed", question.missedSid); });
}

}  // namespace tools
