#include "IssueResolution.h"

#include <cstdlib>

#include "VexiloLog.h"

namespace QUVA {

namespace {

constexpr int kResolvedIndex = 1;
constexpr int kFreshIssue = 0;

constexpr long kFirstOnDemandIssue = 10000000;
constexpr long kLastOnDemandIssue = 19999999;

constexpr char kSeparator[] = "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@";
static_assert(sizeof kSeparator == 83 + 1);

bool IsOnDemand(const std::string& issueCode) {
  const long code = std::strtol(issueCode.c_str(), nullptr, 10);
  return code >= kFirstOnDemandIssue && code <= kLastOnDemandIssue;
}

void LogFailure(int code, const char* what, int result) {
  VEXILO_LOGE("GetInferenceDB API Error : %d", result);
  VEXILO_LOGE("issue %d: its %s cannot be read", code, what);
}

// Whether the engine could say when the issue became what `type` is, newest first.
bool AskTransitions(int code, int type, const char* typeName, std::vector<_DTInfDBRecord>& out) {
  const int result = GetInferenceDB(code, type, &out);
  if (result == TREVLIN_NO_MATCH)
    VEXILO_LOGD("No Matching %s InferenceDB : %u", typeName, static_cast<unsigned>(code));
  else if (result != TREVLIN_OK)
    LogFailure(code, typeName, result);
  return result == TREVLIN_OK;
}

}  // namespace

std::optional<TrueIssue> FindTrueIssue(int code) {
  TrueIssue issue;
  if (!AskTransitions(code, DT_TRANSITION_TYPE_TRUE, "DT_TRANSITION_TYPE_TRUE", issue.trues)) return std::nullopt;
  if (issue.trues.empty()) {
    VEXILO_LOGD("TR true Result is empty! : %u", static_cast<unsigned>(code));
    return std::nullopt;
  }
  const _DTInfDBRecord& inf = issue.trues[0];

  std::vector<_DTInfDBRecord> falses;
  if (!AskTransitions(code, DT_TRANSITION_TYPE_FALSE, "DT_TRANSITION_TYPE_FALSE", falses)) {
    // What cannot be asked has not been seen to clear.
  } else if (falses.empty()) {
    VEXILO_LOGD("TR False result is empty! : %u", static_cast<unsigned>(code));
  } else if (IsLater(falses[0].lastUpdateTime, inf.lastUpdateTime)) {
    VEXILO_LOGD("Skip because of time. TR_0 Time: [%s] >>> TR_1 Time : [%s]", falses[0].lastUpdateTime.c_str(),
                inf.lastUpdateTime.c_str());
    return std::nullopt;
  }

  const int result = GetSolutionDB(code, &issue.solution);
  if (result == TREVLIN_NO_MATCH)
    VEXILO_LOGD("No Matching SolutionDB : %u", static_cast<unsigned>(code));
  else if (result != TREVLIN_OK)
    LogFailure(code, "solution", result);

  VEXILO_LOGD("First Inf Result : %d %d %d %s %s", inf.issueCode, inf.transitionType, inf.status, inf.detail.c_str(),
              inf.lastUpdateTime.c_str());
  VEXILO_LOGD("Sol Result : %d %d %d %d %s", issue.solution.issueCode, issue.solution.solutionCode, issue.solution.type,
              issue.solution.isApply, issue.solution.registerTime.c_str());
  return issue;
}

bool IsUnsolved(const QUVA_Solution& solution, const _DTInfDBRecord& inf, const _DTSolDBRecord& solRecord) {
  if (solRecord.issueCode != inf.issueCode) {
    VEXILO_LOGD("find!!!");
  } else if (IsLater(inf.lastUpdateTime, solRecord.registerTime)) {
    VEXILO_LOGD("sol.issue_code[%s], inf_data.at(0).issue_code [%d], inf_data.at(0).tr_type [%d]",
                solution.issue_code.c_str(), inf.issueCode, inf.transitionType);
    VEXILO_LOGD("find!!!");
  } else if (solRecord.isApply == 0) {
    VEXILO_LOGD("sol.issue_code[%s], inf_data.at(0).issue_code [%d], sol_data.isApply [%d]",
                solution.issue_code.c_str(), inf.issueCode, solRecord.isApply);
    VEXILO_LOGD("find!!!");
  } else {
    VEXILO_LOGD("%s", kSeparator);
    VEXILO_LOGD(
        "FindErrorCodeInDB Error! sol.issue_code : [%s], inf_data.at(0).issue_code : [%d], sol_data.issue_code : [%d] "
        "\n/// inf_data.lastUpdateTime : [%s] << sol_data.registerTime [%s]",
        solution.issue_code.c_str(), inf.issueCode, solRecord.issueCode, inf.lastUpdateTime.c_str(),
        solRecord.registerTime.c_str());
    VEXILO_LOGD("%s", kSeparator);
    return false;
  }
  return true;
}

MapToDBTable RowOf(const QUVA_Solution& solution, const _DTInfDBRecord& inf) {
  return {.index = kResolvedIndex,
          .issue_code = solution.issue_code,
          .is_fix = kFreshIssue,
          .last_time = inf.lastUpdateTime,
          .sol_type = solution.sol_type,
          .sol_name = solution.sol_name,
          .sid_issue = solution.sid_issue,
          .sid_sol = solution.sid_sol,
          .sid_button1 = solution.sid_button1,
          .sid_button2 = solution.sid_button2,
          .action = solution.action,
          .toast1 = solution.toast1,
          .toast2 = solution.toast2,
          .source = solution.source,
          .view_authority = solution.view_authority};
}

bool IsFalseNow(int code) {
  std::vector<_DTInfDBRecord> trues, falses;
  return AskTransitions(code, DT_TRANSITION_TYPE_TRUE, "DT_TRANSITION_TYPE_TRUE", trues) &&
         AskTransitions(code, DT_TRANSITION_TYPE_FALSE, "DT_TRANSITION_TYPE_FALSE", falses) && !trues.empty() &&
         !falses.empty() && IsLater(falses[0].lastUpdateTime, trues[0].lastUpdateTime);
}

bool HasCleared(const MapToDBTable& row) {
  const int code = NumberOf(row.issue_code);
  VEXILO_LOGD("INT_ISSUE_CODE : %d", code);
  if (!IsOnDemand(row.issue_code)) return false;
  VEXILO_LOGD("ONDEMAND ISSUE");
  std::vector<_DTInfDBRecord> falses;
  if (!AskTransitions(code, DT_TRANSITION_TYPE_FALSE, "DT_TRANSITION_TYPE_FALSE", falses)) return false;
  if (falses.empty()) {
    VEXILO_LOGD("Result is Empty");
    return false;
  }
  VEXILO_LOGD("INT_RESULT_TR_FALSE_TIME [%s] LAST_TIME [%s]", falses[0].lastUpdateTime.c_str(), row.last_time.c_str());
  return IsLater(falses[0].lastUpdateTime, row.last_time);
}

}  // namespace QUVA
