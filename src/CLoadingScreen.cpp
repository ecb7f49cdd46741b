#include "CLoadingScreen.h"

#include <chrono>
#include <cstring>
#include <string_view>
#include <thread>

#include "CErrorReport.h"
#include "CGetData.h"
#include "CHomeScreen.h"
#include "CMotion.h"
#include "CSelfDiagnosis.h"
#include "CStartDC.h"
#include "ErrorReportGate.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "system_path.h"

namespace QUVA {

namespace {

constexpr char kMessage[] = "TV_SID_CARE_CHECKDING_YOUR_DEVICE_DOT";
constexpr char kCheckMark[] = "dc_icon_check_s.svg";

constexpr double kBodyTop = 38;  // units, as all sizes here
constexpr double kBodyBottom = 48;
constexpr double kCircleSize = 16;
constexpr double kCheckMarkWidth = 6;
constexpr double kCheckMarkHeight = 7;
constexpr double kTextPadding = 6;
constexpr double kTextWidth = 125;
constexpr double kTextHeight = 12;

constexpr int kWaitRounds = 5;
constexpr std::chrono::seconds kWaitRound{1};

CText KeepCopy(const char* text) {
  return CText(strdup(text));
}

}  // namespace

CLoadingScreen* CLoadingScreen::Instance() {
  static auto* instance = new CLoadingScreen;
  return instance;
}

// ---- building

void CLoadingScreen::m_StartLoading(Evas_Object* parent, char* launchFrom) {
  VEXILO_LOGI("Start the Loading");
  m_launchFrom = launchFrom;
  if (!parent || !m_screen.m_Build(kProductTitle)) return;
  m_BuildBody();
  m_SetVoiceGuideText();
  VEXILO_LOGI("launched from %s", launchFrom ? launchFrom : "(null)");
  const bool started =
      m_job.m_Start([this](const CScreenJob::Control& control) { m_AnimationStart(control, m_animation, kLastFrame); },
                    [this] { m_End(); }, [] { VEXILO_LOGI("Error_Funtion for loading circle called"); });
  SetEngineScenario("GetRemainingData");
  CHomeScreen::Instance()->m_GetRemainingData();
  if (!started) m_End();
}

void CLoadingScreen::m_BuildBody() {
  Evas_Object* const body = m_screen.m_pGetBody();
  elm_flux_layout_padding_set(body, 0, kBodyTop, 0, kBodyBottom);

  Evas_Object* const circle = AddLayout(body, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER, kCircleSize, kCircleSize);
  const bool highContrast = CUtils::Instance().m_GetHighContrast() != 0;
  m_animation = AddImage(circle, MotionFrame(MOTION_SMALL_PROGRESS, highContrast, 0), kCircleSize, kCircleSize);
  AddImage(circle, getResourcePath(kCheckMark), kCheckMarkWidth, kCheckMarkHeight);

  Evas_Object* const row = AddLayout(body, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, 0, 0);
  elm_flux_layout_padding_set(row, 0, kTextPadding, 0, 0);
  AddText(row, CUtils::m_GetText(kMessage), FLUX_FONT_700, "#262626AF", FLUX_TEXT_ROW, FLUX_ALIGN_BOTTOM, kTextWidth,
          kTextHeight);
}

void CLoadingScreen::m_SetVoiceGuideText() {
  VEXILO_LOGI("voice guide on Loading screen");
  if (!elm_config_access_get()) return;
  const auto translated = [](const char* sid) {
    const std::string text = CUtils::m_GetText(sid);
    return text == sid ? std::string() : text;
  };
  const std::string text = translated(kProductTitle) + ", " + translated(kMessage);
  VEXILO_LOGI("%s", text.c_str());
  CUtils::m_SayVoiceGuideText(text);
}

void CLoadingScreen::m_CleanObjects() {
  m_screen.m_Clean();
  m_job.m_Cancel();
}

// ---- the worker

void CLoadingScreen::m_AnimationStart(const CScreenJob::Control& control, const CWidget& image, int lastFrame) {
  const bool highContrast = CUtils::Instance().m_GetHighContrast() != 0;
  VEXILO_LOGI("Path of Animation is : %s", std::string(NameOnSet(MotionPrefix(MOTION_PROGRESS, highContrast))).c_str());
  control.m_RunInMainLoop([this] { m_screen.m_Show(); });
  if (PlayMotion(control, image, MOTION_SMALL_PROGRESS, 0, lastFrame)) m_WaitForRemainingData(control);
}

void CLoadingScreen::m_WaitForRemainingData(const CScreenJob::Control& control) {
  for (int round = 0; round < kWaitRounds && !control.m_IsCancelled(); ++round) {
    if (CHomeScreen::Instance()->m_IsRemainingDataArrived()) {
      VEXILO_LOGI("Remaining result data received");
      return;
    }
    VEXILO_LOGE("Waiting for remaining result data");
    std::this_thread::sleep_for(kWaitRound);
  }
}

// ---- the end

void CLoadingScreen::m_End() {
  VEXILO_LOGI("End_Function for loading circle called");
  VEXILO_LOGI("Change To HomeScreen");
  m_screen.m_Hide();
  m_CleanObjects();
  m_OpenNextScreen();
}

void CLoadingScreen::m_OpenNextScreen() {
  const std::string_view source = m_launchFrom ? m_launchFrom : "";
  if (source == launch_source::kScan)
    CStartDC::Instance()->m_StartDC();
  else if (CSelfDiagnosis::m_IsLaunchSource(source))
    CSelfDiagnosis::Instance()->m_CreateSelfDiagnosis(true);
  else if (source == launch_source::kErrorReport)
    m_OpenErrorReport();
  else
    CHomeScreen::Instance()->m_CreateHomeScreen(source == launch_source::kRequestSupport ? KeepCopy(m_launchFrom)
                                                                                         : nullptr);
}

void CLoadingScreen::m_OpenErrorReport() {
  CUtils::Instance().m_SetExitOnPause(true);
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_ERROR_REPORT);
  const ErrorReportGate gate = CheckErrorReportGate("while launch_mech ");
  if (gate == ErrorReportGate::kOpen) return CErrorReport::Instance()->m_CreateErrorReport();
  if (gate == ErrorReportGate::kNoConsent)
    VEXILO_LOGI("T& c nt accepted so wizard is launched");
  else
    VEXILO_LOGI("since n/w nt connected so home screen launched with focus on Error Report ");
  CHomeScreen::Instance()->m_CreateHomeScreen(KeepCopy(m_launchFrom));
}

}  // namespace QUVA
