#include <glib.h>
#include <libintl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "AppState.h"
#include "CErrorReport.h"
#include "CGetData.h"
#include "CHomeScreen.h"
#include "CLoadingScreen.h"
#include "CMainView.h"
#include "CScreenJob.h"
#include "CSelfDiagnosis.h"
#include "CStartDC.h"
#include "CUtils.h"
#include "ErrorReportGate.h"
#include "QUVA_DiagManager.h"
#include "QUVA_DiagResultManager.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "app_framework.h"
#include "c_handle.h"
#include "kpi_logger.h"
#include "ownership.h"
#include "screen_saver.h"
#include "set_paths.h"
#include "settings_api.h"
#include "system_path.h"
#include "trevlin_engine.h"
#include "vconf.h"

using namespace QUVA;

void updateVConf(char* launchMech);

namespace {

constexpr char kQGuideArgument[] = "qguide";
constexpr char kZoomItem[] = "sm-zoom-to-fill";
constexpr char kScreenSaver[] = "org.varno.default-screensaver";

// Whether the user interface has been built: tells a first launch from a re-launch.
bool g_running = false;

bool Equals(const char* text, const char* wanted) {
  return text && std::strcmp(text, wanted) == 0;
}

// A copy that stays for as long as the process, as the launch source must.
char* KeepCopy(const char* text) {
  static auto* copies = new std::set<std::string>;
  return text ? const_cast<char*>(copies->insert(text).first->c_str()) : nullptr;
}

CText ExtraData(app_control_h request, const char* key) {
  char* value = nullptr;
  app_control_get_extra_data(request, key, &value);
  return CText(value);
}

// Returns when the engine has answered and the result file is written.
void RunQGuideDiagnosis() {
  QUVA_DiagManager::GetInstance()->StartQGuideDiagnosis();
  loop = g_main_loop_new(nullptr, true);
  g_main_loop_run(loop);
  loop = nullptr;
}

/// Asks for the desktop's screen saver or withdraws it on a thread, as its service may take its time; of wishes that
/// come meanwhile the last one counts.
class ScreenSaverWish {
 public:
  void m_Set(bool active) {
    m_isWanted = active;
    if (!m_job.m_IsRunning()) m_Ask(active);
  }

 private:
  void m_Ask(bool active) {
    m_job.m_Start([active](const CScreenJob::Control&) { m_Call(active); },
                  [this, active] {
                    if (m_isWanted != active) m_Ask(m_isWanted);
                  },
                  {});
  }

  static void m_Call(bool active) {
    const int result = active ? activateScreenSaver(kScreenSaver, 0, 60, 2, 2) : deactivateScreenSaver();
    VEXILO_LOGI("%s ret value = %d", active ? "activateScreenSaver" : "deactivateScreenSaver", result);
  }

