#pragma once
/// @file
/// Writing for those who may wait for no disk and no lock.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <iterator>
#include <mutex>
#include <span>
#include <thread>
#include <utility>
#include <vector>

/// A thread, from the first item on, that serves its queues in turn, so that what is in one's way does not hold up the
/// others. Lives to the end of the process. A forked child has it without its thread, and is not to use it where its
/// parent did.
///
/// Thread rule: callable from any thread.
class WriterThread {
 public:
  class Queue {
   public:
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /// Waits until what was added before the call is done with, for `limit` at most; on the thread
    /// itself not at all. How much of it still waits.
    size_t Flush(std::chrono::milliseconds limit);

   protected:
    explicit Queue(WriterThread& thread);
    virtual ~Queue() = default;

    friend WriterThread;
    bool HasWork() const { return m_done < m_added; }
    /// Writes with the thread's lock open; it is locked before and afterwards.
    virtual void Work(std::unique_lock<std::mutex>& lock) = 0;

    WriterThread& m_thread;
    size_t m_added = 0;  ///< guarded by the thread's lock, as the next
    size_t m_done = 0;
  };

  WriterThread() = default;
  WriterThread(const WriterThread&) = delete;
  WriterThread& operator=(const WriterThread&) = delete;

  /// The one that writes for this process. It waits for no disk's sync (see disk_sync.h).
  static WriterThread& OfProcess();

  /// As Queue::Flush(), of all queues.
  size_t Flush(std::chrono::milliseconds limit);

 private:
  template <typename Item>
  friend class WriteQueue;

  void Start();
  void Run();

  std::mutex m_lock;
  std::condition_variable m_changed;
  std::vector<Queue*> m_queues;
  std::thread::id m_id;  ///< none before it runs
};

/// Items of one kind, which are written in the order in which they are given. Lives to the end of the process.
template <typename Item>
class WriteQueue final : public WriterThread::Queue {
 public:
  /// Called on the thread with all that waits, the oldest first. Returns how many of the first are done with, written
  /// or given up; the others are handed over again, with what has come meanwhile. Returns 0 only after it has waited
  /// for what is in the way, for a time that the other queues can wait.
  using Write = std::function<size_t(std::span<const Item> waiting)>;

  /// At most `bound` items wait.
  WriteQueue(WriterThread& thread, size_t bound, Write write)
      : Queue(thread), m_bound(bound), m_write(std::move(write)) {}

  /// Whether the bound is reached.
  bool IsFull() const {
    const std::lock_guard guard(m_thread.m_lock);
    return m_added - m_done >= m_bound;
  }

  /// Takes the item; false when the bound is reached. Never waits for the writing. Where no thread can be had the item
  /// waits for the next call, which tries again.
  bool Add(Item item) {
    const std::lock_guard guard(m_thread.m_lock);
    if (m_added - m_done >= m_bound) return false;
    m_incoming.push_back(std::move(item));
    ++m_added;
    m_thread.Start();
    return true;
  }

 private:
  void Work(std::unique_lock<std::mutex>& lock) override {
    std::move(m_incoming.begin(), m_incoming.end(), std::back_inserter(m_waiting));
    m_incoming.clear();
    lock.unlock();
    const size_t done = m_write(m_waiting);
    m_waiting.erase(m_waiting.begin(), m_waiting.begin() + static_cast<std::ptrdiff_t>(done));
    lock.lock();
    m_done += done;
  }

  const size_t m_bound;
  const Write m_write;
  std::vector<Item> m_incoming;  ///< guarded by the thread's lock
  std::vector<Item> m_waiting;   ///< the thread's own
};
