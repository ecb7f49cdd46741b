#include <charconv>
#include <optional>

#include "command.h"
#include "set_paths.h"
#include "titles.h"
#include "trevlin/trevlin_database.h"

namespace vexiloctl {

namespace {

using trevlin::Database;

int ReadCode(const std::string& text) {
  int code = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, code);
  if (error != std::errc() || parsed != end || code < 1)
    throw UsageError("CODE \"" + text + "\": it is not a decimal number from 1 to 2147483647");
  return code;
}

bool ReadTruth(const std::string& text) {
  if (text != "true" && text != "false") throw UsageError("\"" + text + "\": it is neither true nor false");
  return text == "true";
}

void TellOfMore(size_t count, const char* path) {
  if (count >= trevlin::kMostRows)
    Complain(std::string(path) + ": the newest " + std::to_string(count) + " rows are looked at, older ones are not");
}

void Check(int result, const Database& database) {
  if (result != TREVLIN_OK && result != TREVLIN_NO_MATCH) throw Failure(database.LastError());
}

}  // namespace

void EngineList(const Arguments& arguments) {
  std::optional<int> wanted;
  if (!arguments.values.empty()) wanted = ReadCode(arguments.values[0]);
  Database database(Database::Access::kReadOnly);
  std::vector<trevlin::Transition> transitions;
  Check(database.AllTransitions(transitions), database);
  TellOfMore(transitions.size(), set_paths::kInferenceDb);

  const Titles titles;
  Listing listing(arguments.json, {"TIME", "CODE", "TRUE", "TITLE"});
  for (const trevlin::Transition& each : transitions) {
    if (wanted && each.issueCode != *wanted) continue;
    const std::string title = titles.OfIssue(each.issueCode);
    listing.Add(
        [&] {
          Json::Value object;
          object["time"] = each.time;
          object["register_time"] = each.registerTime;
          object["issue_code"] = each.issueCode;
          object["true"] = each.type == DT_TRANSITION_TYPE_TRUE;
          object["solution_code"] = each.solutionCode;
          object["title"] = title;
          return object;
        },
        [&]() -> std::vector<std::string> {
          return {each.time, std::to_string(each.issueCode), each.type == DT_TRANSITION_TYPE_TRUE ? "true" : "false",
                  title};
        });
  }
  listing.Print();
}

void EngineRecord(const Arguments& arguments) {
  const trevlin::Transition transition{
      .time = arguments.values.size() > 2 ? arguments.values[2] : trevlin::CurrentTime(),
      .issueCode = ReadCode(arguments.values[0]),
      .type = ReadTruth(arguments.values[1]) ? DT_TRANSITION_TYPE_TRUE : DT_TRANSITION_TYPE_FALSE};
  if (!trevlin::IsTime(transition.time))
    throw UsageError("TIME \"" + transition.time + "\": it is not a local time like 2024-03-07T09:05:00");
  Database database(Database::Access::kReadWrite);
  Check(database.AddTransition(transition), database);
}

void EngineSolutions(const Arguments& arguments) {
  Database database(Database::Access::kReadOnly);
  std::vector<_DTSolDBRecord> solutions;
  Check(database.AllSolutions(solutions), database);
  TellOfMore(solutions.size(), set_paths::kSolutionDb);

  const Titles titles;
  Listing listing(arguments.json, {"TIME", "CODE", "SOLUTION", "TYPE", "APPLIED", "TITLE"});
  for (const _DTSolDBRecord& each : solutions) {
    const std::string title = titles.OfIssue(each.issueCode);
    listing.Add(
        [&] {
          Json::Value object;
          object["time"] = each.registerTime;
          object["issue_code"] = each.issueCode;
          object["solution_code"] = each.solutionCode;
          object["type"] = each.type;
          object["applied"] = each.isApply != 0;
          object["title"] = title;
          return object;
        },
        [&]() -> std::vector<std::string> {
          return {each.registerTime,         std::to_string(each.issueCode), std::to_string(each.solutionCode),
                  std::to_string(each.type), each.isApply ? "yes" : "no",    title};
        });
  }
  listing.Print();
}

}  // namespace vexiloctl
