#include "setd/background_runs.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <exception>

#include "setd/background_solutions.h"
#include "setd/setd_log.h"
#include "trevlin/collectors/collectors.h"
#include "vconf.h"

namespace setd {

namespace {

constexpr char kPeriodKey[] = "db/trevlin/background_period";
constexpr int kPeriodSeconds = 300;
constexpr std::chrono::seconds kFirstPause{20};
constexpr std::chrono::seconds kLongestPause{86400};
constexpr int kNiceness = 10;

}  // namespace

BackgroundRuns::BackgroundRuns() : m_inference(trevlin::MakeCollectors()) {
  if (vconf_notify_key_changed(kPeriodKey, PeriodChanged, this) != 0)
    Log(DLOG_WARN, std::string(kPeriodKey) + ": changes are not noticed");
  ReadPeriod();
  m_thread = std::thread(&BackgroundRuns::Work, this);
}

BackgroundRuns::~BackgroundRuns() {
  vconf_ignore_key_changed(kPeriodKey, PeriodChanged);
  Stop(std::chrono::steady_clock::now());
  m_thread.join();
}

bool BackgroundRuns::Stop(std::chrono::steady_clock::time_point until) {
  m_inference.Stop();
  std::unique_lock guard(m_lock);
  m_end = true;
  m_changed.notify_all();
  return m_changed.wait_until(guard, until, [this] { return m_hasEnded; });
}

void BackgroundRuns::PeriodChanged(keynode_t*, void* self) {
  static_cast<BackgroundRuns*>(self)->ReadPeriod();
}

void BackgroundRuns::ReadPeriod() {
  int seconds = kPeriodSeconds;
  vconf_get_int(kPeriodKey, &seconds);
  const std::lock_guard guard(m_lock);
  m_period = std::chrono::seconds(std::clamp(seconds, 0, static_cast<int>(kLongestPause.count())));
  m_changed.notify_all();
}

void BackgroundRuns::Work() {
  pthread_setname_np(pthread_self(), "trevlin");
  // Of this thread and those that it starts.
  setpriority(PRIO_PROCESS, 0, kNiceness);
  for (auto pause = kFirstPause; WaitForNext(pause); pause = kLongestPause) {
    try {
      RunOnce();
    } catch (const std::exception& error) {
      Log(DLOG_ERROR, std::string("diagnosis in the background: ") + error.what());
    }
  }
  const std::lock_guard guard(m_lock);
  m_hasEnded = true;
  m_changed.notify_all();
}

// After the period, and `most` at most. False when there is no next.
bool BackgroundRuns::WaitForNext(std::chrono::seconds most) {
  const auto start = std::chrono::steady_clock::now();
  std::unique_lock guard(m_lock);
  for (;;) {
    if (m_end) return false;
    if (m_period.count() == 0) {
      m_changed.wait(guard);
    } else if (const auto until = start + std::min(m_period, most); std::chrono::steady_clock::now() >= until) {
      return true;
    } else {
      m_changed.wait_until(guard, until);
    }
  }
}

void BackgroundRuns::RunOnce() {
  if (!m_inference.HasRules()) return;
  std::vector<trevlin::Transition> changes;
  trevlin::Outcome outcome = m_inference.Run(trevlin::kLongestRun);
  if (trevlin::RecordOutcome(m_database, outcome, changes) == TREVLIN_OK) ApplyBackgroundSolutions(m_database, outcome);
}

}  // namespace setd
