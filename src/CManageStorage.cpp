#include "CManageStorage.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <utility>

#include "CDeleteApps.h"
#include "CViewDetails.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "system_path.h"
#include "was_api.h"

namespace QUVA {

namespace {

// Between two texts of a line, in every language.
constexpr char kBetween[] = " · ";

constexpr double kTop = 4;  // units, as all sizes here
constexpr double kBottom = 7;
constexpr double kColumnGap = 5;
constexpr double kPanelWidth = 82;
constexpr double kPanelPadding = 6;
constexpr double kButtonHeight = 9.5;
constexpr double kButtonGap = 2.5;
constexpr double kEmptyTextHeight = 24;
constexpr double kCloseWidth = 49;

}  // namespace

CManageStorage* CManageStorage::Instance() {
  static auto* instance = new CManageStorage;
  return instance;
}

CManageStorage::CManageStorage() {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
  CUtils::Instance().ConnectEnlargeChangeCB([this] { m_EnlargeChangeCB(); });
}

// ---- the screen

void CManageStorage::m_CreateManageStorageScreen() {
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_MANAGE_STORAGE);
  m_apps.clear();
  m_selectedIndex = -1;
  m_focusedApp.clear();
  m_focusedRow = 0;
  m_isFirstRead = true;
  CUtils& utils = CUtils::Instance();
  utils.m_RegisterForReturnStack({[this] { m_ShowScreenPostReturn(); }, [this] { m_HideManageStorage(); }}, false);
  if (!m_screen.m_Build(kStorageTitle)) return;
  utils.m_SetManageStorageRootLayout(m_screen.m_pGetLayout());
  elm_flux_layout_padding_set(m_screen.m_pGetBody(), kPageMargin, kTop, kPageMargin, kBottom);
  m_ShowLoadingAndApplist();
}

void CManageStorage::m_ShowManageStorage() {
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_MANAGE_STORAGE);
  m_screen.m_Show();
}

void CManageStorage::m_HideManageStorage() {
  m_screen.m_Hide();
  m_CleanObjects();
}

// The focus stays where the popup or the viewer has left it, if that is still there.
void CManageStorage::m_ShowScreenPostReturn() {
  m_ShowManageStorage();
  if (!m_list) return;
  Evas_Object* const focused = elm_object_focused_object_get(m_list);
  if (!focused || elm_object_disabled_get(focused)) elm_flux_list_focus_set(m_list, m_focusedRow);
}

void CManageStorage::m_CleanObjects() {
  const bool isLoading = m_listJob.m_IsRunning();
  m_listJob.m_Cancel();
  m_sizesJob.m_Cancel();
  CViewDetails::Instance()->m_CleanObjects();
  CDeleteApps::Instance()->m_CleanObjects();
  if (isLoading) CUtils::Instance().m_StopLoadingPopup();
  m_screen.m_Clean();
}

// The widget set draws everything in its colours; those of the bar and the legend are the screen's.
void CManageStorage::m_HighContrastChangeCB() {
  m_EnlargeChangeCB();
}

void CManageStorage::m_EnlargeChangeCB() {
  if (!m_barArea) return;
  m_SetProgressBar(CUtils::Instance().m_GetEnlarge());
  m_SetUsedAvailableValues();
}

void CManageStorage::m_SetVoiceGuideText() {
  if (!elm_config_access_get()) return;
  std::string text = CUtils::m_GetText(kStorageTitle) + ", ";
  if (m_IsNominal()) text += CUtils::m_GetText("COM_SID_SYSTEM") + " " + m_summary.system + ", ";
  text += CUtils::m_GetText("COM_SID_USED_KR_ING") + " " + m_summary.used + ", " +
          CUtils::m_GetText("TV_SID_AVAILABLE_EMPTY") + " " + m_summary.available + ", " +
          (m_apps.empty() ? CUtils::m_GetText("TV_SID_VEXILO_NO_APPS")
                          : CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_APPS",
                                                  CUtils::m_GetStringOfNumber(static_cast<int32_t>(m_apps.size()))));
  CUtils::m_SayVoiceGuideText(text);
}

void CManageStorage::m_FirstTtsRead() {
  if (std::exchange(m_isFirstRead, false)) m_SetVoiceGuideText();
}

