#include "CStartDC.h"

#include <algorithm>
#include <boost/signals2/signal.hpp>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "CGetData.h"
#include "CMotion.h"
#include "CStartDCIssues.h"
#include "DeviceKind.h"
#include "QUVA_DiagManager.h"
#include "QUVA_DiagResultManager.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "system_info.h"

namespace QUVA {

namespace {

constexpr char kInProgress[] = "TV_SID_CARE_VEXILO_IN_PROGRESS_DOT";
constexpr char kBroadcastCategory[] = "TV_SID_CARE_DIAGNOSE_BROADCAST_SIGNAL_CHANNEL_STATUS";
constexpr char kRemoteCategory[] = "PJT_SID_CARE_DIAGNOSE_TV_REMOTE";

// What is diagnosed, in the order of the scan.
constexpr const char* dcItemList[] = {
    "TV_SID_CARE_DIAGNOSE_POWER_ON_OFF",
    "TV_SID_CARE_DIAGNOSE_PICTURE_QUALITY",
    "TV_SID_CARE_DIAGNOSE_SOUND_QUALITY",
    "TV_SID_CARE_DIAGNOSE_EXTERNAL_DEVICE_CONNECTION",
    "TV_SID_CARE_DIAGNOSE_NETWORK_CONNECTION",
    kRemoteCategory,
    kBroadcastCategory,
    "TV_SID_CARE_FREE_UP_MEMORY_BY_CLOSING_UNUSED_BACKGROUND_APPS",
    "TV_SID_CARE_DIAGNOSE_STORAGE_AND_MEMORY",
    "TV_SID_CARE_FREE_UP_MEMORY_BY_CLEARING_CACHED_MEMORY",
};
constexpr int kBroadcastStep = 6;

constexpr int kFrames = 60;
constexpr int kSteps = 10;
constexpr int kOptimizeStep = 8;
constexpr int kSlowFrom = 80;  // percent; the frames after it are slower
constexpr std::chrono::microseconds kFastFrame{62500};
constexpr std::chrono::milliseconds kSlowFrame{500};
constexpr int kRowsShown = 3;

constexpr double kVoicePeriod = 3.0;  // seconds
constexpr double kResultRound = 1.0;
constexpr int kResultRounds = 5;

constexpr double kTop = 3;  // units, as all sizes here
constexpr double kTitleHeight = 8;
constexpr double kPicture = 40;
constexpr double kPercentWidth = 30;
constexpr double kPercentHeight = 12;
constexpr double kFrameTop = 4;
constexpr double kFrameAndBelow = 65;  // from the frame's top to the screen's end, whatever its height
constexpr double kFramePadding = 3.5;
constexpr double kRowHeight = 12;
constexpr double kRowGap = 1.5;
constexpr double kRowPadding = 6;
constexpr double kStatusWidth = 46;

// The remote's category speaks of the set.
const char* SidOfCategory(const char* sid) {
  if (sid != kRemoteCategory) return sid;
  switch (GetDeviceKind()) {
    case DEVICE_KIND_TV:
      return "TV_SID_CARE_DIAGNOSE_TV_REMOTE";
    case DEVICE_KIND_SCREEN:
      return "REP.DEVICE.SCREEN_SID_CARE_CCDEC_DIAGNOSE_REMOTE";
    default:
      return kRemoteCategory;
  }
}

}  // namespace

struct CStartDC::Signals {
  boost::signals2::signal<void(const std::vector<MapToDBTable>& rows)> found;
  boost::signals2::signal<void()> failed;
};

CStartDC* CStartDC::Instance() {
  static auto* instance = new CStartDC;
  return instance;
}

CStartDC::CStartDC() : m_signals(std::make_unique<Signals>()) {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
  QUVA_DiagResultManager::GetInstance()->SetScanListener(
      [this](std::vector<MapToDBTable> rows) { m_DiagResCallback(std::move(rows)); });
}

void CStartDC::ConnectFoundCB(std::function<void(const std::vector<MapToDBTable>& rows)> slot) {
  m_signals->found.connect(slot);
}

void CStartDC::ConnectFailedCB(std::function<void()> slot) {
  m_signals->failed.connect(slot);
}

// ---- the screen

void CStartDC::m_StartDC() {
  VEXILO_LOGI("Start Vexilo...");
  CUtils::Instance().m_SetMultitaskingStatus(false);
  CUtils::Instance().m_SetExitOnPause(false);
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_START_CARE);
  CUtils::Instance().m_SetKeyBlock(true);  // until the clean-up
  m_isOptimized = false;
  m_isAllDone = false;
  m_percent = m_framesShown = m_step = 0;
  m_categories = m_VisibleCategories();
  if (m_screen.m_Build(kProductTitle)) m_BuildBody();
  const bool started = m_job.m_Start(
      [this](const CScreenJob::Control& control) {
        m_AnimationStart(control, m_progressImage, m_percentText, kFrames);
      },
      [this] { m_WaitForResults(); }, [] { VEXILO_LOGI("Error_Funtion for loading circle called"); });
  if (!started) {
    m_CleanObjects();
    return m_signals->failed();
  }
  m_StartVoiceGuide();
  m_GetDiagResults();
}

