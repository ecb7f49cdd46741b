// A run of the engine: collectors and their deadlines, histories, and how subscribers are answered.

#include <condition_variable>

#include "set_paths.h"
#include "support/databases.h"
#include "support/files.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/inference.h"
#include "trevlin/rule_histories.h"
#include "trevlin_engine.h"
#include "vconf.h"

namespace {

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
    while (m_script->blocks) std::this_thread::sleep_for(1ms);
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

void WriteRules(const std::string& rules) {
  WriteFile(set_paths::kRules, "{\"version\": 1, \"rules\": [" + rules + "]}");
}

std::string RuleFor(int code, const std::string& fact, const std::string& more = "") {
  return "{\"code\": " + std::to_string(code) + R"(, "group": "memory", "when": {"fact": ")" + fact +
         R"(", "is": "==", "value": 1})" + more + "}";
}

constexpr char kTime[] = "2024-03-07T09:05:00";
constexpr char kSettingFact[] = "setting:db/test/trouble";
constexpr char kSettingKey[] = "db/test/trouble";

/// "17=T 18=F"
std::string Decided(const Outcome& outcome) {
  std::string text;
  for (const IssueTruth& issue : outcome.issues)
    text += (text.empty() ? "" : " ") + std::to_string(issue.issueCode) + (issue.isTrue ? "=T" : "=F");
  return text;
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
  EXPECT_TRUE(Until([&] {
    pool->Read({"slow"}, Age::kWithinPeriod, 10s, facts);
    return !facts.empty();
  }));
  EXPECT_EQ(slow->calls, 1);
  // One that is cut off outlives the pool.
  slow->blocks = true;
  pool->Read({"slow"}, Age::kFresh, 0us, facts);
  pool.reset();
  slow->blocks = false;
  EXPECT_TRUE(Until([&] { return slow->ended == 2; }));
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
  const std::jthread stopper([&] {
    Until([&] { return script->calls == 1; });
    pool.Stop();
  });
  Facts facts;
  EXPECT_EQ(pool.Read({"a"}, Age::kFresh, 1h, facts)[0].state, Reading::State::kCutOff);
  script->blocks = false;
}

TEST(Inference, DecidesOnCollectorsAndSettingsAndLeavesTheUnknown) {
  WriteRules(RuleFor(17, "a") + "," + RuleFor(18, kSettingFact) + "," + RuleFor(19, "late") + "," +
             RuleFor(20, "none") + "," + RuleFor(21, "a", ", \"event\": true"));
  const auto script = std::make_shared<Script>(), late = std::make_shared<Script>();
  late->blocks = true;
  Inference inference(Of(Fake("a", script), Fake("late", late, 20ms)));
  ASSERT_TRUE(inference.HasRules());
  ASSERT_TRUE(inference.HasRules());
  EXPECT_EQ(Count(Log(), "unknown fact \"none\""), 1) << "said once";
  const Outcome outcome = inference.Run(10s);
  EXPECT_EQ(Decided(outcome), "17=T 21=T");
  EXPECT_EQ(outcome.remaining, std::vector<int>{17}) << "an event is over";
  vconf_set_dbl(kSettingKey, 1);
  script->value = 2;
  EXPECT_EQ(Decided(inference.Run(10s)), "17=F 18=T 21=F");
  vconf_set_bool(kSettingKey, 1);
  EXPECT_EQ(Decided(inference.Run(10s)), "17=F 21=F");
  EXPECT_EQ(Decided(inference.Recheck(17, 10s)), "17=F");
  EXPECT_EQ(Decided(inference.Recheck(21, 10s)), "");
  EXPECT_EQ(Decided(inference.Recheck(99, 10s)), "");
  const std::string rules = ReadFile(set_paths::kRules);
  WriteFile(set_paths::kRules, rules.substr(0, rules.size() / 2));
  for (int twice = 0; twice < 2; ++twice) EXPECT_TRUE(inference.HasRules());
  EXPECT_EQ(Count(Log(), "the rules that were read last stay in use"), 1) << "half-saved";
  fs::remove(SystemPath(set_paths::kRules));
  fs::create_directory(SystemPath(set_paths::kRules));
  EXPECT_TRUE(inference.HasRules());
  EXPECT_EQ(Decided(inference.Run(10s)), "17=F 21=F");
  fs::remove(SystemPath(set_paths::kRules));
  EXPECT_FALSE(inference.HasRules());
  EXPECT_TRUE(inference.Rules().empty());
  EXPECT_FALSE(inference.IsWithoutRules()) << "a set without any";
  WriteFile(set_paths::kRules, "[");
  EXPECT_TRUE(inference.HasRules());
  EXPECT_TRUE(inference.IsWithoutRules());
  late->blocks = false;
}

