#include "CHomeScreen.h"

#include <cstring>
#include <string>
#include <utility>

#include "AppIds.h"
#include "CErrorReport.h"
#include "CGetData.h"
#include "CManageStorage.h"
#include "CMotion.h"
#include "CSelfDiagnosis.h"
#include "CStartDC.h"
#include "CStartDCIssues.h"
#include "ErrorReportSender.h"
#include "QUVA_DBManager.h"
#include "QUVA_DiagManager.h"
#include "QUVA_DiagResultManager.h"
#include "QUVA_KPISender.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "flux_resources.h"
#include "set_names.h"
#include "system_info.h"
#include "system_path.h"
#include "vconf.h"

namespace QUVA {

namespace {

constexpr char kPartnerFeature[] = "com.tornelo/featureconf/product.partner.string_id";
constexpr char kReportChipSet[] = "OSCARP";
constexpr char kReportLocalSet[] = "KOR";

constexpr double kStateTop = 5;  // units, as all sizes here
constexpr double kStatePicture = 36;
constexpr double kSentenceHeight = 11;
constexpr double kRowTop = 4;
constexpr double kButtonWidth = 49;
constexpr double kButtonHeight = 9;
constexpr double kFrameTop = 8;
constexpr double kFrameHeight = 36;
constexpr double kFrameBottom = 11;
constexpr double kEntryHeight = 26;
constexpr double kGap = 4;

}  // namespace

/// An entry of the bottom frame.
struct CHomeScreen::Entry {
  CWidget& button;
  const char* sid;
  const char* icon;
  void (CHomeScreen::*clicked)();
};

CHomeScreen* CHomeScreen::Instance() {
  static auto* instance = new CHomeScreen;
  return instance;
}

CHomeScreen::CHomeScreen() {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
  ErrorReportSender::Instance().ConnectSentChangeCB([this] { m_TellReportFailures(); });
  QUVA_DiagResultManager::GetInstance()->SetRemainingListener(
      [this](std::vector<MapToDBTable> issues) { m_DiagResCallback(std::move(issues)); });
  const auto renewed = [](keynode_t*, void* self) { static_cast<CHomeScreen*>(self)->m_TellDatabaseRenewed(); };
  if (vconf_notify_key_changed(set_names::kDatabaseRenewedKey, renewed, this) != 0)
    VEXILO_LOGE("Failed to register the callback of %s", set_names::kDatabaseRenewedKey);
  CStartDC::Instance()->ConnectFoundCB([this](const std::vector<MapToDBTable>& rows) {
    m_SetDCIssues(rows);
    m_ShowRemainingIssues();
  });
  CStartDC::Instance()->ConnectFailedCB([this] { m_TellScanFailed(); });
  CStartDCIssues::Instance()->ConnectSolvedCB([this](const std::string& issueCode) { m_TakeSolved(issueCode); });
}

// ---- the screen

void CHomeScreen::m_CreateHomeScreen(CText launchFrom) {
  VEXILO_LOGI("Create Home Screen");
  m_isSignage = CUtils::Instance().m_IsSignage();
  CUtils::Instance().m_RegisterForReturnStack(
      {[this] { m_ShowHomeScreenPostReturn(); }, [this] { m_HideHomeScreen(); }}, false);
  if (!m_screen.m_Build(kProductTitle)) return;
  m_BuildStateArea();
  m_BuildUpperRow();
  m_BuildBottomFrame();
  m_HandleRSFocus();
  m_PlaceFirstFocus(launchFrom.get());
  m_SetVoiceGuideText();
  m_animationJob.m_Start(
      [this](const CScreenJob::Control& control) { m_AnimationStart(control, m_stateImage, 0, kLastFrame); }, {}, {});
  WhenLater([this] { return m_isRemainingDataArrived.load(); }, [this] { m_ShowRemainingIssues(); });
  m_TellDatabaseRenewed();
}

// Returns the sentence.
std::string CHomeScreen::m_AskDeviceState() {
  m_deviceState = CGetData::GetInstance()->CheckDeviceState();
  VEXILO_LOGI("device_state is %d", m_deviceState);
  const std::string sid = CGetData::GetInstance()->getSIDForDeviceState(m_deviceState);
  VEXILO_LOGI("sid device state is %s", sid.c_str());
  return CUtils::m_GetText(sid.c_str());
}

void CHomeScreen::m_ShowDeviceStateAnew() {
  if (!m_stateSentence) return;
  const int before = m_deviceState;
  elm_object_text_set(m_stateSentence, m_AskDeviceState().c_str());
  if (m_deviceState != before) m_SetImageForDeviceState(CUtils::Instance().m_GetHighContrast() != 0);
}

void CHomeScreen::m_BuildStateArea() {
  const std::string text = m_AskDeviceState();

  // What a higher screen has left goes above the picture and above the frame.
  elm_flux_layout_padding_set(m_screen.m_pGetBody(), kPageMargin, 0, kPageMargin, kFrameBottom);
  Evas_Object* const area = AddLayout(m_screen.m_pGetBody(), FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_BOTTOM, 0, 0);
  elm_flux_expand_set(area, true);
  elm_flux_layout_padding_set(area, 0, kStateTop, 0, 0);
  const bool highContrast = CUtils::Instance().m_GetHighContrast() != 0;
  m_stateImage =
      AddImage(area, MotionFrame(MotionOfDeviceState(m_deviceState), highContrast, 0), kStatePicture, kStatePicture);
  m_stateSentence =
      AddText(area, text, FLUX_FONT_700, kTextColor, FLUX_TEXT_SUBTITLE, FLUX_ALIGN_CENTER, 0, kSentenceHeight);
  elm_flux_expand_set(m_stateSentence, true);
}

void CHomeScreen::m_BuildUpperRow() {
  Evas_Object* const row = AddLayout(m_screen.m_pGetBody(), FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, 0);
  elm_flux_layout_padding_set(row, 0, kRowTop, 0, 0);
  elm_flux_layout_gap_set(row, kGap);

  m_startCare = elm_flux_button_add(row, FLUX_BUTTON_ACCENT);
  m_remainingIssues = elm_flux_button_add(row, FLUX_BUTTON_PLAIN);
  elm_object_text_set(m_startCare, CUtils::m_GetText("TV_SID_CARE_START_VEXILO").c_str());
  for (Evas_Object* const button :
       {static_cast<Evas_Object*>(m_startCare), static_cast<Evas_Object*>(m_remainingIssues)}) {
    elm_flux_size_set(button, 0, kButtonHeight);
    elm_flux_min_size_set(button, kButtonWidth, kButtonHeight);  // wider where the text is
    elm_flux_access_info_set(button, [button] { return std::string(elm_object_text_get(button)); });
    elm_flux_layout_pack(row, button);
  }
  OnEvent(m_startCare, "clicked", [this](void*) { m_StartCareBtnClickCall(); });
  OnEvent(m_remainingIssues, "clicked", [this](void*) { m_RemainIssueBtnClickCall(); });
  m_ShowRemainingIssues();
}

void CHomeScreen::m_ShowRemainingIssues() {
  if (!m_remainingIssues) return;
  const size_t count = m_GetDCIssues().size();
  // There may be more than are looked at.
  const std::string number = std::to_string(count) + (count < kMostRows ? "" : "+");
  const std::string text = CStringUtil::CombinateStrings(CUtils::m_GetText("TV_SID_CARE_MIX_REMAINING_ISSUES"), number);
  elm_object_text_set(m_remainingIssues, text.c_str());
  if (count > 0) {
    evas_object_show(m_remainingIssues);
    return;
  }
  const bool hadFocus = elm_object_focus_get(m_remainingIssues);
  evas_object_hide(m_remainingIssues);
  if (hadFocus) elm_object_focus_set(m_startCare, true);
}

void CHomeScreen::m_BuildBottomFrame() {
  Evas_Object* const row = AddLayout(m_screen.m_pGetBody(), FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_BOTTOM, 0, 0);
  elm_flux_expand_set(row, true);
  elm_flux_layout_padding_set(row, 0, kFrameTop, 0, 0);
  Evas_Object* frame = nullptr;
  CUtils& utils = CUtils::Instance();
  utils.m_CreateBottomFrame(frame, row, 0, kFrameHeight);
  Evas_Object* const content = elm_flux_layout_add(frame, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER);
  elm_flux_layout_gap_set(content, kGap);
  elm_object_content_set(frame, content);
  for (const Entry& entry : m_EntriesOfThisSet()) {
    entry.button = elm_flux_button_add(content, FLUX_BUTTON_TILE);
    elm_object_text_set(entry.button, CUtils::m_GetText(entry.sid).c_str());
    elm_flux_button_icon_set(entry.button, getResourcePath(entry.icon));
    elm_flux_size_set(entry.button, kButtonWidth, kEntryHeight);
    elm_flux_layout_pack(content, entry.button);
    OnEvent(entry.button, "clicked", [this, clicked = entry.clicked](void*) { (this->*clicked)(); });
  }
}

std::vector<CHomeScreen::Entry> CHomeScreen::m_EntriesOfThisSet() {
  std::vector<Entry> entries;
  if (!m_isSignage)
    entries.push_back({m_manageStorage, kStorageTitle, "home_storage.svg", &CHomeScreen::m_ManageStorageBtnClickCall});
  entries.push_back(
      {m_selfDiagnosis, "SID_SELF_DIAGNOSIS", "home_diagnosis.svg", &CHomeScreen::m_SelfDiagCareBtnClickCall});
  if (m_IsRequestSupportOffered())
    entries.push_back({m_requestSupport, "TV_SID_REQUEST_SUPPORT_KR_17", "home_support.svg",
                       &CHomeScreen::m_RequestSupportBtnClickCall});
  if (m_IsErrorReportOffered())
    entries.push_back({m_errorReport, "TV_SID_VEXILO_CBMAY_ERROR_REPORT", "home_report.svg",
                       &CHomeScreen::m_ErrorReportBtnClickCall});
  return entries;
}

bool CHomeScreen::m_IsRequestSupportOffered() {
  bool partner = false;
  if (system_info_get_custom_bool(kPartnerFeature, &partner) != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("error in getting FMS key %s", kPartnerFeature);
    return false;
  }
  if (partner) VEXILO_LOGI("do not add Request Support Button");
  return !partner && !m_isSignage;
}

bool CHomeScreen::m_IsErrorReportOffered() {
  CUtils& utils = CUtils::Instance();
  if (m_isSignage || utils.GetChipSet() != kReportChipSet || utils.GetLocalSet() != kReportLocalSet) return false;
  VEXILO_LOGI("oscarP and KOR both exist");
  return true;
}

void CHomeScreen::m_PlaceFirstFocus(const char* launchFrom) {
  const std::string source = launchFrom ? launchFrom : "";
  Evas_Object* const proposed = m_GetDCIssues().empty() ? m_startCare : m_remainingIssues;
  Evas_Object* asked = nullptr;
  if (source == launch_source::kRequestSupport) asked = m_requestSupport;
  if (source == launch_source::kErrorReport) asked = m_errorReport;
  m_screen.m_RememberFocus(asked ? asked : proposed);
  m_screen.m_RestoreFocus();
  if (source == launch_source::kErrorReport) m_CheckErrorReportPreconditions();
}

// The viewer wanted the error report, which could not be opened: goes to where that can be mended.
void CHomeScreen::m_CheckErrorReportPreconditions() {
  VEXILO_LOGI("on home screen network nt connected so - launch menu ");
  const ErrorReportGate gate = CheckErrorReportGate();
  if (gate == ErrorReportGate::kNoNetwork) VEXILO_LOGI("network is not  connected currently");
  if (gate == ErrorReportGate::kNoConsent) VEXILO_LOGI("network is connected but terms & cond no ");
  m_LaunchWhatOpens(gate);
}

void CHomeScreen::m_LaunchWhatOpens(ErrorReportGate gate) {
  if (gate == ErrorReportGate::kNoNetwork) m_Launch(app_ids::kMenu);
  if (gate == ErrorReportGate::kNoConsent) m_Launch(app_ids::kWizard);
}

void CHomeScreen::m_Launch(const char* appId) {
  if (!CGetData::GetInstance()->ProcessLaunchApp(appId))
    m_ShowToastAnywhere(CUtils::m_GetText("TV_SID_VEXILO_COULD_NOT_DO_IT"));
}

void CHomeScreen::m_HideHomeScreen() {
  m_screen.m_Hide();
  // What nobody sees need not move: it is at rest when it is seen again.
  if (!m_animationJob.m_IsRunning()) return;
  m_animationJob.m_Cancel();
  m_SetImageForDeviceState(CUtils::Instance().m_GetHighContrast() != 0);
}

void CHomeScreen::m_ShowHomeScreenPostReturn() {
  VEXILO_LOGI("Home screen called after return ");
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_HOME);
  if (!m_screen.m_IsShown()) m_ShowDeviceStateAnew();
  m_ShowRemainingIssues();
  m_screen.m_Show();
  Evas_Object* const remembered = m_screen.m_pGetRememberedFocus();
  if (!remembered || !evas_object_visible_get(remembered)) m_screen.m_RememberFocus(m_startCare);
  m_screen.m_RestoreFocus();
  m_TellReportFailures();
  m_TellDatabaseRenewed();
}

