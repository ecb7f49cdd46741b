#include "trevlin_engine.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "dlog.h"
#include "log_tags.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/inference.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

namespace trevlin {

namespace {

constexpr const char* kTag = log_tags::kTrevlin;

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

// What recording may take when another process has the database locked.
constexpr microseconds kRecordingShare{2500000};
// Longer waits are of no use, and must not overflow.
constexpr unsigned long kLongestWait = 3600000000;

// As long as the collector with the longest deadline. A subscriber may wait meanwhile, and still has its run then.
constexpr microseconds kLongestRecheck{6000000};
constexpr char kRecheckDelayKey[] = "db/trevlin/recheck_delay";
constexpr int kRecheckDelaySeconds = 10;

class Engine {
 public:
  void Subscribe(unsigned long wait, InferenceCallback callback);
  void Recheck(int issueCode);
  /// Waits for the engine's thread.
  std::string About(int issueCode);
  bool HasFailed() const { return m_hasFailed; }

  /// Calls `operation` with the database while no other thread uses it.
  template <typename Operation>
  int WithDatabase(Operation operation) {
    const std::lock_guard lock(m_databaseMutex);
    return operation(m_database);
  }

  /// What GetInferenceDB() gives.
  int Transitions(int issueCode, int type, std::vector<_DTInfDBRecord>& out);

 private:
  struct Subscription {
    unsigned int number;
    Clock::time_point until;
    InferenceCallback callback;
  };

  /// What an issue is about.
  struct Question {
    int issueCode;
    std::promise<std::string> answer;
  };

  /// What there is to do next, in the order of doing.
  struct Work {
    std::deque<Subscription> subscriptions;
    std::optional<Question> question;
    std::optional<int> recheck;
  };

  void StartThread();
  void Run();
  Work NextWork();
  bool TakeWork(Work& work);
  std::map<int, Clock::time_point>::iterator NextRecheck();
  void Infer(const std::deque<Subscription>& subscriptions);
  void Record(Outcome outcome, std::vector<Transition>& changes, std::chrono::seconds settled);
  void KeepUnrecorded(const Outcome& outcome);
  void Answer(const Subscription& subscription);
  void RecheckNow(int issueCode);
  std::string AboutNow(int issueCode);
  Inference& Inferring();

  std::mutex m_queueMutex;
  std::condition_variable m_queued;
  std::deque<Subscription> m_queue;
  std::deque<Question> m_questions;
  std::map<int, Clock::time_point> m_rechecks;
  unsigned int m_subscriptions = 0;
  bool m_running = false;

  std::mutex m_databaseMutex;
  Database m_database{Database::Access::kReadWrite};
  // What runs have found since the database last took it, by issue code. Guarded by m_databaseMutex.
  std::map<int, Transition> m_unrecorded;

