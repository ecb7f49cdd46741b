// What the engine infers on this machine, and from what.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/atomic_file.h"
#include "command.h"
#include "set_paths.h"
#include "settings/settings_store.h"
#include "system_path.h"
#include "titles.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/inference.h"

namespace vexiloctl {

namespace {

using trevlin::CollectorPool;
using trevlin::Inference;

std::string ReadRules(const std::string& path, const std::string& name) {
  std::string text;
  if (!ReadWholeFile(path, text))
    throw Failure(name + ": " + (errno == EINVAL ? "it is not a regular file" : WhyUnread(errno)));
  return text;
}

/// Has the engine read the set's rules, and tells what is wrong with them.
void LoadRules(Inference& inference) {
  if (!inference.HasRules()) ReadRules(SystemPath(set_paths::kRules), set_paths::kRules);
  for (const trevlin::RuleMistake& mistake : inference.RuleMistakes())
    Complain(Visible(ToText(mistake, set_paths::kRules)));
}

/// After what there is to print.
void FailForMistakes(const Inference& inference) {
  const size_t mistakes = inference.RuleMistakes().size();
  Flush();
  if (mistakes != 0) throw Failure(std::string(set_paths::kRules) + ": mistakes: " + std::to_string(mistakes));
}

std::string Milliseconds(std::chrono::microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(time.count()) / 1000);
  return text;
}

/// As people read it: two decimals are enough.
std::string Rounded(const trevlin::FactValue& value) {
  const double* number = std::get_if<double>(&value);
  return trevlin::ToText(number ? std::round(*number * 100) / 100 : value);
}

Json::Value ToJson(const trevlin::FactValue& value) {
  if (const bool* truth = std::get_if<bool>(&value)) return *truth;
  if (const double* number = std::get_if<double>(&value)) return *number;
  if (const std::string* text = std::get_if<std::string>(&value)) return *text;
  return {};
}

/// A run of the engine, as it is told.
struct Run {
  const std::vector<trevlin::Rule>& rules;
  const trevlin::Outcome& outcome;
  const std::vector<trevlin::Transition>& changes;
  const std::vector<int>& standing;  ///< the issues that are there, whoever found them, and when
  const Titles& titles;

