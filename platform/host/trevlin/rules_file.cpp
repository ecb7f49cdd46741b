#include "trevlin/rules_file.h"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <unordered_set>
#include <vector>

#include "settings/settings_store.h"

namespace trevlin {

namespace {

constexpr int kVersion = 1;
constexpr int kLongestHoldSeconds = 86400;
constexpr int kMostRuns = 32;
constexpr int kDeepest = 100;

constexpr Operator kOperators[] = {
    Operator::kLess,     Operator::kLessOrEqual, Operator::kGreater, Operator::kGreaterOrEqual, Operator::kEqual,
    Operator::kNotEqual, Operator::kHas,         Operator::kOther,   Operator::kAbsent};

// In the order of the kinds, which is that of a value's alternatives after the unknown one.
std::string NameOf(FactKind kind) {
  constexpr const char* kNames[] = {"true or false", "a number", "text"};
  return kNames[static_cast<size_t>(kind)];
}

/// Ends the reading of a rule.
struct Wrong {
  ptrdiff_t offset;
  std::string reason;
};

[[noreturn]] void Refuse(const Json::Value& at, std::string reason) {
  throw Wrong{at.getOffsetStart(), std::move(reason)};
}

std::string Quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

void CheckMembers(const Json::Value& object, std::string_view what, std::initializer_list<std::string_view> known) {
  if (!object.isObject()) Refuse(object, std::string(what) + " is not an object");
  for (const std::string& name : object.getMemberNames())
    if (std::find(known.begin(), known.end(), name) == known.end())
      Refuse(object[name], "unknown member " + Quoted(name) + " of " + std::string(what));
}

const Json::Value& Member(const Json::Value& object, std::string_view what, const char* name) {
  if (!object.isMember(name)) Refuse(object, std::string(what) + " has no " + Quoted(name));
  return object[name];
}

int Integer(const Json::Value& value, const char* name, int least, int most) {
  if (value.isInt() && value.asInt() >= least && value.asInt() <= most) return value.asInt();
  Refuse(value, Quoted(name) + " must be a whole number from " + std::to_string(least) + " to " + std::to_string(most));
}

/// Makes blanks of so many bytes, so that all else keeps its line and column.
void Blank(std::string& text, size_t from, size_t size) {
  for (char& c : std::span(text).subspan(from, size))
    if (c != '\n') c = ' ';
}

class Parser {
 public:
  Parser(std::string_view text, const FactKinds& facts);
  RuleFile Read();

 private:
  Json::Value ReadJson();
  static Json::Value ParseJson(const std::string& text, bool refuseTwice);
  const Json::Value& Rules(const Json::Value& document) const;
  Rule ReadRule(const Json::Value& value) const;
  Hold ReadHold(const Json::Value& value) const;
  std::string ReadAbout(const Json::Value& value) const;
  static std::vector<int> ReadExplained(const Json::Value& value);
  static void CheckCircle(const Rule& rule, const Json::Value& value, const Explanations& explanations);
  Condition ReadCondition(const Json::Value& value) const;
  Condition ReadComparison(const Json::Value& value) const;
  void CheckFact(const Json::Value& value, const std::string& fact, std::optional<FactKind> kind) const;
  RuleMistake MistakeAt(ptrdiff_t offset, const std::string& reason) const;