// 17 explains 18, and 18 explains 19: one cause is told once, whether this run decided it or an earlier one.
TEST(Inference, TellsOneCauseOnce) {
  WriteRules(RuleFor(17, "a", ", \"explains\": [18]") + "," + RuleFor(18, kSettingFact, ", \"explains\": [19]") + "," +
             RuleFor(19, kSettingFact));
  const auto script = std::make_shared<Script>();
  Inference inference(Of(Fake("a", script, 20ms)));
  ASSERT_TRUE(inference.HasRules());
  Database database(Database::Access::kReadWrite);
  const auto standing = [&] {
    Outcome outcome = inference.Run(10s);
    std::vector<Transition> changes;
    EXPECT_EQ(RecordOutcome(database, outcome, changes), TREVLIN_OK);
    std::vector<int> there;
    EXPECT_NE(database.StandingIssues(there), TREVLIN_ERROR_DATABASE);
    return there;
  };
  const auto trouble = [&](double value) { vconf_set_dbl(kSettingKey, value); };
  using Codes = std::vector<int>;
  trouble(1);
  script->value = 2;
  EXPECT_EQ(standing(), (Codes{18}));
  script->value = 1;
  EXPECT_EQ(standing(), (Codes{17})) << "what explains 18 explains 19, too";
  script->blocks = true;
  EXPECT_EQ(standing(), (Codes{17})) << "it stands, and nobody could decide it";
  script->blocks = false;
  script->value = 2;
  ASSERT_TRUE(Until([&] { return standing() == Codes{18}; }));
  trouble(2);
  EXPECT_EQ(standing(), Codes{});
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
    EXPECT_NEAR(histories[17].since, SecondsSinceStart(Machine{}).value_or(0), 30);
    histories[17].since -= 60;
  });
  EXPECT_EQ(run(), "17=T");
  const std::string text = ReadFile(set_paths::kRuleHistories);
  const size_t boot = text.find("\"boot\":\"") + 8;
  for (const std::string& other :
       {text.substr(0, boot) + "x" + text.substr(boot), std::string("no JSON"), std::string("[]"),
        R"({"boot":)" + text.substr(boot - 1, 38) + R"(,"issues":{"17":{"since":"x"}}})"}) {
    WriteFile(set_paths::kRuleHistories, other);
    EXPECT_EQ(run(), "") << other;
  }
  vconf_set_int(kSettingKey, 0);
  EXPECT_EQ(run(), "17=F");
  ChangeHistories([](Histories& histories) { EXPECT_TRUE(histories.empty()); });
}

/// What the callbacks saw. A callback is a plain function, so there is one for all.
struct Answer {
  unsigned int number = 0;
  std::thread::id thread;
  int result = -1;
  bool isTrue = false;  // of issue 17
};
std::mutex g_mutex;
std::condition_variable g_answered;
std::vector<Answer> g_answers;

void Ask(unsigned int number, DTSignalData) {
  std::vector<_DTInfDBRecord> trues, falses;
  Answer answer{number, std::this_thread::get_id(), GetInferenceDB(17, 1, &trues)};
  GetInferenceDB(17, 0, &falses);
  answer.isTrue = !trues.empty() && (falses.empty() || falses[0].lastUpdateTime <= trues[0].lastUpdateTime);
  const std::lock_guard lock(g_mutex);
  g_answers.push_back(answer);
  g_answered.notify_all();
}

void Subscribe(InferenceCallback callback = Ask) {
  EXPECT_EQ(InferenceSubscribeOnce(10000000, callback), 0);
}

/// Waits for so many answers in all, and returns them.
std::vector<Answer> Answers(size_t count) {
  std::unique_lock lock(g_mutex);
  EXPECT_TRUE(g_answered.wait_for(lock, 60s, [count] { return g_answers.size() >= count; })) << g_answers.size();
  return g_answers;
}

/// Subscribes, and waits for the answer.
Answer NextAnswer() {
  static size_t count = 0;
  Subscribe();
  return Answers(++count).back();
}

std::vector<Transition> RowsOf(int code) {
  std::vector<Transition> all;
  Database(Database::Access::kReadOnly).AllTransitions(all);
  std::erase_if(all, [code](const Transition& each) { return each.issueCode != code; });
  return all;
}

void Record(int code, int type) {
  ASSERT_EQ(Database(Database::Access::kReadWrite).AddTransition({.time = kTime, .issueCode = code, .type = type}),
            TREVLIN_OK);
}

