#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "CGetData.h"
#include "CScreen.h"
#include "CScreenJob.h"

namespace QUVA {

/// How far a removal is.
struct UninstallState {
  std::string appName;               ///< of the application that is being removed
  int progress = 0;                  ///< of it, 0 to 100
  int count = 0;                     ///< applications that are to be removed
  int finished = 0;                  ///< of these, those that were removed or could not be
  int refused = 0;                   ///< the error with which the service refused the whole
  std::map<std::string, int> ended;  ///< by application id: 0 for removed, else the service's error
};

/// Deletes the selected applications through the web-application service: asks, shows how far it is, and tells what
/// came of it.
/// Thread rule: the popups belong to the main loop thread, m_UninstallAppThreadFn() to a worker, and the service's
/// events come on a thread of its own; what the user sees then changes inside a main-loop section.
class CDeleteApps {
 public:
  /// Created on first use, never destroyed.
  static CDeleteApps* Instance();

  CDeleteApps(const CDeleteApps&) = delete;
  CDeleteApps& operator=(const CDeleteApps&) = delete;

  // ---- the popups (CDeleteAppsPopups.cpp)

  /// Asks whether the selected of `apps` are to be deleted, those left out that are locked, and deletes them then.
  /// `onEnd` is called when a removal has come to its end, with what to tell in a short message; empty for nothing.
  /// Nothing happens when none is selected, or while a removal runs.
  void m_CreateDeletePopup(const std::vector<app_list_struct>& apps, std::function<void(const std::string&)> onEnd);
  void m_HideDeletePopup();
  void m_ShowScreenPostReturn();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_SetVoiceGuideText();
  void m_DeleteBtnClickCall();
  bool m_IsRemoving() const { return m_job.m_IsRunning(); }

  void m_ShowDeleteProgressPopup();
  void m_SetUninstallProgress(int progress);
  void m_AfterUninstallCompleted();
  void m_Uninstall_end_function();
  void m_Uninstall_error_function();

  // ---- the service (CDeleteApps.cpp); any thread

  /// The applications that the next removal chooses from; those with `selected` set are removed. Not during a removal.
  void m_SetApps(std::vector<app_list_struct> apps);
  /// Whether the progress is on screen already.
  void m_SetStartFlag(bool started);
  /// 0 when a selected application is locked, else 1.
  int m_CheckIfAnyAppIsLocked() const;
  UninstallState m_GetState() const;

  /// How long a removal may give no sign of life before it is given up; ten minutes unless set.
  void m_SetPatience(std::chrono::milliseconds patience) { m_patience = patience; }

  /// Removes the selected applications and blocks until the service has ended, or gives up. False then, and when the
  /// service refused.
  bool m_UninstallAppThreadFn();
  /// Removes one application. Returns at once.
  void m_UninstallApp(const char* appId);

  /// The service's callback; `userData` is the object.
  static void uninstall_cb(const char* appId, was_notify_event_e event, int progress, int reserved, void* userData);

 private:
  CDeleteApps();

  // The service.
  bool m_awaitEnd();
  void m_changeRequests(int by);
  void m_onEvent(const std::string& appId, was_notify_event_e event, int progress, int reserved);
  void m_onStart(const std::string& appId);
  void m_onEnded(const std::string& appId, int error);

  // The popups.
  void m_AddQuestionButtons();
  std::string m_QuestionText(const std::vector<app_list_struct>& locked) const;
  void m_StartRemoval();
  void m_ShowState();
  void m_CloseProgress();
  void m_HideServiceQuestion();
  void m_Tell(bool answered);
  struct Failure {
    std::string appName;
    std::string reason;
  };
  void m_ShowFailures(const std::vector<Failure>& failures, const std::string& done);
  void m_OpenPopup(const std::string& title, const std::string& text);

  mutable std::mutex m_stateMutex;  ///< guards the applications and the state
  std::vector<app_list_struct> m_apps;
  UninstallState m_state;
  bool m_startFlag = false;

  std::mutex m_mutex;
  std::condition_variable m_condition;
  int m_requests = 0;     ///< to the service that have not ended
  unsigned m_events = 0;  ///< of the removal so far: a sign of life
  std::chrono::milliseconds m_patience = std::chrono::minutes(10);

  std::vector<app_list_struct> m_toDelete;  ///< what the question is about
  std::function<void(const std::string&)> m_onEnd;
  bool m_isServiceAsking = false;
  std::atomic<int64_t> m_freed{0};  ///< bytes, as the file system of the user partition says
  CWidget m_popup;                  ///< the question, or what failed
  CWidget m_progressPopup;
  CWidget m_name;
  CWidget m_count;
  CWidget m_bar;
  CScreenJob m_job;
};

}  // namespace QUVA