  bool HasChanged(int code) const {
    return std::any_of(changes.begin(), changes.end(), [code](const auto& each) { return each.issueCode == code; });
  }
  bool IsDecided(int code) const {
    return std::any_of(outcome.issues.begin(), outcome.issues.end(),
                       [code](const auto& each) { return each.issueCode == code; });
  }
};

Json::Value ToJson(const Run& told) {
  Json::Value run;
  run["microseconds"] = static_cast<Json::Int64>(told.outcome.took.count());
  run["collectors"] = Json::arrayValue;
  for (const trevlin::Reading& each : told.outcome.readings) {
    Json::Value& collector = run["collectors"].append(Json::objectValue);
    collector["name"] = each.collector;
    collector["state"] = std::string(NameOf(each.state));
    collector["microseconds"] = static_cast<Json::Int64>(each.took.count());
  }
  run["issues"] = Json::arrayValue;
  for (const trevlin::IssueTruth& each : told.outcome.issues) {
    Json::Value& issue = run["issues"].append(Json::objectValue);
    issue["code"] = each.issueCode;
    issue["title"] = told.titles.OfIssue(each.issueCode);
    issue["true"] = each.isTrue;
    issue["changed"] = told.HasChanged(each.issueCode);
  }
  run["there"] = Json::arrayValue;
  for (const int code : told.standing) {
    Json::Value& issue = run["there"].append(Json::objectValue);
    issue["code"] = code;
    issue["title"] = told.titles.OfIssue(code);
  }
  run["undecided"] = Json::arrayValue;
  for (const trevlin::Rule& rule : told.rules)
    if (!told.IsDecided(rule.code)) run["undecided"].append(rule.code);
  run["changes"] = Json::arrayValue;
  for (const trevlin::Transition& each : told.changes) {
    Json::Value& change = run["changes"].append(Json::objectValue);
    change["time"] = each.time;
    change["issue_code"] = each.issueCode;
    change["true"] = each.type == DT_TRANSITION_TYPE_TRUE;
    change["title"] = told.titles.OfIssue(each.issueCode);
  }
  return run;
}

Json::Value ToJson(const trevlin::RuleMistake& mistake, const std::string& file) {
  Json::Value object;
  object["file"] = file;
  object["line"] = mistake.line;
  object["column"] = mistake.column;
  object["reason"] = mistake.reason;
  return object;
}

void PrintReadings(const std::vector<trevlin::Reading>& readings) {
  if (readings.empty()) return;
  Table table({"COLLECTOR", "STATE", "TOOK"});
  for (const trevlin::Reading& each : readings)
    table.Add({each.collector, std::string(NameOf(each.state)), Milliseconds(each.took)});
  table.Print();
  Print("\n");
}

/// The issues that are there, and those that are no longer.
void PrintIssues(const Run& run) {
  Table table({"CODE", "NOW", "TITLE"});
  bool any = false;
  for (const trevlin::IssueTruth& each : run.outcome.issues) {
    const bool changed = run.HasChanged(each.issueCode);
    if (!each.isTrue && !changed) continue;
    any = true;
    const char* now = !each.isTrue ? "cleared" : changed ? "true, new" : "true";
    table.Add({std::to_string(each.issueCode), now, run.titles.OfIssue(each.issueCode)});
  }
  for (const int code : run.standing) {
    if (run.IsDecided(code)) continue;
    any = true;
    table.Add({std::to_string(code), "true, not decided now", run.titles.OfIssue(code)});
  }
  if (!any) return;
  table.Print();
  Print("\n");
}

void PrintRun(const Run& run) {
  PrintReadings(run.outcome.readings);
  PrintIssues(run);
  const auto& issues = run.outcome.issues;
  const auto isTrue = [](const trevlin::IssueTruth& issue) { return issue.isTrue; };
  Print("In " + Milliseconds(run.outcome.took) + " " + std::to_string(issues.size()) + " of " +
        std::to_string(run.rules.size()) +
        " rules were decided: " + std::to_string(std::count_if(issues.begin(), issues.end(), isTrue)) + " true, " +
        std::to_string(run.changes.size()) + " changed\n");
}

std::string KindOf(std::string_view fact) {
  return std::string(fact.substr(0, fact.find('.')));
}

/// The facts that the words name; all for none.
CollectorPool::Names Wanted(const std::vector<std::string>& words, const Inference& inference) {
  CollectorPool::Names names;
  for (const std::string& word : words.empty() ? std::vector<std::string>{""} : words) {
    const size_t before = names.size();
    if (word.starts_with(trevlin::kSettingPrefix)) {
      if (const char* problem = settings::KeyProblem(std::string_view(word).substr(trevlin::kSettingPrefix.size())))
        throw UsageError("NAME \"" + word + "\": " + problem);
      names.insert(word);
    }
    for (const auto& [fact, collector] : inference.KnownFacts())
      if (word.empty() || word == fact.name || word == KindOf(fact.name)) names.emplace(fact.name);
    if (names.size() == before && !word.empty() && !names.contains(word))
      throw Failure("unknown fact \"" + word + "\"");
  }
  return names;
}

void AddFact(Listing& listing, const trevlin::FactDescription& fact, std::string_view collector,
             const trevlin::FactValue& value) {
  listing.Add(
      [&] {
        Json::Value object;
        object["name"] = std::string(fact.name);
        object["value"] = ToJson(value);
        object["unit"] = std::string(fact.unit);
        object["meaning"] = std::string(fact.meaning);
        object["collector"] = std::string(collector);
        return object;
      },
      [&]() -> std::vector<std::string> {
        const std::string unit = fact.unit.empty() || value.index() == 0 ? "" : " " + std::string(fact.unit);
        return {std::string(fact.name), Rounded(value) + unit, std::string(fact.meaning)};
      });
}

}  // namespace

