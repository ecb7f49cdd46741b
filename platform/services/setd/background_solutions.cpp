#include "setd/background_solutions.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>

#include "SolutionMap.h"
#include "set_paths.h"
#include "setd/request.h"
#include "setd/setd_log.h"

namespace setd {

namespace {

QUVA::QUVA_SolutionMap ReadMap() {
  QUVA::QUVA_SolutionMap map;
  std::string problem;
  const bool read = ReadSolutionMap(map, problem);
  if (!problem.empty())
    Log(DLOG_ERROR,
        std::string(set_paths::kSolutionMap) + ": " + problem + (read ? "" : "; nothing is solved in the background"));
  return read ? map : QUVA::QUVA_SolutionMap();
}

/// When the issue became true whose solution has not been recorded since; nothing when there is none.
std::optional<std::string> DueSince(trevlin::Database& database, int code) {
  std::vector<_DTInfDBRecord> trues;
  _DTSolDBRecord last;
  if (database.Transitions(code, DT_TRANSITION_TYPE_TRUE, trues) != TREVLIN_OK) return std::nullopt;
  const int result = database.NewestSolution(code, last);
  const std::string& since = trues.front().lastUpdateTime;
  if (result == TREVLIN_NO_MATCH || (result == TREVLIN_OK && last.registerTime < since)) return since;
  return std::nullopt;
}

bool Perform(const std::string& type) {
  if (type == "memboost" || type == "deepclean")
    return LeaveRequest(type == "memboost" ? Kind::kMemoryBoost : Kind::kDeepClean);
  errno = ENOTSUP;
  return false;
}

void Apply(trevlin::Database& database, const QUVA::QUVA_Solution& solution, const std::string& since) {
  for (const auto& [type, value] : solution.sol_values)
    if (!Perform(type))
      return Log(DLOG_ERROR, "solution of issue " + solution.issue_code + " was not applied: [" + type +
                                 "]: " + std::strerror(errno));
  _DTSolDBRecord record;
  record.issueCode = std::atoi(solution.issue_code.c_str());
  record.solutionCode = std::atoi(solution.sol_code.c_str());
  record.type = std::atoi(solution.sol_type.c_str());
  record.isApply = 1;
  record.registerTime = std::max(since, trevlin::CurrentTime());
  if (database.AddSolution(record) == TREVLIN_OK)
    Log(DLOG_INFO, "applied the solution of issue " + solution.issue_code);
  else
    Log(DLOG_ERROR,
        "the solution of issue " + solution.issue_code + " was applied and not recorded: " + database.LastError());
}

}  // namespace

void ApplyBackgroundSolutions(trevlin::Database& database, const trevlin::Outcome& outcome) {
  std::set<int> there;
  for (const trevlin::IssueTruth& issue : outcome.issues)
    if (issue.isTrue) there.insert(issue.issueCode);
  if (there.empty()) return;
  for (const QUVA::QUVA_Solution& solution : ReadMap().solutions) {
    const int code = std::atoi(solution.issue_code.c_str());
    if (solution.is_fg_bg != QUVA::kBackgroundSolution || !there.contains(code)) continue;
    if (const auto since = DueSince(database, code)) Apply(database, solution, *since);
  }
}

}  // namespace setd
