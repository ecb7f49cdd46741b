#include "CErrorReportSuccess.h"

#include <utility>

#include "ErrorReportSender.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "set_paths.h"

namespace QUVA {

namespace {

constexpr char kTitle[] = "TV_SID_VEXILO_CBMAY_ERROR_REPORT";
constexpr char kBanner[] = "TV_SID_VEXILO_CBMAY_ERROR_REPORTING_COMPLETED";
constexpr char kInfo[] = "TV_SID_VEXILO_CBMAY_THANKS_DATA_SENT_USED_IMPORVE";
constexpr char kCheckMark[] = "dc_icon_check_s.svg";

constexpr size_t kMostBelowMark = 6;  // reports
constexpr int kInfoLines = 2;

constexpr double kMargin = 22;  // units, as all sizes here
constexpr double kTop = 4;
constexpr double kBottom = 6;
constexpr double kCheckMarkSize = 9;
constexpr double kBannerHeight = 12;
constexpr double kGap = 2;
constexpr double kButtonWidth = 49;
constexpr double kButtonHeight = 9;

void SetShown(Evas_Object* object, bool shown) {
  (shown ? evas_object_show : evas_object_hide)(object);
}

}  // namespace

CErrorReportSuccess* CErrorReportSuccess::Instance() {
  static auto* instance = new CErrorReportSuccess;
  return instance;
}

CErrorReportSuccess::CErrorReportSuccess() {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
  ErrorReportSender::Instance().ConnectSentChangeCB([this] { m_ShowSent(); });
}

void CErrorReportSuccess::m_CreateSuccessErrorReport() {
  CUtils& utils = CUtils::Instance();
  // Back leads past the screen that sent it.
  utils.m_RegisterForReturnStack({[this] { m_ShowScreenPostReturn(); }, [this] { m_HideSuccessErrorReportScreen(); }},
                                 true);
  if (!m_screen.m_Build(kTitle)) return;
  elm_flux_layout_padding_set(m_screen.m_pGetBody(), kMargin, kTop, kMargin, kBottom);
  m_CreateMainBanner();
  m_CreateBannerInfo();
  m_CreateDummyLayout();
  Evas_Object* close = nullptr;
  utils.m_CreateButton(close, m_screen.m_pGetBody(), CUtils::m_GetText("COM_SID_CLOSE"), kButtonWidth, kButtonHeight);
  OnEvent(close, "clicked", [this](void*) { m_CloseBtnBtnClickCall(); });
  m_isTold = false;
  m_screen.m_RememberFocus(close);
  m_screen.m_RestoreFocus();
  m_SetVoiceGuideText();
  m_ShowSent();
}

void CErrorReportSuccess::m_CreateMainBanner() {
  Evas_Object* const body = m_screen.m_pGetBody();
  m_checkMark = AddImage(body, getResourcePath(kCheckMark), kCheckMarkSize, kCheckMarkSize);
  elm_flux_image_tint_set(m_checkMark, kAccentColor);
  m_banner = AddText(body, CUtils::m_GetText(kBanner), FLUX_FONT_700, kReportTextColor, FLUX_TEXT_SUBTITLE,
                     FLUX_ALIGN_CENTER, 0, kBannerHeight);
  elm_flux_expand_set(m_banner, true);
}

void CErrorReportSuccess::m_CreateBannerInfo() {
  m_info = AddText(m_screen.m_pGetBody(), CUtils::m_GetText(kInfo), FLUX_FONT_400, kReportTextColor, FLUX_TEXT_BODY,
                   FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(m_info, true);
  elm_flux_text_lines_set(m_info, kInfoLines);
}

/// The room between the texts and the button, where it is told what has come of the report.
void CErrorReportSuccess::m_CreateDummyLayout() {
  Evas_Object* const area = AddLayout(m_screen.m_pGetBody(), FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(area, true);
  elm_flux_layout_gap_set(area, kGap);
  elm_flux_layout_padding_set(area, 0, kGap, 0, 0);
  m_sentPlace = AddText(area, "", FLUX_FONT_400, kFaintTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_TOP, 0, 0);
  m_sentNames = AddText(area, "", FLUX_FONT_600, kTextColor, FLUX_TEXT_SMALL, FLUX_ALIGN_TOP, 0, 0);
  m_sentRest = AddText(area, "", FLUX_FONT_400, kFaintTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_TOP, 0, 0);
  for (Evas_Object* const text : {static_cast<Evas_Object*>(m_sentPlace), static_cast<Evas_Object*>(m_sentNames),
                                  static_cast<Evas_Object*>(m_sentRest)}) {
    elm_flux_expand_set(text, true);
    elm_flux_text_lines_set(text, 0);
  }
}

void CErrorReportSuccess::m_ShowSent() {
  if (!m_sentPlace) return;
  ErrorReportSender& sender = ErrorReportSender::Instance();
  const ErrorReportSender::TSSent& sent = sender.GetSent();
  std::string names;
  for (const std::string& name : sent.reports) names += (names.empty() ? "" : "\n") + name;
  const std::string place =
      sent.reports.empty() ? "" : CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_REPORT_SAVED", set_paths::kReportsDir);
  const std::string why = sender.HasCollector() ? "" : CUtils::m_GetText(kNoCollectorText);
  std::string rest;
  if (sent.isWaiting)
    rest = why.empty() ? CUtils::m_GetText("TV_SID_VEXILO_REPORT_COLLECTING") : why;
  else if (!sent.failed.empty())
    rest = CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_NO_REPORT", ErrorReportSender::NamesOf(sent.failed)) +
           (why.empty() ? "" : "\n" + why);
  const bool hasSucceeded = !sent.reports.empty() || (sent.isWaiting && why.empty());
  const std::pair<Evas_Object*, std::string> texts[] = {{m_info, hasSucceeded ? CUtils::m_GetText(kInfo) : rest},
                                                        {m_sentPlace, place},
                                                        {m_sentNames, names},
                                                        {m_sentRest, hasSucceeded ? rest : ""}};
  for (const auto& [widget, text] : texts) {
    elm_object_text_set(widget, text.c_str());
    SetShown(widget, !text.empty());
  }
  elm_flux_text_lines_set(m_info, hasSucceeded ? kInfoLines : 0);
  SetShown(m_banner, hasSucceeded);
  SetShown(m_checkMark, hasSucceeded && sent.reports.size() <= kMostBelowMark);
  if (sent.isWaiting || std::exchange(m_isTold, true)) return;
  if (elm_config_access_get()) CUtils::m_SayVoiceGuideText(place + (place.empty() || rest.empty() ? "" : " ") + rest);
  sender.ForgetFailures(sent.failed);
}

void CErrorReportSuccess::m_HideSuccessErrorReportScreen() {
  m_screen.m_Hide();
  m_CleanObjects();
}

void CErrorReportSuccess::m_ShowScreenPostReturn() {
  m_screen.m_Show();
  m_screen.m_RestoreFocus();
}

void CErrorReportSuccess::m_CleanObjects() {
  m_screen.m_Clean();
}

// The widget set draws everything on it in the other colours.
void CErrorReportSuccess::m_HighContrastChangeCB() {
  VEXILO_LOGI("HighContrast change in Error Report callback isHighContrast: %d",
              CUtils::Instance().m_GetHighContrast());
}

void CErrorReportSuccess::m_SetVoiceGuideText() {
  if (!elm_config_access_get()) return;
  CUtils::m_SayVoiceGuideText(ErrorReportSender::Instance().HasCollector()
                                  ? CUtils::m_GetText(kBanner) + ", " + CUtils::m_GetText(kInfo)
                                  : CUtils::m_GetText(kNoCollectorText));
}

void CErrorReportSuccess::m_CloseBtnBtnClickCall() {
  CUtils::Instance().m_ExecuteReturn();
}

}  // namespace QUVA
