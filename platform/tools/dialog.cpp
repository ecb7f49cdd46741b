#include "dialog.h"

#include <memory>
#include <utility>

#include "CUtils.h"

namespace tools {

using QUVA::CUtils;

Dialog::Dialog(const std::string& title, const std::string& text, std::function<void()> onBack)
    : m_onBack(std::move(onBack)) {
  CUtils& utils = CUtils::Instance();
  utils.m_ShowDimBackground();
  m_popup = elm_flux_popup_add(utils.m_pGetAppWindow());
  elm_flux_popup_title_set(m_popup, title);
  elm_flux_popup_text_set(m_popup, text);
  utils.m_RegisterForReturnStack({[] {}, [this] { Close(), m_onBack(); }}, false);
}

void Dialog::AddButton(const std::string& text, std::function<void()> onClick) {
  QUVA::OnEvent(elm_flux_popup_button_add(m_popup, text), "clicked", [this, onClick = std::move(onClick)](void*) {
    Dismiss();
    onClick();
  });
}

void Dialog::Dismiss() {
  if (!m_popup) return;
  CUtils::Instance().m_DropFromReturnStack();
  Close();
}

void Dialog::Close() {
  m_popup.m_Delete();
  CUtils::Instance().m_HideDimBackground();
}

Dialog& OpenDialog(const std::string& title, const std::string& text, std::function<void()> onBack) {
  static auto& shown = *new std::unique_ptr<Dialog>;
  shown = std::make_unique<Dialog>(title, text, std::move(onBack));
  return *shown;
}

}  // namespace tools
