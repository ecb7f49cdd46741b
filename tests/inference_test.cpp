// A run of the engine: collectors and their deadlines, histories, what is recorded, and how subscribers are answered.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <thread>

#include "base/sqlite_handle.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/inference.h"
#include "trevlin/rule_histories.h"
#include "trevlin_engine.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace trevlin;
using Age = CollectorPool::Age;

/// What a fake collector does; it outlives the test's pool, as a collector that was cut off does.
struct Script {
  std::atomic<int> calls{0};
  std::atomic<int> ended{0};
  std::atomic<bool> blocks{false};
  std::atomic<bool> throws{false};
  std::atomic<double> value{1};
};

class Fake : public Collector {
 public:
  Fake(const char* name, std::shared_ptr<Script> script, std::chrono::milliseconds deadline = 10s,
       std::chrono::milliseconds period = 0ms)
      : m_name(name), m_script(std::move(script)), m_deadline(deadline), m_period(period) {}
  std::string_view Name() const override { return m_name; }
  std::vector<FactDescription> Describe() const override { return {{m_name, FactKind::kNumber, "", "fake"}}; }
  std::chrono::milliseconds Period() const override { return m_period; }
  std::chrono::milliseconds Deadline() const override { return m_deadline; }
  void Collect(const Machine&, Facts& facts) override {
    ++m_script->calls;
    while (m_script->blocks) usleep(1000);
    facts[m_text] = m_script->value.load();
    ++m_script->ended;
    if (m_script->throws) throw std::runtime_error("out of order");
  }

 private:
  const char* m_name;
  const std::string m_text{m_name};  // freed with the collector
  std::shared_ptr<Script> m_script;
  std::chrono::milliseconds m_deadline, m_period;
};

template <typename... Collectors>
std::vector<std::unique_ptr<Collector>> Of(Collectors... collectors) {
  std::vector<std::unique_ptr<Collector>> all;
  (all.push_back(std::make_unique<Fake>(std::move(collectors))), ...);
  return all;
}

bool Comes(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (!condition() && std::chrono::steady_clock::now() < end) usleep(1000);
  return condition();
}

void WriteRules(const std::string& rules) {
  const std::string path = SystemPath(set_paths::kRules);
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << "{\"version\": 1, \"rules\": [" << rules << "]}";
}

std::string RuleFor(int code, const std::string& fact, const std::string& more = "") {
  return "{\"code\": " + std::to_string(code) + R"(, "group": "memory", "when": {"fact": ")" + fact +
         R"(", "is": "==", "value": 1})" + more + "}";
}

constexpr char kSettingFact[] = "setting:db/test/trouble";
constexpr char kSettingKey[] = "db/test/trouble";

/// "17=T 18=F"
std::string Decided(const Outcome& outcome) {
  std::string text;
  for (const IssueTruth& issue : outcome.issues)
    text += (text.empty() ? "" : " ") + std::to_string(issue.issueCode) + (issue.isTrue ? "=T" : "=F");
  return text;
}

SqliteDb OpenInference() {
  sqlite3* db = nullptr;
  sqlite3_open(SystemPath(set_paths::kInferenceDb).c_str(), &db);
  return SqliteDb(db);
}

/// The rows of an issue, "TIME TR", oldest first.
std::vector<std::string> Rows(int code, const char* registered = "") {
  Database database(Database::Access::kReadOnly);
  std::vector<Transition> all;
  database.AllTransitions(all);
  std::vector<std::string> rows;
  for (const Transition& each : all) {
    if (each.issueCode != code) continue;
    rows.push_back(each.time + " " + std::to_string(each.type));
    if (*registered) {
      EXPECT_EQ(each.registerTime, registered);
    }
  }
  return rows;
}

int RecordTruth(int code, bool isTrue, const std::string& time, size_t keep = 100) {
  Database database(Database::Access::kReadWrite);
  std::vector<Transition> added;
  return database.RecordTruths({{code, isTrue}}, time, keep, added);
}

std::string LogText() {
  std::ifstream log(SystemPath(set_paths::kLogFile));
  return {std::istreambuf_iterator<char>(log), {}};
}

