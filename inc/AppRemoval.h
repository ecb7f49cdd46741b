#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "CGetData.h"
#include "was_api.h"

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

/// Who follows a removal; called on the service's thread, when the state says it already.
class RemovalListener {
 public:
  virtual void OnRemovalStarted() = 0;  ///< of one application
  virtual void OnRemovalProgress(int progress) = 0;
  virtual void OnRemovalEnded() = 0;    ///< of one application, whether it was removed or not
  virtual void OnQuestionClosed() = 0;  ///< the service's own

 protected:
  ~RemovalListener() = default;
};

/// Removes applications through the web-application service. Thread rule: any thread.
class AppRemoval {
 public:
  /// The listener stays for as long as the process.
  explicit AppRemoval(RemovalListener& listener) : m_listener(listener) {}
  AppRemoval(const AppRemoval&) = delete;
  AppRemoval& operator=(const AppRemoval&) = delete;

  /// The applications that the next removal chooses from; those with `selected` set are removed. Not during a removal.
  void SetApps(std::vector<app_list_struct> apps);
  /// Whether the progress is on screen already.
  void SetStartFlag(bool started);
  bool GetStartFlag() const;
  bool IsAnySelectedLocked() const;
  UninstallState GetState() const;
  /// How long a removal may give no sign of life before it is given up; ten minutes unless set.
  void SetPatience(std::chrono::milliseconds patience) { m_patience = patience; }

  /// Removes the selected applications and blocks until the service has ended, or gives up. False then, and when the
  /// service refused.
  bool RemoveSelected();
  /// Removes one application. Returns at once.
  void Remove(const char* appId);

  /// What the service tells.
  void OnEvent(const std::string& appId, was_notify_event_e event, int progress, int reserved);

 private:
  static void m_onServiceEvent(const char* appId, was_notify_event_e event, int progress, int reserved, void* self);
  bool m_awaitEnd();
  void m_changeRequests(int by);
  void m_onStart(const std::string& appId);
  void m_onProgress(int progress);
  void m_onEnded(const std::string& appId, int error);

  RemovalListener& m_listener;
  mutable std::mutex m_stateMutex;  ///< guards the three below
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
