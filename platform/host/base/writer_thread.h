#pragma once
/// @file
/// Writing for those who may wait for no disk and no lock.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <iterator>
#include <mutex>
#include <span>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

/// One thread, from the first item on, that writes in the order in which it is given. A forked child has the object
/// without its thread, and is not to use it where its parent did.
///
/// Thread rule: callable from any thread.
template <typename Item>
class WriterThread {
 public:
  /// Called on the thread with all that waits, the oldest first. Returns how many of the first are done with, written
  /// or given up; the others are handed over again, with what has come meanwhile. Returns 0 only after it has waited
  /// for what is in the way, for a bounded time.
  using Write = std::function<size_t(std::span<const Item> waiting)>;

  /// At most `bound` items wait.
  WriterThread(size_t bound, Write write) : m_bound(bound), m_write(std::move(write)) {}

  /// Waits for the call that is under way. What waits then is not written: see Flush().
  ~WriterThread() = default;
  WriterThread(const WriterThread&) = delete;
  WriterThread& operator=(const WriterThread&) = delete;

  /// Takes the item; false when the bound is reached. Never waits for the writing. Where no thread can be had the item
  /// waits for the next call, which tries again.
  bool Add(Item item) {
    const std::lock_guard guard(m_lock);
    if (m_added - m_done >= m_bound) return false;
    m_incoming.push_back(std::move(item));
    ++m_added;
    if (!m_thread.joinable()) Start();
    m_changed.notify_all();
    return true;
  }

  /// Waits until what was added before the call is done with, for `limit` at most. How much of it still waits.
  size_t Flush(std::chrono::milliseconds limit) {
    std::unique_lock lock(m_lock);
    const size_t target = m_added;
    m_changed.wait_for(lock, limit, [&] { return m_done >= target; });
    return target - std::min(m_done, target);
  }

 private:
  void Start() {
    try {
      m_thread = std::jthread([this](const std::stop_token& stop) { Run(stop); });
    } catch (const std::system_error&) {
      return;  // later, perhaps
    }
  }

  void Run(const std::stop_token& stop) {
    std::vector<Item> waiting;
    while (!stop.stop_requested()) {
      {
        std::unique_lock lock(m_lock);
        m_changed.wait(lock, stop, [&] { return !waiting.empty() || !m_incoming.empty(); });
        std::ranges::move(m_incoming, std::back_inserter(waiting));
        m_incoming.clear();
      }
      if (waiting.empty()) continue;
      const size_t done = m_write(waiting);
      waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(done));
      const std::lock_guard guard(m_lock);
      m_done += done;
      m_changed.notify_all();
    }
  }

  const size_t m_bound;
  const Write m_write;
  std::mutex m_lock;
  std::condition_variable_any m_changed;
  std::vector<Item> m_incoming;  ///< guarded by m_lock, as the two counts
  size_t m_added = 0;
  size_t m_done = 0;
  std::jthread m_thread;  ///< last: it uses all the others
};
