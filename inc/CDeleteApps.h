#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "CGetData.h"

namespace QUVA {

/// How far a removal is.
struct UninstallState {
  std::string appName;       ///< of the application that is being removed
  int progress = 0;          ///< of it, 0 to 100
  int finished = 0;          ///< applications that were removed or could not be
  bool popupWanted = false;  ///< the progress is to be shown
};

/// Removes the selected applications through the web-application service.
/// Thread rule: m_UninstallAppThreadFn() belongs to a worker thread, the service's events come on its own; everything
/// that the user sees changes inside a main-loop section. The other operations are callable from any thread.
class CDeleteApps {
 public:
  /// Created on first use, never destroyed.
  static CDeleteApps* Instance();

  CDeleteApps(const CDeleteApps&) = delete;
  CDeleteApps& operator=(const CDeleteApps&) = delete;

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
  CDeleteApps() = default;

  bool m_awaitEnd();
  void m_changeRequests(int by);
  void m_onEvent(const std::string& appId, was_notify_event_e event, int progress, int reserved);
  void m_onStart(const std::string& appId);
  void m_AfterUninstallCompleted();
  void m_SetUninstallProgress(int progress);

  mutable std::mutex m_stateMutex;  ///< guards the applications and the state
  std::vector<app_list_struct> m_apps;
  UninstallState m_state;
  bool m_startFlag = false;

  std::mutex m_mutex;
  std::condition_variable m_condition;
  int m_requests = 0;     ///< to the service that have not ended
  unsigned m_events = 0;  ///< of the removal so far: a sign of life
  std::chrono::milliseconds m_patience = std::chrono::minutes(10);
};

}  // namespace QUVA
