#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "AppRemoval.h"
#include "CScreen.h"
#include "CScreenJob.h"

namespace QUVA {

/// Deletes the selected applications through the web-application service: asks, shows how far it is, and tells what
/// came of it.
/// Thread rule: the popups belong to the main loop thread, m_UninstallAppThreadFn() to a worker, and the service's
/// events come on a thread of its own; what the user sees then changes inside a main-loop section.
class CDeleteApps final : private RemovalListener {
 public:
  /// Created on first use, never destroyed.
  static CDeleteApps* Instance();

  CDeleteApps(const CDeleteApps&) = delete;
  CDeleteApps& operator=(const CDeleteApps&) = delete;

  // ---- the popups

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

  // ---- the service (AppRemoval.h); any thread

  void m_SetApps(std::vector<app_list_struct> apps) { m_removal.SetApps(std::move(apps)); }
  void m_SetStartFlag(bool started) { m_removal.SetStartFlag(started); }
  /// 0 when a selected application is locked, else 1.
  int m_CheckIfAnyAppIsLocked() const { return m_removal.IsAnySelectedLocked() ? 0 : 1; }
  UninstallState m_GetState() const { return m_removal.GetState(); }
  void m_SetPatience(std::chrono::milliseconds patience) { m_removal.SetPatience(patience); }
  bool m_UninstallAppThreadFn() { return m_removal.RemoveSelected(); }
  void m_UninstallApp(const char* appId) { m_removal.Remove(appId); }
  /// What the service tells; `userData` is the object.
  static void uninstall_cb(const char* appId, was_notify_event_e event, int progress, int reserved, void* userData);

 private:
  CDeleteApps();

  void OnRemovalStarted() override;
  void OnRemovalProgress(int progress) override;
  void OnRemovalEnded() override;
  void OnQuestionClosed() override;

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

  AppRemoval m_removal{*this};
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