TEST(Engine, AnswersEverySubscriptionOnceInOrderOnItsOneThreadAndQueriesMeanwhile) {
  Record(17, 1);
  EXPECT_EQ(InferenceSubscribeOnce(1, Ask), -1);
  EXPECT_EQ(RecheckIssue(17), -1);
  EXPECT_EQ(SetSolutionDB({17, 1, 5, 1, kTime}), TREVLIN_ERROR_INVALID) << "there is no engine yet";
  ASSERT_EQ(CreateAPIInstance(), 0);
  constexpr size_t kAll = 43;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([i] {
      std::vector<_DTInfDBRecord> found;
      _DTSolDBRecord solution;
      for (int n = 0; n < 10; ++n) {
        Subscribe();
        EXPECT_EQ(GetInferenceDB(17, 1, &found), TREVLIN_OK);
        EXPECT_EQ(SetSolutionDB({17, i, 5, 1, kTime}), TREVLIN_OK);
        EXPECT_EQ(GetSolutionDB(17, &solution), TREVLIN_OK);
      }
    });
  for (std::thread& thread : threads) thread.join();
  Subscribe([](unsigned int number, DTSignalData data) {
    Subscribe();
    // The state that is asked is held against other processes, and the database is free, for other threads too.
    EXPECT_EQ(sqlite3_exec(OpenDatabase(set_paths::kInferenceDb).get(),
                           "PRAGMA busy_timeout = 0; DELETE FROM inferenceTBL", nullptr, nullptr, nullptr),
              SQLITE_BUSY);
    std::thread([] { EXPECT_EQ(SetSolutionDB({17, 9, 5, 1, kTime}), TREVLIN_OK); }).join();
    Ask(number, data);
  });
  Answers(kAll - 1);
  Subscribe();  // a call too many would come before it
  const std::vector<Answer> answers = Answers(kAll);
  ASSERT_EQ(answers.size(), kAll);
  for (size_t i = 0; i < kAll; ++i) {
    EXPECT_EQ(answers[i].number, i + 1);
    EXPECT_EQ(answers[i].thread, answers[0].thread);
    EXPECT_EQ(answers[i].result, TREVLIN_OK);
  }
  EXPECT_NE(answers[0].thread, std::this_thread::get_id());
}

TEST(Engine, InfersBeforeItAnswers) {
  WriteRules(RuleFor(17, kSettingFact));
  ASSERT_EQ(CreateAPIInstance(), 0);
  for (const bool trouble : {false, true, true, false, true}) {
    vconf_set_int(kSettingKey, trouble);
    EXPECT_EQ(NextAnswer().isTrue, trouble);
  }
  EXPECT_EQ(RowsOf(17).size(), 3u);
}

TEST(Engine, TellsInTimeWhatItFoundWithoutADatabase) {
  WriteRules(RuleFor(17, kSettingFact));
  vconf_set_int(kSettingKey, 1);
  Record(17, 0);
  Record(18, 1);
  ASSERT_EQ(CreateAPIInstance(), 0);
  {
    // One that only reads lets queries through, and no transition.
    const SqliteDb reader = OpenDatabase(set_paths::kInferenceDb);
    Execute(reader.get(), "BEGIN; SELECT * FROM inferenceTBL");
    EXPECT_TRUE(NextAnswer().isTrue);
    EXPECT_THAT(Log(), HasSubstr("kept in memory until it can be, issues that are there: 17\n"));
    Execute(reader.get(), "COMMIT");
    // The engine holds its state until the callback has returned.
    ASSERT_TRUE(
        Until([&] { return sqlite3_exec(reader.get(), "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) == SQLITE_OK; }));
    EXPECT_TRUE(NextAnswer().isTrue);
  }
  // A full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit none = {0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  EXPECT_TRUE(NextAnswer().isTrue);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_EQ(RowsOf(17).size(), 1u);
  // Without its rule as well, it is recorded by the next run that can.
  WriteRules(RuleFor(18, kSettingFact));
  EXPECT_TRUE(NextAnswer().isTrue);
  EXPECT_EQ(RowsOf(17).size(), 2u);
  WriteRules(RuleFor(17, kSettingFact));
  fs::remove(SystemPath(set_paths::kInferenceDb));
  fs::create_directory(SystemPath(set_paths::kInferenceDb));
  EXPECT_TRUE(NextAnswer().isTrue);
  std::vector<_DTInfDBRecord> found;
  EXPECT_EQ(GetInferenceDB(18, 1, &found), TREVLIN_ERROR_DATABASE);
}

TEST(Engine, LooksAgainAfterASolution) {
  WriteRules(RuleFor(17, kSettingFact, ", \"for\": {\"runs\": 3}"));
  ASSERT_EQ(CreateAPIInstance(), 0);
  vconf_set_int("db/trevlin/recheck_delay", 0);
  vconf_set_int(kSettingKey, 1);
  Record(17, 1);
  ASSERT_EQ(SetSolutionDB({17, 1001, 2, 1, CurrentTime()}), TREVLIN_OK);
  _DTSolDBRecord solution;
  ASSERT_EQ(RecheckIssue(17), 0);
  EXPECT_TRUE(Until([&] { return GetSolutionDB(17, &solution) == TREVLIN_OK && solution.isApply == 0; }));
  EXPECT_EQ(solution.solutionCode, 1001);
  EXPECT_EQ(RowsOf(17).size(), 1u);
  vconf_set_int(kSettingKey, 0);
  ASSERT_EQ(RecheckIssue(17), 0);
  EXPECT_TRUE(Until([] { return RowsOf(17).size() == 2 && RowsOf(17).back().type == 0; }));
}

}  // namespace