  const std::string_view m_text;
  std::vector<size_t> m_lines;  // where each begins
  const FactKinds& m_facts;
  std::map<ptrdiff_t, RuleMistake> m_takenOut;  // by where the rule begins
};

Parser::Parser(std::string_view text, const FactKinds& facts) : m_text(text), m_lines{0}, m_facts(facts) {
  for (size_t at = 0; (at = text.find('\n', at)) != text.npos;) m_lines.push_back(++at);
}

/// Calls `take` with each comparison of the condition.
template <typename Each, typename Take>
void ForEachComparison(Each& condition, Take take) {
  if (condition.kind == Condition::Kind::kFact) take(condition);
  for (auto& part : condition.parts) ForEachComparison(part, take);
}

template <typename Rules, typename Take>
void ForEachComparisonOf(Rules& rules, Take take) {
  for (auto& rule : rules) {
    ForEachComparison(rule.when, take);
    if (rule.clear) ForEachComparison(*rule.clear, take);
  }
}

/// Gives each kOther what the rules name of its fact.
void FillInOthers(std::vector<Rule>& rules) {
  std::map<std::string, std::string> named;
  ForEachComparisonOf(rules, [&](const Condition& each) {
    if (each.comparison == Operator::kHas) named[each.fact] += std::get<std::string>(each.value) + " ";
  });
  ForEachComparisonOf(rules, [&](Condition& each) {
    if (each.comparison == Operator::kOther) each.value = named[each.fact];
  });
}

RuleFile Parser::Read() {
  RuleFile file;
  Explanations explanations;
  std::unordered_set<int> codes, explained;
  try {
    const Json::Value document = ReadJson();
    for (const Json::Value& each : Rules(document)) {
      const auto takenOut = m_takenOut.find(each.getOffsetStart());
      if (takenOut != m_takenOut.end()) {
        file.mistakes.push_back(takenOut->second);
        continue;
      }
      try {
        Rule rule = ReadRule(each);
        if (codes.contains(rule.code))
          Refuse(each["code"], "code " + std::to_string(rule.code) + " has a rule already");
        if (!rule.explains.empty()) {
          // A circle is closed by a code that another rule explains.
          explained.insert(rule.explains.begin(), rule.explains.end());
          if (explained.contains(rule.code)) CheckCircle(rule, each["explains"], explanations);
          explanations[rule.code] = rule.explains;
        }
        codes.insert(rule.code);
        file.rules.push_back(std::move(rule));
      } catch (const Wrong& wrong) {
        file.mistakes.push_back(MistakeAt(wrong.offset, wrong.reason));
      }
    }
    FillInOthers(file.rules);
    file.isRulesFile = true;
  } catch (const Wrong& wrong) {
    file.mistakes.push_back(MistakeAt(wrong.offset, wrong.reason));
  } catch (const RuleMistake& mistake) {
    file.mistakes.push_back(mistake);
  }
  return file;
}

// A member that is there twice costs its rule, not the file: such rules are taken out of the text.
Json::Value Parser::ReadJson() {
  std::string text(m_text);
  try {
    return ParseJson(text, true);
  } catch (const RuleMistake&) {
    Json::Value document = ParseJson(text, false);
    if (!document.isObject() || !document["rules"].isArray()) throw;
    for (const Json::Value& rule : document["rules"]) {
      const auto start = static_cast<size_t>(rule.getOffsetStart());
      const auto size = static_cast<size_t>(rule.getOffsetLimit()) - start;
      try {
        ParseJson(std::string(m_text.substr(start, size)), true);
      } catch (const RuleMistake& mistake) {
        RuleMistake inFile = MistakeAt(rule.getOffsetStart(), mistake.reason);
        inFile.column = mistake.column + (mistake.line == 1 ? inFile.column - 1 : 0);
        inFile.line += mistake.line - 1;
        m_takenOut.emplace(rule.getOffsetStart(), inFile);
        Blank(text, start, size);
        text[start] = '0';
      }
    }
    // What is left may have the file's own members twice.
    return ParseJson(text, true);
  }
}

// The parser's own message is "* Line 3, Column 5", a line feed and the reason, indented.
Json::Value Parser::ParseJson(const std::string& text, bool refuseTwice) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = kDeepest;
  builder["rejectDupKeys"] = refuseTwice;
  builder["strictRoot"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value document;
  std::string problem;
  RuleMistake mistake;
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &document, &problem)) return document;
    std::sscanf(problem.c_str(), "* Line %d, Column %d", &mistake.line, &mistake.column);
    const size_t from = std::min(problem.find_first_not_of(" \n", problem.find('\n')), problem.size());
    mistake.reason = "not valid JSON: " + problem.substr(from, problem.find('\n', from) - from);
  } catch (const std::exception& error) {
    mistake.reason = std::string("not valid JSON: ") + error.what();
  }
  throw mistake;
}

