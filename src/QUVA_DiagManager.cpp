#include "QUVA_DiagManager.h"

#include <dlfcn.h>
#include <glib.h>
#include <unistd.h>

#include <cstring>

#include "AppIds.h"
#include "AppState.h"
#include "QGuideResult.h"
#include "QUVA_DiagResultManager.h"
#include "SettingsKeys.h"
#include "TaskManagerRequests.h"
#include "VexiloLog.h"
#include "kpi_logger.h"
#include "set_care.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

GMainLoop* loop = nullptr;

namespace {

constexpr unsigned long kInferenceWait = 10000000;  // microseconds

// The reason of a failure names the symbol.
template <typename Entry>
bool Resolve(void* library, const char* name, Entry& entry, const char* failure) {
  dlerror();
  entry = reinterpret_cast<Entry>(dlsym(library, name));
  const char* const error = dlerror();
  if (error) VEXILO_LOGE("%s: %s", failure, error);
  return !error;
}

// Runs in the loop itself: an answer that comes before the loop is made or runs ends it all the same.
gboolean EndQGuideLoop(void*) {
  if (loop) {
    g_main_loop_unref(loop);
    g_main_loop_quit(loop);
  }
  return G_SOURCE_REMOVE;
}

}  // namespace

std::atomic<QUVA_DiagManager*> QUVA_DiagManager::m_pInstance = nullptr;
std::mutex QUVA_DiagManager::m_TVDMmutex;

QUVA_DiagManager* QUVA_DiagManager::GetInstance() {
  // Callbacks hold the mutex for long; who only wants the instance does not wait for them.
  if (QUVA_DiagManager* instance = m_pInstance) return instance;
  std::lock_guard lock(m_TVDMmutex);
  if (!m_pInstance) m_pInstance = new QUVA_DiagManager;
  return m_pInstance;
}

QUVA_DiagManager::QUVA_DiagManager() {
  VEXILO_LOGI("Start DiagnosisManager");
  createLibHandler();
  if (m_parseSolutionMap) {
    VEXILO_LOGI("calling thro dlysm parse solution");
    m_parseSolutionMap();
  }
}

void QUVA_DiagManager::createLibHandler() {
  VEXILO_LOGI("create Lib Handler");
  m_libHandle = dlopen(SystemPath(set_paths::kParserPlugin).c_str(), RTLD_LAZY);
  if (!m_libHandle) {
    VEXILO_LOGE("dlopen error: %s", dlerror());
    return;
  }
  VEXILO_LOGI("dlopen success: handle %p", m_libHandle);
  VEXILO_LOGI("dlysm before call");
  if (!Resolve(m_libHandle, "ParseSolutionMap", m_parseSolutionMap, "dlsym failed for parse Solution Map")) return;
  Resolve(m_libHandle, "RequestApplySolution", m_applySolution, "dlsym failed");
  Resolve(m_libHandle, "PlanSolution", m_planSolution, "dlsym failed");
  Resolve(m_libHandle, "ApplyAgreedSolution", m_applyAgreed, "dlsym failed");
  Resolve(m_libHandle, "SaveResultToSolutionDB", m_saveResult, "dlsym failed");
  Resolve(m_libHandle, "ProcessLaunchApp", m_launchApp, "dlsym failed");
}

// ---- starting a diagnosis

void QUVA_DiagManager::StartQGuideDiagnosis() {
  VEXILO_LOGI("StarQGuide Diagnosis");
  SayWhetherNothingIsKnown();
  if (InferenceSubscribeOnce(kInferenceWait, QGuideCallbackFunc) != 0) {
    VEXILO_LOGE("the diagnosis engine does not answer");
    SayNoQGuideResult(QGuideResultPath(AppState::Instance().launchFrom), "the diagnosis engine does not answer");
    g_idle_add(EndQGuideLoop, nullptr);
  }
  VEXILO_LOGI("End QGuide Diagnosis");
}

void QUVA_DiagManager::StartAutoDiagnosis() {
  VEXILO_LOGI("StartAutoDiagnosis");
  InferenceSubscribeOnce(kInferenceWait, SolutionCallbackFunc);
  m_isDiagnosisRequested = true;
  VEXILO_LOGI("EndAutoDiagnosis");
}

void QUVA_DiagManager::RemainingProblem() {
  VEXILO_LOGI("RemainingProblem");
  SetEngineOperation("InferenceRemaining");
  InferenceSubscribeOnce(kInferenceWait, RemainingCallbackFunc);
  m_isDiagnosisRequested = true;
}

void QUVA_DiagManager::EnterRemaining() {
  VEXILO_LOGI("EnterRemaining");
}

void QUVA_DiagManager::OptimizeDevice() {
  // The scan tells of it as done, so it is done where there is no task manager.
  if (PerformDeepClean() != 0 && !set_care::HasDaemon()) set_care::CleanUp();
  PerformMemBoost();
}

void QUVA_DiagManager::SetExitFlag(int code) {
  m_exitFlag = code;
  KPILogFramework::CLogger::GetInstance()->Flush();
  _exit(code);
}

// ---- the engine's callbacks

void QUVA_DiagManager::QGuideCallbackFunc(unsigned int, DTSignalData) {
  QUVA_DiagManager* manager = GetInstance();
  std::lock_guard lock(m_TVDMmutex);
  VEXILO_LOGI("QGuideCallbackFunc");
  manager->SetIsCallBackFinish(true);
  if (HasInferenceFailed())
    SayNoQGuideResult(QGuideResultPath(AppState::Instance().launchFrom), "the rules of the diagnosis cannot be used");
  else
    QUVA_DiagResultManager::GetInstance()->CreateQGuideErrList();
  g_idle_add(EndQGuideLoop, nullptr);
}

void QUVA_DiagManager::SolutionCallbackFunc(unsigned int, DTSignalData) {
  std::lock_guard lock(m_TVDMmutex);
  VEXILO_LOGI("SolutionCallbackFunc");
  SetEngineOperation("SolutionCallback");
  VEXILO_LOGI("CreateErrorList start..");
  QUVA_DiagResultManager::GetInstance()->CreateErrorList();
  VEXILO_LOGI("CreateErrorList end..");
}

void QUVA_DiagManager::RemainingCallbackFunc(unsigned int, DTSignalData) {
  std::lock_guard lock(m_TVDMmutex);
  VEXILO_LOGI("RemainingCallbackFunc");
  SetEngineOperation("RemainingCallback");
  QUVA_DiagResultManager::GetInstance()->CompareRemaining();
}

// ---- self diagnosis

std::string QUVA_DiagManager::StartSelfDiagnosis(const char* item) {
  VEXILO_LOGI("StartSelfDiagnosis!!!!!!!!!!!!!");
  if (std::strcmp(item, "NetworkSetting") == 0) {
    VEXILO_LOGI("launch Network Setting");
    if (m_launchApp) m_launchApp(app_ids::kNetworkSetting);
    return "";
  }
  if (std::strcmp(item, "SignalInfo") == 0) {
    VEXILO_LOGI("launch Signal Info from QUVA Native side");
    if (IsHdmiForSignalCheck(GetCurrentSourceInfo())) {
      VEXILO_LOGI("HDMI MODE");
      return "hdmi-information";
    }
    VEXILO_LOGI("NOT HDMI MODE");
    return "signal-information";
  }
  VEXILO_LOGE("Unknown Value : %s", item);
  return "";
}

}  // namespace QUVA
