#pragma once

#include <atomic>
#include <mutex>

namespace QUVA {

/// Which screen is showing.
enum _CurrentScreen {
  SCREEN_NONE = 0,
  SCREEN_HOME = 1,
  SCREEN_START_CARE = 2,
  SCREEN_SELF_DIAGNOSIS = 3,
  SCREEN_MANAGE_STORAGE = 4,
  SCREEN_ERROR_REPORT = 5,
};

/// The device data service: what the application knows of the set, and what it asks the set's services to do.
/// Thread rule: callable from any thread; what blocks says so and is kept off the main thread.
class CGetData {
 public:
  /// Created on first use, never destroyed.
  static CGetData* GetInstance();

  CGetData(const CGetData&) = delete;
  CGetData& operator=(const CGetData&) = delete;

  void m_SetCurrentScreen(_CurrentScreen screen) { m_currentScreen = screen; }
  _CurrentScreen m_GetCurrentScreen() const { return m_currentScreen; }

  /// Asks the task manager to end applications that nobody looks at. Does not wait for it.
  /// 0 when the request was left, -1 otherwise.
  int performMemBoost();
  /// Asks the task manager to clean every cache, and waits up to ten seconds for it.
  /// 0 when it has taken the request away, -1 otherwise.
  int performDeepClean();

 private:
  CGetData() = default;

  std::atomic<_CurrentScreen> m_currentScreen{SCREEN_NONE};
  static std::atomic<CGetData*> m_pInstance;
  static std::mutex m_TVDMmutex;
};

}  // namespace QUVA