const Json::Value& Parser::Rules(const Json::Value& document) const {
  CheckMembers(document, "the file", {"version", "rules"});
  Integer(Member(document, "the file", "version"), "version", kVersion, kVersion);
  const Json::Value& rules = Member(document, "the file", "rules");
  if (!rules.isArray()) Refuse(rules, "\"rules\" must be an array");
  return rules;
}

Rule Parser::ReadRule(const Json::Value& value) const {
  CheckMembers(value, "a rule", {"code", "group", "when", "for", "clear", "event", "about", "explains"});
  Rule rule;
  rule.code = Integer(Member(value, "a rule", "code"), "code", 1, INT32_MAX);
  const Json::Value& group = Member(value, "a rule", "group");
  if (!group.isString() || std::find(std::begin(kGroups), std::end(kGroups), group.asString()) == std::end(kGroups))
    Refuse(group, group.isString() ? "unknown group " + Quoted(group.asString()) : "\"group\" must be text");
  rule.group = group.asString();
  rule.when = ReadCondition(Member(value, "a rule", "when"));
  if (value.isMember("for")) rule.hold = ReadHold(value["for"]);
  if (value.isMember("clear")) rule.clear = ReadCondition(value["clear"]);
  if (value.isMember("event")) {
    if (!value["event"].isBool()) Refuse(value["event"], "\"event\" must be true or false");
    rule.isEvent = value["event"].asBool();
  }
  if (value.isMember("about")) rule.about = ReadAbout(value["about"]);
  if (value.isMember("explains")) rule.explains = ReadExplained(value["explains"]);
  return rule;
}

std::string Parser::ReadAbout(const Json::Value& value) const {
  const auto fact = value.isString() ? m_facts.find(value.asString()) : m_facts.end();
  if (fact == m_facts.end() || fact->second != FactKind::kText) Refuse(value, "\"about\" must be a fact that is text");
  return value.asString();
}

std::vector<int> Parser::ReadExplained(const Json::Value& value) {
  if (!value.isArray() || value.empty()) Refuse(value, "\"explains\" must be an array of codes");
  std::vector<int> codes;
  for (const Json::Value& each : value) codes.push_back(Integer(each, "explains", 1, INT32_MAX));
  return codes;
}

/// Issues that explain each other would hide each other.
void Parser::CheckCircle(const Rule& rule, const Json::Value& value, const Explanations& explanations) {
  const bool explainsItself = std::find(rule.explains.begin(), rule.explains.end(), rule.code) != rule.explains.end();
  if (explainsItself || Explained(rule.explains, explanations).contains(rule.code))
    Refuse(value, "code " + std::to_string(rule.code) + " would explain itself");
}

Hold Parser::ReadHold(const Json::Value& value) const {
  Hold hold;
  if (value.isObject() && value.isMember("seconds")) {
    CheckMembers(value, "\"for\" with \"seconds\"", {"seconds"});
    hold.seconds = Integer(value["seconds"], "seconds", 1, kLongestHoldSeconds);
    return hold;
  }
  CheckMembers(value, "\"for\"", {"runs", "of"});
  hold.runs = Integer(Member(value, "\"for\"", "runs"), "runs", 1, kMostRuns);
  hold.of = value.isMember("of") ? Integer(value["of"], "of", hold.runs, kMostRuns) : hold.runs;
  return hold;
}

Condition Parser::ReadCondition(const Json::Value& value) const {
  constexpr char kWhat[] = "a condition";
  if (value.isObject() && value.isMember("fact")) return ReadComparison(value);
  CheckMembers(value, kWhat, {"all", "any", "not"});
  if (value.size() != 1) Refuse(value, "a condition is one of \"fact\", \"all\", \"any\" and \"not\"");
  Condition condition;
  if (value.isMember("not")) {
    condition.kind = Condition::Kind::kNot;
    condition.parts.push_back(ReadCondition(value["not"]));
    return condition;
  }
  const char* name = value.isMember("all") ? "all" : "any";
  condition.kind = value.isMember("all") ? Condition::Kind::kAll : Condition::Kind::kAny;
  if (!value[name].isArray() || value[name].empty())
    Refuse(value[name], Quoted(name) + " must be an array of conditions");
  for (const Json::Value& part : value[name]) condition.parts.push_back(ReadCondition(part));
  return condition;
}