// ---- gathering sizes

void CManageStorage::m_ShowLoadingAndApplist() {
  // At its end a deletion asks for it by itself.
  if (!m_screen.m_IsBuilt() || m_listJob.m_IsRunning() || CDeleteApps::Instance()->m_IsRemoving()) return;
  m_sizesJob.m_Cancel();
  m_screen.m_SetSubtitle("");
  elm_flux_layout_clear(m_screen.m_pGetBody());
  CUtils::Instance().m_CreateLoadingPopup(m_screen.m_pGetBody());
  if (!m_listJob.m_Start([this](const CScreenJob::Control& control) { m_FillDataForApplist(control); },
                         [this] { m_FillData_end_function(); }, [this] { m_FillData_error_function(); }))
    VEXILO_LOGE("Failed to run ecore thread to execute app_list_handle_function");
}

void CManageStorage::m_FillDataForApplist(const CScreenJob::Control& control) {
  VEXILO_LOGI("app_list_handle fn START-----");
  CGetData* const data = CGetData::GetInstance();
  data->sendAppList();
  if (control.m_IsCancelled()) return;
  m_UpdateProgressBarValues(control);
}

void CManageStorage::m_FillData_end_function() {
  VEXILO_LOGI("app_list_handle_terminate_function called... ecore thread to send app list terminating...");
  CUtils::Instance().m_StopLoadingPopup();
  if (!m_screen.m_IsBuilt()) return;
  m_TakeApps();
  m_BuildBody();
  m_FirstTtsRead();
}

// Cancelled, so that the screen is going, or there was no thread: what is known is shown then.
void CManageStorage::m_FillData_error_function() {
  VEXILO_LOGI("app_list_handle_terminate_function called... ecore thread to send app list terminating...");
  if (!m_screen.m_IsBuilt() || m_listJob.m_IsRunning()) return;
  CUtils::Instance().m_StopLoadingPopup();
  m_BuildBody();
}

void CManageStorage::m_UpdateProgressBarThread() {
  SetHandlerProgBarUpdateThread(&m_sizesJob);
  m_sizesJob.m_Cancel();
  m_sizesJob.m_Start([this](const CScreenJob::Control& control) { m_UpdateProgressBarValues(control); },
                     [this] { m_UpdateProgBar_end_function(); }, [this] { m_UpdateProgBar_error_function(); });
}

void CManageStorage::m_UpdateProgressBarValues(const CScreenJob::Control&) {
  CGetData* const data = CGetData::GetInstance();
  data->m_CalculateTotalSizeOfSystem();
  data->sendFlashSize();
}

void CManageStorage::m_UpdateProgBar_end_function() {
  SetHandlerProgBarUpdateThread(nullptr);
  m_EnlargeChangeCB();
}

void CManageStorage::m_UpdateProgBar_error_function() {
  if (!m_sizesJob.m_IsRunning()) SetHandlerProgBarUpdateThread(nullptr);
}

// ---- what is shown

