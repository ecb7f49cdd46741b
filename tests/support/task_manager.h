#pragma once
/// @file
/// Answers size requests in the place of the task manager, for tests and benchmarks.

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"

/// Gives `answer` to each request `delay` after it came, however many come at once. Ends its thread when it goes.
class TaskManagerStandIn {
 public:
  TaskManagerStandIn(std::chrono::milliseconds delay, std::string answer)
      : m_delay(delay), m_answer(std::move(answer)), m_inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    inotify_add_watch(m_inotify.get(), SystemPath(set_paths::kTagerRequests).c_str(), IN_CLOSE_WRITE);
    m_thread = std::thread([this] { Run(); });
  }
  ~TaskManagerStandIn() {
    eventfd_write(m_stop.get(), 1);
    m_thread.join();
  }
  TaskManagerStandIn(const TaskManagerStandIn&) = delete;
  TaskManagerStandIn& operator=(const TaskManagerStandIn&) = delete;

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::string_view kRequest = "calcAppDataCacheSize_";

  void Run() {
    pollfd fds[] = {{m_inotify.get(), POLLIN, 0}, {m_stop.get(), POLLIN, 0}};
    while (fds[1].revents == 0) {
      for (; !m_due.empty() && m_due.front().first <= Clock::now(); m_due.pop_front()) Answer(m_due.front().second);
      const auto left = [this] {
        return std::chrono::ceil<std::chrono::milliseconds>(m_due.front().first - Clock::now()).count();
      };
      poll(fds, std::size(fds), m_due.empty() ? -1 : static_cast<int>(std::max<int64_t>(0, left())));
      Take();
    }
  }

  void Take() {
    alignas(inotify_event) char events[65536];
    const ssize_t size = read(m_inotify.get(), events, sizeof events);
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(events + at);
      const std::string_view name = event->len ? event->name : "";
      if (name.starts_with(kRequest)) m_due.emplace_back(Clock::now() + m_delay, name.substr(kRequest.size()));
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
  }

  void Answer(const std::string& appId) const {
    const std::string name = "/appDataCacheSize_" + appId;
    const std::string result = SystemPath(set_paths::kTager + name);
    std::ofstream(result + ".new") << m_answer;
    std::filesystem::rename(result + ".new", result);
    std::ofstream(SystemPath(set_paths::kTagerAnswers + name)).flush();
  }

  const std::chrono::milliseconds m_delay;
  const std::string m_answer;
  FdHandle m_inotify;
  FdHandle m_stop{eventfd(0, EFD_CLOEXEC)};
  std::deque<std::pair<Clock::time_point, std::string>> m_due;
  std::thread m_thread;
};
