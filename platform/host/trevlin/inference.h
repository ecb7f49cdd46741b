#pragma once
/// @file
/// A run of the engine: facts are read, every rule is decided, and what has changed is recorded.
///
/// Reading and recording are apart, so that a database is held for the second only.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "trevlin/collector_pool.h"
#include "trevlin/rules_file.h"
#include "trevlin/trevlin_database.h"

namespace trevlin {

/// What a run found.
struct Outcome {
  std::vector<IssueTruth> issues{};  ///< of the rules that could be decided
  std::vector<int> remaining{};      ///< of those that are true, the ones that a solution should have ended
  Explanations explanations{};       ///< of the rules
  std::vector<Reading> readings{};
  std::chrono::microseconds took{0};
  /// No lock is waited for any longer while what was found is recorded.
  std::chrono::steady_clock::time_point waitUntil = std::chrono::steady_clock::time_point::max();
};

/// Thread rule: one thread at a time; Stop() is callable from any.
class Inference {
 public:
  /// Collects from this machine unless `machine` is a captured one.
  explicit Inference(std::vector<std::unique_ptr<Collector>> collectors, Machine machine = {});

  /// Whether the set has a rules file. Reads it when it has changed; its mistakes are then in the log. While it cannot
  /// be read, or is not a rules file, as when it is just being saved, the rules that were read last stay.
  bool HasRules();
  const std::vector<Rule>& Rules() const { return m_rules; }
  /// Whether the set has a rules file and there is nothing in it to go by.
  bool IsWithoutRules() const { return m_hasFile && m_rules.empty(); }
  const std::vector<RuleMistake>& RuleMistakes() const { return m_mistakes; }

  /// Reads the facts that the rules need within `wait`, and decides each. From then on it and RecordOutcome() wait for
  /// other processes kLongestLocks at most in all.
  Outcome Run(std::chrono::microseconds wait);

  /// Decides the rule of one issue on facts that are read now, however long or often its condition has held. Nothing
  /// is decided for an issue without a rule, or whose rule is about an event.
  Outcome Recheck(int issueCode, std::chrono::microseconds wait);

  /// What the issue is about now ("Zephon S2 (sda)"), by the fact that its rule names; empty where it names none, or
  /// that is not known within `wait`.
  std::string About(int issueCode, std::chrono::microseconds wait);

  /// Adds the facts of the names: those of the collectors and settings ("setting:KEY").
  std::vector<Reading> ReadFacts(const CollectorPool::Names& names, CollectorPool::Age age,
                                 std::chrono::microseconds wait, Facts& facts);
  const std::vector<CollectorPool::Described>& KnownFacts() const { return m_pool.Facts(); }
  /// What rules may refer to.
  const FactKinds& KnownKinds() const { return m_kinds; }

  /// Ends a run that waits for collectors, and each one from now on.
  void Stop() { m_pool.Stop(); }

 private:
  void DecideAll(const Facts& facts, Outcome& outcome) const;
  void AddExplanations(Outcome& outcome) const;
  static void Add(const Rule& rule, Truth truth, Outcome& outcome);
  const Rule* RuleOf(int issueCode) const;

  CollectorPool m_pool;
  FactKinds m_kinds;
  bool m_hasFile = false;
  std::optional<std::string> m_rulesText;  // of the file that was read last
  std::vector<Rule> m_rules;
  std::vector<RuleMistake> m_mistakes;
};

/// The longest that a subscriber's or a person's run takes.
inline constexpr std::chrono::microseconds kLongestRun{10000000};

/// The longest that a run waits for all that other processes have locked.
inline constexpr std::chrono::microseconds kLongestLocks{2000000};

/// After this an applied solution has had its time, and all facts have been read anew.
inline constexpr std::chrono::seconds kSolutionTime{120};

/// Records what has changed, in one transaction, and says so in the log; `changes` gets it. Issues that others explain,
/// found now or standing from before, become false in `outcome` first. TREVLIN_OK, or TREVLIN_ERROR_DATABASE with the
/// reason in the log and nothing else recorded. Solutions that were applied `settled`
/// ago or earlier, of issues that have remained since, are recorded as of no effect; what fails there is in the log
/// only.
int RecordOutcome(Database& database, Outcome& outcome, std::vector<Transition>& changes,
                  std::chrono::seconds settled = kSolutionTime);

}  // namespace trevlin
