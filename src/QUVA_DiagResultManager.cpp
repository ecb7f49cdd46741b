#include "QUVA_DiagResultManager.h"

#include <ctime>
#include <optional>
#include <utility>

#include "AppState.h"
#include "IssueFilters.h"
#include "IssueResolution.h"
#include "QGuideResult.h"
#include "QUVA_KPISender.h"
#include "QUVA_Storage.h"
#include "RemainingStore.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "vconf.h"

namespace QUVA {

namespace {

// A row as those who read the log know it.
#define VEXILO_LOG_ROW(prefix, suffix, row)                                                                            \
  VEXILO_LOGD(prefix "%s, %s, %s, %s, %s, %s, %s, %s, %s, %s, %s" suffix, (row).issue_code.c_str(),                    \
              (row).last_time.c_str(), (row).sid_issue.c_str(), (row).sid_sol.c_str(), " ", (row).sid_button1.c_str(), \
              (row).sid_button2.c_str(), (row).action.c_str(), (row).toast1.c_str(), (row).toast2.c_str(),             \
              (row).sol_type.c_str())

}  // namespace

std::atomic<QUVA_DiagResultManager*> QUVA_DiagResultManager::m_pInstance = nullptr;
std::recursive_mutex QUVA_DiagResultManager::m_TVDRMmutex;

QUVA_DiagResultManager* QUVA_DiagResultManager::GetInstance() {
  // List operations hold the mutex for long; who only wants the instance does not wait for them.
  if (QUVA_DiagResultManager* instance = m_pInstance) return instance;
  std::lock_guard lock(m_TVDRMmutex);
  if (!m_pInstance) m_pInstance = new QUVA_DiagResultManager;
  return m_pInstance;
}

// ---- who takes the rows

void QUVA_DiagResultManager::SetScanListener(RowListener listener) {
  std::lock_guard lock(m_listenerMutex);
  m_scanListener = std::move(listener);
}

void QUVA_DiagResultManager::SetRemainingListener(RowListener listener) {
  std::lock_guard lock(m_listenerMutex);
  m_remainingListener = std::move(listener);
}

void QUVA_DiagResultManager::m_handOver(const RowListener& listener, std::vector<MapToDBTable> rows) {
  std::lock_guard lock(m_listenerMutex);
  if (listener) listener(std::move(rows));
}

// ---- resolution

int QUVA_DiagResultManager::GetInferenceResult() {
  VEXILO_LOGI("GetInferenceResult");
  unsigned int declared = 0;
  std::vector<QUVA_Solution> solutions;
  TCInformationStorage::Instance()->GetSolutionInformation(declared, solutions);
  VEXILO_LOGI("Solution Map  : %zu", solutions.size());
  int count = 0;
  for (QUVA_Solution& solution : solutions) {
    if (solution.is_fg_bg == kBackgroundSolution) {
      VEXILO_LOGD("Skip bg issue");
      continue;
    }
    const int code = NumberOf(solution.issue_code);
    VEXILO_LOGD("SelectIssueCode : %d", code);
    std::optional<TrueIssue> issue = FindTrueIssue(code);
    if (!issue) continue;
    if (FindErrorCodeInDB(solution, issue->trues, issue->solution)) {
      ++count;
      VEXILO_LOGD("GetInferenceResult done : %d", count);
    } else {
      VEXILO_LOGD("No matching with Inference Result");
    }
  }
  return count;
}

bool QUVA_DiagResultManager::FindErrorCodeInDB(QUVA_Solution& solution, std::vector<_DTInfDBRecord>& trueList,
                                               _DTSolDBRecord& solRecord) {
  VEXILO_LOGD("FindErrorCodeInDB");
  if (trueList.empty()) VEXILO_LOGD("No Infdata !!!!");
  const bool found = !trueList.empty() && IsUnsolved(solution, trueList[0], solRecord);
  if (found) m_table.push_back(RowOf(solution, trueList[0]));
  VEXILO_LOGD("End");
  return found;
}

bool QUVA_DiagResultManager::CompareTime(const std::string& a, const std::string& b) {
  return IsLater(a, b);
}

bool QUVA_DiagResultManager::CheckViewType(const char* viewAuthority) {
  return IsForViewers(viewAuthority);
}

bool QUVA_DiagResultManager::CheckSourceType(const char* source) {
  return AppliesToSource(source);
}

void QUVA_DiagResultManager::CleanDiagResult() {
  VEXILO_LOGI("CleanDiagResult");
  if (m_table.empty()) return;
  VEXILO_LOGI("m_table Clear");
  m_table.clear();
}

std::string QUVA_DiagResultManager::GetCurrentTime() {
  VEXILO_LOGI("GetCurrentTime()");
  const time_t now = time(nullptr);
  struct tm local {};
  localtime_r(&now, &local);
  char text[20];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
  return text;
}

int QUVA_DiagResultManager::TokenString(std::string& line, QUVA_InferenceDB& out) {
  return SplitRecord(line, out);
}

int QUVA_DiagResultManager::TokenString(std::string& line, QUVA_SolutionDB& out) {
  return SplitRecord(line, out);
}

// ---- remaining problems

int QUVA_DiagResultManager::SaveRemainingProblems() {
  std::lock_guard lock(m_TVDRMmutex);
  VEXILO_LOGI("SaveRemainingProblems");
  if (!SaveRemaining(m_shownRows())) return 0;
  VEXILO_LOGI("Remaining DB is saved");
  return 1;
}

int QUVA_DiagResultManager::LoadRemainingProblems() {
  std::lock_guard lock(m_TVDRMmutex);
  VEXILO_LOGI("LoadRemainingProblems");
  const RemainingColumns columns = ReadRemaining();
  CleanDiagResult();
  if (!ToRows(columns, m_table)) return 0;
  if (m_table.empty()) {
    VEXILO_LOGI("Remain Problem is empty : %zu", m_table.size());
    return 0;
  }
  VEXILO_LOGI("Remain Problem is Loaded : %zu", m_table.size());
  return 1;
}

int QUVA_DiagResultManager::GetRemainingTable(std::vector<MapToDBTable>& out) {
  std::lock_guard lock(m_TVDRMmutex);
  if (m_table.empty()) {
    VEXILO_LOGI("Remain Problem Table is empty : %zu", m_table.size());
    return 0;
  }
  out.insert(out.end(), m_table.begin(), m_table.end());
  VEXILO_LOGI("GetRemainingTable is done : %zu", m_table.size());
  return 1;
}

int QUVA_DiagResultManager::GetInferenceResult_Remaining() {
  std::lock_guard lock(m_TVDRMmutex);
  VEXILO_LOGI("GetInferenceResult_Remaining");
  if (!LoadRemainingProblems()) return 0;
  std::vector<MapToDBTable> rows;
  if (!GetRemainingTable(rows)) return 0;
  std::vector<std::string> cleared;
  for (const MapToDBTable& row : rows)
    if (HasCleared(row)) cleared.push_back(row.issue_code);
  if (cleared.size() == 1) DeleteRemainingDBColumn(cleared[0]);
  if (cleared.size() > 1) DeleteRemaining(cleared);
  return 1;
}

void QUVA_DiagResultManager::CompareRemaining() {
  VEXILO_LOGI("CompareRemaining");
  std::lock_guard lock(m_TVDRMmutex);
  SetEngineOperation("CompareRemaining");
  GetInferenceResult_Remaining();
  m_handOver(m_remainingListener, LoadRemainingProblems() ? m_remainingRows() : std::vector<MapToDBTable>());
}

// The view was checked when the rows were stored; the source may have changed since.
std::vector<MapToDBTable> QUVA_DiagResultManager::m_remainingRows() {
  std::vector<MapToDBTable> rows;
  GetRemainingTable(rows);
  std::vector<MapToDBTable> kept;
  for (MapToDBTable& row : rows) {
    VEXILO_LOG_ROW("CREATE_ERROR_LIST : ", "", row);
    if (!AppliesToSource(row.source)) continue;
    VEXILO_LOGD("CREATE_ERROR_LIST_BUNDLE_SEND");
    VEXILO_LOG_ROW("SendDataToRemotePort Key : Result, value : {", "}", row);
    kept.push_back(std::move(row));
  }
  return kept;
}

void QUVA_DiagResultManager::ClearRemainingProblems() {
  std::lock_guard lock(m_TVDRMmutex);
  ClearRemaining();
}

bool QUVA_DiagResultManager::DeleteRemainingDBColumn(std::string issueCode) {
  std::lock_guard lock(m_TVDRMmutex);
  VEXILO_LOGI("DeleteRemainingDBColumn");
  return DeleteRemaining(issueCode);
}

// ---- result lists

std::vector<MapToDBTable> QUVA_DiagResultManager::m_shownRows() {
  std::vector<MapToDBTable> shown;
  for (const MapToDBTable& row : m_table)
    if (IsShown(row)) shown.push_back(row);
  return shown;
}

int QUVA_DiagResultManager::CreateErrorList() {
  VEXILO_LOGI("CreateErrorList");
  std::lock_guard lock(m_TVDRMmutex);
  CleanDiagResult();
  SetEngineOperation("CreateErrorList");
  if (GetInferenceResult() < 1) {
    VEXILO_LOGI("GetInferenceResult Failed");
    m_handOver(m_scanListener, {});
    return 0;
  }
  VEXILO_LOGI("GetInferenceResult Success");
  // What was to be cleared is still there when it could not be replaced.
  if (SaveRemainingProblems() && vconf_set_bool(kDbResetKey, false) != 0) VEXILO_LOGE("Setting %s failed", kDbResetKey);
  QUVA_KPISender::GetInstance()->SendVexiloKPI("CreateErrorList", static_cast<int>(m_table.size()));
  for (const MapToDBTable& row : m_table) VEXILO_LOG_ROW("SendDataToRemotePort Key : Result, value : {", "}", row);
  m_handOver(m_scanListener, m_shownRows());
  return 1;
}

int QUVA_DiagResultManager::CreateQGuideErrList() {
  VEXILO_LOGI("CreateQGuideErrorList");
  const char* launchFrom = AppState::Instance().launchFrom;
  VEXILO_LOGI("qguide Launched from %s", launchFrom ? launchFrom : "(null)");
  const char* path = QGuideResultPath(launchFrom);
  return MayWriteQGuideResult(path) ? openQGuideForWrite(path) : 0;
}

int QUVA_DiagResultManager::openQGuideForWrite(const char* path) {
  VEXILO_LOGI("open Qguidefor write");
  std::lock_guard lock(m_TVDRMmutex);
  const FileHandle file = OpenQGuideResult(path);
  if (!file) return 0;
  if (GetInferenceResult() < 1) {
    VEXILO_LOGI("GetInferenceResult Failed");
    return 1;
  }
  VEXILO_LOGI("GetInferenceResult Success");
  VEXILO_LOGI("m_table Size is %zu", m_table.size());
  return WriteQGuideResult(file.get(), path, m_table) ? 1 : 0;
}

}  // namespace QUVA
