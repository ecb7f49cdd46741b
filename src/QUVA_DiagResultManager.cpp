#include "QUVA_DiagResultManager.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <list>
#include <utility>

#include "AppState.h"
#include "DeviceQueries.h"
#include "QUVA_DBManager.h"
#include "QUVA_KPISender.h"
#include "QUVA_Storage.h"
#include "SafeFile.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"
#include "vconf.h"

namespace QUVA {

namespace {

constexpr int kResolvedIndex = 1;
constexpr int kFreshIssue = 0;
constexpr char kBackgroundIssue[] = "bg";
constexpr char kViewUser[] = "USER";
constexpr char kRemainingTable[] = "remainingTBL";
constexpr char kBackgroundLaunch[] = "bg_inference";

constexpr long kFirstOnDemandIssue = 10000000;
constexpr long kLastOnDemandIssue = 19999999;

constexpr int kTunerSource = 0;
constexpr int kDigitalChannels[] = {2, 4, 7};
constexpr int kHdmiSources[] = {13, 14, 15, 16, 38, 39};

constexpr char kSeparator[] = "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@";
static_assert(sizeof kSeparator == 83 + 1);

// A column of the remaining-problems table and what of a row it holds.
struct TextColumn {
  const std::string& name;
  std::string MapToDBTable::*field;
};
struct NumberColumn {
  const std::string& name;
  int32_t MapToDBTable::*field;
};

template <size_t N>
bool Contains(const int (&numbers)[N], int number) {
  return std::find(std::begin(numbers), std::end(numbers), number) != std::end(numbers);
}

int32_t ToNumber(const std::string& text) {
  return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

std::string Doubled(const std::string& text, char quote) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) out.append(c == quote ? 2 : 1, c);
  return out;
}

bool IsOnDemand(const std::string& issueCode) {
  const long code = std::strtol(issueCode.c_str(), nullptr, 10);
  return code >= kFirstOnDemandIssue && code <= kLastOnDemandIssue;
}

// A row as those who read the log know it.
#define VEXILO_LOG_ROW(prefix, suffix, row)                                                                            \
  VEXILO_LOGI(prefix "%s, %s, %s, %s, %s, %s, %s, %s, %s, %s, %s" suffix, (row).issue_code.c_str(),                    \
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
    if (solution.is_fg_bg == kBackgroundIssue) {
      VEXILO_LOGD("Skip bg issue");
      continue;
    }
    m_resolve(solution, count);
  }
  return count;
}

void QUVA_DiagResultManager::m_resolve(QUVA_Solution& solution, int& count) {
  const int code = ToNumber(solution.issue_code);
  VEXILO_LOGD("SelectIssueCode : %d", code);

  std::vector<_DTInfDBRecord> trueList;
  int result = GetInferenceDB(code, DT_TRANSITION_TYPE_TRUE, &trueList);
  if (result == TREVLIN_NO_MATCH) {
    VEXILO_LOGD("No Matching DT_TRANSITION_TYPE_TRUE InferenceDB : %u", static_cast<unsigned>(code));
    return;
  }
  if (result != TREVLIN_OK) {
    VEXILO_LOGE("GetInferenceDB API Error : %d", result);
    return;
  }
  if (trueList.empty()) {
    VEXILO_LOGD("TR true Result is empty! : %u", static_cast<unsigned>(code));
    return;
  }

  std::vector<_DTInfDBRecord> falseList;
  result = GetInferenceDB(code, DT_TRANSITION_TYPE_FALSE, &falseList);
  if (result == TREVLIN_NO_MATCH) {
    VEXILO_LOGD("No Matching DT_TRANSITION_TYPE_FALSE InferenceDB : %u", static_cast<unsigned>(code));
  } else if (result != TREVLIN_OK) {
    VEXILO_LOGE("GetInferenceDB API Error : %d", result);
  } else if (falseList.empty()) {
    VEXILO_LOGD("TR False result is empty! : %u", static_cast<unsigned>(code));
  } else if (CompareTime(falseList[0].lastUpdateTime, trueList[0].lastUpdateTime)) {
    VEXILO_LOGD("Skip because of time. TR_0 Time: [%s] >>> TR_1 Time : [%s]", falseList[0].lastUpdateTime.c_str(),
                trueList[0].lastUpdateTime.c_str());
    return;
  }

  _DTSolDBRecord solRecord;
  result = GetSolutionDB(code, &solRecord);
  if (result == TREVLIN_NO_MATCH)
    VEXILO_LOGD("No Matching SolutionDB : %u", static_cast<unsigned>(code));
  else if (result != TREVLIN_OK)
    VEXILO_LOGE("GetInferenceDB API Error : %d", result);

  const _DTInfDBRecord& inf = trueList[0];
  VEXILO_LOGD("First Inf Result : %d %d %d %s %s", inf.issueCode, inf.transitionType, inf.status, inf.detail.c_str(),
              inf.lastUpdateTime.c_str());
  VEXILO_LOGD("Sol Result : %d %d %d %d %s", solRecord.issueCode, solRecord.solutionCode, solRecord.type,
              solRecord.isApply, solRecord.registerTime.c_str());
  if (!FindErrorCodeInDB(solution, trueList, solRecord)) {
    VEXILO_LOGD("No matching with Inference Result");
    return;
  }
  ++count;
  VEXILO_LOGD("GetInferenceResult done : %d", count);
}