TEST(CollectorPool, CutsOffWhatOverrunsAndDoesNotCallItTwice) {
  const auto slow = std::make_shared<Script>(), quick = std::make_shared<Script>();
  slow->blocks = true;
  auto pool = std::make_unique<CollectorPool>(
      Of(Fake("slow", slow, 30ms, 1h), Fake("quick", quick), Fake("unasked", slow)), Machine{});
  for (int run = 0; run < 2; ++run) {
    Facts facts;
    const auto readings = pool->Read({"slow", "quick"}, Age::kWithinPeriod, 10s, facts);
    ASSERT_EQ(readings.size(), 2u);
    EXPECT_EQ(readings[0].state, Reading::State::kCutOff);
    EXPECT_GE(readings[0].took, 30ms);
    EXPECT_EQ(readings[1].state, Reading::State::kRead);
    EXPECT_EQ(facts, (Facts{{"quick", 1.0}}));
  }
  EXPECT_EQ(slow->calls, 1);
  EXPECT_EQ(quick->calls, 2);
  // Once it is done its facts count.
  slow->blocks = false;
  Facts facts;
  EXPECT_TRUE(Comes([&] {
    pool->Read({"slow"}, Age::kWithinPeriod, 10s, facts);
    return !facts.empty();
  }));
  EXPECT_EQ(slow->calls, 1);
  // One that is cut off outlives the pool.
  slow->blocks = true;
  pool->Read({"slow"}, Age::kFresh, 0us, facts);
  pool.reset();
  slow->blocks = false;
  EXPECT_TRUE(Comes([&] { return slow->ended == 2; }));
}

TEST(CollectorPool, ReadsAnewWhatIsOldOrFailed) {
  const auto script = std::make_shared<Script>();
  CollectorPool pool(Of(Fake("a", script, 10s, 1h)), Machine{});
  using State = Reading::State;
  const std::tuple<Age, bool, State, int> steps[] = {{Age::kWithinPeriod, false, State::kRead, 1},
                                                     {Age::kWithinPeriod, false, State::kReused, 1},
                                                     {Age::kFresh, false, State::kRead, 2},
                                                     {Age::kFresh, true, State::kFailed, 3},
                                                     {Age::kWithinPeriod, false, State::kRead, 4}};
  for (const auto& [age, throws, state, calls] : steps) {
    script->throws = throws;
    Facts facts;
    EXPECT_EQ(pool.Read({"a"}, age, 10s, facts)[0].state, state) << calls;
    EXPECT_EQ(facts.size(), throws ? 0u : 1u);
    EXPECT_EQ(script->calls, calls);
  }
}

TEST(CollectorPool, IsStoppedFromAnotherThread) {
  const auto script = std::make_shared<Script>();
  script->blocks = true;
  CollectorPool pool(Of(Fake("a", script, 1h)), Machine{});
  std::thread stopper([&] {
    Comes([&] { return script->calls == 1; });
    pool.Stop();
  });
  Facts facts;
  EXPECT_EQ(pool.Read({"a"}, Age::kFresh, 1h, facts)[0].state, Reading::State::kCutOff);
  stopper.join();
  script->blocks = false;
}

TEST(Inference, DecidesOnCollectorsAndSettingsAndLeavesTheUnknown) {
  WriteRules(RuleFor(17, "a") + "," + RuleFor(18, kSettingFact) + "," + RuleFor(19, "late") + "," +
             RuleFor(20, "none") + "," + RuleFor(21, "a", ", \"event\": true"));
  const auto script = std::make_shared<Script>(), late = std::make_shared<Script>();
  late->blocks = true;
  Inference inference(Of(Fake("a", script), Fake("late", late, 20ms)));
  setenv("VEXILO_LOG_TARGET", "file", 1);
  ASSERT_TRUE(inference.HasRules());
  ASSERT_TRUE(inference.HasRules());
  const std::string log = LogText();
  const size_t line = log.find("rules.json:1:");
  EXPECT_NE(log.find("unknown fact \"none\""), std::string::npos) << log;
  EXPECT_EQ(log.find("rules.json:1:", line + 1), std::string::npos) << "said once";
  Outcome outcome = inference.Run(10s);
  EXPECT_EQ(Decided(outcome), "17=T 21=T");
  EXPECT_EQ(outcome.remaining, std::vector<int>{17}) << "an event is over";
  EXPECT_EQ(Decided(inference.Recheck(21, 10s)), "");
  vconf_set_dbl(kSettingKey, 1);
  script->value = 2;
  EXPECT_EQ(Decided(inference.Run(10s)), "17=F 18=T 21=F");
  vconf_set_bool(kSettingKey, 1);
  EXPECT_EQ(Decided(inference.Run(10s)), "17=F 21=F");
  EXPECT_EQ(Decided(inference.Recheck(17, 10s)), "17=F");
  EXPECT_EQ(Decided(inference.Recheck(99, 10s)), "");
  late->blocks = false;
  fs::remove(SystemPath(set_paths::kRules));
  EXPECT_FALSE(inference.HasRules());
}

