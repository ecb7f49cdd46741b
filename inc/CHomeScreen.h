#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "CScreen.h"
#include "CScreenJob.h"
#include "ErrorReportGate.h"
#include "QUVA_Records.h"
#include "c_handle.h"

namespace QUVA {

/// The main screen: the device's state, and the entries that lead to everything else. Back on it ends the application.
/// It owns the list of issues that remain from earlier scans.
/// Thread rule: main loop thread, but for the list of issues, which any thread may set and ask for.
class CHomeScreen {
 public:
  /// Created on first use, never destroyed.
  static CHomeScreen* Instance();

  CHomeScreen(const CHomeScreen&) = delete;
  CHomeScreen& operator=(const CHomeScreen&) = delete;

  // ---- the screen

  /// `launchFrom` decides on the first focus: "request-support", "ErrorReport", or anything else or null for the entry
  /// that is proposed.
  void m_CreateHomeScreen(CText launchFrom);
  void m_HideHomeScreen();
  void m_ShowHomeScreenPostReturn();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_SetVoiceGuideText();

  /// Shows the resting picture of the device's state.
  void m_SetImageForDeviceState(bool highContrast);
  /// Plays frames of the device's state. The worker's routine.
  void m_AnimationStart(const CScreenJob::Control& control, const CWidget& image, int first, int last);

  // ---- the entries

  void m_StartCareBtnClickCall();
  void m_RemainIssueBtnClickCall();
  void m_ManageStorageBtnClickCall();
  void m_SelfDiagCareBtnClickCall();
  void m_ErrorReportBtnClickCall();
  void m_RequestSupportBtnClickCall();
  /// Opens the error report, or what is missing for it: the network settings or the terms.
  void m_CheckForNetworkAndTermsAgreement();
  /// Finds out whether support can be requested, and has the screen reader say so on that entry.
  void m_HandleRSFocus();

  /// The toast that says that support cannot be requested.
  void m_ShowToast();
  /// The one that says of which categories no report could be made; only while the screen is shown and there are some.
  void m_TellReportFailures();
  void m_TellDatabaseRenewed();
  void m_HandleReturnOnToast();
  void m_ShowScreenPostToastReturn();
  void m_AutoTimeOut();

  // ---- the remaining issues

  /// Forgets the list and asks for it anew; m_IsRemainingDataArrived() tells when the answer is there, at once where
  /// nothing is stored.
  void m_GetRemainingData();
  /// Takes the answer, on the engine's thread.
  void m_DiagResCallback(std::vector<MapToDBTable> issues);
  void m_SetDCIssues(std::vector<MapToDBTable> issues);

  bool m_IsRemainingDataArrived() const { return m_isRemainingDataArrived; }
  std::vector<MapToDBTable> m_GetDCIssues() const;
  /// Has the screen show how many there are now. Main loop thread.
  void m_ShowRemainingIssues();

 private:
  struct Entry;

  CHomeScreen();

  std::string m_AskDeviceState();
  void m_ShowDeviceStateAnew();
  void m_BuildStateArea();
  void m_BuildUpperRow();
  void m_BuildBottomFrame();
  std::vector<Entry> m_EntriesOfThisSet();
  bool m_IsRequestSupportOffered();
  bool m_IsErrorReportOffered();
  void m_PlaceFirstFocus(const char* launchFrom);
  void m_CheckErrorReportPreconditions();
  /// Launches where the viewer can get what the error report lacks.
  void m_LaunchWhatOpens(ErrorReportGate gate);
  /// Launches it, or tells that this did not work.
  void m_Launch(const char* appId);
  void m_TellScanFailed();
  void m_ShowToastAnywhere(const std::string& text);
  void m_TakeSolved(const std::string& issueCode);
  void m_Press(Evas_Object* button, const char* kpiText);

  std::atomic<bool> m_isRemainingDataArrived{false};
  CScreenJob m_animationJob;
  CScreenJob m_remainingJob;
  CScreenJob m_reportJob;
  CScreen m_screen{[this] { m_SetVoiceGuideText(); }};
  CWidget m_stateImage;
  CWidget m_stateSentence;
  CWidget m_startCare;
  CWidget m_remainingIssues;
  CWidget m_manageStorage;
  CWidget m_selfDiagnosis;
  CWidget m_errorReport;
  CWidget m_requestSupport;
  int m_deviceState = 0;
  mutable std::mutex m_issuesMutex;
  std::vector<MapToDBTable> m_issues;
  bool m_isSignage = false;
  bool m_isRequestSupportAvailable = false;
};

}  // namespace QUVA