void CManageStorage::m_BuildBody() {
  Evas_Object* const body = m_screen.m_pGetBody();
  elm_flux_layout_clear(body);
  Evas_Object* const row = AddLayout(body, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(row, true);
  elm_flux_layout_gap_set(row, kColumnGap);
  m_BuildPanel(row);
  m_SetProgressBar(CUtils::Instance().m_GetEnlarge());
  m_SetUsedAvailableValues();
  Evas_Object* const area = AddLayout(row, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(area, true);
  if (m_apps.empty())
    m_BuildEmptyText(area);
  else
    m_BuildList(area);
  m_ShowSelection();
}

void CManageStorage::m_BuildPanel(Evas_Object* parent) {
  Evas_Object* const panel = elm_flux_plate_add(parent, FLUX_PLATE_SIDE, true, FLUX_PLATE_NORMAL);
  elm_flux_size_set(panel, kPanelWidth, 0);
  elm_flux_expand_set(panel, true);
  elm_flux_layout_pack(parent, panel);
  Evas_Object* const content = elm_flux_layout_add(panel, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP);
  elm_flux_layout_padding_set(content, kPanelPadding, kPanelPadding, kPanelPadding, kPanelPadding);
  elm_flux_layout_gap_set(content, kButtonGap);
  elm_object_content_set(panel, content);
  m_barArea = AddLayout(content, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(m_barArea, true);
  m_BuildButton(content, m_viewDetails, "TV_SID_VEXILO_VIEW_DETAILS", &CManageStorage::m_ViewDetailsBtnClickCall,
                &CManageStorage::m_ViewDetailsBtnFocus);
  m_BuildButton(content, m_delete, "TV_SID_VEXILO_DELETE", &CManageStorage::m_DeleteBtnClickCall,
                &CManageStorage::m_DeleteBtnFocus);
  m_BuildButton(content, m_deselect, "TV_SID_VEXILO_DESELECT_ALL", &CManageStorage::m_DeSelectBtnClickCall,
                &CManageStorage::m_DeSelectBtnFocus);
}

void CManageStorage::m_BuildButton(Evas_Object* parent, CWidget& button, const char* sid,
                                   void (CManageStorage::*clicked)(), void (CManageStorage::*focused)()) {
  Evas_Object* made = nullptr;
  CUtils::Instance().m_CreateButton(made, parent, CUtils::m_GetText(sid), kPanelWidth - 2 * kPanelPadding,
                                    kButtonHeight);
  button = made;
  OnEvent(made, "clicked", [this, clicked](void*) { (this->*clicked)(); });
  OnEvent(made, "focused", [this, focused](void*) { (this->*focused)(); });
}

void CManageStorage::m_BuildEmptyText(Evas_Object* parent) {
  std::string text = CUtils::m_GetText("TV_SID_VEXILO_NO_APPS");
  if (!CGetData::GetInstance()->m_CheckTermsCond()) text += "\n" + CUtils::m_GetText("TV_SID_VEXILO_APPS_AFTER_TERMS");
  Evas_Object* const column = AddLayout(parent, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(column, true);
  Evas_Object* const message =
      AddText(column, text, FLUX_FONT_600, kTextColor, FLUX_TEXT_BODY, FLUX_ALIGN_CENTER, 0, kEmptyTextHeight);
  elm_flux_text_lines_set(message, 0);
  elm_flux_expand_set(message, true);
  Evas_Object* close = nullptr;
  CUtils::Instance().m_CreateButton(close, column, CUtils::m_GetText("COM_SID_CLOSE"), kCloseWidth, kButtonHeight);
  OnEvent(close, "clicked", [this](void*) {
    m_screen.m_DismissToast();
    CUtils::Instance().m_ExecuteReturn();
  });
  m_screen.m_RememberFocus(close);
  m_screen.m_RestoreFocus();
}

// ---- the list

void CManageStorage::m_TakeApps() {
  std::set<std::string> selected;
  const std::string current = m_IsRow(m_selectedIndex) ? m_App(m_selectedIndex).app_id : "";
  for (const app_list_struct& app : m_apps)
    if (app.selected) selected.insert(app.app_id);
  m_apps = CGetData::GetInstance()->m_GetAppsDataStructure();
  std::stable_sort(m_apps.begin(), m_apps.end(),
                   [](const auto& one, const auto& other) { return one.size > other.size; });
  for (app_list_struct& app : m_apps) app.selected = selected.contains(app.app_id) ? 1 : 0;
  m_selectedIndex = m_RowOf(current);
  m_texts.assign(m_apps.size(), {});
  for (int row = 0; row < static_cast<int>(m_apps.size()); ++row) m_FillRow(row);
}

void CManageStorage::m_BuildList(Evas_Object* parent) {
  m_list = elm_flux_list_add(parent, FLUX_ROW_CHECK);
  elm_flux_expand_set(m_list, true);
  elm_flux_list_shadows_set(m_list, getCommonResourcePath("i_img_scrollshadow_top.9"),
                            getCommonResourcePath("i_img_scrollshadow_bottom.9"));
  elm_flux_list_text_set(m_list, [this](int row, const std::string& part) { return m_TextOfRow(row, part); });
  elm_flux_list_append(m_list, static_cast<int>(m_apps.size()));
  elm_flux_list_checks_show(m_list, true);
  for (int row = 0; row < static_cast<int>(m_apps.size()); ++row) m_ShowCheckbox(row);
  elm_flux_layout_pack(parent, m_list);
  elm_flux_access_info_set(m_list, [this] { return m_SpeechOfRow(); });
  // The row before where the application itself has gone.
  const int row = m_RowOf(m_focusedApp);
  m_focusedRow = std::clamp(row >= 0 ? row : m_focusedRow, 0, static_cast<int>(m_apps.size()) - 1);
  elm_flux_list_focus_set(m_list, m_focusedRow);
  OnEvent(m_list, "item,selected", [this](void* index) { m_OnRowSelected(*static_cast<int*>(index)); });
  OnEvent(m_list, "item,focused", [this](void* index) { m_ParentBtnFocusCall(*static_cast<int*>(index)); });
}

void CManageStorage::m_FillRow(int row) {
  const app_list_struct& app = m_App(row);
  m_SetNameAndSizeOfApps(row, app.app_name, CUtils::m_ConvertBytes(std::max<long long>(0, app.size)), app.measured);
}

void CManageStorage::m_SetNameAndSizeOfApps(int row, const std::string& name, const std::string& size, bool known) {
  if (!m_IsRow(row)) return;
  RowText& text = m_texts[static_cast<size_t>(row)];
  text = {name, known ? size : CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_AT_LEAST", size)};
  if (const int locked = m_App(row).locked)
    text.size += kBetween + CUtils::m_GetText(locked == WAS_LOCKED_FOR_ADMINISTRATOR ? "TV_SID_VEXILO_ADMINISTRATOR"
                                                                                     : "TV_SID_VEXILO_LOCKED");
  if (m_list) elm_flux_list_update(m_list, row);
}

void CManageStorage::m_UpdateAppsSize(const std::string& size) {
  if (!m_IsRow(m_selectedIndex)) return;
  app_list_struct& app = m_App(m_selectedIndex);
  app.size = CGetData::GetInstance()->m_GetTotalSizeOfApp();
  app.measured = CGetData::GetInstance()->m_AreAppSizesKnown();
  m_SetNameAndSizeOfApps(m_selectedIndex, app.app_name, size, app.measured);
  m_ShowSelection();
}

std::string CManageStorage::m_TextOfRow(int row, const std::string& part) {
  if (!m_IsRow(row)) return "";
  if (part == "icon") return SystemPath(m_App(row).icon_path);
  const RowText& text = m_texts[static_cast<size_t>(row)];
  return part == "main.text" ? text.name : part == "sub.text1" ? text.size : "";
}

std::string CManageStorage::m_SpeechOfRow() {
  const int row = elm_flux_list_focus_get(m_list);
  if (!m_IsRow(row)) return "";
  const RowText& text = m_texts[static_cast<size_t>(row)];
  return text.name + ", " + text.size + ", " + CUtils::m_GetText("TV_SID_VEXILO_VOICE_CHECK_BOX") + ", " +
         CUtils::m_GetText(m_App(row).selected ? "TV_SID_CHECKED" : "TV_SID_UNCHECKED");
}

void CManageStorage::m_ShowCheckbox(int row) {
  if (m_IsRow(row) && m_list) elm_flux_list_check_set(m_list, row, m_App(row).selected != 0);
}

void CManageStorage::m_ResetStructValues(int row) {
  if (!m_IsRow(row)) return;
  m_App(row).selected = 0;
  m_ShowCheckbox(row);
}

void CManageStorage::m_ParentBtnFocusCall(int row) {
  if (!m_IsRow(row)) return;
  m_focusedRow = row;
  m_focusedApp = m_App(row).app_id;
  m_screen.m_RememberFocus(m_list);
}

void CManageStorage::m_OnRowSelected(int row) {
  if (!m_IsRow(row)) return;
  m_screen.m_DismissToast();
  app_list_struct& app = m_App(row);
  app.selected = app.selected ? 0 : 1;
  m_SetSelectedIndex(row);
  m_ShowCheckbox(row);
  m_ShowSelection();
  CUtils::m_SayVoiceGuideText(CUtils::m_GetText(app.selected ? "TV_SID_CHECKED" : "TV_SID_UNCHECKED"));
}

int CManageStorage::m_RowOf(const std::string& appId) const {
  const auto at = std::find_if(m_apps.begin(), m_apps.end(), [&](const auto& app) { return app.app_id == appId; });
  return at == m_apps.end() ? -1 : static_cast<int>(at - m_apps.begin());
}

// ---- the selection

/// The count of what is selected, and what can be done with it.
void CManageStorage::m_ShowSelection() {
  long long bytes = 0;
  int count = 0;
  bool isWhole = true;
  for (const app_list_struct& app : m_apps) {
    if (!app.selected) continue;
    ++count;
    bytes += std::max<long long>(0, app.size);
    isWhole = isWhole && app.measured;
  }
  for (Evas_Object* const button : {static_cast<Evas_Object*>(m_viewDetails), static_cast<Evas_Object*>(m_delete),
                                    static_cast<Evas_Object*>(m_deselect)})
    if (button) elm_object_disabled_set(button, count == 0);
  if (count > 0) {
    const std::string size = CUtils::m_ConvertBytes(bytes);
    m_screen.m_SetSubtitle(CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_SELECTED", CUtils::m_GetStringOfNumber(count)) +
                           kBetween + (isWhole ? size : CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_AT_LEAST", size)));
    return;
  }
  if (m_apps.empty()) return m_screen.m_SetSubtitle("");
  const bool isMeasured = std::any_of(m_apps.begin(), m_apps.end(), [](const auto& app) { return app.measured; });
  m_screen.m_SetSubtitle(CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_APPS",
                                               CUtils::m_GetStringOfNumber(static_cast<int32_t>(m_apps.size()))) +
                         kBetween +
                         CUtils::m_GetText(isMeasured ? "TV_SID_VEXILO_SELECT_HINT" : "TV_SID_VEXILO_SIZES_NOT_KNOWN"));
}

/// The one that was activated last, or else the first that is selected.
int CManageStorage::m_RowForDetails() const {
  if (m_IsRow(m_selectedIndex) && m_apps[static_cast<size_t>(m_selectedIndex)].selected) return m_selectedIndex;
  const auto at = std::find_if(m_apps.begin(), m_apps.end(), [](const auto& app) { return app.selected; });
  return at == m_apps.end() ? -1 : static_cast<int>(at - m_apps.begin());
}

void CManageStorage::m_ViewDetailsBtnFocus() {
  m_screen.m_RememberFocus(m_viewDetails);
}

void CManageStorage::m_DeleteBtnFocus() {
  m_screen.m_RememberFocus(m_delete);
}

void CManageStorage::m_DeSelectBtnFocus() {
  m_screen.m_RememberFocus(m_deselect);
}

void CManageStorage::m_ViewDetailsBtnClickCall() {
  const int row = m_RowForDetails();
  if (!m_IsRow(row)) return;
  m_screen.m_DismissToast();
  m_SetSelectedIndex(row);
  CViewDetails::Instance()->m_SetApps(
      m_apps, [this](const std::string& size) { m_UpdateAppsSize(size); }, [this] { m_OnDetailsClosed(); });
  CViewDetails::Instance()->m_ShowViewDetailsPopup(row);
}

void CManageStorage::m_OnDetailsClosed() {
  if (CGetData::GetInstance()->m_IsAppGone())
    m_ShowLoadingAndApplist();
  else
    m_UpdateProgressBarThread();
}

void CManageStorage::m_DeleteBtnClickCall() {
  m_screen.m_DismissToast();
  CDeleteApps::Instance()->m_CreateDeletePopup(m_apps, [this](const std::string& message) { m_OnDeleted(message); });
}

void CManageStorage::m_OnDeleted(const std::string& message) {
  if (!m_screen.m_IsBuilt()) return;
  for (int row = 0; row < static_cast<int>(m_apps.size()); ++row) m_ResetStructValues(row);
  m_ShowLoadingAndApplist();
  if (message.empty()) return;
  m_screen.m_ShowToast(message, {[this] { m_ShowScreenPostReturn(); }, [this] { m_screen.m_DeleteToast(); }},
                       [this] { m_screen.m_DismissToast(); });
}

void CManageStorage::m_DeSelectBtnClickCall() {
  m_screen.m_DismissToast();
  for (int row = 0; row < static_cast<int>(m_apps.size()); ++row) m_ResetStructValues(row);
  if (m_list) elm_flux_list_focus_set(m_list, m_focusedRow);  // the buttons cannot have it any more
  m_ShowSelection();
}

}  // namespace QUVA