void CHomeScreen::m_CleanObjects() {
  m_screen.m_Clean();
  m_animationJob.m_Cancel();
}

void CHomeScreen::m_HighContrastChangeCB() {
  m_SetImageForDeviceState(CUtils::Instance().m_GetHighContrast() != 0);
}

void CHomeScreen::m_SetVoiceGuideText() {
  if (!elm_config_access_get()) return;
  const std::string sid = CGetData::GetInstance()->getSIDForDeviceState(m_deviceState);
  CUtils::m_SayVoiceGuideText(CUtils::m_GetText(kProductTitle) + ", " + CUtils::m_GetText(sid.c_str()));
}

void CHomeScreen::m_SetImageForDeviceState(bool highContrast) {
  const std::string path = MotionFrame(MotionOfDeviceState(m_deviceState), highContrast, kLastFrame);
  VEXILO_LOGI("imgPath is %s", std::string(NameOnSet(path)).c_str());
  if (m_stateImage) elm_flux_image_file_set(m_stateImage, path);
}

void CHomeScreen::m_AnimationStart(const CScreenJob::Control& control, const CWidget& image, int first, int last) {
  PlayMotion(control, image, MotionOfDeviceState(m_deviceState), first, last);
}

// ---- the entries

void CHomeScreen::m_Press(Evas_Object* button, const char* kpiText) {
  QUVA_KPISender::GetInstance()->SendVexiloKPI(kpiText);
  m_screen.m_RememberFocus(button);
}

