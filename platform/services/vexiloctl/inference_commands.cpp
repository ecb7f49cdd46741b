// What the engine infers on this machine, and from what.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/atomic_file.h"
#include "command.h"
#include "set_paths.h"
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
  if (!ReadWholeFile(path, text)) throw Failure(name + ": " + std::strerror(errno));
  return text;
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

Json::Value ToJson(const trevlin::Outcome& outcome, const std::vector<trevlin::Transition>& changes,
                   const Titles& titles) {
  Json::Value run;
  run["microseconds"] = static_cast<Json::Int64>(outcome.took.count());
  run["collectors"] = Json::arrayValue;
  for (const trevlin::Reading& each : outcome.readings) {
    Json::Value& collector = run["collectors"].append(Json::objectValue);
    collector["name"] = each.collector;
    collector["state"] = std::string(NameOf(each.state));
    collector["microseconds"] = static_cast<Json::Int64>(each.took.count());
  }
  run["changes"] = Json::arrayValue;
  for (const trevlin::Transition& each : changes) {
    Json::Value& change = run["changes"].append(Json::objectValue);
    change["time"] = each.time;
    change["issue_code"] = each.issueCode;
    change["true"] = each.type == DT_TRANSITION_TYPE_TRUE;
    change["title"] = titles.OfIssue(each.issueCode);
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

void PrintChanges(const std::vector<trevlin::Transition>& changes, const Titles& titles) {
  if (changes.empty()) return;
  Table table({"CODE", "NOW", "TITLE"});
  for (const trevlin::Transition& each : changes)
    table.Add({std::to_string(each.issueCode), each.type == DT_TRANSITION_TYPE_TRUE ? "true" : "false",
               titles.OfIssue(each.issueCode)});
  table.Print();
  Print("\n");
}

void PrintRun(const trevlin::Outcome& outcome, size_t rules, const std::vector<trevlin::Transition>& changes,
              const Titles& titles) {
  PrintReadings(outcome.readings);
  PrintChanges(changes, titles);
  const auto isTrue = [](const trevlin::IssueTruth& issue) { return issue.isTrue; };
  Print("In " + Milliseconds(outcome.took) + " " + std::to_string(outcome.issues.size()) + " of " +
        std::to_string(rules) +
        " rules were decided: " + std::to_string(std::count_if(outcome.issues.begin(), outcome.issues.end(), isTrue)) +
        " true, " + std::to_string(changes.size()) + " changed\n");
}

std::string KindOf(std::string_view fact) {
  return std::string(fact.substr(0, fact.find('.')));
}

/// The facts that the words name; all for none.
CollectorPool::Names Wanted(const std::vector<std::string>& words, const Inference& inference) {
  CollectorPool::Names names;
  for (const std::string& word : words.empty() ? std::vector<std::string>{""} : words) {
    const size_t before = names.size();
    if (word.starts_with(trevlin::kSettingPrefix)) names.insert(word);
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
  if (!inference.HasRules()) ReadRules(SystemPath(set_paths::kRules), set_paths::kRules);
  const trevlin::Outcome outcome = inference.Run(trevlin::kLongestRun);
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  std::vector<trevlin::Transition> changes;
  const int result = RecordOutcome(database, outcome, changes);
  const Titles titles;
  if (arguments.json)
    Print(JsonLine(ToJson(outcome, changes, titles)));
  else
    PrintRun(outcome, inference.Rules().size(), changes, titles);
  if (result != TREVLIN_OK) throw Failure(database.LastError());
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
  const std::string found = name + ": good rules: " + std::to_string(file.rules.size()) +
                            ", mistakes: " + std::to_string(file.mistakes.size());
  Flush();
  if (!file.mistakes.empty()) throw Failure(found);
  if (!arguments.json) Print(found + "\n");
}

void EngineRulesList(const Arguments& arguments) {
  Inference inference(trevlin::MakeCollectors());
  if (!inference.HasRules()) ReadRules(SystemPath(set_paths::kRules), set_paths::kRules);
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
          object["title"] = title;
          return object;
        },
        [&]() -> std::vector<std::string> {
          return {std::to_string(rule.code), rule.group, trevlin::IsOnDemand(rule.code) ? "yes" : "no", title,
                  ToText(rule)};
        });
  }
  listing.Print();
}

}  // namespace vexiloctl