bool QUVA_DiagResultManager::FindErrorCodeInDB(QUVA_Solution& solution, std::vector<_DTInfDBRecord>& trueList,
                                               _DTSolDBRecord& solRecord) {
  VEXILO_LOGD("FindErrorCodeInDB");
  m_resetScratchRow();
  if (trueList.empty()) {
    VEXILO_LOGD("No Infdata !!!!");
    VEXILO_LOGD("End");
    return false;
  }
  const _DTInfDBRecord& inf = trueList[0];
  if (solRecord.issueCode != inf.issueCode) {
    VEXILO_LOGD("find!!!");
  } else if (CompareTime(inf.lastUpdateTime, solRecord.registerTime)) {
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
    VEXILO_LOGD("End");
    return false;
  }

  m_scratchRow.index = kResolvedIndex;
  m_scratchRow.issue_code = solution.issue_code;
  m_scratchRow.last_time = inf.lastUpdateTime;
  m_scratchRow.is_fix = kFreshIssue;
  m_scratchRow.sol_type = solution.sol_type;
  m_scratchRow.sol_name = solution.sol_name;
  m_scratchRow.sid_issue = solution.sid_issue;
  m_scratchRow.sid_sol = solution.sid_sol;
  m_scratchRow.sid_button1 = solution.sid_button1;
  m_scratchRow.sid_button2 = solution.sid_button2;
  m_scratchRow.action = solution.action;
  m_scratchRow.toast1 = solution.toast1;
  m_scratchRow.toast2 = solution.toast2;
  m_scratchRow.source = solution.source;
  m_scratchRow.view_authority = solution.view_authority;
  m_table.push_back(m_scratchRow);
  VEXILO_LOGD("End");
  return true;
}

bool QUVA_DiagResultManager::CompareTime(const std::string& a, const std::string& b) {
  return a.compare(b) > 0;
}

bool QUVA_DiagResultManager::CheckViewType(const char* viewAuthority) {
  return std::string_view(viewAuthority) == kViewUser;
}

bool QUVA_DiagResultManager::CheckSourceType(const char* source) {
  const int channel = GetChannelType();
  const int current = GetCurrentSourceInfo();
  const std::string_view wanted = source;
  if (wanted == "DTV") return current == kTunerSource && Contains(kDigitalChannels, channel);
  if (wanted == "HDMI") return Contains(kHdmiSources, current);
  return true;
}

// The solution's name is overwritten before each use, and stays until then.
void QUVA_DiagResultManager::m_resetScratchRow() {
  std::string name = std::move(m_scratchRow.sol_name);
  m_scratchRow = MapToDBTable();
  m_scratchRow.sol_name = std::move(name);
}

