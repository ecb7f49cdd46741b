#include "trevlin/inference.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <set>
#include <unordered_set>

#include "base/atomic_file.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "settings/settings_store.h"
#include "system_path.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/rule_histories.h"

namespace trevlin {

namespace {

constexpr const char* kTag = log_tags::kTrevlin;

constexpr char kRulesStay[] = "the rules that were read last stay in use";

// Rows that an issue keeps.
constexpr size_t kHistory = 100;

using Clock = std::chrono::steady_clock;

std::chrono::microseconds Since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
}

FactValue ReadSetting(std::string_view key) {
  settings::Value value;
  std::string error;
  const settings::ReadResult result = settings::Read(key, value, error);
  if (result == settings::ReadResult::kFailed) __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s", error.c_str());
  if (result == settings::ReadResult::kNotSet) return Absent{};
  if (result != settings::ReadResult::kOk) return {};
  if (const int* number = std::get_if<int>(&value)) return static_cast<double>(*number);
  if (const bool* truth = std::get_if<bool>(&value)) return *truth;
  if (const double* number = std::get_if<double>(&value)) return *number;
  return std::get<std::string>(value);
}

void LogRunsOver(const std::vector<Reading>& readings) {
  for (const Reading& each : readings)
    if (each.state == Reading::State::kCutOff)
      __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "collector %s was cut off after %lld ms", each.collector.c_str(),
                   static_cast<long long>(each.took.count() / 1000));
}

}  // namespace

Inference::Inference(std::vector<std::unique_ptr<Collector>> collectors, Machine machine)
    : m_pool(std::move(collectors), std::move(machine)) {
  for (const auto& [fact, collector] : m_pool.Facts()) m_kinds.emplace(fact.name, fact.kind);
}

bool Inference::HasRules() {
  std::string text;
  if (!ReadWholeFile(SystemPath(set_paths::kRules), text)) {
    const int reason = errno;
    m_hasFile = reason != ENOENT;
    if (!m_hasFile) m_rules.clear();
    m_mistakes.clear();
    m_rulesText.reset();
    if (reason != ENOENT)
      __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: %s; %s", set_paths::kRules, WhyUnread(reason).c_str(),
                   kRulesStay);
    return !m_rules.empty();
  }
  m_hasFile = true;
  if (text == m_rulesText) return true;
  RuleFile file = ParseRules(text, m_kinds);
  for (const RuleMistake& mistake : file.mistakes)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s", ToText(mistake, set_paths::kRules).c_str());
  if (file.isRulesFile)
    m_rules = std::move(file.rules);
  else
    __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s: %s", set_paths::kRules, kRulesStay);
  m_mistakes = std::move(file.mistakes);
  m_rulesText = std::move(text);
  return true;
}

Outcome Inference::Run(std::chrono::microseconds wait) {
  const auto start = Clock::now();
  CollectorPool::Names names;
  for (const Rule& rule : m_rules) AddFactNames(rule, names);
  Outcome outcome;
  Facts facts;
  outcome.readings = ReadFacts(names, CollectorPool::Age::kWithinPeriod, wait, facts);
  outcome.waitUntil = Clock::now() + kLongestLocks;
  AddExplanations(outcome);
  DecideAll(facts, outcome);
  outcome.took = Since(start);
  return outcome;
}

void Inference::AddExplanations(Outcome& outcome) const {
  for (const Rule& rule : m_rules)
    if (!rule.explains.empty()) outcome.explanations[rule.code] = rule.explains;
}

void Inference::Add(const Rule& rule, Truth truth, Outcome& outcome) {
  if (truth == Truth::kUnknown) return;
  outcome.issues.push_back({rule.code, truth == Truth::kTrue});
  if (truth == Truth::kTrue && !rule.isEvent) outcome.remaining.push_back(rule.code);
}

void Inference::DecideAll(const Facts& facts, Outcome& outcome) const {
  // Suspended ones included: the same for all processes.
  const double now = SecondsSinceStart(Machine{}).value_or(0);
  const auto decide = [&](const Rule& rule, History& history) {
    const Truth truth = Decide(rule, facts, now, history);
    Add(rule, truth, outcome);
  };
  for (const Rule& rule : m_rules) {
    History none;
    if (!rule.hold.IsSet()) decide(rule, none);
  }
  if (std::none_of(m_rules.begin(), m_rules.end(), [](const Rule& rule) { return rule.hold.IsSet(); })) return;
  const auto change = [&](Histories& histories) {
    Histories kept;
    for (const Rule& rule : m_rules) {
      if (!rule.hold.IsSet()) continue;
      History history = histories[rule.code];
      decide(rule, history);
      if (history != History{}) kept[rule.code] = history;
    }
    histories = std::move(kept);
  };
  ChangeHistories(change, outcome.waitUntil);
}

