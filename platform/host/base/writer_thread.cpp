#include "base/writer_thread.h"

#include <algorithm>
#include <system_error>

WriterThread& WriterThread::OfProcess() {
  static auto& thread = *new WriterThread;
  return thread;
}

WriterThread::Queue::Queue(WriterThread& thread) : m_thread(thread) {
  const std::lock_guard guard(thread.m_lock);
  thread.m_queues.push_back(this);
}

size_t WriterThread::Queue::Flush(std::chrono::milliseconds limit) {
  std::unique_lock lock(m_thread.m_lock);
  const size_t target = m_added;
  if (std::this_thread::get_id() != m_thread.m_id)
    m_thread.m_changed.wait_for(lock, limit, [&] { return m_done >= target; });
  return target - std::min(m_done, target);
}

size_t WriterThread::Flush(std::chrono::milliseconds limit) {
  std::vector<Queue*> queues;
  {
    const std::lock_guard guard(m_lock);
    queues = m_queues;
  }
  const auto end = std::chrono::steady_clock::now() + limit;
  size_t waiting = 0;
  for (Queue* queue : queues)
    waiting += queue->Flush(std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
  return waiting;
}

/// With the lock.
void WriterThread::Start() {
  m_changed.notify_all();
  if (m_id != std::thread::id()) return;
  try {
    std::thread thread([this] { Run(); });
    m_id = thread.get_id();
    thread.detach();
  } catch (const std::system_error&) {
    return;  // later, perhaps
  }
}

void WriterThread::Run() {
  std::unique_lock lock(m_lock);
  while (true) {
    m_changed.wait(lock, [&] { return std::ranges::any_of(m_queues, &Queue::HasWork); });
    // Meanwhile others may be added.
    for (size_t i = 0; i < m_queues.size(); ++i) {
      if (!m_queues[i]->HasWork()) continue;
      m_queues[i]->Work(lock);
      m_changed.notify_all();
    }
  }
}