void EngineRun(const Arguments& arguments) {
  Inference inference(trevlin::MakeCollectors());
  LoadRules(inference);
  trevlin::Outcome outcome = inference.Run(trevlin::kLongestRun);
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  std::vector<trevlin::Transition> changes;
  const int result = RecordOutcome(database, outcome, changes);
  std::vector<int> standing;
  database.StandingIssues(standing);
  const Titles titles;
  const Run run{inference.Rules(), outcome, changes, standing, titles};
  if (arguments.json)
    Print(JsonLine(ToJson(run)));
  else
    PrintRun(run);
  if (result != TREVLIN_OK) throw Failure(database.LastError());
  FailForMistakes(inference);
}

void EngineFacts(const Arguments& arguments) {
  Inference inference(trevlin::MakeCollectors());
  const CollectorPool::Names names = Wanted(arguments.values, inference);
  trevlin::Facts facts;
  inference.ReadFacts(names, CollectorPool::Age::kFresh, trevlin::kLongestRun, facts);
  Listing listing(arguments.json, {"FACT", "VALUE", "MEANING"});
  for (const auto& [fact, collector] : inference.KnownFacts())
    if (names.contains(fact.name)) AddFact(listing, fact, collector, facts[std::string(fact.name)]);
  for (const std::string& name : names)
    if (name.starts_with(trevlin::kSettingPrefix))
      AddFact(listing, {name, trevlin::FactKind::kText, "", "a settings key"}, "settings", facts[name]);
  listing.Print();
}

void EngineRulesCheck(const Arguments& arguments) {
  const Inference inference(trevlin::MakeCollectors());
  const bool own = arguments.values.empty();
  const std::string name = own ? set_paths::kRules : arguments.values[0];
  const std::string text = ReadRules(own ? SystemPath(name) : name, name);
  const trevlin::RuleFile file = trevlin::ParseRules(text, inference.KnownKinds());
  for (const trevlin::RuleMistake& mistake : file.mistakes)
    Print(arguments.json ? JsonLine(ToJson(mistake, name)) : Visible(ToText(mistake, name)) + "\n");
  const Titles titles;
  for (const trevlin::Rule& rule : file.rules)
    if (!titles.HasIssue(rule.code))
      Complain(name + ": note: issue " + std::to_string(rule.code) + " has no solution in " + set_paths::kSolutionMap);
  const std::string found = name + ": good rules: " + std::to_string(file.rules.size()) +
                            ", mistakes: " + std::to_string(file.mistakes.size());
  Flush();
  if (!file.mistakes.empty()) throw Failure(found);
  if (!arguments.json) Print(found + "\n");
}

void EngineRulesList(const Arguments& arguments) {
  Inference inference(trevlin::MakeCollectors());
  LoadRules(inference);
  const Titles titles;
  Listing listing(arguments.json, {"CODE", "GROUP", "ON DEMAND", "TITLE", "WHEN"});
  for (const trevlin::Rule& rule : inference.Rules()) {
    const std::string title = titles.OfIssue(rule.code);
    listing.Add(
        [&] {
          Json::Value object;
          object["issue_code"] = rule.code;
          object["group"] = rule.group;
          object["on_demand"] = trevlin::IsOnDemand(rule.code);
          object["event"] = rule.isEvent;
          object["when"] = ToText(rule.when);
          object["for"] = ToText(rule.hold);
          object["clear"] = rule.clear ? ToText(*rule.clear) : "";
          object["explains"] = Json::arrayValue;
          for (const int code : rule.explains) object["explains"].append(code);
          object["title"] = title;
          return object;
        },
        [&]() -> std::vector<std::string> {
          return {std::to_string(rule.code), rule.group, trevlin::IsOnDemand(rule.code) ? "yes" : "no", title,
                  ToText(rule)};
        });
  }
  listing.Print();
  FailForMistakes(inference);
}

}  // namespace vexiloctl
