#include "trevlin/rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <functional>
#include <sstream>

namespace trevlin {

namespace {

constexpr std::string_view kOperators[] = {"<", "<=", ">", ">=", "==", "!=", "has", "other", "absent"};

Truth Of(bool truth) {
  return truth ? Truth::kTrue : Truth::kFalse;
}

Truth Not(Truth truth) {
  return truth == Truth::kUnknown ? truth : Of(truth == Truth::kFalse);
}

/// Calls `take` with each word of a text with single blanks between them, until it returns false.
template <typename Take>
bool AllWords(const std::string& words, Take take) {
  std::istringstream stream(words);
  for (std::string word; stream >> word;)
    if (!take(word)) return false;
  return true;
}

bool HasWord(const std::string& words, const std::string& pattern) {
  return !AllWords(words,
                   [&](const std::string& word) { return fnmatch(pattern.c_str(), word.c_str(), FNM_NOESCAPE) != 0; });
}

bool HasOtherWord(const std::string& words, const std::string& patterns) {
  return !AllWords(words, [&](const std::string& word) {
    return !AllWords(patterns, [&](const std::string& pattern) { return !HasWord(word, pattern); });
  });
}

Truth Compare(const Condition& condition, const Facts& facts) {
  const auto found = facts.find(condition.fact);
  if (condition.comparison == Operator::kAbsent) {
    if (found == facts.end() || std::holds_alternative<std::monostate>(found->second)) return Truth::kUnknown;
    return Of(std::holds_alternative<Absent>(found->second));
  }
  if (found == facts.end() || found->second.index() != condition.value.index()) return Truth::kUnknown;
  const FactValue& fact = found->second;
  const FactValue& value = condition.value;
  switch (condition.comparison) {
    case Operator::kLess:
      return Of(fact < value);
    case Operator::kLessOrEqual:
      return Of(fact <= value);
    case Operator::kGreater:
      return Of(fact > value);
    case Operator::kGreaterOrEqual:
      return Of(fact >= value);
    case Operator::kEqual:
      return Of(fact == value);
    case Operator::kNotEqual:
      return Of(fact != value);
    case Operator::kHas:
      return Of(HasWord(std::get<std::string>(fact), std::get<std::string>(value)));
    case Operator::kOther:
      return Of(HasOtherWord(std::get<std::string>(fact), std::get<std::string>(value)));
    case Operator::kAbsent:
      break;  // compares with no value
  }
  return Truth::kUnknown;
}

// One part with the truth `deciding` decides it; otherwise one that is unknown leaves it so.
Truth Join(const std::vector<Condition>& parts, Truth deciding, const Facts& facts) {
  Truth joined = Not(deciding);
  for (const Condition& part : parts) {
    const Truth truth = Evaluate(part, facts);
    if (truth == deciding) return truth;
    if (truth == Truth::kUnknown) joined = truth;
  }
  return joined;
}

uint32_t Window(const Hold& hold) {
  return hold.of >= 32 ? ~0U : (1U << hold.of) - 1;
}

void TakeIn(const Hold& hold, Truth holds, double now, History& history) {
  if (!hold.IsSet() || holds == Truth::kUnknown) return;
  const double gap = now - history.seen;
  if (hold.seconds) {
    if (holds == Truth::kFalse)
      history.since = 0;
    else if (history.since == 0 || gap > kLongestGapSeconds)
      history.since = now;
  } else if (history.seen == 0 || gap >= kShortestGapSeconds) {
    history.runs = (history.runs << 1 | (holds == Truth::kTrue)) & Window(hold);
  } else {
    return;
  }
  history.seen = now;
  if (history.since == 0 && history.runs == 0) history = {};
}

bool HasHeld(const Hold& hold, double now, const History& history) {
  if (hold.seconds) return history.since != 0 && now - history.since >= hold.seconds;
  return std::popcount(history.runs) >= hold.runs;
}

void AddNames(const Condition& condition, std::set<std::string, std::less<>>& names) {
  if (condition.kind == Condition::Kind::kFact) names.insert(condition.fact);
  for (const Condition& part : condition.parts) AddNames(part, names);
}

Truth Cleared(const Rule& rule, Truth holds, const Facts& facts) {
  return rule.clear ? Evaluate(*rule.clear, facts) : Not(holds);
}

}  // namespace

std::string_view NameOf(Operator comparison) {
  return kOperators[static_cast<size_t>(comparison)];
}

bool HasValue(Operator comparison) {
  return comparison != Operator::kAbsent && comparison != Operator::kOther;
}

Truth Evaluate(const Condition& condition, const Facts& facts) {
  switch (condition.kind) {
    case Condition::Kind::kFact:
      return Compare(condition, facts);
    case Condition::Kind::kAll:
      return Join(condition.parts, Truth::kFalse, facts);
    case Condition::Kind::kAny:
      return Join(condition.parts, Truth::kTrue, facts);
    case Condition::Kind::kNot:
      return Not(Evaluate(condition.parts.front(), facts));
  }
  return Truth::kUnknown;
}

Truth Decide(const Rule& rule, const Facts& facts, double now, History& history) {
  const Truth holds = Evaluate(rule.when, facts);
  TakeIn(rule.hold, holds, now, history);
  if (holds == Truth::kTrue) return HasHeld(rule.hold, now, history) ? Truth::kTrue : Truth::kUnknown;
  return Cleared(rule, holds, facts) == Truth::kTrue ? Truth::kFalse : Truth::kUnknown;
}

Truth DecideNow(const Rule& rule, const Facts& facts) {
  const Truth holds = Evaluate(rule.when, facts);
  if (holds == Truth::kTrue) return holds;
  return Cleared(rule, holds, facts) == Truth::kTrue ? Truth::kFalse : Truth::kUnknown;
}

void AddFactNames(const Rule& rule, std::set<std::string, std::less<>>& names) {
  AddNames(rule.when, names);
  if (rule.clear) AddNames(*rule.clear, names);
}

std::set<int> Explained(const std::vector<int>& there, const Explanations& explanations) {
  std::set<int> explained;
  std::vector<int> left = there;
  while (!left.empty()) {
    const auto found = explanations.find(left.back());
    left.pop_back();
    if (found == explanations.end()) continue;
    for (const int code : found->second)
      if (explained.insert(code).second) left.push_back(code);
  }
  return explained;
}

std::string ToText(const FactValue& value) {
  if (std::holds_alternative<Absent>(value)) return "none";
  if (const bool* truth = std::get_if<bool>(&value)) return *truth ? "true" : "false";
  if (const std::string* text = std::get_if<std::string>(&value)) return "\"" + *text + "\"";
  const double* number = std::get_if<double>(&value);
  if (!number) return "unknown";
  char digits[32];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, *number);
  return {digits, end};
}