void CHomeScreen::m_StartCareBtnClickCall() {
  VEXILO_LOGI("Start Vexilo Button Pressed ");
  m_Press(m_startCare, "Start Vexilo");
  m_reportJob.m_Start(
      [](const CScreenJob::Control&) { CUtils::Instance().m_RequestNDF("StartVexilo", "StartVexilo", true); }, {}, {});
  m_HideHomeScreen();
  CStartDC::Instance()->m_StartDC();
}

void CHomeScreen::m_RemainIssueBtnClickCall() {
  VEXILO_LOGI("Remaining issues Button Pressed ");
  m_Press(m_remainingIssues, "Remaining Issues");
  m_HideHomeScreen();
  CStartDCIssues::Instance()->m_StartDCIssues(m_GetDCIssues());
}

void CHomeScreen::m_ManageStorageBtnClickCall() {
  VEXILO_LOGI("manage Storage Button Pressed ");
  m_Press(m_manageStorage, "Manage Storage");
  m_HideHomeScreen();
  CManageStorage::Instance()->m_CreateManageStorageScreen();
}

void CHomeScreen::m_SelfDiagCareBtnClickCall() {
  VEXILO_LOGI("Self Diagnosis Button Pressed ");
  m_Press(m_selfDiagnosis, "Self Diagnosis");
  m_HideHomeScreen();
  CSelfDiagnosis::Instance()->m_CreateSelfDiagnosis(true);
}