  std::atomic<bool> m_hasFailed{false};
  std::unique_ptr<Inference> m_inference;  // of the engine's thread
};

// Lives from CreateAPIInstance() to the end of the process: its thread may still answer while the process ends.
std::atomic<Engine*> g_engine{nullptr};

// What fails on the engine's thread must not end it.
template <typename Operation>
void Attempt(const char* doing, Operation operation) {
  try {
    operation();
  } catch (const std::exception& error) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s failed: %s", doing, error.what());
  }
}

// With the queue locked.
void Engine::StartThread() {
  if (m_running) return;
  std::thread(&Engine::Run, this).detach();
  m_running = true;
}

void Engine::Subscribe(unsigned long wait, InferenceCallback callback) {
  const std::lock_guard lock(m_queueMutex);
  StartThread();
  const auto until = Clock::now() + microseconds(std::min(wait, kLongestWait));
  m_queue.push_back({m_subscriptions + 1, until, callback});
  ++m_subscriptions;
  m_queued.notify_one();
}

void Engine::Recheck(int issueCode) {
  int delay = kRecheckDelaySeconds;
  vconf_get_int(kRecheckDelayKey, &delay);
  const std::lock_guard lock(m_queueMutex);
  StartThread();
  m_rechecks[issueCode] = Clock::now() + std::chrono::seconds(std::max(delay, 0));
  m_queued.notify_one();
}

std::string Engine::About(int issueCode) {
  std::future<std::string> answer;
  {
    const std::lock_guard lock(m_queueMutex);
    StartThread();
    answer = m_questions.emplace_back(Question{issueCode, {}}).answer.get_future();
    m_queued.notify_one();
  }
  return answer.get();
}

void Engine::Run() {
  pthread_setname_np(pthread_self(), "trevlin");
  for (;;) {
    Work work = NextWork();
    if (!work.subscriptions.empty()) Attempt("the inference", [&] { Infer(work.subscriptions); });
    for (const Subscription& subscription : work.subscriptions) Attempt("a callback", [&] { Answer(subscription); });
    if (work.recheck) Attempt("the second look", [&] { RecheckNow(*work.recheck); });
    if (work.question)
      Attempt("a question", [&] { work.question->answer.set_value(AboutNow(work.question->issueCode)); });
  }
}

Engine::Work Engine::NextWork() {
  Work work;
  std::unique_lock lock(m_queueMutex);
  while (!TakeWork(work)) {
    if (m_rechecks.empty())
      m_queued.wait(lock);
    else
      m_queued.wait_until(lock, Clock::time_point(NextRecheck()->second));
  }
  return work;
}

std::map<int, Clock::time_point>::iterator Engine::NextRecheck() {
  return std::min_element(m_rechecks.begin(), m_rechecks.end(),
                          [](const auto& a, const auto& b) { return a.second < b.second; });
}

// One second look and one question at a time: a subscriber does not wait for more.
bool Engine::TakeWork(Work& work) {
  work.subscriptions.swap(m_queue);
  if (!m_questions.empty()) {
    work.question = std::move(m_questions.front());
    m_questions.pop_front();
  }
  if (const auto next = NextRecheck(); next != m_rechecks.end() && next->second <= Clock::now()) {
    work.recheck = next->first;
    m_rechecks.erase(next);
  }
  return !work.subscriptions.empty() || work.question || work.recheck;
}

Inference& Engine::Inferring() {
  if (!m_inference) m_inference = std::make_unique<Inference>(MakeCollectors());
  return *m_inference;
}

void Engine::Infer(const std::deque<Subscription>& subscriptions) {
  bool hasRules = false;
  try {
    hasRules = Inferring().HasRules();
  } catch (...) {
    m_hasFailed = true;
    throw;
  }
  m_hasFailed = Inferring().IsWithoutRules();
  if (!hasRules) return;
  const auto first = std::min_element(subscriptions.begin(), subscriptions.end(),
                                      [](const auto& a, const auto& b) { return a.until < b.until; });
  const auto wait = std::max(microseconds(0), std::chrono::duration_cast<microseconds>(first->until - Clock::now()));
  const Outcome outcome = Inferring().Run(std::max(wait - kRecordingShare, wait / 2));
  std::vector<Transition> changes;
  Record(outcome, changes, kSolutionTime);
  __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "inferred in %lld ms: %zu issues changed",
               static_cast<long long>(outcome.took.count() / 1000), changes.size());
}

// A full disk must not hide what is found on it.
void Engine::Record(Outcome outcome, std::vector<Transition>& changes, std::chrono::seconds settled) {
  const std::lock_guard lock(m_databaseMutex);
  for (const auto& [code, kept] : m_unrecorded)
    if (std::none_of(outcome.issues.begin(), outcome.issues.end(),
                     [code = code](const IssueTruth& issue) { return issue.issueCode == code; }))
      outcome.issues.push_back({code, kept.type == DT_TRANSITION_TYPE_TRUE});
  if (RecordOutcome(m_database, outcome, changes, settled) == TREVLIN_OK)
    m_unrecorded.clear();
  else
    KeepUnrecorded(outcome);
}

void Engine::KeepUnrecorded(const Outcome& outcome) {
  std::string trueOnes;
  for (const auto& [code, isTrue] : outcome.issues) {
    const int type = isTrue ? DT_TRANSITION_TYPE_TRUE : DT_TRANSITION_TYPE_FALSE;
    Transition& kept = m_unrecorded[code];
    if (kept.time.empty() || kept.type != type) kept = {.time = CurrentTime(), .issueCode = code, .type = type};
    if (isTrue) trueOnes.append(trueOnes.empty() ? "" : ", ").append(std::to_string(code));
  }
  __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag,
               "what was found could not be recorded; it is kept in memory until it can be, issues that are there: %s",
               trueOnes.empty() ? "none" : trueOnes.c_str());
}

