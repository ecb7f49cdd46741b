#include "ui/fast_clock.h"

#include <Ecore.h>
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>

namespace {

using std::chrono::nanoseconds;

constexpr nanoseconds kMoment = std::chrono::microseconds(200);  // real; those who sleep look at the clock so often

std::atomic<int64_t> g_skipped{0};  // nanoseconds
std::mutex g_mutex;
// When those who sleep are to wake up. Never destroyed: threads may outlive main().
auto& g_due = *new std::multiset<nanoseconds>;

nanoseconds Of(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

timespec ToTimespec(nanoseconds time) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  return {static_cast<time_t>(whole.count()), static_cast<long>((time - whole).count())};
}

nanoseconds RealNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return Of(now);
}

nanoseconds Now() {
  return RealNow() + nanoseconds(g_skipped);
}

/// That the calling thread sleeps, until a time at the latest.
class Sleep {
 public:
  explicit Sleep(nanoseconds until) {
    const std::lock_guard lock(g_mutex);
    m_due = g_due.insert(until);
  }
  ~Sleep() {
    const std::lock_guard lock(g_mutex);
    g_due.erase(m_due);
  }
  Sleep(const Sleep&) = delete;
  Sleep& operator=(const Sleep&) = delete;

  bool IsOver() const { return *m_due <= Now(); }
  /// What may pass before it looks again.
  nanoseconds Moment() const { return std::clamp(*m_due - Now(), nanoseconds(0), kMoment); }

 private:
  std::multiset<nanoseconds>::iterator m_due;
};

int PollFor(pollfd* fds, nfds_t count, nanoseconds limit) {
  const timespec time = ToTimespec(limit);
  return ppoll(fds, count, &time, nullptr);
}

/// Whether each thread but this one waits for something.
bool AllOthersSleep() {
  const std::string self = std::to_string(gettid());
  return std::ranges::all_of(std::filesystem::directory_iterator("/proc/self/task"), [&](const auto& task) {
    if (task.path().filename() == self) return true;
    std::ifstream file(task.path() / "stat");
    std::string stat;
    std::getline(file, stat);
    return stat.empty() || stat.compare(stat.rfind(')'), 3, ") S") == 0;
  });
}

bool SkipNow(nanoseconds most) {
  if (!AllOthersSleep()) return false;
  const std::lock_guard lock(g_mutex);
  const nanoseconds step = g_due.empty() ? most : std::min(most, *g_due.begin() - Now());
  if (step > nanoseconds(0)) g_skipped += step.count();
  return step > nanoseconds(0);
}

}  // namespace

void fast_clock::Skip(nanoseconds most) {
  if (!SkipNow(most)) PollFor(nullptr, 0, kMoment);
}

// ---- in the place of the libraries'

double ecore_time_get() {
  return std::chrono::duration<double>(Now()).count();
}

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
  return time_point(Now());
}

extern "C" int nanosleep(const timespec* length, timespec*) {
  for (const Sleep sleep(Now() + Of(*length)); !sleep.IsOver();) PollFor(nullptr, 0, sleep.Moment());
  return 0;
}

extern "C" int poll(pollfd* fds, nfds_t count, int milliseconds) {
  if (milliseconds < 0) return ppoll(fds, count, nullptr, nullptr);
  for (const Sleep sleep(Now() + std::chrono::milliseconds(milliseconds));;) {
    const bool isLast = sleep.IsOver();
    const int ready = PollFor(fds, count, sleep.Moment());
    if (ready != 0 || isLast) return ready;
  }
}

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                      const timespec* until) {
  static const auto wait = reinterpret_cast<decltype(&pthread_cond_clockwait)>(dlsym(RTLD_NEXT, __func__));
  if (clock != CLOCK_MONOTONIC) return wait(condition, mutex, clock, until);
  const Sleep sleep(Of(*until));
  const timespec moment = ToTimespec(RealNow() + sleep.Moment());
  const int result = wait(condition, mutex, clock, &moment);
  return result == ETIMEDOUT && !sleep.IsOver() ? 0 : result;  // it may wake up for nothing
}