void CStartDC::m_BuildBody() {
  Evas_Object* const body = m_screen.m_pGetBody();
  Evas_Object* const title = AddText(body, CUtils::m_GetText(kInProgress), FLUX_FONT_600, kTextColor, FLUX_TEXT_ROW,
                                     FLUX_ALIGN_CENTER, 0, kTitleHeight);
  elm_flux_expand_set(title, true);

  Evas_Object* const circle = AddLayout(body, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_expand_set(circle, true);
  const bool highContrast = CUtils::Instance().m_GetHighContrast() != 0;
  m_progressImage = AddImage(circle, MotionFrame(MOTION_PROGRESS, highContrast, 0), kPicture, kPicture);
  m_percentText = AddText(circle, "0%", FLUX_FONT_700, kTextColor, FLUX_TEXT_DISPLAY, FLUX_ALIGN_CENTER, kPercentWidth,
                          kPercentHeight);

  m_lower = AddLayout(body, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_expand_set(m_lower, true);
  elm_flux_layout_padding_set(m_lower, 0, kFrameTop, 0, 0);
  Evas_Object* frame = nullptr;
  CUtils::Instance().m_CreateBottomFrame(frame, m_lower, 0, 0);
  m_frame = frame;
  m_categoryList = elm_flux_layout_add(frame, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP);
  elm_flux_layout_padding_set(m_categoryList, kRowPadding, kFramePadding, kRowPadding, kFramePadding);
  elm_flux_layout_gap_set(m_categoryList, kRowGap);
  elm_object_content_set(frame, m_categoryList);
  m_FitFrame();
  const auto enlarged = [](void* self, int, void*) -> Eina_Bool {
    static_cast<CStartDC*>(self)->m_EnlargeChangeCB();
    return ECORE_CALLBACK_PASS_ON;
  };
  if (!m_enlargeHandler) m_enlargeHandler = ecore_event_handler_add(FLUX_EVENT_ENLARGE_CHANGED, enlarged, this);
}

// The frame takes the rows at the size that their texts have.
void CStartDC::m_FitFrame() {
  const double rows = kRowsShown * kRowHeight * Enlargement() + (kRowsShown - 1) * kRowGap;
  const double height = rows + 2 * kFramePadding;
  elm_flux_layout_padding_set(m_screen.m_pGetBody(), kPageMargin, kTop, kPageMargin, kFrameAndBelow - height);
  elm_flux_size_set(m_lower, 0, kFrameTop + height);
  elm_flux_size_set(m_frame, 0, height);
}

void CStartDC::m_CleanObjects() {
  m_job.m_Cancel();
  m_StopVoiceGuide();
  if (m_resultTimer) ecore_timer_del(m_resultTimer);
  m_resultTimer = nullptr;
  if (m_enlargeHandler) ecore_event_handler_del(m_enlargeHandler);
  m_enlargeHandler = nullptr;
  m_screen.m_Clean();
  CUtils::Instance().m_SetKeyBlock(false);
}

void CStartDC::m_ClearStartDCScreen() {
  m_CleanObjects();
  std::lock_guard lock(m_rowsMutex);
  m_rows.clear();
}

void CStartDC::m_HighContrastChangeCB() {
  if (!m_categoryList) return;
  m_ShowFrame(m_progressImage, m_percentText, m_framesShown, m_percent);
  m_ShowCategoriesAnew();
}

void CStartDC::m_EnlargeChangeCB() {
  if (!m_categoryList) return;
  m_FitFrame();
  m_ShowCategoriesAnew();
}

void CStartDC::m_ShowCategoriesAnew() {
  m_AddInDCItemGenList(m_step);
  if (m_isAllDone) m_ShowAllDone();
}

// ---- the voice guide

void CStartDC::m_StartVoiceGuide() {
  if (!elm_config_access_get()) return;
  CUtils::m_SayVoiceGuideText(CUtils::m_GetText(kInProgress));
  if (!m_isAllDone && !m_voiceTimer) m_voiceTimer = ecore_timer_add(kVoicePeriod, m_SetVoiceGuideText, this);
  VEXILO_LOGI("%s", m_voiceTimer ? "Timer is running" : "Timer not running");
}

Eina_Bool CStartDC::m_SetVoiceGuideText(void* self) {
  auto* const screen = static_cast<CStartDC*>(self);
  if (!elm_config_access_get()) {
    screen->m_voiceTimer = nullptr;
    return ECORE_CALLBACK_CANCEL;
  }
  const int percent = screen->m_percent;
  CUtils::m_SayVoiceGuideText(
      CStringUtil::CombinateStrings(CUtils::m_GetText("TV_SID_VEXILO_VOICE_MIX_PERCENT"), std::to_string(percent)));
  return ECORE_CALLBACK_RENEW;
}

void CStartDC::m_StopVoiceGuide() {
  if (m_voiceTimer) ecore_timer_del(m_voiceTimer);
  m_voiceTimer = nullptr;
}

// ---- the worker

void CStartDC::m_AnimationStart(const CScreenJob::Control& control, const CWidget& image, const CWidget& text,
                                int frames) {
  for (int frame = 0; frame < frames; ++frame) {
    const int percent = (frame + 1) * 100 / frames;
    const int framesPerStep = frames / kSteps;
    const auto show = [&] {
      m_ShowFrame(image, text, frame, percent);
      if (frame % framesPerStep == 0) m_AddInDCItemGenList(frame / framesPerStep);
    };
    if (!control.m_RunInMainLoop(show)) return;
    if (percent <= kSlowFrom)
      std::this_thread::sleep_for(kFastFrame);
    else
      std::this_thread::sleep_for(kSlowFrame);
    if (frame / framesPerStep == kOptimizeStep && !control.m_IsCancelled()) m_OptimizeOnce();
    if (percent == 100) control.m_RunInMainLoop([this] { m_ShowAllDone(); });
  }
}

void CStartDC::m_OptimizeOnce() {
  if (m_isOptimized) return;
  m_isOptimized = true;
  QUVA_DiagManager::GetInstance()->OptimizeDevice();
  std::this_thread::sleep_for(kSlowFrame);
}

void CStartDC::m_ShowFrame(const CWidget& image, const CWidget& text, int frame, int percent) {
  m_framesShown = frame;
  m_percent = percent;
  const bool highContrast = CUtils::Instance().m_GetHighContrast() != 0;
  if (image) elm_flux_image_file_set(image, MotionFrame(MOTION_PROGRESS, highContrast, frame));
  if (text) elm_object_text_set(text, (std::to_string(percent) + "%").c_str());
}

// ---- the categories

bool CStartDC::m_CheckIfDiagnoseBroadcastVisible() {
  int tuners = 0;
  const int result = system_info_get_value_int(SYSTEM_INFO_KEY_NUM_OF_TUNER, &tuners);
  if (result != SYSTEM_INFO_ERROR_NONE)
    VEXILO_LOGE("system_info_get_value_int(SYSTEM_INFO_KEY_NUM_OF_TUNER) is fail, ret :%d", result);
  return tuners > 0;
}

// The category of each step.
std::vector<const char*> CStartDC::m_VisibleCategories() {
  std::vector<const char*> categories(std::begin(dcItemList), std::end(dcItemList));
  // The next one takes its place, for two steps.
  if (!m_CheckIfDiagnoseBroadcastVisible()) categories[kBroadcastStep] = categories[kBroadcastStep + 1];
  return categories;
}

void CStartDC::m_AddInDCItemGenList(int step) {
  m_step = step;
  if (!m_categoryList) return;
  elm_flux_layout_clear(m_categoryList);
  std::vector<const char*> categories(m_categories.begin(), m_categories.begin() + step + 1);
  categories.erase(std::unique(categories.begin(), categories.end()), categories.end());
  const size_t current = categories.size() - 1;
  for (size_t i = current - std::min<size_t>(current, kRowsShown - 1); i <= current; ++i) {
    VEXILO_LOGD("Counter = %d and i = %d", step, static_cast<int>(i));
    m_AddCategoryRow(categories[i], i < current);
  }
}

void CStartDC::m_AddCategoryRow(const char* sid, bool done) {
  const double height = kRowHeight * Enlargement();
  const double status = kStatusWidth * Enlargement();
  Evas_Object* const row = AddLayout(m_categoryList, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, height);
  elm_flux_expand_set(row, true);
  const char* const category = SidOfCategory(sid);
  Evas_Object* const text = AddText(row, CUtils::m_GetText(category), FLUX_FONT_400, done ? kAccentColor : kTextColor,
                                    FLUX_TEXT_ROW, FLUX_ALIGN_LEFT, 0, height);
  elm_flux_expand_set(text, true);
  elm_flux_text_lines_set(text, 2);
  m_currentCategory = text;
  m_currentStatus = AddText(row, CUtils::m_GetText(done ? "SID_DONE" : "TV_SID_CARE_PROCESSING"), FLUX_FONT_600,
                            done ? kTextColor : kAccentColor, FLUX_TEXT_ROW, FLUX_ALIGN_RIGHT, status, height);
}

void CStartDC::m_ShowAllDone() {
  m_StopVoiceGuide();
  m_isAllDone = true;
  if (!m_currentCategory || !m_currentStatus) return;
  elm_flux_text_color_set(m_currentCategory, kTextColor);
  elm_flux_text_color_set(m_currentStatus, kTextColor);
  elm_object_text_set(m_currentStatus, CUtils::m_GetText("SID_DONE").c_str());
}

// ---- the results

void CStartDC::m_WaitForResults() {
  VEXILO_LOGI("End_Function for progress circle called");
  m_StopVoiceGuide();
  m_waitRounds = 0;
  if (m_LookForResults(this) == ECORE_CALLBACK_RENEW)
    m_resultTimer = ecore_timer_add(kResultRound, m_LookForResults, this);
}

Eina_Bool CStartDC::m_LookForResults(void* self) {
  auto* const screen = static_cast<CStartDC*>(self);
  if (!screen->m_isResultReceived && screen->m_waitRounds++ < kResultRounds) return ECORE_CALLBACK_RENEW;
  screen->m_resultTimer = nullptr;
  screen->m_OpenIssues();
  return ECORE_CALLBACK_CANCEL;
}

void CStartDC::m_OpenIssues() {
  VEXILO_LOGI("Navigating to Issues screen with ResultRecvd = %d", m_isResultReceived.load());
  m_CleanObjects();
  // The issues list stays as it is opened, but home shows what comes too late for it.
  WhenLater([this] { return m_isResultReceived.load(); }, [this] { m_TellFound(); });
  CStartDCIssues::Instance()->m_StartDCIssues(m_GetRows());
}

void CStartDC::m_TellFound() {
  const std::vector<MapToDBTable> rows = m_GetRows();
  if (rows.empty()) return QUVA_DiagManager::GetInstance()->RemainingProblem();  // what is stored may have cleared
  m_signals->found(rows);
}

void CStartDC::m_GetDiagResults() {
  {
    std::lock_guard lock(m_rowsMutex);
    m_rows.clear();
  }
  m_isResultReceived = false;
  SetEngineScenario("StartAutoDiagnosis");
  QUVA_DiagManager::GetInstance()->StartAutoDiagnosis();
}

void CStartDC::m_DiagResCallback(std::vector<MapToDBTable> rows) {
  VEXILO_LOGI("m_DiagResCallback triggered.. Size = %zu", rows.size());
  for (const MapToDBTable& row : rows)
    VEXILO_LOGD("%s, %s, %s, %s, %s, %s, %s, %s, %s, %s", row.issue_code.c_str(), row.last_time.c_str(),
                row.sid_issue.c_str(), row.sid_sol.c_str(), row.sid_button1.c_str(), row.sid_button2.c_str(),
                row.action.c_str(), row.toast1.c_str(), row.toast2.c_str(), row.sol_type.c_str());
  {
    std::lock_guard lock(m_rowsMutex);
    m_rows = std::move(rows);
  }
  m_isResultReceived = true;
}

std::vector<MapToDBTable> CStartDC::m_GetRows() const {
  std::lock_guard lock(m_rowsMutex);
  return m_rows;
}

}  // namespace QUVA
