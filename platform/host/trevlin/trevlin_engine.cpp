// Today the engine infers nothing by itself: it answers a subscription at once, from what the databases hold.

#include "trevlin_engine.h"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

#include "dlog.h"
#include "trevlin/trevlin_database.h"

namespace trevlin {

namespace {

constexpr char kTag[] = "TREVLIN";

class Engine {
 public:
  void Subscribe(InferenceCallback callback);

  /// Calls `operation` with the database while no other thread uses it.
  template <typename Operation>
  int WithDatabase(Operation operation) {
    const std::lock_guard lock(m_databaseMutex);
    return operation(m_database);
  }

 private:
  struct Subscription {
    unsigned int number;
    InferenceCallback callback;
  };

  void Run();
  void Answer(const Subscription& subscription);

  std::mutex m_queueMutex;
  std::condition_variable m_queued;
  std::deque<Subscription> m_queue;
  unsigned int m_subscriptions = 0;
  bool m_running = false;

  std::mutex m_databaseMutex;
  Database m_database{Database::Access::kReadWrite};
};

// Lives from CreateAPIInstance() to the end of the process: its thread may still answer while the process ends.
std::atomic<Engine*> g_engine{nullptr};

void Engine::Subscribe(InferenceCallback callback) {
  const std::lock_guard lock(m_queueMutex);
  if (!m_running) {
    std::thread(&Engine::Run, this).detach();
    m_running = true;
  }
  m_queue.push_back({m_subscriptions + 1, callback});
  ++m_subscriptions;
  m_queued.notify_one();
}

void Engine::Run() {
  pthread_setname_np(pthread_self(), "trevlin");
  for (;;) {
    std::unique_lock lock(m_queueMutex);
    m_queued.wait(lock, [this] { return !m_queue.empty(); });
    const Subscription next = m_queue.front();
    m_queue.pop_front();
    lock.unlock();
    Answer(next);
  }
}

// The database is free during the callback, which asks it for the answer.
void Engine::Answer(const Subscription& subscription) {
  const auto withDatabase = [this](void (Database::*operation)()) {
    const std::lock_guard lock(m_databaseMutex);
    (m_database.*operation)();
  };
  withDatabase(&Database::BeginRead);
  subscription.callback(subscription.number, DTSignalData{});
  withDatabase(&Database::EndRead);
}

// The interface is C's: what goes wrong is a result.
template <typename Operation>
int Guarded(int failure, Operation operation) noexcept {
  try {
    return operation();
  } catch (const std::exception& error) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the engine failed: %s", error.what());
    return failure;
  }
}

template <typename Operation>
int Query(Operation operation) noexcept {
  return Guarded(TREVLIN_ERROR_DATABASE, [&] {
    Engine* engine = g_engine.load(std::memory_order_acquire);
    return engine ? engine->WithDatabase(operation) : TREVLIN_ERROR_INVALID;
  });
}

}  // namespace

}  // namespace trevlin

using trevlin::Database;

int CreateAPIInstance() {
  return trevlin::Guarded(-1, [] {
    static trevlin::Engine* const engine = new trevlin::Engine;
    trevlin::g_engine.store(engine, std::memory_order_release);
    return 0;
  });
}

// Nothing is inferred that would have to be waited for.
int InferenceSubscribeOnce(unsigned long, InferenceCallback callback) {
  return trevlin::Guarded(-1, [&] {
    trevlin::Engine* engine = trevlin::g_engine.load(std::memory_order_acquire);
    if (!engine || !callback) return -1;
    engine->Subscribe(callback);
    return 0;
  });
}

int GetInferenceDB(int issueCode, int transitionType, std::vector<_DTInfDBRecord>* out) {
  if (!out) return TREVLIN_ERROR_INVALID;
  out->clear();
  if (transitionType != DT_TRANSITION_TYPE_FALSE && transitionType != DT_TRANSITION_TYPE_TRUE)
    return TREVLIN_ERROR_INVALID;
  return trevlin::Query([&](Database& database) { return database.Transitions(issueCode, transitionType, *out); });
}

int GetSolutionDB(int issueCode, _DTSolDBRecord* out) {
  if (!out) return TREVLIN_ERROR_INVALID;
  return trevlin::Query([&](Database& database) { return database.NewestSolution(issueCode, *out); });
}

int SetSolutionDB(const _DTSolDBRecord& record) {
  return trevlin::Query([&](Database& database) { return database.AddSolution(record); });
}
