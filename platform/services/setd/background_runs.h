#pragma once
/// @file
/// Diagnoses in the background, so that an issue that comes and goes leaves its history.
///
/// Thread rule: the main thread, with the GLib default main loop.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "trevlin/inference.h"
#include "vconf.h"

namespace setd {

/// Runs the engine's rules, one run after the other, on one thread that gives way to all others. The settings key
/// "db/trevlin/background_period" has the seconds from the end of a run to the next (300 when it is not set, 0 for
/// none, a day at most); its changes count at once. The first run is 20 seconds after the start, or after the period
/// where that is shorter. Issues that the solution map marks "bg" are then solved.
class BackgroundRuns {
 public:
  BackgroundRuns();
  /// Ends a run that waits for facts. One that records is waited for, without an end: see Stop().
  ~BackgroundRuns();
  BackgroundRuns(const BackgroundRuns&) = delete;
  BackgroundRuns& operator=(const BackgroundRuns&) = delete;

  /// Begins no other run, and ends one that waits for facts. False when one that records still does at `until`.
  bool Stop(std::chrono::steady_clock::time_point until);

 private:
  static void PeriodChanged(keynode_t* key, void* self);
  void ReadPeriod();
  void Work();
  bool WaitForNext(std::chrono::seconds most);
  void RunOnce();

  trevlin::Inference m_inference;
  trevlin::Database m_database{trevlin::Database::Access::kReadWrite};
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::chrono::seconds m_period{0};  // guarded by m_lock, as is:
  bool m_end = false, m_hasEnded = false;
  std::thread m_thread;
};

}  // namespace setd