void QUVA_DiagResultManager::CleanDiagResult() {
  VEXILO_LOGI("CleanDiagResult");
  m_resetScratchRow();
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
  std::vector<std::string> fields;
  for (size_t from = 0, comma = 0; comma != std::string::npos; from = comma + 1) {
    comma = line.find(',', from);
    fields.push_back(line.substr(from, comma - from));
  }
  const int count = static_cast<int>(fields.size());
  fields.resize(5);
  out = {ToNumber(fields[0]), ToNumber(fields[1]), ToNumber(fields[2]), fields[3], fields[4]};
  return count;
}

int QUVA_DiagResultManager::TokenString(std::string& line, QUVA_SolutionDB& out) {
  QUVA_InferenceDB fields;
  const int count = TokenString(line, fields);
  out = {fields.issue_code, fields.tr_type, fields.status, ToNumber(fields.detail), fields.last_update_time};
  return count;
}

// ---- remaining problems

namespace {

// Opens the remaining-problems database for as long as it lives.
class RemainingDb {
 public:
  RemainingDb() { m_manager->OpenDB(DB_REMAINING); }
  ~RemainingDb() { m_manager->CloseDB(); }
  RemainingDb(const RemainingDb&) = delete;
  RemainingDb& operator=(const RemainingDb&) = delete;
  TCDBManager* operator->() const { return m_manager; }

 private:
  TCDBManager* m_manager = TCDBManager::GetInstance();
};

// The columns in the table's order; the first and the third hold numbers.
const NumberColumn kIndexColumn = {Column::idx, &MapToDBTable::index};
const TextColumn kCodeColumn = {Column::issue_code, &MapToDBTable::issue_code};
const NumberColumn kFixColumn = {Column::is_fix, &MapToDBTable::is_fix};
const TextColumn kTextColumns[] = {
    {Column::last_time, &MapToDBTable::last_time},
    {Column::sol_type, &MapToDBTable::sol_type},
    {Column::sid_issue, &MapToDBTable::sid_issue},
    {Column::sid_sol, &MapToDBTable::sid_sol},
    {Column::sid_button1, &MapToDBTable::sid_button1},
    {Column::sid_button2, &MapToDBTable::sid_button2},
    {Column::action, &MapToDBTable::action},
    {Column::toast1, &MapToDBTable::toast1},
    {Column::toast2, &MapToDBTable::toast2},
    {Column::source, &MapToDBTable::source},
    {Column::view_authority, &MapToDBTable::view_authority},
};

// A value for an INSERT statement, which puts it between double quotes.
std::string Quotable(const std::string& issueCode, const std::string& column, const std::string& value) {
  if (value.find('"') == std::string::npos) return value;
  VEXILO_LOGE("%s of issue %s holds a double quote: [%s]", column.c_str(), issueCode.c_str(), value.c_str());
  return Doubled(value, '"');
}

std::list<std::string> ToValues(const MapToDBTable& row) {
  std::list<std::string> values;
  values.push_back(std::to_string(row.*kIndexColumn.field));
  values.push_back(Quotable(row.issue_code, kCodeColumn.name, row.*kCodeColumn.field));
  values.push_back(std::to_string(row.*kFixColumn.field));
  for (const TextColumn& column : kTextColumns)
    values.push_back(Quotable(row.issue_code, column.name, row.*column.field));
  return values;
}

// The stored columns, each a list of the values of all rows.
struct StoredColumns {
  std::vector<std::string> index;
  std::vector<std::string> code;
  std::vector<std::string> fix;
  std::vector<std::string> texts[std::size(kTextColumns)];

  void Read(const RemainingDb& db) {
    db->GetDB(DB_REMAINING, kIndexColumn.name, index);
    db->GetDB(DB_REMAINING, kCodeColumn.name, code);
    db->GetDB(DB_REMAINING, kFixColumn.name, fix);
    for (size_t i = 0; i < std::size(kTextColumns); ++i) db->GetDB(DB_REMAINING, kTextColumns[i].name, texts[i]);
  }

  // Columns are read one by one, so another process or a damaged file can leave them of different lengths.
  bool HasRow(size_t i) const {
    return i < code.size() && i < fix.size() &&
           std::all_of(std::begin(texts), std::end(texts), [i](const auto& column) { return i < column.size(); });
  }