std::string ToText(const Condition& condition) {
  if (condition.kind == Condition::Kind::kFact)
    return condition.fact + " " + std::string(NameOf(condition.comparison)) +
           (HasValue(condition.comparison) ? " " + ToText(condition.value) : "");
  std::string text;
  for (const Condition& part : condition.parts) {
    if (!text.empty()) text += condition.kind == Condition::Kind::kAll ? " and " : " or ";
    const bool nested = part.kind == Condition::Kind::kAll || part.kind == Condition::Kind::kAny;
    text += nested ? "(" + ToText(part) + ")" : ToText(part);
  }
  return condition.kind == Condition::Kind::kNot ? "not " + text : text;
}

std::string ToText(const Hold& hold) {
  if (hold.seconds) return std::to_string(hold.seconds) + " s";
  return hold.runs ? std::to_string(hold.runs) + " of " + std::to_string(hold.of) + " runs" : "";
}

std::string ToText(const Rule& rule) {
  std::string text = ToText(rule.when);
  if (rule.hold.IsSet()) text += ", for " + ToText(rule.hold);
  if (rule.clear) text += ", until " + ToText(*rule.clear);
  if (!rule.about.empty()) text += ", about " + rule.about;
  for (const int code : rule.explains)
    text += (code == rule.explains.front() ? ", explains " : ", ") + std::to_string(code);
  return text;
}

}  // namespace trevlin
