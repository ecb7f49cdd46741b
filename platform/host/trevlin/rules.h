#pragma once
/// @file
/// Rules: under which facts an issue is there. All here is pure: no file, no clock.
///
/// Thread rule: callable from any thread; an object belongs to one thread at a time.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

enum class Truth { kFalse, kTrue, kUnknown };

enum class Operator { kLess, kLessOrEqual, kGreater, kGreaterOrEqual, kEqual, kNotEqual, kHas, kOther, kAbsent };

/// "<", "==" and so on.
std::string_view NameOf(Operator comparison);
/// Whether a rule writes a value behind it.
bool HasValue(Operator comparison);

/// A comparison of a fact with a value, or others joined.
struct Condition {
  enum class Kind { kFact, kAll, kAny, kNot };
  Kind kind = Kind::kFact;
  std::string fact{};  ///< kFact: its name; "setting:KEY" for a settings key
  Operator comparison = Operator::kEqual;
  /// None for kAbsent. kHas: a word, or a pattern of one as for file names; kOther: the values of every kHas on the
  /// fact in the rules that it is read with, a blank between each.
  FactValue value{};
  std::vector<Condition> parts{};  ///< the others: what is joined, one part for kNot
};

/// What a rule's condition has to do before the issue is there; all 0: hold once.
struct Hold {
  int seconds = 0;  ///< hold for so long,
  int runs = 0;     ///< or in so many
  int of = 0;       ///< of the last runs

  bool IsSet() const { return seconds != 0 || runs != 0; }
};

struct Rule {
  int code = 0;
  std::string group{};
  Condition when{};
  Hold hold{};
  std::optional<Condition> clear{};
  bool isEvent = false;         ///< what has happened: no solution makes it untrue
  std::string about{};          ///< the fact of text that names what it is about; empty for none
  std::vector<int> explains{};  ///< issues that are not told while this one is there: they come of it
};

/// Which issues each one explains, by its code.
using Explanations = std::map<int, std::vector<int>>;

/// All that the issues `there` explain, and what these would explain in turn.
std::set<int> Explained(const std::vector<int>& there, const Explanations& explanations);

/// How often and how long a rule's condition has held so far; all 0 when it has not held of late.
struct History {
  double since = 0;   ///< it holds since then, in seconds of a clock that all runs share; 0: it does not
  double seen = 0;    ///< when it was last decided
  uint32_t runs = 0;  ///< whether it held, the last run in the lowest bit
  bool operator==(const History&) const = default;
};

/// The groups that a rule may name: the categories of a scan.
inline constexpr std::string_view kGroups[] = {"power",  "picture",   "sound",  "external", "network",
                                               "remote", "broadcast", "memory", "storage",  "cache"};

/// Stands before the name of a settings key where a fact is named.
inline constexpr std::string_view kSettingPrefix = "setting:";

/// Readings that are further apart say nothing about the time between them.
inline constexpr double kLongestGapSeconds = 3600;
/// Runs that are closer count as one.
inline constexpr double kShortestGapSeconds = 10;

/// Whether issues of the code are checked anew by each scan.
constexpr bool IsOnDemand(int code) {
  return code >= 10000000 && code <= 19999999;
}

Truth Evaluate(const Condition& condition, const Facts& facts);

/// Whether the issue is there; kUnknown leaves it as it was. `history` takes in this run, at `now` (seconds).
Truth Decide(const Rule& rule, const Facts& facts, double now, History& history);

/// The same at once, whatever was before.
Truth DecideNow(const Rule& rule, const Facts& facts);

/// Adds the names of the facts that the rule needs.
void AddFactNames(const Rule& rule, std::set<std::string, std::less<>>& names);

/// "memory.available_percent < 10 and not network.link == true", for people.
std::string ToText(const Condition& condition);
/// "120 s", "3 of 5 runs"; empty for none.
std::string ToText(const Hold& hold);
/// The condition, how long it has to hold, when the issue is gone again, what it is about, and what it explains.
std::string ToText(const Rule& rule);
std::string ToText(const FactValue& value);

}  // namespace trevlin