  MapToDBTable Row(size_t i) const {
    MapToDBTable row;
    row.*kIndexColumn.field = ToNumber(index[i]);
    row.*kCodeColumn.field = code[i];
    row.*kFixColumn.field = ToNumber(fix[i]);
    for (size_t c = 0; c < std::size(kTextColumns); ++c) row.*kTextColumns[c].field = texts[c][i];
    return row;
  }
};

void Clear(const RemainingDb& db) {
  VEXILO_LOGI("ClearRemainingProblems");
  db->FlushDB(DB_REMAINING);
}

void LogRow(const MapToDBTable& row) {
  VEXILO_LOGD("mdt.index : %d", row.index);
  VEXILO_LOGD("mdt.issue_code : %s", row.issue_code.c_str());
  VEXILO_LOGD("mdt.is_fix : %d", row.is_fix);
  for (const TextColumn& column : kTextColumns)
    VEXILO_LOGD("mdt.%s : %s", column.name.c_str(), (row.*column.field).c_str());
}

}  // namespace

int QUVA_DiagResultManager::SaveRemainingProblems() {
  std::lock_guard lock(m_TVDRMmutex);
  VEXILO_LOGI("SaveRemainingProblems");
  {
    const RemainingDb db;
    // The process may end in the middle: the rows of the last scan go when those of this one are there.
    const bool begun = db->BeginChanges();
    Clear(db);
    for (const MapToDBTable& row : m_table) {
      if (begun && !db->IsChanging()) break;
      if (m_isShown(row)) db->SetDB(kRemainingTable, ToValues(row));
    }
    if (begun && db->IsChanging()) db->EndChanges();
  }
  VEXILO_LOGI("Remaining DB is saved");
  return 1;
}

int QUVA_DiagResultManager::LoadRemainingProblems() {
  std::lock_guard lock(m_TVDRMmutex);
  VEXILO_LOGI("LoadRemainingProblems");
  StoredColumns stored;
  stored.Read(RemainingDb());
  CleanDiagResult();
  const size_t rows = stored.index.size();
  for (size_t i = 0; i < rows; ++i) {
    const long index = std::strtol(stored.index[i].c_str(), nullptr, 10);
    // An index that equals the number of rows has always been taken.
    if (index < 0 || index > static_cast<long>(rows) || !stored.HasRow(i)) {
      VEXILO_LOGE("remaining problem %zu of %zu has the index %s: not loaded", i + 1, rows, stored.index[i].c_str());
      return 0;
    }
    m_table.push_back(stored.Row(i));
    LogRow(m_table.back());
  }
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
  for (const MapToDBTable& row : rows)
    if (m_hasCleared(row)) DeleteRemainingDBColumn(row.issue_code);
  return 1;
}

bool QUVA_DiagResultManager::m_hasCleared(const MapToDBTable& row) {
  const int code = ToNumber(row.issue_code);
  VEXILO_LOGI("INT_ISSUE_CODE : %d", code);
  if (!IsOnDemand(row.issue_code)) return false;
  VEXILO_LOGI("ONDEMAND ISSUE");
  std::vector<_DTInfDBRecord> falseList;
  const int result = GetInferenceDB(code, DT_TRANSITION_TYPE_FALSE, &falseList);
  if (result == TREVLIN_NO_MATCH) {
    VEXILO_LOGI("No Matching DT_TRANSITION_TYPE_FALSE InferenceDB : %u", static_cast<unsigned>(code));
    return false;
  }
  if (result != TREVLIN_OK) {
    VEXILO_LOGE("GetInferenceDB API Error : %d", result);
    return false;
  }
  if (falseList.empty()) {
    VEXILO_LOGI("Result is Empty");
    return false;
  }
  VEXILO_LOGI("INT_RESULT_TR_FALSE_TIME [%s] LAST_TIME [%s]", falseList[0].lastUpdateTime.c_str(),
              row.last_time.c_str());
  return CompareTime(falseList[0].lastUpdateTime, row.last_time);
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
    if (!CheckSourceType(row.source.c_str())) continue;
    VEXILO_LOGI("CREATE_ERROR_LIST_BUNDLE_SEND");
    VEXILO_LOG_ROW("SendDataToRemotePort Key : Result, value : {", "}", row);
    kept.push_back(std::move(row));
  }
  return kept;
}