void CHomeScreen::m_ErrorReportBtnClickCall() {
  VEXILO_LOGI("Error Report Button Pressed ");
  m_screen.m_RememberFocus(m_errorReport);
  CUtils::Instance().m_SetExitOnPause(true);
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_ERROR_REPORT);
  m_CheckForNetworkAndTermsAgreement();
}

void CHomeScreen::m_CheckForNetworkAndTermsAgreement() {
  const ErrorReportGate gate = CheckErrorReportGate();
  if (gate == ErrorReportGate::kNoNetwork) VEXILO_LOGI("network nt connected");
  if (gate == ErrorReportGate::kNoConsent) VEXILO_LOGI(" T&C not accepted Launch Wizard");
  m_LaunchWhatOpens(gate);
  if (gate != ErrorReportGate::kOpen) return;
  VEXILO_LOGI("T&C accepted & network too connected");
  m_HideHomeScreen();
  CErrorReport::Instance()->m_CreateErrorReport();
}

void CHomeScreen::m_RequestSupportBtnClickCall() {
  VEXILO_LOGI("Request Support Button Pressed ");
  m_screen.m_RememberFocus(m_requestSupport);
  if (!m_isRequestSupportAvailable) return m_ShowToast();
  m_Press(m_requestSupport, "Request Support");
  m_Launch(app_ids::kRequestSupport);
}

void CHomeScreen::m_HandleRSFocus() {
  if (!m_requestSupport) return;
  m_isRequestSupportAvailable = CGetData::GetInstance()->check_request_support_enable();
  if (m_isRequestSupportAvailable) return;
  elm_flux_access_info_set(m_requestSupport, [this] {
    return std::string(elm_object_text_get(m_requestSupport)) + ", " +
           CUtils::m_GetText("TV_SID_VEXILO_VOICE_NOT_AVAILABLE");
  });
}

// ---- the toast