  CScreenJob m_job;
  bool m_isWanted = false;
};

ScreenSaverWish& ScreenSaver() {
  static auto& wish = *new ScreenSaverWish;
  return wish;
}

void ClearRemainingProblemsIfAsked() {
  int reset = 0;
  if (vconf_get_bool(kDbResetKey, &reset) != 0) {
    VEXILO_LOGI("VCONF_GET_FAIL");
    return;
  }
  VEXILO_LOGI("VCONF_GET_SUCCESS");
  if (!reset) {
    VEXILO_LOGI("VCONF_KEY_DB_RESET_FALSE : %d", reset);
    return;
  }
  // Not by the main loop, which would wait for the disk. Whoever reads them waits for the manager, which is busy.
  static auto& job = *new CScreenJob;
  job.m_Start(
      [manager = QUVA_DiagResultManager::GetInstance(), reset](const CScreenJob::Control&) {
        manager->ClearRemainingProblems();
        VEXILO_LOGI("VCONF_KEY_DB_RESET_TRUE : %d", reset);
      },
      {}, {});
}

// ---- lifecycle

bool app_create(void*) {
  return true;
}

void app_terminate(void*) {
  VEXILO_LOGI("terminate called");
  CErrorReport::Instance()->m_FinishSending();
  KPILogFramework::CLogger::GetInstance()->Flush();
  _exit(0);
}

void app_pause(void*) {
  const bool multitasking = CUtils::Instance().m_GetMultitaskingStatus();
  VEXILO_LOGI("pause called %d", multitasking);
  SettingsAPI::Get().EnableItem(kZoomItem, kApplicationId);
  ScreenSaver().m_Set(false);
  if (!multitasking || CUtils::Instance().m_GetExitOnPause()) {
    CLoadingScreen::Instance()->m_CleanObjects();
    CStartDC::Instance()->m_CleanObjects();
    CUtils::Instance().m_CleanObjects();
    ui_app_exit();
    return;
  }
  VEXILO_LOGI("Pause called on Self Diag Screen.. Deleting the screen...");
  CSelfDiagnosis::Instance()->m_ClearSelfDiagnosis();
  CHomeScreen::Instance()->m_HideHomeScreen();
}

// The error report needs the network and the viewer's consent, which may have changed meanwhile.
void ResumeErrorReport() {
  VEXILO_LOGI("Resumed for Error Report Screen..");
  const ErrorReportGate gate = CheckErrorReportGate("", "network connected");
  if (gate == ErrorReportGate::kNoNetwork) VEXILO_LOGI("is is still not connected .. that is close press ");
  if (gate == ErrorReportGate::kOpen) return CErrorReport::Instance()->m_CreateErrorReport();
  CHomeScreen::Instance()->m_ShowHomeScreenPostReturn();
}

void app_resume(void*) {
  VEXILO_LOGI("resume called");
  SettingsAPI::Get().DisableItem(kZoomItem, kApplicationId);
  ScreenSaver().m_Set(true);
  const _CurrentScreen screen = CGetData::GetInstance()->m_GetCurrentScreen();
  if (screen == SCREEN_SELF_DIAGNOSIS) {
    VEXILO_LOGI("Resumed on Self Diag Screen.. Updating the screen...");
    CSelfDiagnosis::Instance()->m_CreateSelfDiagnosis(false);
  } else if (screen == SCREEN_ERROR_REPORT) {
    ResumeErrorReport();
  }
}

void LaunchFirst(const char* launchMech) {
  VEXILO_LOGI(" app  not running.. Launching for the first time..");
  ScreenSaver().m_Set(true);
  ClearRemainingProblemsIfAsked();
  if (!CMainView::Instance().initUI(KeepCopy(launchMech))) CUtils::Instance().m_SetExitFlag(EXIT_FAILURE);
  g_running = true;
}

void LaunchAgain(const char* launchMech) {
  VEXILO_LOGI("app is running already.....%s", launchMech ? launchMech : "(null)");
  if (!launchMech || Equals(launchMech, launch_source::kMenu) || Equals(launchMech, launch_source::kOrlo)) return;
  if (CGetData::GetInstance()->m_GetCurrentScreen() == SCREEN_SELF_DIAGNOSIS) return;
  VEXILO_LOGI("if launch _mech is not orlo or menu ");
  static char empty[] = "";
  CUtils::Instance().m_pSetLaunchFrom(empty);
}

void DiagnoseInBackground(const char* launchMech) {
  VEXILO_LOGI("when QUVA is to be called in background ");
  CUtils::Instance().m_pSetLaunchFrom(KeepCopy(launchMech));
  RunQGuideDiagnosis();
  ui_app_exit();
}

void app_control(app_control_h request, void*) {
  VEXILO_LOGI("app_control called");
  SettingsAPI::Get().DisableItem(kZoomItem, kApplicationId);
  CreateAPIInstance();
  VEXILO_LOGI("Create Trevlin API Instance");
  const CText issueId = ExtraData(request, "ISSUE_ID");
  const CText launchMech = ExtraData(request, set_names::kLaunchMechanism);
  if (!g_running) {
    VEXILO_LOGI("launch_mech is %s", launchMech ? launchMech.get() : "(null)");
    updateVConf(launchMech.get());
  }
  CUtils::Instance().m_pSetLaunchFrom(KeepCopy(launchMech.get()));
  if (Equals(launchMech.get(), launch_source::kBackground))
    DiagnoseInBackground(launchMech.get());
  else if (!g_running)
    LaunchFirst(launchMech.get());
  else
    LaunchAgain(launchMech.get());
}

int RunHeadless() {
  VEXILO_LOGE("for qguide only");
  // The daemon, which makes the others too, need not run.
  std::string problem;
  exchange::MakeFolder(set_paths::kQGuideFolder, problem);
  if (!problem.empty()) VEXILO_LOGE("%s", problem.c_str());
  CreateAPIInstance();
  VEXILO_LOGI("Create Trevlin API Instance for Qguide");
  RunQGuideDiagnosis();
  return 0;
}

int RunInteractive(int argc, char** argv) {
  bindtextdomain(kApplicationId, SystemPath(set_paths::kLocaleDir).c_str());
  ui_app_lifecycle_callback_s callbacks = {app_create, app_terminate, app_pause, app_resume, app_control};
  const int result = ui_app_main(argc, argv, &callbacks, nullptr);
  VEXILO_LOGI("value of ret is %d", result);
  if (result != 0) VEXILO_LOGE("app_main() is failed. err = %d", result);
  return result;
}

}  // namespace

/// Records where the application was launched from.
void updateVConf(char* launchMech) {
  int launchPoint = LAUNCH_POINT_OTHER;
  if (Equals(launchMech, launch_source::kMenu)) launchPoint = LAUNCH_POINT_MENU;
  if (Equals(launchMech, launch_source::kOrlo)) launchPoint = LAUNCH_POINT_ORLO;
  if (Equals(launchMech, launch_source::kHotelMenu)) launchPoint = LAUNCH_POINT_HOTEL_MENU;
  if (vconf_set_int(kLaunchPointKey, launchPoint) != 0) VEXILO_LOGE("Setting %s failed", kLaunchPointKey);
}

int main(int argc, char** argv) {
  VEXILO_LOGI("Main of main");
  std::signal(SIGXFSZ, SIG_IGN);  // a limit on file sizes is an error of the write, as a full disk is
  if (argc > 1 && Equals(argv[1], kQGuideArgument)) return RunHeadless();
  return RunInteractive(argc, argv);
}