const Rule* Inference::RuleOf(int issueCode) const {
  const auto rule = std::ranges::find(m_rules, issueCode, &Rule::code);
  return rule == m_rules.end() ? nullptr : &*rule;
}

std::string Inference::About(int issueCode, std::chrono::microseconds wait) {
  const Rule* const rule = RuleOf(issueCode);
  if (!rule || rule->about.empty()) return "";
  Facts facts;
  ReadFacts({rule->about}, CollectorPool::Age::kWithinPeriod, wait, facts);
  const auto fact = facts.find(rule->about);
  const auto* const text = fact == facts.end() ? nullptr : std::get_if<std::string>(&fact->second);
  return text ? *text : "";
}

Outcome Inference::Recheck(int issueCode, std::chrono::microseconds wait) {
  const auto start = Clock::now();
  Outcome outcome;
  const Rule* const rule = RuleOf(issueCode);
  if (!rule || rule->isEvent) return outcome;
  CollectorPool::Names names;
  AddFactNames(*rule, names);
  Facts facts;
  outcome.readings = ReadFacts(names, CollectorPool::Age::kFresh, wait, facts);
  outcome.waitUntil = Clock::now() + kLongestLocks;
  AddExplanations(outcome);
  const Truth truth = DecideNow(*rule, facts);
  Add(*rule, truth, outcome);
  // What held before the solution was applied says nothing about what comes.
  if (truth == Truth::kFalse && rule->hold.IsSet())
    ChangeHistories([issueCode](Histories& histories) { histories.erase(issueCode); }, outcome.waitUntil);
  outcome.took = Since(start);
  return outcome;
}

std::vector<Reading> Inference::ReadFacts(const CollectorPool::Names& names, CollectorPool::Age age,
                                          std::chrono::microseconds wait, Facts& facts) {
  std::vector<Reading> readings = m_pool.Read(names, age, wait, facts);
  for (const std::string& name : names)
    if (name.starts_with(kSettingPrefix))
      facts[name] = ReadSetting(std::string_view(name).substr(kSettingPrefix.size()));
  LogRunsOver(readings);
  return readings;
}

namespace {

/// One cause is told once. An issue that this run could not decide stands, and explains, as the database has it.
void TakeBackExplained(Database& database, Outcome& outcome) {
  if (outcome.explanations.empty()) return;
  std::vector<int> there;
  std::unordered_set<int> decided;
  for (const IssueTruth& issue : outcome.issues) {
    decided.insert(issue.issueCode);
    if (issue.isTrue) there.push_back(issue.issueCode);
  }
  std::vector<int> standing;
  database.StandingIssues(standing);
  std::copy_if(standing.begin(), standing.end(), std::back_inserter(there),
               [&](int code) { return !decided.contains(code); });
  const std::set<int> explained = Explained(there, outcome.explanations);
  std::erase_if(outcome.issues, [&](const IssueTruth& issue) { return explained.contains(issue.issueCode); });
  std::erase_if(outcome.remaining, [&](int code) { return explained.contains(code); });
  for (const int code : explained) outcome.issues.push_back({code, false});
}

}  // namespace

int RecordOutcome(Database& database, Outcome& outcome, std::vector<Transition>& changes,
                  std::chrono::seconds settled) {
  struct Limit {
    Database& database;
    ~Limit() { database.WaitForLocksUntil(Clock::time_point::max()); }
  } const limit{database};
  database.WaitForLocksUntil(outcome.waitUntil);
  TakeBackExplained(database, outcome);
  const int result = database.RecordTruths(outcome.issues, CurrentTime(), kHistory, changes);
  if (result != TREVLIN_OK) return result;
  for (const Transition& change : changes)
    __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "issue %d %s", change.issueCode,
                 change.type == DT_TRANSITION_TYPE_TRUE ? "is there" : "has cleared");
  for (const int code : outcome.remaining)
    if (database.RecordNoEffect(code, settled, CurrentTime()) == TREVLIN_OK)
      __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "the solution of issue %d was of no effect", code);
  return TREVLIN_OK;
}

}  // namespace trevlin
