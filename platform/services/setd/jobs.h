#pragma once
/// @file
/// Work beside the main loop.
///
/// Thread rule: everything on the main thread, with the GLib default main loop, but the work itself.

#include <atomic>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "c_handle.h"

namespace setd {

/// Told to long work: true when the daemon is to end.
using StopFlag = std::atomic<bool>;

/// Each has its own threads.
enum class Lane {
  kRequests,  ///< somebody waits for it
  kReports,   ///< gives way to all others
};

/// Runs jobs on a few threads, one for each key at a time. A job that fails is tried again after a pause that doubles
/// from one second to a minute.
class Jobs {
 public:
  using Work = std::function<bool(const StopFlag& stop)>;
  using Look = std::function<void()>;

  Jobs();
  /// Waits for the jobs that run, told to stop, without an end: see Stop(). None is called back afterwards.
  ~Jobs();
  Jobs(const Jobs&) = delete;
  Jobs& operator=(const Jobs&) = delete;

  /// Has `work` done on a thread, unless a job of the key runs. `look` is called on the main loop when it is done, as
  /// there may be more to do by then; when it failed (by returning false), after the pause.
  void Run(Lane lane, const std::string& key, Work work, Look look);

  /// Calls `look` after a while, unless a job of the key or this is under way.
  void LookLater(const std::string& key, unsigned milliseconds, Look look);

  /// Tells the jobs to stop, and begins none of those that wait. False when one still runs at `until`.
  bool Stop(std::chrono::steady_clock::time_point until);

  /// Whether nothing runs and nothing is waited for but pauses after failures.
  bool IsSettled() const;
  /// Jobs that have failed and wait to be tried again.
  size_t Failures() const;
  /// Called on the main loop whenever a job or wait has ended.
  void OnChange(Look changed) { m_changed = std::move(changed); }

 private:
  struct Entry {
    bool running = false;
    int failures = 0;
    unsigned timer = 0;
  };
  struct Ended {
    std::string key;
    bool done;
    Look look;
  };

  void Finish(const Ended& ended);
  void TakeEnded();

  std::map<std::string, Entry> m_entries;
  Look m_changed;
  StopFlag m_stop{false};
  FdHandle m_wake;
  unsigned m_source = 0;
  std::mutex m_lock;
  std::vector<Ended> m_ended;  // guarded by m_lock, as is:
  size_t m_given = 0;          // jobs that are run or wait for a thread
  std::condition_variable m_changes;
  boost::asio::thread_pool m_requests;
  boost::asio::thread_pool m_reports;
};

}  // namespace setd