void CHomeScreen::m_ShowToast() {
  m_screen.m_ShowToast(CUtils::m_GetText("TV_SID_VEXILO_NO_SUPPORT"),
                       {[this] { m_ShowScreenPostToastReturn(); }, [this] { m_HandleReturnOnToast(); }},
                       [this] { m_AutoTimeOut(); });
}

void CHomeScreen::m_TellReportFailures() {
  ErrorReportSender& sender = ErrorReportSender::Instance();
  // All of them at once, when no more is to be heard.
  const std::set<int> failures = sender.GetFailures();
  if (failures.empty() || CErrorReport::Instance()->m_IsWaiting() || !m_screen.m_IsShown()) return;
  if (m_screen.m_HasToast()) return;  // after it
  m_ShowToastAnywhere(CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_NO_REPORT", ErrorReportSender::NamesOf(failures)));
  sender.ForgetFailures(failures);
}

// Whichever process has found the damage.
void CHomeScreen::m_TellDatabaseRenewed() {
  int isToBeTold = 0;
  if (vconf_get_bool(set_names::kDatabaseRenewedKey, &isToBeTold) != 0 || !isToBeTold) return;
  if (!m_screen.m_IsShown() || m_screen.m_HasToast()) return;  // later
  if (vconf_set_bool(set_names::kDatabaseRenewedKey, false) != 0)
    VEXILO_LOGE("Setting %s failed", set_names::kDatabaseRenewedKey);
  m_ShowToastAnywhere(CUtils::m_GetText("TV_SID_VEXILO_DATABASE_RENEWED"));
}

void CHomeScreen::m_HandleReturnOnToast() {
  VEXILO_LOGI("hide 4 toast called ");
  m_screen.m_DeleteToast();
  FocusWhenIdle(m_requestSupport);
}

void CHomeScreen::m_ShowScreenPostToastReturn() {
  m_ShowHomeScreenPostReturn();
}

void CHomeScreen::m_AutoTimeOut() {
  VEXILO_LOGI("Auto TimeOut");
  m_screen.m_DismissToast();  // the focus stays where the viewer has taken it meanwhile
  m_TellReportFailures();
  m_TellDatabaseRenewed();
}

void CHomeScreen::m_TellScanFailed() {
  if (!m_screen.m_IsBuilt()) m_CreateHomeScreen(nullptr);
  m_ShowToastAnywhere(CUtils::m_GetText("TV_SID_VEXILO_COULD_NOT_DO_IT"));
  m_ShowHomeScreenPostReturn();
}

// A toast that leaves the focus where the viewer has taken it meanwhile.
void CHomeScreen::m_ShowToastAnywhere(const std::string& text) {
  const auto hide = [this] {
    VEXILO_LOGI("hide 4 toast called ");
    if (Evas_Object* const focused = elm_object_focused_object_get(m_screen.m_pGetLayout()))
      m_screen.m_RememberFocus(focused);
    m_screen.m_DeleteToast();
  };
  m_screen.m_ShowToast(text, {[this] { m_ShowScreenPostToastReturn(); }, hide}, [this] { m_AutoTimeOut(); });
}

// ---- the remaining issues

void CHomeScreen::m_GetRemainingData() {
  m_SetDCIssues({});
  m_isRemainingDataArrived = false;
  m_remainingJob.m_Cancel();
  m_remainingJob.m_Start(
      [this](const CScreenJob::Control&) {
        if (QUVA_DiagResultManager::GetInstance()->LoadRemainingProblems()) {
          QUVA_DiagManager::GetInstance()->RemainingProblem();
          return;
        }
        SetEngineOperation("NoRemaining");
        m_isRemainingDataArrived = true;  // there is nothing to wait for
      },
      {}, {});
}

void CHomeScreen::m_DiagResCallback(std::vector<MapToDBTable> issues) {
  VEXILO_LOGI("m_DiagResCallback triggered.. Size = %zu", issues.size());
  m_SetDCIssues(std::move(issues));
  m_isRemainingDataArrived = true;
}

void CHomeScreen::m_SetDCIssues(std::vector<MapToDBTable> issues) {
  std::lock_guard lock(m_issuesMutex);
  m_issues = std::move(issues);
}

void CHomeScreen::m_TakeSolved(const std::string& issueCode) {
  std::vector<MapToDBTable> remaining = m_GetDCIssues();
  std::erase_if(remaining, [&](const MapToDBTable& row) { return row.issue_code == issueCode; });
  m_SetDCIssues(std::move(remaining));
  m_ShowRemainingIssues();  // the viewer may be back there
}

std::vector<MapToDBTable> CHomeScreen::m_GetDCIssues() const {
  std::lock_guard lock(m_issuesMutex);
  return m_issues;
}

}  // namespace QUVA