TEST(Inference, HistoriesAreSharedByProcessesAndOfThisStartOnly) {
  WriteRules(RuleFor(17, kSettingFact, ", \"for\": {\"seconds\": 60}"));
  vconf_set_int(kSettingKey, 1);
  const auto run = [] {
    Inference another({});
    another.HasRules();
    return Decided(another.Run(10s));
  };
  EXPECT_EQ(run(), "");
  ChangeHistories([](Histories& histories) {
    ASSERT_TRUE(histories.contains(17));
    EXPECT_NEAR(histories[17].since, SecondsSinceStart(), 30);
    histories[17].since -= 60;
  });
  EXPECT_EQ(run(), "17=T");
  const std::string path = SystemPath(set_paths::kRuleHistories);
  std::ifstream file(path);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  const size_t boot = text.find("\"boot\":\"") + 8;
  for (const std::string& other :
       {text.substr(0, boot) + "x" + text.substr(boot), std::string("no JSON"), std::string("[]"),
        std::string(R"({"boot":)" + text.substr(boot - 1, 38) + R"(,"issues":{"17":{"since":"x"}}})")}) {
    std::ofstream(path) << other;
    EXPECT_EQ(run(), "") << other;
  }
  vconf_set_int(kSettingKey, 0);
  EXPECT_EQ(run(), "17=F");
  ChangeHistories([](Histories& histories) { EXPECT_TRUE(histories.empty()); });
}

TEST(Recording, AddsARowWhereTheTruthIsAnotherAndAlwaysALaterOne) {
  struct Case {
    const char* name;
    std::vector<std::pair<int, const char*>> before;
    bool truth;
    const char* added;
  };
  const Case cases[] = {
      {"no row, false", {}, false, ""},
      {"no row, true", {}, true, "2024-06-01T12:00:00 1"},
      {"the same", {{1, "2024-03-07T09:05:00"}}, true, ""},
      {"another", {{1, "2024-03-07T09:05:00"}}, false, "2024-06-01T12:00:00 0"},
      {"the newest counts", {{1, "2024-03-07T09:05:00"}, {0, "2024-03-06T00:00:00"}}, true, ""},
      {"of equal times true", {{1, "2024-03-07T09:05:00"}, {0, "2024-03-07T09:05:00"}}, true, ""},
      {"the same second", {{1, "2024-06-01T12:00:00"}}, false, "2024-06-01T12:00:01 0"},
      {"a clock that went back", {{1, "2024-12-31T23:59:59"}}, false, "2025-01-01T00:00:00 0"},
  };
  int code = 1;
  for (const Case& each : cases) {
    ++code;
    std::vector<std::string> rows;
    Database database(Database::Access::kReadWrite);
    for (const auto& [type, time] : each.before) {
      ASSERT_EQ(database.AddTransition({.time = time, .issueCode = code, .type = type}), TREVLIN_OK);
    }
    const size_t before = Rows(code).size();
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(RecordTruth(code, each.truth, "2024-06-01T12:00:00"), TREVLIN_OK);
    rows = Rows(code, each.before.empty() ? "" : each.before[0].second);
    EXPECT_EQ(rows.size() - before, *each.added ? 1u : 0u) << each.name;
    if (*each.added) {
      EXPECT_EQ(rows.back(), each.added) << each.name;
    }
  }
}

