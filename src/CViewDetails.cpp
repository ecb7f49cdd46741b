#include "CViewDetails.h"

#include <chrono>
#include <thread>
#include <utility>

#include "VexiloLog.h"

namespace QUVA {

namespace {

constexpr double kRowGap = 1;  // units, as all sizes here
constexpr double kHintHeight = 18;
constexpr double kHintTop = 2;
constexpr double kLoadingPopupSize = 40;

constexpr int kFailed = -1;  // results of clearing
constexpr int kKept = 1;
constexpr long kEmptyFolders = 65536;  // bytes that what is left of a cache or of data may take

// What an application that was ended may still write takes a moment.
constexpr auto kPause = std::chrono::seconds(3);
constexpr auto kPauseStep = std::chrono::milliseconds(50);

}  // namespace

CViewDetails* CViewDetails::Instance() {
  static auto* instance = new CViewDetails;
  return instance;
}

CViewDetails::CViewDetails() {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
}

void CViewDetails::m_SetApps(std::vector<app_list_struct> apps, std::function<void(const std::string&)> onSize,
                             std::function<void()> onClosed) {
  m_apps = std::move(apps);
  m_onSize = std::move(onSize);
  m_onClosed = std::move(onClosed);
}

// ---- the popup

void CViewDetails::m_ShowViewDetailsPopup(int index) {
  if (m_popup || index < 0 || index >= static_cast<int>(m_apps.size())) return;
  m_index = index;
  m_isMeasured = false;
  m_message.clear();
  CUtils& utils = CUtils::Instance();
  utils.m_ShowDimBackground();
  m_popup = elm_flux_popup_add(utils.m_pGetAppWindow());
  elm_flux_popup_title_set(m_popup, m_App().app_name);
  Evas_Object* const content = elm_flux_layout_add(m_popup, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP);
  elm_flux_layout_gap_set(content, kRowGap);
  m_AddValues(content);
  elm_object_content_set(m_popup, content);
  m_AddButtons();
  // Nothing opens above it that would have to come back to it.
  utils.m_RegisterForReturnStack({[] {}, [this] { m_HandleReturnOnViewDetailsPopup(); }}, false);
  m_Measure();
}

void CViewDetails::m_AddValues(Evas_Object* parent) {
  const char* const labels[] = {"TV_SID_VEXILO_APP_SIZE", "TV_SID_VEXILO_DATA_SIZE", "TV_SID_VEXILO_CACHE_SIZE",
                                "TV_SID_VEXILO_TOTAL_SIZE"};
  for (size_t i = 0; i < std::size(labels); ++i) {
    const bool isTotal = i + 1 == std::size(labels);
    Evas_Object* const row = AddLayout(parent, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, 0);
    elm_flux_expand_set(row, true);
    Evas_Object* const label = AddText(row, CUtils::m_GetText(labels[i]), isTotal ? FLUX_FONT_600 : FLUX_FONT_400,
                                       isTotal ? kTextColor : kFaintTextColor, FLUX_TEXT_ROW, FLUX_ALIGN_LEFT, 0, 0);
    elm_flux_expand_set(label, true);
    m_values[i] = AddText(row, CUtils::m_GetText("TV_SID_VEXILO_MEASURING"), FLUX_FONT_600, kTextColor, FLUX_TEXT_ROW,
                          FLUX_ALIGN_RIGHT, 0, 0);
    elm_flux_expand_set(m_values[i], true);
  }
  Evas_Object* const area = AddLayout(parent, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(area, true);
  elm_flux_layout_padding_set(area, 0, kHintTop, 0, 0);
  m_hint = AddText(area, "", FLUX_FONT_400, kFaintTextColor, FLUX_TEXT_DETAIL, FLUX_ALIGN_TOP_LEFT, 0, kHintHeight);
  elm_flux_expand_set(m_hint, true);
  elm_flux_text_lines_set(m_hint, 0);
}

void CViewDetails::m_AddButtons() {
  const auto add = [this](CWidget& button, const char* sid, void (CViewDetails::*clicked)()) {
    button = elm_flux_popup_button_add(m_popup, CUtils::m_GetText(sid));
    OnEvent(button, "clicked", [this, clicked](void*) { (this->*clicked)(); });
    OnEvent(button, "focused", [this, &button](void*) { m_ShowHint(button); });
    elm_flux_access_info_set(button, [this, &button] {
      const std::string hint = m_HintFor(button);
      return std::string(elm_object_text_get(button)) + (hint.empty() ? "" : ", " + hint);
    });
  };
  add(m_clearCache, "TV_SID_VEXILO_CLEAR_CACHE", &CViewDetails::m_ClearCacheBtnClickCall);
  add(m_clearData, "TV_SID_VEXILO_CLEAR_DATA", &CViewDetails::m_ClearDataBtnClickCall);
  add(m_close, "COM_SID_CLOSE", &CViewDetails::m_CloseBtnClickCall);
  constexpr int kClose = 2;
  elm_flux_popup_focus_set(m_popup, kClose);  // never what takes something away
  // Until it is known what there is to clear.
  elm_object_disabled_set(m_clearCache, true);
  elm_object_disabled_set(m_clearData, true);
}

void CViewDetails::m_HandleReturnOnViewDetailsPopup() {
  if (!m_popup) return;
  m_CleanObjects();
  if (m_onClosed) m_onClosed();
}

void CViewDetails::m_CleanObjects() {
  m_job.m_Cancel();
  m_CloseQuestion();
  if (m_loading) m_StopLoading();
  m_loading.m_Delete();
  if (!m_popup) return;
  CUtils::Instance().m_HideDimBackground();
  m_popup.m_Delete();
}

// The widget set redraws all that is in it.
void CViewDetails::m_HighContrastChangeCB() {
  if (m_popup) m_ShowHint(elm_object_focused_object_get(m_popup));
}

void CViewDetails::m_SetVoiceGuideText() {
  if (!elm_config_access_get() || !m_popup) return;
  std::string text = m_App().app_name;
  const std::pair<const char*, long> parts[] = {{"TV_SID_VEXILO_APP_SIZE", m_sizes.app},
                                                {"TV_SID_VEXILO_DATA_SIZE", m_sizes.data},
                                                {"TV_SID_VEXILO_CACHE_SIZE", m_sizes.cache},
                                                {"TV_SID_VEXILO_TOTAL_SIZE", m_sizes.total}};
  if (m_IsMissing()) text += ", " + m_HintFor(nullptr);
  for (const auto& [sid, bytes] : parts)
    if (!m_IsMissing() || bytes > 0) text += ", " + CUtils::m_GetText(sid) + " " + CUtils::m_ConvertBytes(bytes);
  CUtils::m_SayVoiceGuideText(text);
}

// ---- the sizes

void CViewDetails::m_Measure() {
  m_job.m_Start(
      [packageId = m_App().package_id, appId = m_App().app_id](const CScreenJob::Control& control) {
        if (!control.m_IsCancelled()) CGetData::GetInstance()->sendAppData(packageId, appId);
      },
      [this] { m_EndMeasuring(); }, {});
}

void CViewDetails::m_EndMeasuring() {
  if (!m_popup) return;
  m_isMeasured = true;
  m_UpdateValues();
  m_SetButtonsState(false);
  m_SetVoiceGuideText();
  m_ShowHint(elm_object_focused_object_get(m_popup));
}

void CViewDetails::m_UpdateValues() {
  const CGetData* const data = CGetData::GetInstance();
  m_sizes.total = data->m_GetTotalSizeOfApp();
  m_sizes.data = data->m_GetDataSizeOfApp();
  m_sizes.cache = data->m_GetCacheSizeOfApp();
  m_sizes.app = m_sizes.total - (m_sizes.data + m_sizes.cache);
  const std::string texts[] = {CUtils::m_ConvertBytes(m_sizes.app), CUtils::m_ConvertBytes(m_sizes.data),
                               CUtils::m_ConvertBytes(m_sizes.cache), CUtils::m_ConvertBytes(m_sizes.total)};
  VEXILO_LOGI("update value called ");
  VEXILO_LOGI("long int appp size is %ld", m_sizes.app);
  VEXILO_LOGI("appsize str called %s", texts[0].c_str());
  VEXILO_LOGI("data size str i s%s", texts[1].c_str());
  VEXILO_LOGI("cache size str is %s", texts[2].c_str());
  VEXILO_LOGI("total size stris %s", texts[3].c_str());
  for (size_t i = 0; i < std::size(texts); ++i)
    if (m_values[i]) elm_object_text_set(m_values[i], texts[i].c_str());
}

std::string CViewDetails::m_GetTotalAppSize() {
  const std::string text = CUtils::m_ConvertBytes(CGetData::GetInstance()->m_GetTotalSizeOfApp());
  VEXILO_LOGI("total to be displayed in app list = %s", text.c_str());
  return text;
}

// ---- what the buttons do

void CViewDetails::m_SetButtonsState(bool disabled) {
  for (Evas_Object* const button : {static_cast<Evas_Object*>(m_clearCache), static_cast<Evas_Object*>(m_clearData),
                                    static_cast<Evas_Object*>(m_close)})
    if (button) elm_object_disabled_set(button, disabled);
}

void CViewDetails::m_ShowHint(Evas_Object* button) {
  if (!m_hint) return;
  if (button && button != m_pressed) m_message.clear();
  elm_object_text_set(m_hint, m_HintFor(button).c_str());
}

std::string CViewDetails::m_HintFor(Evas_Object* button) {
  if (!m_message.empty() && button == m_pressed) return m_message;
  if (!m_isMeasured) return "";
  if (CGetData::GetInstance()->m_IsAppGone()) return CUtils::m_GetText("TV_SID_VEXILO_APP_GONE");
  if (m_IsMissing()) return CUtils::m_GetText("TV_SID_VEXILO_DETAILS_NOT_KNOWN");
  if (button == m_clearData && CGetData::GetInstance()->m_IfDisableClearDataCache(m_App().package_id))
    return CUtils::m_GetText("TV_SID_VEXILO_DATA_STAYS");
  const long bytes = button == m_clearCache ? m_sizes.cache : button == m_clearData ? m_sizes.data + m_sizes.cache : -1;
  if (bytes < 0) return "";
  if (bytes == 0) return CUtils::m_GetText("TV_SID_VEXILO_NOTHING_TO_CLEAR");
  return CUtils::m_GetTextWith(
      button == m_clearCache ? "TV_SID_VEXILO_MIX_CLEAR_CACHE_MSG" : "TV_SID_VEXILO_MIX_CLEAR_DATA_MSG",
      CUtils::m_ConvertBytes(bytes));
}

/// Whether some of what is shown is not the truth.
bool CViewDetails::m_IsMissing() const {
  return CGetData::GetInstance()->m_IsAppGone() || !CGetData::GetInstance()->m_AreAppSizesKnown();
}

void CViewDetails::m_Tell(const std::string& message) {
  m_message = message;
  if (m_hint) elm_object_text_set(m_hint, message.c_str());
  if (!message.empty()) CUtils::m_SayVoiceGuideText(message);
}

void CViewDetails::m_CloseBtnClickCall() {
  CUtils::Instance().m_ExecuteReturn();
}

void CViewDetails::m_ClearCacheBtnClickCall() {
  VEXILO_LOGI("Clear cache Button Pressed ");
  m_StartClearing(m_clearCache, &CViewDetails::m_ClearAppCache_function, &CViewDetails::m_ClearAppCache_end_function,
                  &CViewDetails::m_ClearAppCache_error_function);
}

void CViewDetails::m_ClearDataBtnClickCall() {
  VEXILO_LOGI("Clear data Button Pressed ");
  if (CGetData::GetInstance()->m_IfDisableClearDataCache(m_App().package_id))
    m_StartClearingData();
  else
    m_AskToClearData();
}

void CViewDetails::m_StartClearingData() {
  m_StartClearing(m_clearData, &CViewDetails::m_ClearAppData_function, &CViewDetails::m_ClearAppData_end_function,
                  &CViewDetails::m_ClearAppData_error_function);
}

void CViewDetails::m_AskToClearData() {
  CUtils& utils = CUtils::Instance();
  utils.m_ShowDimBackground();
  m_question = elm_flux_popup_add(utils.m_pGetAppWindow());
  elm_flux_popup_title_set(m_question, CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_CLEAR_DATA_OF", m_App().app_name));
  elm_flux_popup_text_set(m_question,
                          m_IsMissing() ? CUtils::m_GetText("TV_SID_VEXILO_CLEAR_DATA_MSG")
                                        : CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_CLEAR_DATA_MSG",
                                                                CUtils::m_ConvertBytes(m_sizes.data + m_sizes.cache)));
  OnEvent(elm_flux_popup_button_add(m_question, CUtils::m_GetText("COM_SID_NO")), "clicked",
          [](void*) { CUtils::Instance().m_ExecuteReturn(); });
  OnEvent(elm_flux_popup_button_add(m_question, CUtils::m_GetText("COM_SID_YES")), "clicked", [this](void*) {
    CUtils::Instance().m_ExecuteReturn();
    m_StartClearingData();
  });
  utils.m_RegisterForReturnStack({[] {}, [this] { m_CloseQuestion(); }}, false);
}

void CViewDetails::m_CloseQuestion() {
  if (!m_question) return;
  CUtils::Instance().m_HideDimBackground();
  m_question.m_Delete();
}

// ---- clearing

void CViewDetails::m_StartClearing(Evas_Object* button, Work work, Then end, Then error) {
  if (!m_popup || m_isBusy || m_job.m_IsRunning()) return;
  m_pressed = button;
  m_Tell("");
  m_ShowLoading();
  m_SetButtonsState(true);
  m_job.m_Start([this, work, app = m_App()](const CScreenJob::Control& control) { (this->*work)(control, app); },
                [this, end] { (this->*end)(); }, [this, error] { (this->*error)(); });
}

void CViewDetails::m_ShowLoading() {
  CUtils& utils = CUtils::Instance();
  utils.m_ShowDimBackground();
  m_loading = elm_flux_popup_add(utils.m_pGetAppWindow());
  elm_flux_popup_title_set(m_loading, CUtils::m_GetText("TV_SID_VEXILO_CLEARING"));
  elm_flux_size_set(m_loading, 0, kLoadingPopupSize);
  Evas_Object* const content = elm_flux_layout_add(m_loading, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER);
  elm_object_content_set(m_loading, content);
  utils.m_CreateLoadingPopup(content);
}

void CViewDetails::m_StopLoading() {
  CUtils& utils = CUtils::Instance();
  utils.m_HideDimBackground();
  utils.m_StopLoadingPopup();
}

void CViewDetails::m_Clear(const CScreenJob::Control& control, const app_list_struct& app, const char* report,
                           const std::function<int()>& clear) {
  m_isBusy = true;
  CUtils::Instance().m_RequestNDF(report, report, false);
  CGetData* const data = CGetData::GetInstance();
  m_result = clear();
  if (m_result != kFailed) {
    data->killApp(app.package_id.c_str());
    for (auto waited = kPauseStep; waited <= kPause && !control.m_IsCancelled(); waited += kPauseStep)
      std::this_thread::sleep_for(kPauseStep);
    if (!control.m_IsCancelled()) data->sendAppData(app.package_id, app.app_id);
  }
  m_isBusy = false;
}

void CViewDetails::m_EndClearing(const char* done, long Sizes::*part) {
  if (m_loading) m_StopLoading();
  m_UpdateValues();
  m_SetButtonsState(false);
  if (m_onSize) m_onSize(m_GetTotalAppSize());
  m_loading.m_Delete();             // the focus goes back to the button
  if (m_result == kFailed) return;  // what has not changed says it
  const bool isDone = m_result != kKept && (m_IsMissing() ? part == &Sizes::data : m_sizes.*part <= kEmptyFolders);
  m_Tell(isDone ? CUtils::m_GetText(done) : m_HintFor(m_pressed));
}

void CViewDetails::m_ClearAppCache_function(const CScreenJob::Control& control, const app_list_struct& app) {
  m_Clear(control, app, "ClearCache",
          [&app] { return CGetData::GetInstance()->clearAppCache(app.package_id, app.app_id); });
}

void CViewDetails::m_ClearAppCache_end_function() {
  m_EndClearing("TV_SID_VEXILO_CACHE_CLEARED", &Sizes::cache);
}

void CViewDetails::m_ClearAppCache_error_function() {
  m_EndWithoutResult();
}

void CViewDetails::m_ClearAppData_function(const CScreenJob::Control& control, const app_list_struct& app) {
  m_Clear(control, app, "ClearData", [&app] { return CGetData::GetInstance()->clearAppData(app.package_id); });
}

void CViewDetails::m_ClearAppData_end_function() {
  VEXILO_LOGI("end fn called for clear app data ");
  m_EndClearing("TV_SID_VEXILO_DATA_CLEARED", &Sizes::data);
}

void CViewDetails::m_ClearAppData_error_function() {
  m_EndWithoutResult();
}

// No worker could be had, or the popup is gone.
void CViewDetails::m_EndWithoutResult() {
  if (m_loading) m_StopLoading();
  m_SetButtonsState(false);
  m_loading.m_Delete();
}

}  // namespace QUVA