void QUVA_DiagResultManager::ClearRemainingProblems() {
  std::lock_guard lock(m_TVDRMmutex);
  Clear(RemainingDb());
}

void QUVA_DiagResultManager::DeleteRemainingDBColumn(std::string issueCode) {
  std::lock_guard lock(m_TVDRMmutex);
  VEXILO_LOGI("DeleteRemainingDBColumn");
  RemainingDb()->DeleteDB(Doubled(issueCode, '\''));
}

// ---- result lists

bool QUVA_DiagResultManager::m_isShown(const MapToDBTable& row) {
  return CheckSourceType(row.source.c_str()) && CheckViewType(row.view_authority.c_str());
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
  SaveRemainingProblems();
  if (vconf_set_bool(kDbResetKey, false) != 0) VEXILO_LOGE("Setting %s failed", kDbResetKey);
  QUVA_KPISender::GetInstance()->SendVexiloKPI("CreateErrorList", static_cast<int>(m_table.size()));
  std::vector<MapToDBTable> shown;
  for (const MapToDBTable& row : m_table) {
    VEXILO_LOG_ROW("SendDataToRemotePort Key : Result, value : {", "}", row);
    if (m_isShown(row)) shown.push_back(row);
  }
  m_handOver(m_scanListener, std::move(shown));
  return 1;
}

int QUVA_DiagResultManager::CreateQGuideErrList() {
  VEXILO_LOGI("CreateQGuideErrorList");
  const char* launchFrom = AppState::Instance().launchFrom;
  VEXILO_LOGI("qguide Launched from %s", launchFrom ? launchFrom : "(null)");
  const bool background = launchFrom && std::string_view(launchFrom) == kBackgroundLaunch;
  const char* path = background ? set_paths::kQGuideBackgroundResult : set_paths::kQGuideResult;
  struct stat info {};
  if (lstat(SystemPath(path).c_str(), &info) == 0) {
    if (S_ISLNK(info.st_mode)) {
      VEXILO_LOGE("symbolic link is detected\n");
      return 0;
    }
  } else if (errno != ENOENT) {
    VEXILO_LOGE("lstat error %s %d", path, errno);
    return 0;
  }
  return openQGuideForWrite(path);
}

int QUVA_DiagResultManager::openQGuideForWrite(const char* path) {
  VEXILO_LOGI("open Qguidefor write");
  std::lock_guard lock(m_TVDRMmutex);
  const std::string full = SystemPath(path);
  struct stat info {};
  if (lstat(full.c_str(), &info) == 0) {
    if (S_ISLNK(info.st_mode)) {
      std::fputs("symbolic link is detected\n", stderr);
      return 0;
    }
  } else if (errno != ENOENT) {
    VEXILO_LOGE("lstat error");
    return 0;
  }
  FileHandle file = OpenFileWithoutLinks(full);
  if (!file) {
    VEXILO_LOGE("Unable to open file %s %d", path, errno);
    return 0;
  }
  if (GetInferenceResult() < 1) {
    VEXILO_LOGI("GetInferenceResult Failed");
    return 1;
  }
  VEXILO_LOGI("GetInferenceResult Success");
  VEXILO_LOGI("m_table Size is %zu", m_table.size());
  return m_writeCodes(file.get(), path);
}

int QUVA_DiagResultManager::m_writeCodes(FILE* file, const char* path) {
  bool written = true;
  for (const MapToDBTable& row : m_table) written = std::fprintf(file, "%s\n", row.issue_code.c_str()) >= 0 && written;
  if (std::fflush(file) == 0 && written) return 1;
  VEXILO_LOGE("Writing %s failed: error %d", path, errno);
  // Half a code could be taken for another issue, and an empty file for a set without any.
  if (ftruncate(fileno(file), 0) != 0) VEXILO_LOGE("Emptying %s failed: error %d", path, errno);
  if (unlink(SystemPath(path).c_str()) != 0) VEXILO_LOGE("Removing %s failed: error %d", path, errno);
  return 0;
}

}  // namespace QUVA