TEST(Recording, KeepsTheNewestRowsOfEachIssueItAddsTo) {
  Database database(Database::Access::kReadWrite);
  for (const int code : {17, 18})
    for (int day = 1; day <= 9; ++day)
      database.AddTransition(
          {.time = "2024-03-0" + std::to_string(day) + "T00:00:00", .issueCode = code, .type = day % 2});
  EXPECT_EQ(RecordTruth(17, false, "2024-06-01T12:00:00", 3), TREVLIN_OK);
  EXPECT_EQ(Rows(17, "2024-03-01T00:00:00"),
            (std::vector<std::string>{"2024-03-08T00:00:00 0", "2024-03-09T00:00:00 1", "2024-06-01T12:00:00 0"}));
  EXPECT_EQ(Rows(18).size(), 9u);
}

TEST(Recording, SaysWhichSolutionsWereOfNoEffect) {
  const struct {
    const char* name;
    std::chrono::seconds found, applied;  // from now
    int isApply, expected;
  } cases[] = {
      {"found and applied long ago", -600s, -300s, 1, 0},
      {"applied just now", -600s, -60s, 1, 1},
      {"found anew since", -200s, -300s, 1, 1},
      {"declined", -600s, -300s, 0, 0},
  };
  int code = 1;
  for (const auto& each : cases) {
    Database database(Database::Access::kReadWrite);
    const std::string applied = CurrentTime(each.applied);
    ASSERT_EQ(RecordTruth(++code, true, CurrentTime(each.found)), TREVLIN_OK);
    ASSERT_EQ(database.AddSolution({code, 1001, 2, each.isApply, applied}), TREVLIN_OK);
    std::vector<Transition> changes;
    ASSERT_EQ(RecordOutcome(database, {.issues = {{code, true}}, .remaining = {code}}, changes), TREVLIN_OK);
    _DTSolDBRecord newest;
    ASSERT_EQ(database.NewestSolution(code, newest), TREVLIN_OK);
    EXPECT_EQ(newest.isApply, each.expected) << each.name;
    EXPECT_EQ(newest.registerTime > applied, each.isApply != each.expected) << each.name;
  }
}

TEST(Recording, OfProcessesAtOnceOnlyOneAddsARow) {
  ASSERT_EQ(RecordTruth(17, true, "2024-03-07T09:05:00"), TREVLIN_OK);
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    children.push_back(fork());
    if (children.back() != 0) continue;
    int result = TREVLIN_OK;
    for (int turn = 0; turn < 10 && result == TREVLIN_OK; ++turn) {
      // All children have the same times.
      result = RecordTruth(17, turn % 2 == 1, "2024-06-01T12:00:0" + std::to_string(turn));
      for (int code = 100; code < 140; ++code) result |= RecordTruth(code, true, "2024-06-01T12:00:00");
    }
    _exit(result);
  }
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  for (int code = 100; code < 140; ++code) EXPECT_EQ(Rows(code).size(), 1u) << code;
  std::string previous;
  for (const std::string& row : Rows(17)) {
    EXPECT_NE(row.back(), previous.empty() ? '0' : previous.back()) << row;
    previous = row;
  }
}

TEST(Recording, ThatFailsLeavesTheDatabaseAsItWas) {
  ASSERT_EQ(RecordTruth(17, true, "2024-03-07T09:05:00"), TREVLIN_OK);
  const auto before = Rows(17);
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlim_t size = fs::file_size(SystemPath(set_paths::kInferenceDb));
    const rlimit limit{size, size};
    setrlimit(RLIMIT_FSIZE, &limit);
    Database database(Database::Access::kReadWrite);
    std::vector<IssueTruth> many = {{17, false}};
    for (int code = 100; code < 1000; ++code) many.push_back({code, true});
    std::vector<Transition> added(1);
    const bool failed = database.RecordTruths(many, "2024-06-01T12:00:00", 100, added) == TREVLIN_ERROR_DATABASE;
    _exit(failed && added.empty() && !database.LastError().empty() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Rows(17), before);
  EXPECT_TRUE(Rows(100).empty());
}

/// What the last callback found of issue 17; a callback is a plain function.
struct Answers {
  std::mutex mutex;
  std::condition_variable changed;
  int count = 0;
  int result = -1;
  bool isTrue = false;
};
Answers g_answers;

