// The error report's screen.

#include "CErrorReport.h"
#include "CErrorReportSuccess.h"
#include "VexiloLog.h"
#include "flux_resources.h"

namespace QUVA {

namespace {

constexpr char kTitle[] = "TV_SID_VEXILO_CBMAY_ERROR_REPORT";
constexpr char kSideIcon[] = "home_report.svg";

constexpr double kTop = 7;  // units, as all sizes here
constexpr double kTextWidth = 218;
constexpr double kInfoGap = 5;
constexpr double kColumnGap = 6;
constexpr size_t kColumns = 3;
constexpr double kBoxWidth = 50;
constexpr double kBoxHeight = 18;
constexpr double kBoxGap = 3;
constexpr double kButtonsTop = 5;
constexpr double kButtonHeight = 10;
constexpr double kHintHeight = 12;  // two lines, enlarged
constexpr double kSidePadding = 4.5;
constexpr double kSideHeight = 3 * (kBoxHeight + kBoxGap) + kButtonsTop + kHintHeight;
constexpr double kSideIconSize = 10;

}  // namespace

CErrorReport::CErrorReport() {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
}

void CErrorReport::m_CreateErrorReport() {
  m_sender.UntickAll();
  CUtils::Instance().m_RegisterForReturnStack(
      {[this] { m_ShowScreenPostReturn(); }, [this] { m_HideErrorReportScreen(); }}, false);
  if (!m_screen.m_Build(kTitle)) return;
  elm_flux_layout_padding_set(m_screen.m_pGetBody(), kPageMargin, kTop, kPageMargin, 0);
  m_CreateMainBanner();
  m_CreateBannerInfo();
  Evas_Object* const row = AddLayout(m_screen.m_pGetBody(), FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_TOP_LEFT, 0, 0);
  elm_flux_layout_padding_set(row, 0, kInfoGap, 0, 0);
  elm_flux_layout_gap_set(row, kColumnGap);
  elm_flux_expand_set(row, true);
  Evas_Object* const column = AddLayout(row, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP_LEFT, 0, 0);
  elm_flux_layout_gap_set(column, kBoxGap);
  m_CreateCheckBoxes(column);
  m_CreateButtonRow(column);
  m_CreateSideInfo(row);
  m_SetNextFocusForLastRow();
  m_ShowWhetherSendable();
  m_screen.m_RememberFocus(m_boxes.front());
  m_screen.m_RestoreFocus();
  m_SetVoiceGuideText();
  m_collectorJob.m_Start([this](const CScreenJob::Control&) { m_sender.LookForCollector(); },
                         [this] { m_ShowWhetherCollected(); }, {});
}

void CErrorReport::m_CreateMainBanner() {
  Evas_Object* const title = m_screen.m_pGetTitle();
  elm_flux_text_font_set(title, FLUX_FONT_700);
  elm_flux_text_color_set(title, kReportTextColor);
}

void CErrorReport::m_CreateBannerInfo() {
  Evas_Object* const info = AddText(m_screen.m_pGetBody(), CUtils::m_GetText("TV_SID_VEXILO_CBMAY_HELP_IMPROVE_MSG"),
                                    FLUX_FONT_700, kReportTextColor, FLUX_TEXT_BODY, FLUX_ALIGN_LEFT, kTextWidth, 0);
  elm_flux_text_lines_set(info, 2);
}

void CErrorReport::m_CreateCheckBoxes(Evas_Object* column) {
  Evas_Object* row = nullptr;
  for (size_t i = 0; i < m_boxes.size(); ++i) {
    if (i % kColumns == 0) {
      row = AddLayout(column, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT, 0, 0);
      elm_flux_layout_gap_set(row, kBoxGap);
    }
    const int category = static_cast<int>(i);
    Evas_Object* const box = elm_flux_button_add(row, FLUX_BUTTON_CHECK);
    const std::string label = CUtils::m_GetText(kErrorCategories[i].labelSid);
    elm_object_text_set(box, label.c_str());
    elm_flux_size_set(box, kBoxWidth, kBoxHeight);
    elm_flux_access_info_set(box, [box, label] {
      return label + ", " + CUtils::m_GetText(elm_flux_button_check_get(box) ? "TV_SID_CHECKED" : "TV_SID_UNCHECKED");
    });
    elm_flux_layout_pack(row, box);
    OnEvent(box, "clicked", [this, category](void*) { m_OnItemPressed(category); });
    OnEvent(box, "focused", [this, category](void*) { m_OnItemFocused(category); });
    m_boxes[i] = box;
  }
}

void CErrorReport::m_CreateButtonRow(Evas_Object* column) {
  Evas_Object* const row = AddLayout(column, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT, 0, 0);
  elm_flux_layout_padding_set(row, 0, kButtonsTop, 0, 0);
  elm_flux_layout_gap_set(row, kBoxGap);
  m_sendButton = elm_flux_button_add(row, FLUX_BUTTON_ACCENT);
  elm_object_text_set(m_sendButton, CUtils::m_GetText("COM_SID_SEND").c_str());
  elm_flux_size_set(m_sendButton, kBoxWidth, kButtonHeight);
  elm_flux_layout_pack(row, m_sendButton);
  Evas_Object* cancel = nullptr;
  CUtils::Instance().m_CreateButton(cancel, row, CUtils::m_GetText("SID_CANCEL"), kBoxWidth, kButtonHeight);
  m_cancelButton = cancel;
  m_hint = AddText(row, "", FLUX_FONT_400, kFaintTextColor, FLUX_TEXT_SMALL, FLUX_ALIGN_LEFT, kBoxWidth, kHintHeight);
  elm_flux_text_lines_set(m_hint, 2);
  OnEvent(m_sendButton, "clicked", [this](void*) { m_SendBtnBtnClickCall(); });
  OnEvent(m_cancelButton, "clicked", [this](void*) { m_CancelBtnBtnClickCall(); });
}

void CErrorReport::m_CreateSideInfo(Evas_Object* row) {
  Evas_Object* const panel = elm_flux_plate_add(row, FLUX_PLATE_SIDE, true, FLUX_PLATE_NORMAL);
  elm_flux_size_set(panel, 0, kSideHeight);
  elm_flux_expand_set(panel, true);
  elm_flux_layout_pack(row, panel);
  Evas_Object* const content = elm_flux_layout_add(panel, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP_LEFT);
  elm_flux_layout_padding_set(content, kSidePadding, kSidePadding, kSidePadding, kSidePadding);
  elm_object_content_set(panel, content);
  elm_flux_layout_gap_set(content, kBoxGap);
  m_sideIcon = AddImage(content, getResourcePath(kSideIcon), kSideIconSize, kSideIconSize);
  elm_flux_image_tint_set(m_sideIcon, kAccentColor);
  Evas_Object* const text = AddText(content, CUtils::m_GetText("TV_SID_VEXILO_CBMAY_SEND_US_ERROR_SENT"), FLUX_FONT_700,
                                    kReportTextColor, FLUX_TEXT_SMALL, FLUX_ALIGN_TOP_LEFT, 0, 0);
  m_notice = AddText(content, "", FLUX_FONT_700, kTextColor, FLUX_TEXT_SMALL, FLUX_ALIGN_TOP_LEFT, 0, 0);
  for (Evas_Object* const each : {text, static_cast<Evas_Object*>(m_notice)}) {
    elm_flux_text_lines_set(each, 0);
    elm_flux_expand_set(each, true);
  }
  evas_object_hide(m_notice);
}

// What is sent waits for whoever collects it, so that it may be sent all the same.
void CErrorReport::m_ShowWhetherCollected() {
  if (!m_notice || m_sender.HasCollector()) return;
  const std::string text = CUtils::m_GetText(kNoCollectorText);
  elm_object_text_set(m_notice, text.c_str());
  evas_object_show(m_notice);
  evas_object_hide(m_sideIcon);  // for there is no room for both, enlarged
  if (elm_config_access_get()) CUtils::m_SayVoiceGuideText(text);
}

// Down from the last row leads to the button that can be pressed; beside one that cannot, there is nothing.
void CErrorReport::m_SetNextFocusForLastRow() {
  const bool canSend = m_sendButton && !elm_object_disabled_get(m_sendButton);
  for (size_t i = m_boxes.size() - kColumns; i < m_boxes.size(); ++i)
    elm_object_focus_next_object_set(m_boxes[i], canSend ? m_sendButton : m_cancelButton, ELM_FOCUS_DOWN);
  const Elm_Focus_Direction toSend = elm_config_mirrored_get() ? ELM_FOCUS_RIGHT : ELM_FOCUS_LEFT;
  elm_object_focus_next_object_set(m_cancelButton, canSend ? m_sendButton : m_cancelButton, toSend);
}

void CErrorReport::m_ShowWhetherSendable() {
  const bool canSend = m_CheckIfAnyCheckboxIsSelected();
  elm_object_disabled_set(m_sendButton, !canSend);
  elm_object_text_set(m_hint, canSend ? "" : CUtils::m_GetText("TV_SID_VEXILO_CHOOSE_PROBLEM").c_str());
  m_SetNextFocusForLastRow();
}

void CErrorReport::m_HideErrorReportScreen() {
  m_screen.m_Hide();
  m_CleanObjects();
}

void CErrorReport::m_ShowScreenPostReturn() {
  m_screen.m_Show();
  m_screen.m_RestoreFocus();
}

void CErrorReport::m_CleanObjects() {
  m_collectorJob.m_Cancel();
  m_screen.m_Clean();
}

// The widget set draws everything on it in the other colours.
void CErrorReport::m_HighContrastChangeCB() {
  VEXILO_LOGI("HighContrast change in Error Report callback isHighContrast: %d",
              CUtils::Instance().m_GetHighContrast());
}

void CErrorReport::m_SetVoiceGuideText() {
  if (!elm_config_access_get()) return;
  CUtils::m_SayVoiceGuideText(CUtils::m_GetText(kTitle) + ", " +
                              CUtils::m_GetText("TV_SID_VEXILO_CBMAY_HELP_IMPROVE_MSG") + ", " +
                              CUtils::m_GetText("TV_SID_VEXILO_CBMAY_SEND_US_ERROR_SENT"));
}

// ---- what is pressed

void CErrorReport::m_OnItemPressed(int row) {
  VEXILO_LOGI("parent Button Pressed ");
  const bool ticked = m_sender.Toggle(row);
  elm_flux_button_check_set(m_boxes[static_cast<size_t>(row)], ticked);
  CUtils::m_SayVoiceGuideText(CUtils::m_GetText(ticked ? "TV_SID_CHECKED" : "TV_SID_UNCHECKED"));
  m_ShowWhetherSendable();
}

void CErrorReport::m_OnItemFocused(int row) {
  m_screen.m_RememberFocus(m_boxes[static_cast<size_t>(row)]);
}

void CErrorReport::m_SendBtnBtnClickCall() {
  VEXILO_LOGI("Send Button Pressed ");
  if (!m_CheckIfAnyCheckboxIsSelected()) return;
  m_sender.HandOver();
  m_StartSending();
  m_HideErrorReportScreen();
  CErrorReportSuccess::Instance()->m_CreateSuccessErrorReport();
}

void CErrorReport::m_CancelBtnBtnClickCall() {
  VEXILO_LOGI("Send Button Pressed ");  // whoever reads the log knows it so
  CUtils::Instance().m_ExecuteReturn();
}

}  // namespace QUVA
