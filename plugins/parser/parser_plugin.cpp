#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "QUVA_DiagResultManager.h"
#include "QUVA_ParserPlugin.h"
#include "QUVA_Storage.h"
#include "SolutionMap.h"
#include "VexiloLog.h"
#include "agreed_actions.h"
#include "set_paths.h"
#include "solution_actions.h"
#include "trevlin_engine.h"

using namespace QUVA;

namespace {

constexpr int kDone = 0;
constexpr int kFailed = -1;

// The engine knows issues by 32-bit numbers.
void CheckCodes(const QUVA_SolutionMap& map) {
  for (const QUVA_Solution& solution : map.solutions) {
    errno = 0;
    const long code = std::strtol(solution.issue_code.c_str(), nullptr, 10);
    if (code < 1 || code > INT32_MAX || errno != 0)
      VEXILO_LOGE("%s: issue code [%s] is no number from 1 to %d", set_paths::kSolutionMap, solution.issue_code.c_str(),
                  INT32_MAX);
  }
}

void Store(QUVA_SolutionMap& map) {
  TCInformationStorage* storage = TCInformationStorage::Instance();
  storage->SetSolutionInformation(map.count, std::move(map.solutions));
  storage->SetSMCount(map.count);
  storage->SetSMVersion(map.version);
}

std::optional<QUVA_Solution> FindSolution(const char* issueCode) {
  unsigned int count = 0;
  std::vector<QUVA_Solution> solutions;
  TCInformationStorage::Instance()->GetSolutionInformation(count, solutions);
  const auto at = std::find_if(solutions.begin(), solutions.end(),
                               [issueCode](const QUVA_Solution& solution) { return solution.issue_code == issueCode; });
  if (at != solutions.end()) return std::move(*at);
  VEXILO_LOGE("issue %s has no solution in %s", issueCode, set_paths::kSolutionMap);
  return std::nullopt;
}

int Record(const QUVA_Solution& solution, bool applied) {
  _DTSolDBRecord record;
  record.issueCode = std::atoi(solution.issue_code.c_str());
  record.solutionCode = std::atoi(solution.sol_code.c_str());
  record.type = std::atoi(solution.sol_type.c_str());
  record.isApply = applied;
  record.registerTime = QUVA_DiagResultManager::GetInstance()->GetCurrentTime();
  const int result = SetSolutionDB(record);
  if (result != TREVLIN_OK)
    VEXILO_LOGE("solution of issue %s was not recorded: error %d", solution.issue_code.c_str(), result);
  return result == TREVLIN_OK ? kDone : kFailed;
}

// Nothing that is thrown may leave the plug-in.
template <typename Operation>
auto Guarded(decltype(std::declval<Operation>()()) failure, Operation operation) noexcept {
  try {
    return operation();
  } catch (const std::exception& error) {
    VEXILO_LOGE("the parser plug-in failed: %s", error.what());
    return failure;
  }
}

int ReadAndStoreMap() {
  QUVA_SolutionMap map;
  std::string problem;
  const bool read = ReadSolutionMap(map, problem);
  if (!problem.empty())
    VEXILO_LOGE("%s: %s%s", set_paths::kSolutionMap, problem.c_str(), read ? "" : "; no solution of it is used");
  if (!read) return kFailed;
  CheckCodes(map);
  Store(map);
  return kDone;
}

// Whether the engine can see the issue pass (docs/solution-map.md): what did not help is told then.
bool CanPass(const char* issueCode) {
  constexpr int kFirstState = 10000000, kFirstEvent = 20000000;
  const int code = std::atoi(issueCode);
  return code >= kFirstState && code < kFirstEvent;
}

int Apply(const char* issueCode, const std::function<int(const std::string& type, const std::string& value)>& perform) {
  const auto solution = FindSolution(issueCode);
  if (!solution) return kFailed;
  // What the viewer does himself nobody has seen.
  int outcome = solution->sol_values.empty() ? SOLUTION_TRIED : SOLUTION_DONE;
  for (const auto& [type, value] : solution->sol_values) {
    const int step = perform(type, value);
    if (step == SOLUTION_FAILED) {
      VEXILO_LOGE("solution of issue %s was not applied: [%s] [%s] failed", issueCode, type.c_str(), value.c_str());
      return SOLUTION_FAILED;
    }
    if (outcome != SOLUTION_OPENED && step != SOLUTION_DONE) outcome = step;
  }
  if (outcome == SOLUTION_TRIED && !CanPass(issueCode)) outcome = SOLUTION_DONE;
  const int recorded = Record(*solution, outcome == SOLUTION_DONE || outcome == SOLUTION_TRIED);
  // Whether it helped shows later.
  RecheckIssue(std::atoi(issueCode));
  return recorded == kDone ? outcome : SOLUTION_FAILED;
}

}  // namespace

int ParseSolutionMap() {
  return Guarded(kFailed, ReadAndStoreMap);
}

int RequestApplySolution(const char* issueCode) {
  return Guarded(int{SOLUTION_FAILED}, [issueCode] {
    std::string advice;
    return Apply(issueCode, [&advice](const std::string& type, const std::string& value) {
      return solution_actions::Perform(type, value, advice);
    });
  });
}

int PlanSolution(const char* issueCode, SolutionPlan* plan) {
  return Guarded(kFailed, [issueCode, plan] {
    *plan = {};
    const auto solution = FindSolution(issueCode);
    if (!solution) return kFailed;
    for (const auto& [type, value] : solution->sol_values) agreed_actions::Plan(type, *plan);
    return kDone;
  });
}

int ApplyAgreedSolution(const char* issueCode, const SolutionPlan* agreed, SolutionEffect* effect) {
  return Guarded(int{SOLUTION_FAILED}, [issueCode, agreed, effect] {
    *effect = {};
    return Apply(issueCode, [agreed, effect](const std::string& type, const std::string& value) {
      return agreed_actions::Handles(type) ? agreed_actions::Perform(type, *agreed, *effect)
                                           : solution_actions::Perform(type, value, effect->advice);
    });
  });
}

int SaveResultToSolutionDB(const char* issueCode, const char* result) {
  return Guarded(kFailed, [issueCode, result] {
    const auto solution = FindSolution(issueCode);
    return solution ? Record(*solution, std::strcmp(result, kDeclined) != 0) : kFailed;
  });
}

bool ProcessLaunchApp(const char* applicationId) {
  return Guarded(false, [applicationId] { return solution_actions::Launch(applicationId) != SOLUTION_FAILED; });
}
