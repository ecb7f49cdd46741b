#include "CPlainScreen.h"

namespace QUVA {

namespace {

constexpr double kTop = 40;  // units, as all sizes here
constexpr double kBottom = 53;
constexpr double kTextWidth = 180;
constexpr double kTextHeight = 12;
constexpr double kGap = 6;
constexpr double kButtonWidth = 49;
constexpr double kButtonHeight = 9;

}  // namespace

void CPlainScreen::m_Open(const char* titleSid, const _returnCBStruct& entry, bool registers) {
  CUtils& utils = CUtils::Instance();
  if (registers) utils.m_RegisterForReturnStack(entry, false);
  if (!m_screen.m_Build(titleSid)) return;
  Evas_Object* const body = m_screen.m_pGetBody();
  elm_flux_layout_padding_set(body, 0, kTop, 0, kBottom);
  elm_flux_layout_gap_set(body, kGap);
  AddText(body, CUtils::m_GetText("TV_SID_VEXILO_NO_ENTRY"), FLUX_FONT_400, "#FFFFFF", FLUX_TEXT_BODY,
          FLUX_ALIGN_CENTER, kTextWidth, kTextHeight);
  Evas_Object* close = nullptr;
  utils.m_CreateButton(close, body, CUtils::m_GetText("COM_SID_CLOSE"), kButtonWidth, kButtonHeight);
  OnEvent(close, "clicked", [](void*) { CUtils::Instance().m_ExecuteReturn(); });
  m_screen.m_RememberFocus(close);
  m_screen.m_RestoreFocus();
}

void CPlainScreen::m_ShowAfterReturn() {
  m_screen.m_Show();
  m_screen.m_RestoreFocus();
}

}  // namespace QUVA
