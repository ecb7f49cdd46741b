#include "setd/jobs.h"

#include <glib-unix.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <exception>
#include <system_error>

#include "setd/folder_watch.h"
#include "setd/setd_log.h"

namespace setd {

namespace {

// Of the long jobs (boost, deep clean …) only a few can run at once; the rest is for measuring.
constexpr unsigned kRequestThreads = 8, kReportThreads = 2;
constexpr int kReportNiceness = 10;
constexpr unsigned kFirstPauseMs = 1000, kLongestPauseMs = 60000;

}  // namespace

Jobs::Jobs() : m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_requests(kRequestThreads), m_reports(kReportThreads) {
  if (!m_wake) throw std::system_error(errno, std::generic_category(), "eventfd");
  m_source = g_unix_fd_add(
      m_wake.get(), G_IO_IN,
      [](int, GIOCondition, void* self) -> gboolean {
        static_cast<Jobs*>(self)->TakeEnded();
        return G_SOURCE_CONTINUE;
      },
      this);
}

Jobs::~Jobs() {
  m_stop = true;
  m_requests.join();
  m_reports.join();
  g_source_remove(m_source);
  for (const auto& [key, entry] : m_entries)
    if (entry.timer) g_source_remove(entry.timer);
}

bool Jobs::Stop(std::chrono::steady_clock::time_point until) {
  m_stop = true;
  std::unique_lock guard(m_lock);
  return m_changes.wait_until(guard, until, [this] { return m_given == 0; });
}

void Jobs::Run(Lane lane, const std::string& key, Work work, Look look) {
  Entry& entry = m_entries[key];
  if (entry.running) return;
  if (entry.timer) g_source_remove(entry.timer);
  entry.timer = 0;
  entry.running = true;
  {
    const std::lock_guard guard(m_lock);
    ++m_given;
  }
  boost::asio::post(lane == Lane::kReports ? m_reports : m_requests, [=, this] {
    // Of this thread, and the programs that it starts.
    if (lane == Lane::kReports) setpriority(PRIO_PROCESS, 0, kReportNiceness);
    bool done = false;
    try {
      done = !m_stop && work(m_stop);
    } catch (const std::exception& error) {
      Log(DLOG_ERROR, key + ": " + error.what());
    }
    const std::lock_guard guard(m_lock);
    m_ended.push_back({key, done, look});
    --m_given;
    m_changes.notify_all();
    eventfd_write(m_wake.get(), 1);
  });
}

void Jobs::LookLater(const std::string& key, unsigned milliseconds, Look look) {
  Entry& entry = m_entries[key];
  if (entry.running || entry.timer) return;
  entry.timer = AddTimer(milliseconds, [this, key, look = std::move(look)] {
    m_entries[key].timer = 0;
    look();
    const auto now = m_entries.find(key);
    if (now != m_entries.end() && !now->second.running && !now->second.timer) m_entries.erase(now);
    if (m_changed) m_changed();
  });
}

void Jobs::TakeEnded() {
  eventfd_t ignored;
  eventfd_read(m_wake.get(), &ignored);
  std::vector<Ended> ended;
  {
    const std::lock_guard guard(m_lock);
    ended.swap(m_ended);
  }
  for (const Ended& each : ended) Finish(each);
  if (m_changed) m_changed();
}

void Jobs::Finish(const Ended& ended) {
  Entry& entry = m_entries[ended.key];
  entry.running = false;
  if (ended.done) {
    m_entries.erase(ended.key);
    return ended.look();
  }
  const unsigned pause = std::min(kFirstPauseMs << std::min(entry.failures, 10), kLongestPauseMs);
  ++entry.failures;
  LookLater(ended.key, pause, ended.look);
}

bool Jobs::IsSettled() const {
  return std::all_of(m_entries.begin(), m_entries.end(),
                     [](const auto& each) { return !each.second.running && each.second.failures > 0; });
}

size_t Jobs::Failures() const {
  return static_cast<size_t>(
      std::count_if(m_entries.begin(), m_entries.end(), [](const auto& each) { return each.second.failures > 0; }));
}

}  // namespace setd