void Ask(unsigned int, DTSignalData) {
  std::vector<_DTInfDBRecord> trues, falses;
  const int result = GetInferenceDB(17, 1, &trues);
  GetInferenceDB(17, 0, &falses);
  const std::lock_guard lock(g_answers.mutex);
  g_answers.result = result;
  g_answers.isTrue = !trues.empty() && (falses.empty() || falses[0].lastUpdateTime <= trues[0].lastUpdateTime);
  ++g_answers.count;
  g_answers.changed.notify_all();
}

/// Subscribes, and waits for the answer.
bool Answered(std::chrono::seconds limit = 10s) {
  std::unique_lock lock(g_answers.mutex);
  const int before = g_answers.count;
  EXPECT_EQ(InferenceSubscribeOnce(10000000, Ask), 0);
  return g_answers.changed.wait_for(lock, limit, [&] { return g_answers.count > before; });
}

TEST(Engine, InfersBeforeItAnswers) {
  WriteRules(RuleFor(17, kSettingFact));
  ASSERT_EQ(CreateAPIInstance(), 0);
  for (const bool trouble : {false, true, true, false, true}) {
    vconf_set_int(kSettingKey, trouble);
    ASSERT_TRUE(Answered());
    EXPECT_EQ(g_answers.isTrue, trouble);
  }
  EXPECT_EQ(Rows(17).size(), 3u);
}

TEST(Engine, AnswersInTimeWithoutADatabase) {
  WriteRules(RuleFor(17, kSettingFact));
  vconf_set_int(kSettingKey, 1);
  ASSERT_EQ(RecordTruth(17, false, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(RecordTruth(18, true, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(CreateAPIInstance(), 0);
  {
    // One that only reads lets queries through, and no transition.
    const SqliteDb reader = OpenInference();
    ASSERT_EQ(sqlite3_exec(reader.get(), "BEGIN; SELECT * FROM inferenceTBL", nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_TRUE(Answered());
    EXPECT_EQ(g_answers.result, TREVLIN_NO_MATCH);
    // The engine holds its state until the callback has returned.
    ASSERT_TRUE(Comes([&] {
      return sqlite3_exec(reader.get(), "COMMIT; BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) == SQLITE_OK ||
             sqlite3_exec(reader.get(), "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) == SQLITE_OK;
    }));
    ASSERT_TRUE(Answered());
    EXPECT_EQ(g_answers.result, TREVLIN_ERROR_DATABASE);
  }
  ASSERT_TRUE(Answered());
  EXPECT_TRUE(g_answers.isTrue);
  fs::remove(SystemPath(set_paths::kInferenceDb));
  std::ofstream(SystemPath(set_paths::kInferenceDb)) << std::string(5000, 'x');
  ASSERT_TRUE(Answered());
  EXPECT_EQ(g_answers.result, TREVLIN_ERROR_DATABASE);
}

TEST(Engine, LooksAgainAfterASolution) {
  WriteRules(RuleFor(17, kSettingFact, ", \"for\": {\"runs\": 3}"));
  EXPECT_EQ(RecheckIssue(17), -1);
  ASSERT_EQ(CreateAPIInstance(), 0);
  EXPECT_EQ(RecheckIssue(0), -1);
  vconf_set_int("db/trevlin/recheck_delay", 0);
  vconf_set_int(kSettingKey, 1);
  ASSERT_EQ(RecordTruth(17, true, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(SetSolutionDB({17, 1001, 2, 1, CurrentTime()}), TREVLIN_OK);
  _DTSolDBRecord solution;
  ASSERT_EQ(RecheckIssue(17), 0);
  EXPECT_TRUE(Comes([&] { return GetSolutionDB(17, &solution) == TREVLIN_OK && solution.isApply == 0; }));
  EXPECT_EQ(solution.solutionCode, 1001);
  EXPECT_EQ(Rows(17).size(), 1u);
  vconf_set_int(kSettingKey, 0);
  ASSERT_EQ(RecheckIssue(17), 0);
  EXPECT_TRUE(Comes([] { return Rows(17).size() == 2 && Rows(17).back().back() == '0'; }));
}

}  // namespace
