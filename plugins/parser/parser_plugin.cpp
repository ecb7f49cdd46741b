#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "QUVA_DiagResultManager.h"
#include "QUVA_ParserPlugin.h"
#include "QUVA_Storage.h"
#include "QUVA_XMLParser.h"
#include "VexiloLog.h"
#include "c_handle.h"
#include "set_paths.h"
#include "solution_actions.h"
#include "system_path.h"
#include "trevlin_engine.h"

using namespace QUVA;

namespace {

constexpr int kDone = 0;
constexpr int kFailed = -1;
constexpr char kDeclined[] = "cancel";

bool ReadFile(const char* path, std::string& text) {
  const FileHandle file(std::fopen(SystemPath(path).c_str(), "rbe"));
  if (file) {
    struct stat info {};
    if (fstat(fileno(file.get()), &info) == 0) text.reserve(static_cast<size_t>(info.st_size) + 1);
    char block[1 << 16];
    for (size_t read; (read = std::fread(block, 1, sizeof block, file.get())) > 0;) text.append(block, read);
    if (!std::ferror(file.get())) return true;
  }
  VEXILO_LOGE("cannot read %s: %s", path, std::strerror(errno));
  return false;
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

}  // namespace

int ParseSolutionMap() {
  std::string text;
  if (!ReadFile(set_paths::kSolutionMap, text)) return kFailed;
  QUVA_SolutionMap map;
  try {
    if (TCXMLParser().Parse(text, map)) {
      Store(map);
      return kDone;
    }
  } catch (const std::exception& error) {
    VEXILO_LOGE("a sol_val tag stands before any solution tag (%s)", error.what());
  }
  VEXILO_LOGE("cannot parse %s: no solution of it is used", set_paths::kSolutionMap);
  return kFailed;
}

int RequestApplySolution(const char* issueCode) {
  const auto solution = FindSolution(issueCode);
  if (!solution) return kFailed;
  for (const auto& [type, value] : solution->sol_values) {
    if (solution_actions::Perform(type, value)) continue;
    VEXILO_LOGE("solution of issue %s was not applied: [%s] [%s] failed", issueCode, type.c_str(), value.c_str());
    return kFailed;
  }
  return Record(*solution, true);
}

int SaveResultToSolutionDB(const char* issueCode, const char* result) {
  const auto solution = FindSolution(issueCode);
  return solution ? Record(*solution, std::strcmp(result, kDeclined) != 0) : kFailed;
}

bool ProcessLaunchApp(const char* applicationId) {
  return solution_actions::Launch(applicationId);
}
