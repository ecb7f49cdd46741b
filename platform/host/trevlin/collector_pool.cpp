#include "trevlin/collector_pool.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>

#include "dlog.h"
#include "log_tags.h"

namespace trevlin {

namespace {

constexpr const char* kTag = log_tags::kTrevlin;
constexpr size_t kLongestThreadName = 15;

}  // namespace

std::string_view NameOf(Reading::State state) {
  constexpr std::string_view kNames[] = {"read", "reused", "cut off", "failed"};
  return kNames[static_cast<size_t>(state)];
}

/// A collector and its last call. All but the collector and its names is guarded by Shared::mutex.
struct CollectorPool::Slot {
  std::unique_ptr<Collector> collector{};
  Names gives{};
  bool running = false;
  bool failed = false;
  Clock::time_point started{};
  std::optional<Clock::time_point> finished{};
  trevlin::Facts facts{};

  bool IsGood(Clock::time_point now) const { return finished && !failed && now - *finished < collector->Period(); }
  std::chrono::microseconds Took(Clock::time_point now) const {
    if (started == Clock::time_point{}) return {};
    return std::chrono::duration_cast<std::chrono::microseconds>((running || !finished ? now : *finished) - started);
  }
};

/// What the pool and the threads of its collectors hold together; it goes with the last of them.
struct CollectorPool::Shared {
  Machine machine{};
  std::vector<Slot> slots{};
  std::mutex mutex{};
  std::condition_variable changed{};
  bool stopped = false;
};

CollectorPool::CollectorPool(std::vector<std::unique_ptr<Collector>> collectors, Machine machine)
    : m_shared(std::make_shared<Shared>()) {
  m_shared->machine = std::move(machine);
  for (std::unique_ptr<Collector>& collector : collectors) {
    Slot slot;
    for (const FactDescription& fact : collector->Describe()) {
      slot.gives.emplace(fact.name);
      m_facts.push_back({fact, collector->Name()});
    }
    slot.collector = std::move(collector);
    m_shared->slots.push_back(std::move(slot));
  }
}

CollectorPool::~CollectorPool() = default;

std::vector<Reading> CollectorPool::Read(const Names& wanted, Age age, std::chrono::microseconds wait,
                                         trevlin::Facts& facts) {
  const auto end = Clock::now() + wait;
  std::vector<Slot*> asked;
  std::vector<Reading> readings;
  std::unique_lock lock(m_shared->mutex);
  for (Slot& slot : m_shared->slots) {
    const auto isWanted = [&](const std::string& name) { return wanted.contains(name); };
    if (!std::any_of(slot.gives.begin(), slot.gives.end(), isWanted)) continue;
    const bool reused = !slot.running && age == Age::kWithinPeriod && slot.IsGood(Clock::now());
    asked.push_back(&slot);
    readings.push_back({.collector = std::string(slot.collector->Name()),
                        .state = reused ? Reading::State::kReused : Reading::State::kRead});
    if (!reused && !slot.running && !m_shared->stopped) Start(m_shared, slot);
  }
  for (size_t i = 0; i < asked.size(); ++i) {
    Slot& slot = *asked[i];
    const auto until = std::min<Clock::time_point>(end, slot.started + slot.collector->Deadline());
    m_shared->changed.wait_until(lock, until, [&] { return !slot.running || m_shared->stopped; });
    const bool done = !slot.running && slot.finished;
    if (!done) readings[i].state = Reading::State::kCutOff;
    if (slot.failed) readings[i].state = Reading::State::kFailed;
    readings[i].took = slot.Took(Clock::now());
    if (!done || slot.failed) continue;
    facts.insert(slot.facts.begin(), slot.facts.end());
    for (const std::string& name : slot.gives) facts.try_emplace(name, Absent{});
  }
  return readings;
}

void CollectorPool::Stop() {
  const std::lock_guard lock(m_shared->mutex);
  m_shared->stopped = true;
  m_shared->changed.notify_all();
}

// With the mutex held, which the new thread waits for.
void CollectorPool::Start(const std::shared_ptr<Shared>& shared, Slot& slot) {
  slot.started = Clock::now();
  slot.finished.reset();
  slot.failed = false;
  slot.facts.clear();
  try {
    std::thread([shared, &slot] { Call(*shared, slot); }).detach();
    slot.running = true;
  } catch (const std::exception& error) {
    slot.failed = true;
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "collector %s: %s", std::string(slot.collector->Name()).c_str(),
                 error.what());
  }
}

void CollectorPool::Call(Shared& shared, Slot& slot) {
  const std::string name(slot.collector->Name());
  pthread_setname_np(pthread_self(), ("fact " + name).substr(0, kLongestThreadName).c_str());
  trevlin::Facts facts;
  bool failed = false;
  try {
    slot.collector->Collect(shared.machine, facts);
  } catch (const std::exception& error) {
    failed = true;
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "collector %s: %s", name.c_str(), error.what());
  }
  const std::lock_guard lock(shared.mutex);
  slot.facts = std::move(facts);
  slot.failed = failed;
  slot.finished = Clock::now();
  slot.running = false;
  shared.changed.notify_all();
}

}  // namespace trevlin