int Engine::Transitions(int issueCode, int type, std::vector<_DTInfDBRecord>& out) {
  const std::lock_guard lock(m_databaseMutex);
  const int result = m_database.Transitions(issueCode, type, out);
  const auto kept = m_unrecorded.find(issueCode);
  if (kept == m_unrecorded.end() || kept->second.type != type) return result;
  std::vector<Transition> news;
  const bool isTrue = type == DT_TRANSITION_TYPE_TRUE;
  if (m_database.FindChanges({{issueCode, isTrue}}, kept->second.time, news) == TREVLIN_ERROR_DATABASE)
    news = {kept->second};
  for (const Transition& each : news) out.insert(out.begin(), {issueCode, type, 0, "", each.time});
  return news.empty() ? result : TREVLIN_OK;
}

// The database is free during the callback, which asks it for the answer.
void Engine::Answer(const Subscription& subscription) {
  struct Reading {
    Engine& engine;
    explicit Reading(Engine& of) : engine(of) {
      const std::lock_guard lock(engine.m_databaseMutex);
      engine.m_database.BeginRead();
    }
    ~Reading() {
      const std::lock_guard lock(engine.m_databaseMutex);
      engine.m_database.EndRead();
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
  };
  const Reading reading(*this);
  subscription.callback(subscription.number, DTSignalData{});
}

void Engine::RecheckNow(int issueCode) {
  if (!Inferring().HasRules()) return;
  const Outcome outcome = Inferring().Recheck(issueCode, kLongestRecheck);
  std::vector<Transition> changes;
  Record(outcome, changes, std::chrono::seconds(0));
  for (const IssueTruth& issue : outcome.issues)
    __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "after its solution issue %d is %s", issue.issueCode,
                 issue.isTrue ? "still there" : "gone");
}

std::string Engine::AboutNow(int issueCode) {
  return Inferring().HasRules() ? Inferring().About(issueCode, kLongestRecheck) : "";
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
    return engine ? operation(*engine) : TREVLIN_ERROR_INVALID;
  });
}

}  // namespace

}  // namespace trevlin

using trevlin::Database;
using trevlin::Engine;

int CreateAPIInstance() {
  return trevlin::Guarded(-1, [] {
    static trevlin::Engine* const engine = new trevlin::Engine;
    trevlin::g_engine.store(engine, std::memory_order_release);
    return 0;
  });
}

int InferenceSubscribeOnce(unsigned long wait, InferenceCallback callback) {
  return trevlin::Guarded(-1, [&] {
    trevlin::Engine* engine = trevlin::g_engine.load(std::memory_order_acquire);
    if (!engine || !callback) return -1;
    engine->Subscribe(wait, callback);
    return 0;
  });
}

int RecheckIssue(int issueCode) {
  return trevlin::Guarded(-1, [&] {
    trevlin::Engine* engine = trevlin::g_engine.load(std::memory_order_acquire);
    if (!engine || issueCode < 1) return -1;
    engine->Recheck(issueCode);
    return 0;
  });
}

bool HasInferenceFailed() {
  const trevlin::Engine* engine = trevlin::g_engine.load(std::memory_order_acquire);
  return engine && engine->HasFailed();
}

int GetIssueSubject(int issueCode, std::string* out) {
  if (!out) return TREVLIN_ERROR_INVALID;
  return trevlin::Guarded(TREVLIN_ERROR_INVALID, [&] {
    trevlin::Engine* engine = trevlin::g_engine.load(std::memory_order_acquire);
    if (!engine) return TREVLIN_ERROR_INVALID;
    *out = engine->About(issueCode);
    return out->empty() ? TREVLIN_NO_MATCH : TREVLIN_OK;
  });
}

int GetInferenceDB(int issueCode, int transitionType, std::vector<_DTInfDBRecord>* out) {
  if (!out) return TREVLIN_ERROR_INVALID;
  out->clear();
  if (transitionType != DT_TRANSITION_TYPE_FALSE && transitionType != DT_TRANSITION_TYPE_TRUE)
    return TREVLIN_ERROR_INVALID;
  return trevlin::Query([&](Engine& engine) { return engine.Transitions(issueCode, transitionType, *out); });
}

int GetSolutionDB(int issueCode, _DTSolDBRecord* out) {
  if (!out) return TREVLIN_ERROR_INVALID;
  return trevlin::Query([&](Engine& engine) {
    return engine.WithDatabase([&](Database& database) { return database.NewestSolution(issueCode, *out); });
  });
}

int SetSolutionDB(const _DTSolDBRecord& record) {
  return trevlin::Query([&](Engine& engine) {
    return engine.WithDatabase([&](Database& database) { return database.AddSolution(record); });
  });
}