FactValue ReadValue(const Json::Value& value) {
  if (value.isBool()) return value.asBool();
  if (value.isNumeric()) return value.asDouble();
  if (value.isString()) return value.asString();
  Refuse(value, "\"value\" must be a number, true or false, or text");
}

Operator ReadOperator(const Json::Value& value) {
  for (const Operator each : kOperators)
    if (value.isString() && value.asString() == NameOf(each)) return each;
  Refuse(value, value.isString() ? "unknown operator " + Quoted(value.asString()) : "\"is\" must be text");
}

/// What the operator compares; nothing for all kinds.
std::optional<FactKind> KindFor(Operator comparison) {
  if (comparison == Operator::kEqual || comparison == Operator::kNotEqual) return std::nullopt;
  return comparison == Operator::kHas ? FactKind::kText : FactKind::kNumber;
}

bool IsWord(const std::string& text) {
  return !text.empty() && text.find(' ') == std::string::npos;
}

Condition Parser::ReadComparison(const Json::Value& value) const {
  constexpr char kWhat[] = "a comparison";
  CheckMembers(value, kWhat, {"fact", "is", "value"});
  if (!value["fact"].isString()) Refuse(value["fact"], "\"fact\" must be text");
  Condition condition;
  condition.fact = value["fact"].asString();
  condition.comparison = ReadOperator(Member(value, kWhat, "is"));
  if (!HasValue(condition.comparison)) {
    const std::string name = Quoted(NameOf(condition.comparison));
    if (value.isMember("value")) Refuse(value["value"], name + " compares with no value");
    CheckFact(value, condition.fact, std::nullopt);
    const auto known = m_facts.find(condition.fact);
    if (condition.comparison == Operator::kOther && known != m_facts.end() && known->second != FactKind::kText)
      Refuse(value["fact"], name + " needs text, " + Quoted(condition.fact) + " is " + NameOf(known->second));
    return condition;
  }
  condition.value = ReadValue(Member(value, kWhat, "value"));
  const auto kind = static_cast<FactKind>(condition.value.index() - 1);
  CheckFact(value, condition.fact, kind);
  if (const auto needed = KindFor(condition.comparison).value_or(kind); needed != kind)
    Refuse(value["is"],
           Quoted(NameOf(condition.comparison)) + " needs " + NameOf(needed) + ", the value is " + NameOf(kind));
  if (condition.comparison == Operator::kHas && !IsWord(std::get<std::string>(condition.value)))
    Refuse(value["value"], "the value is not one word");
  return condition;
}

/// `kind`: of the value that it is compared with.
void Parser::CheckFact(const Json::Value& value, const std::string& fact, std::optional<FactKind> kind) const {
  if (fact.starts_with(kSettingPrefix)) {
    if (const char* problem = settings::KeyProblem(std::string_view(fact).substr(kSettingPrefix.size())))
      Refuse(value["fact"], Quoted(fact) + ": " + problem);
    return;
  }
  const auto known = m_facts.find(fact);
  if (known == m_facts.end()) Refuse(value["fact"], "unknown fact " + Quoted(fact));
  if (kind && known->second != *kind)
    Refuse(value["value"], Quoted(fact) + " is " + NameOf(known->second) + ", the value is " + NameOf(*kind));
}

RuleMistake Parser::MistakeAt(ptrdiff_t offset, const std::string& reason) const {
  const auto at = static_cast<size_t>(std::max<ptrdiff_t>(offset, 0));
  const auto next = std::upper_bound(m_lines.begin(), m_lines.end(), at);
  return {.line = static_cast<int>(next - m_lines.begin()),
          .column = static_cast<int>(at - *std::prev(next)) + 1,
          .reason = reason};
}

}  // namespace

std::string ToText(const RuleMistake& mistake, std::string_view file) {
  return std::string(file) + ":" + std::to_string(mistake.line) + ":" + std::to_string(mistake.column) + ": " +
         mistake.reason;
}

RuleFile ParseRules(std::string_view text, const FactKinds& facts) {
  return Parser(text, facts).Read();
}

}  // namespace trevlin
