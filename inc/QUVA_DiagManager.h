#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "DeviceQueries.h"
#include "QUVA_ParserPlugin.h"
#include "trevlin_engine.h"

typedef struct _GMainLoop GMainLoop;

namespace QUVA {

/// The main loop of the quick diagnosis that is running, or null. Main thread; one at a time.
extern GMainLoop* loop;

/// Binds the application to the diagnosis engine: starts diagnoses and hands what the engine infers to the result
/// manager.
/// Thread rule: the operations are callable from any thread; the callbacks run on the engine's.
class QUVA_DiagManager {
 public:
  /// Created on first use, when the parser plug-in is loaded and parses the solution map; never destroyed.
  static QUVA_DiagManager* GetInstance();

  QUVA_DiagManager(const QUVA_DiagManager&) = delete;
  QUVA_DiagManager& operator=(const QUVA_DiagManager&) = delete;

  /// Loads the parser plug-in. What is missing is logged and stays null.
  void createLibHandler();

  /// What the self-diagnosis entry `item` does: "NetworkSetting" launches it, "SignalInfo" gives the page to open.
  /// Empty when there is no page.
  std::string StartSelfDiagnosis(const char* item);

  // Each returns at once; the result comes through the callback of the same kind, one for each call.
  void StartQGuideDiagnosis();
  void StartAutoDiagnosis();
  void RemainingProblem();
  void EnterRemaining();

  /// Asks for a deep clean, waiting up to ten seconds for it, and then for a memory boost. Not on the main thread.
  void OptimizeDevice();

  void SetIsCallBackFinish(bool finished) { m_isCallBackFinish = finished; }
  int GetExitFlag() const { return m_exitFlag; }
  /// Ends the process at once with `code`.
  [[noreturn]] void SetExitFlag(int code);

  /// The plug-in's entries for the screens; null when it is missing.
  ApplySolutionEntry m_pGetApplySolution() const { return m_applySolution; }
  PlanSolutionEntry m_pGetPlanSolution() const { return m_planSolution; }
  ApplyAgreedEntry m_pGetApplyAgreed() const { return m_applyAgreed; }
  SaveResultEntry m_pGetSaveResult() const { return m_saveResult; }

  static void QGuideCallbackFunc(unsigned int id, DTSignalData data);
  static void SolutionCallbackFunc(unsigned int id, DTSignalData data);
  static void RemainingCallbackFunc(unsigned int id, DTSignalData data);

 private:
  QUVA_DiagManager();

  void* m_libHandle = nullptr;
  ApplySolutionEntry m_applySolution = nullptr;
  PlanSolutionEntry m_planSolution = nullptr;
  ApplyAgreedEntry m_applyAgreed = nullptr;
  SaveResultEntry m_saveResult = nullptr;
  LaunchAppEntry m_launchApp = nullptr;
  void (*m_reserved)() = nullptr;  ///< an entry that the plug-in had once; not set
  ParseSolutionMapEntry m_parseSolutionMap = nullptr;
  std::atomic<bool> m_isCallBackFinish{false};
  std::atomic<bool> m_isDiagnosisRequested{false};
  std::atomic<int> m_exitFlag{0};

  static std::atomic<QUVA_DiagManager*> m_pInstance;
  /// Guards the creation, and is held by every callback for its whole run; taken before the result manager's.
  static std::mutex m_TVDMmutex;
};

}  // namespace QUVA
