#include "trevlin/trevlin_database.h"

#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "database_rescue.h"
#include "dlog.h"
#include "log_tags.h"
#include "ownership.h"
#include "set_names.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/collectors/readings.h"
#include "trevlin_tables.h"
#include "vconf.h"

namespace trevlin {

namespace {

constexpr const char* kTag = log_tags::kTrevlin;
constexpr int kMostRowBytes = 64 << 10;
constexpr std::chrono::milliseconds kLockBudget{2000};
constexpr std::chrono::milliseconds kLockPause{10};

constexpr char kSelectAllTransitions[] =
    "SELECT * FROM (SELECT registerTime, lastUpdatedTime AS time, issueCode, TR, solutionCode, rowid AS row "
    "FROM inferenceTBL ORDER BY time DESC, row DESC LIMIT ?1) ORDER BY time, row";
constexpr char kSelectAllSolutions[] =
    "SELECT * FROM (SELECT registerTime AS time, issueCode, solutionCode, type, isApply, rowid AS row "
    "FROM solutionTBL ORDER BY time DESC, row DESC LIMIT ?1) ORDER BY time, row";

// The register time of an issue is that of its first row.
constexpr char kInsertTransition[] =
    "INSERT INTO inferenceTBL (registerTime, lastUpdatedTime, issueCode, TR, solutionCode) VALUES "
    "(coalesce(nullif(?1, ''), (SELECT min(registerTime) FROM inferenceTBL WHERE issueCode = ?3), ?2), ?2, ?3, ?4, ?5)";
// A row whose time is none could be newer than every other for ever.
#define VEXILO_HAS_TIME \
  "lastUpdatedTime GLOB '[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]' "
constexpr char kSelectNewestTransition[] =
    "SELECT lastUpdatedTime, TR FROM inferenceTBL WHERE issueCode = ?1 AND " VEXILO_HAS_TIME
    "ORDER BY lastUpdatedTime DESC, TR DESC LIMIT 1";
constexpr char kSelectStanding[] = "SELECT CAST(issueCode AS INTEGER) FROM inferenceTBL WHERE " VEXILO_HAS_TIME
                                   "GROUP BY issueCode HAVING max(lastUpdatedTime || TR) LIKE '%1' ORDER BY 1";
constexpr char kPruneTransitions[] =
    "DELETE FROM inferenceTBL WHERE issueCode = ?1 AND rowid NOT IN (SELECT rowid FROM inferenceTBL "
    "WHERE issueCode = ?1 ORDER BY lastUpdatedTime DESC, rowid DESC LIMIT ?2)";
constexpr char kPruneSolutions[] =
    "DELETE FROM solutionTBL WHERE issueCode = ?1 AND rowid NOT IN (SELECT rowid FROM solutionTBL "
    "WHERE issueCode = ?1 ORDER BY registerTime DESC, rowid DESC LIMIT ?2)";
constexpr size_t kSolutionsKept = 100;
// When an issue's newest solution was recorded: the start of the machine, and its running seconds then. The clock may
// have been set since.
constexpr char kCreateMarks[] =
    "CREATE TABLE IF NOT EXISTS settlingTBL(issueCode TEXT PRIMARY KEY, registerTime TEXT, boot TEXT, seconds INTEGER)";
constexpr char kInsertMark[] = "INSERT OR REPLACE INTO settlingTBL VALUES (?1, ?2, ?3, ?4)";
constexpr char kSelectMark[] = "SELECT boot, seconds FROM settlingTBL WHERE issueCode = ?1 AND registerTime = ?2";
constexpr char kInsertSolution[] =
    "INSERT INTO solutionTBL (registerTime, issueCode, solutionCode, type, isApply) VALUES (?1, ?2, ?3, ?4, ?5)";

// A statement that is not reset keeps its lock.
struct ResetAtEnd {
  sqlite3_stmt* statement;
  ~ResetAtEnd() {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
  }
};

bool Execute(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::string Reason(sqlite3* db) {
  std::string reason = sqlite3_errmsg(db);
  const int code = sqlite3_errcode(db);
  const int systemError = sqlite3_system_errno(db);
  if ((code == SQLITE_CANTOPEN || code == SQLITE_IOERR) && systemError != 0)
    reason.append(" (").append(std::strerror(systemError)).append(")");
  return reason;
}

bool FolderExists(const std::string& path) {
  struct stat status {};
  return stat(path.substr(0, path.rfind('/')).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string Written(const tm& time) {
  char text[64];
  snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", time.tm_year + 1900, time.tm_mon + 1, time.tm_mday,
           time.tm_hour, time.tm_min, time.tm_sec);
  return text;
}

std::string SecondAfter(const std::string& time) {
  tm fields{};
  std::sscanf(time.c_str(), "%d-%d-%dT%d:%d:%d", &fields.tm_year, &fields.tm_mon, &fields.tm_mday, &fields.tm_hour,
              &fields.tm_min, &fields.tm_sec);
  fields.tm_year -= 1900;
  --fields.tm_mon;
  ++fields.tm_sec;
  // As if it were of a zone without summer time, so that it is a second in the text.
  const time_t after = timegm(&fields);
  gmtime_r(&after, &fields);
  return Written(fields);
}

void BindMostRows(sqlite3_stmt* statement) {
  sqlite3_bind_int64(statement, 1, kMostRows);
}

// Of this start of the machine.
int64_t RunningSeconds() {
  return static_cast<int64_t>(SecondsSinceStart(Machine{}).value_or(0));
}

_DTSolDBRecord SolutionOfRow(sqlite3_stmt* row) {
  _DTSolDBRecord record;
  record.registerTime = ColumnText(row, 0);
  record.issueCode = sqlite3_column_int(row, 1);
  record.solutionCode = sqlite3_column_int(row, 2);
  record.type = sqlite3_column_int(row, 3);
  record.isApply = sqlite3_column_int(row, 4);
  return record;
}

}  // namespace

std::string CurrentTime(std::chrono::seconds offset) {
  const time_t now = time(nullptr) + offset.count();
  tm local{};
  localtime_r(&now, &local);
  return Written(local);
}

bool IsTime(const std::string& text) {
  constexpr std::string_view kShape = "0000-00-00T00:00:00";
  if (text.size() != kShape.size()) return false;
  for (size_t i = 0; i < kShape.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kShape[i] == '0' ? !digit : text[i] != kShape[i]) return false;
  }
  const auto number = [&](size_t at, size_t length) { return std::stoi(text.substr(at, length)); };
  const std::chrono::year_month_day date{std::chrono::year(number(0, 4)),
                                         std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                         std::chrono::day(static_cast<unsigned>(number(8, 2)))};
  return date.ok() && number(11, 2) < 24 && number(14, 2) < 60 && number(17, 2) < 60;
}

Database::File Database::InferenceFile() {
  return {.path = set_paths::kInferenceDb,
          .table = trevlin_tables::kInference,
          .columns = trevlin_tables::kInferenceColumns,
          .createIndex = "CREATE INDEX IF NOT EXISTS inferenceIDX ON inferenceTBL(issueCode, TR, lastUpdatedTime);",
          .selectSql = kSelectTransitions,
          .insertSql = kInsertTransition};
}

Database::File Database::SolutionFile() {
  return {.path = set_paths::kSolutionDb,
          .table = trevlin_tables::kSolution,
          .columns = trevlin_tables::kSolutionColumns,
          .createIndex = "CREATE INDEX IF NOT EXISTS solutionIDX ON solutionTBL(issueCode, registerTime);",
          .selectSql = kSelectNewestSolution,
          .insertSql = kInsertSolution};
}

int Database::Transitions(int issueCode, int type, std::vector<_DTInfDBRecord>& out) {
  out.clear();
  const std::string code = std::to_string(issueCode);
  const int result = Query(
      m_inference, m_inference.select, m_inference.selectSql,
      [&](sqlite3_stmt* statement) {
        BindText(statement, 1, code);
        sqlite3_bind_int(statement, 2, type);
      },
      [&](sqlite3_stmt* row) {
        _DTInfDBRecord& record = out.emplace_back();
        record.issueCode = issueCode;
        record.transitionType = type;
        record.lastUpdateTime = ColumnText(row, 0);
      });
  if (result != TREVLIN_OK) out.clear();
  return result;
}

int Database::NewestSolution(int issueCode, _DTSolDBRecord& out) {
  const std::string code = std::to_string(issueCode);
  _DTSolDBRecord found;
  const int result = Query(
      m_solution, m_solution.select, m_solution.selectSql,
      [&](sqlite3_stmt* statement) { BindText(statement, 1, code); },
      [&](sqlite3_stmt* row) { found = SolutionOfRow(row); });
  if (result == TREVLIN_OK) out = std::move(found);
  return result;
}

int Database::StandingIssues(std::vector<int>& out) {
  out.clear();
  SqliteStatement statement;
  const int result = Query(
      m_inference, statement, kSelectStanding, [](sqlite3_stmt*) {},
      [&](sqlite3_stmt* row) { out.push_back(sqlite3_column_int(row, 0)); });
  if (result != TREVLIN_OK) out.clear();
  return result;
}

int Database::AllTransitions(std::vector<Transition>& out) {
  out.clear();
  SqliteStatement statement;
  const int result = Query(m_inference, statement, kSelectAllTransitions, BindMostRows, [&](sqlite3_stmt* row) {
    out.push_back({.registerTime = std::string(ColumnText(row, 0)),
                   .time = std::string(ColumnText(row, 1)),
                   .issueCode = sqlite3_column_int(row, 2),
                   .type = sqlite3_column_int(row, 3),
                   .solutionCode = sqlite3_column_int(row, 4)});
  });
  if (result != TREVLIN_OK) out.clear();
  return result;
}

int Database::AllSolutions(std::vector<_DTSolDBRecord>& out) {
  out.clear();
  SqliteStatement statement;
  const int result = Query(m_solution, statement, kSelectAllSolutions, BindMostRows,
                           [&](sqlite3_stmt* row) { out.push_back(SolutionOfRow(row)); });
  if (result != TREVLIN_OK) out.clear();
  return result;
}

int Database::AddTransition(const Transition& transition) {
  const bool type = transition.type == DT_TRANSITION_TYPE_FALSE || transition.type == DT_TRANSITION_TYPE_TRUE;
  const bool times = IsTime(transition.time) && (transition.registerTime.empty() || IsTime(transition.registerTime));
  if (transition.issueCode < 1 || !type || !times) return TREVLIN_ERROR_INVALID;
  return InTransaction(m_inference, [&] { return AddRow(transition); });
}

int Database::AddRow(const Transition& transition) {
  const std::string code = std::to_string(transition.issueCode);
  return Insert(m_inference, [&](sqlite3_stmt* statement) {
    BindText(statement, 1, transition.registerTime);
    BindText(statement, 2, transition.time);
    BindText(statement, 3, code);
    sqlite3_bind_int(statement, 4, transition.type);
    sqlite3_bind_int(statement, 5, transition.solutionCode);
  });
}

// A look first, so that a run that finds nothing new waits for no writer and is none.
int Database::RecordTruths(const std::vector<IssueTruth>& issues, const std::string& time, size_t keep,
                           std::vector<Transition>& added) {
  added.clear();
  std::vector<Transition> changes;
  const int result = FindChanges(issues, time, changes);
  if (result != TREVLIN_OK || changes.empty()) return result;
  const int recorded = InTransaction(m_inference, [&] {
    const int found = FindChanges(issues, time, changes);
    return found == TREVLIN_OK ? AddChanges(changes, keep) : found;
  });
  if (recorded == TREVLIN_OK) added = std::move(changes);
  return recorded;
}

int Database::FindChanges(const std::vector<IssueTruth>& issues, const std::string& time,
                          std::vector<Transition>& changes) {
  changes.clear();
  SqliteStatement statement;
  for (const IssueTruth& issue : issues) {
    const std::string code = std::to_string(issue.issueCode);
    std::string newest;
    bool wasTrue = false;
    const int result = Query(
        m_inference, statement, kSelectNewestTransition, [&](sqlite3_stmt* query) { BindText(query, 1, code); },
        [&](sqlite3_stmt* row) {
          newest = ColumnText(row, 0);
          wasTrue = sqlite3_column_int(row, 1) == DT_TRANSITION_TYPE_TRUE;
        });
    if (result != TREVLIN_OK && result != TREVLIN_NO_MATCH) return result;
    if (issue.isTrue == wasTrue) continue;
    newest = std::max(newest, LatestTime(issue.issueCode));
    changes.push_back({.time = newest < time ? time : SecondAfter(newest),
                       .issueCode = issue.issueCode,
                       .type = issue.isTrue ? DT_TRANSITION_TYPE_TRUE : DT_TRANSITION_TYPE_FALSE});
  }
  return TREVLIN_OK;
}

int Database::AddChanges(const std::vector<Transition>& changes, size_t keep) {
  for (const Transition& change : changes) {
    int result = AddRow(change);
    if (result == TREVLIN_OK) result = Prune(m_inference, kPruneTransitions, change.issueCode, keep);
    if (result != TREVLIN_OK) return result;
  }
  return TREVLIN_OK;
}

int Database::Prune(File& file, const char* sql, int issueCode, size_t keep) {
  const std::string code = std::to_string(issueCode);
  SqliteStatement prune;
  const int result = Query(
      file, prune, sql,
      [&](sqlite3_stmt* statement) {
        BindText(statement, 1, code);
        sqlite3_bind_int64(statement, 2, static_cast<sqlite3_int64>(keep));
      },
      [](sqlite3_stmt*) {});
  return result == TREVLIN_NO_MATCH ? TREVLIN_OK : result;
}

int Database::AddSolution(const _DTSolDBRecord& record) {
  if (record.issueCode < 1 || !IsTime(record.registerTime)) return TREVLIN_ERROR_INVALID;
  return InTransaction(m_solution, [&] {
    _DTSolDBRecord added = record;
    added.registerTime = std::max(record.registerTime, LatestTime(record.issueCode));
    return AddRow(added);
  });
}

// Of what is known of the issue; empty where there is nothing that is a time, or it cannot be read.
std::string Database::LatestTime(int issueCode) {
  std::string latest;
  _DTSolDBRecord solution;
  if (NewestSolution(issueCode, solution) == TREVLIN_OK && IsTime(solution.registerTime))
    latest = solution.registerTime;
  const std::string code = std::to_string(issueCode);
  SqliteStatement statement;
  Query(
      m_inference, statement, kSelectNewestTransition, [&](sqlite3_stmt* query) { BindText(query, 1, code); },
      [&](sqlite3_stmt* row) { latest = std::max(latest, std::string(ColumnText(row, 0))); });
  return latest;
}

int Database::AddRow(const _DTSolDBRecord& record) {
  const std::string code = std::to_string(record.issueCode);
  const std::string solutionCode = std::to_string(record.solutionCode);
  const std::string type = std::to_string(record.type);
  const int result = Insert(m_solution, [&](sqlite3_stmt* statement) {
    BindText(statement, 1, record.registerTime);
    BindText(statement, 2, code);
    BindText(statement, 3, solutionCode);
    BindText(statement, 4, type);
    sqlite3_bind_int(statement, 5, record.isApply);
  });
  if (result == TREVLIN_OK && record.isApply) MarkSolution(record);
  return result == TREVLIN_OK ? Prune(m_solution, kPruneSolutions, record.issueCode, kSolutionsKept) : result;
}

int Database::MarkSolution(const _DTSolDBRecord& solution) {
  const std::string code = std::to_string(solution.issueCode), boot = BootId(Machine{});
  if (!Execute(m_solution.db.get(), kCreateMarks)) return Fail(m_solution, "cannot be written");
  SqliteStatement insert;
  const int result = Query(
      m_solution, insert, kInsertMark,
      [&](sqlite3_stmt* statement) {
        BindText(statement, 1, code);
        BindText(statement, 2, solution.registerTime);
        BindText(statement, 3, boot);
        sqlite3_bind_int64(statement, 4, RunningSeconds());
      },
      [](sqlite3_stmt*) {});
  return result == TREVLIN_NO_MATCH ? TREVLIN_OK : result;
}

// A look first, as in RecordTruths().
int Database::RecordNoEffect(int issueCode, std::chrono::seconds settled, const std::string& time) {
  _DTSolDBRecord record;
  const int result = FindWithoutEffect(issueCode, record);
  if (result != TREVLIN_OK) return result;
  bool isAdded = false;
  const int recorded = InTransaction(m_solution, [&] {
    int found = FindWithoutEffect(issueCode, record);
    if (found == TREVLIN_OK) found = FindSettled(record, settled);
    // The mark that has been made is kept.
    if (found != TREVLIN_OK) return found == TREVLIN_NO_MATCH ? TREVLIN_OK : found;
    record.isApply = 0;
    record.registerTime = std::max(record.registerTime, time);
    isAdded = true;
    return AddRow(record);
  });
  return recorded == TREVLIN_OK && !isAdded ? TREVLIN_NO_MATCH : recorded;
}

int Database::FindWithoutEffect(int issueCode, _DTSolDBRecord& out) {
  int result = NewestSolution(issueCode, out);
  if (result != TREVLIN_OK) return result;
  if (!out.isApply) return TREVLIN_NO_MATCH;
  std::vector<_DTInfDBRecord> trues;
  result = Transitions(issueCode, DT_TRANSITION_TYPE_TRUE, trues);
  if (result != TREVLIN_OK) return result;
  return trues.front().lastUpdateTime > out.registerTime ? TREVLIN_NO_MATCH : TREVLIN_OK;
}

// Of what was recorded before a restart of the machine it is known that it is as old as that.
int Database::FindSettled(const _DTSolDBRecord& solution, std::chrono::seconds settled) {
  if (settled.count() <= 0) return TREVLIN_OK;
  const std::string code = std::to_string(solution.issueCode);
  if (!Execute(m_solution.db.get(), kCreateMarks)) return Fail(m_solution, "cannot be written");
  int64_t age = -1;
  SqliteStatement select;
  const int result = Query(
      m_solution, select, kSelectMark,
      [&](sqlite3_stmt* statement) {
        BindText(statement, 1, code);
        BindText(statement, 2, solution.registerTime);
      },
      [&](sqlite3_stmt* row) {
        age = RunningSeconds() - (ColumnText(row, 0) == BootId(Machine{}) ? sqlite3_column_int64(row, 1) : 0);
      });
  if (result == TREVLIN_OK) return age >= settled.count() ? TREVLIN_OK : TREVLIN_NO_MATCH;
  const int marked = result == TREVLIN_NO_MATCH ? MarkSolution(solution) : result;
  return marked == TREVLIN_OK ? TREVLIN_NO_MATCH : marked;
}

void Database::BeginRead() {
  BeginRead(m_inference);
  BeginRead(m_solution);
}

void Database::BeginRead(File& file) {
  if (file.reading || Open(file) != State::kReady) return;
  // Without a query a transaction holds nothing yet. The reason of a failure is that of the queries that follow.
  file.reading = Execute(file.db.get(), "BEGIN") && Execute(file.db.get(), "SELECT 1 FROM sqlite_master LIMIT 1");
  if (!file.reading) Execute(file.db.get(), "ROLLBACK");
}

void Database::EndRead() {
  for (File* file : {&m_inference, &m_solution}) {
    if (file->reading) Execute(file->db.get(), "COMMIT");
    file->reading = false;
  }
}

template <typename Bind, typename Row>
int Database::Query(File& file, SqliteStatement& statement, const char* sql, Bind bind, Row row) {
  const State state = Open(file);
  if (state != State::kReady) return state == State::kEmpty ? TREVLIN_NO_MATCH : TREVLIN_ERROR_DATABASE;
  bool found = false;
  int result = Step(file, statement, sql, bind, row, found);
  const bool isOwn = file.reading || sqlite3_get_autocommit(file.db.get());
  if (result == TREVLIN_ERROR_DATABASE && file.isDamaged && !found && isOwn) {
    statement.reset();
    if (Renew(file) && Open(file) == State::kReady) result = Step(file, statement, sql, bind, row, found);
  }
  return result;
}

template <typename Bind, typename Row>
int Database::Step(File& file, SqliteStatement& statement, const char* sql, Bind bind, Row row, bool& found) {
  if (!Prepare(file, statement, sql)) return TREVLIN_ERROR_DATABASE;
  const ResetAtEnd reset{statement.get()};
  bind(statement.get());
  int step = SQLITE_DONE;
  while ((step = sqlite3_step(statement.get())) == SQLITE_ROW) {
    row(statement.get());
    found = true;
  }
  if (step != SQLITE_DONE) return Fail(file, "cannot be read");
  Succeeded(file);
  return found ? TREVLIN_OK : TREVLIN_NO_MATCH;
}

template <typename Bind>
int Database::Insert(File& file, Bind bind) {
  if (!Prepare(file, file.insert, file.insertSql)) return TREVLIN_ERROR_DATABASE;
  const ResetAtEnd reset{file.insert.get()};
  bind(file.insert.get());
  return sqlite3_step(file.insert.get()) == SQLITE_DONE ? TREVLIN_OK : Fail(file, "cannot be written");
}

// All that `operation` writes, or nothing where it does not return TREVLIN_OK.
template <typename Operation>
int Database::InTransaction(File& file, Operation operation) {
  // Ends the state that is held: a row that waited for its end could still be lost.
  const bool wasReading = std::exchange(file.reading, false);
  if (wasReading) Execute(file.db.get(), "COMMIT");
  const State state = Open(file);
  if (state == State::kFailed) return TREVLIN_ERROR_DATABASE;
  if (state == State::kEmpty) return Fail(file, "cannot be written", "it has no table " + std::string(file.table));
  int result = Transact(file, operation);
  if (result != TREVLIN_OK && file.isDamaged && Renew(file) && Open(file) == State::kReady)
    result = Transact(file, operation);
  if (wasReading) BeginRead(file);
  return result;
}

template <typename Operation>
int Database::Transact(File& file, Operation operation) {
  if (!Execute(file.db.get(), "BEGIN IMMEDIATE")) return Fail(file, "cannot be written");
  int result = operation();
  if (result == TREVLIN_OK && !Execute(file.db.get(), "COMMIT")) result = Fail(file, "cannot be written");
  if (result == TREVLIN_OK)
    Succeeded(file);
  else
    Execute(file.db.get(), "ROLLBACK");
  return result;
}

// False where it stays as it is.
bool Database::Renew(File& file) {
  if (m_access == Access::kReadOnly) return false;
  file.Close();
  std::string report;
  const DatabaseRescue rescue = RescueDatabase(file.path, file.table, file.columns, report);
  if (!report.empty()) __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s", report.c_str());
  if (rescue == DatabaseRescue::kRenewed && vconf_set_bool(set_names::kDatabaseRenewedKey, true) != 0)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not set", set_names::kDatabaseRenewedKey);
  return rescue != DatabaseRescue::kFailed;
}

bool Database::Prepare(File& file, SqliteStatement& statement, const char* sql) {
  if (!statement) statement = PrepareStatement(file.db.get(), sql);
  if (!statement) Fail(file, "cannot be read");
  return statement != nullptr;
}

Database::State Database::Open(File& file) {
  if (file.reading) return State::kReady;
  struct stat status {};
  const std::string path = SystemPath(file.path);
  const bool exists = lstat(path.c_str(), &status) == 0;
  const int missing = exists ? 0 : errno;
  if (file.db && (!exists || status.st_dev != file.device || status.st_ino != file.inode)) file.Close();
  if (file.db && file.hasTable) return State::kReady;

  if (missing == ENOENT && m_access == Access::kReadOnly && FolderExists(path)) return State::kEmpty;
  if (exists && !S_ISREG(status.st_mode)) {
    Fail(file, "cannot be opened", S_ISLNK(status.st_mode) ? "it is a symbolic link" : "it is not a regular file");
    return State::kFailed;
  }
  const State state = OpenFile(file);
  return state == State::kFailed && file.isDamaged && Renew(file) ? OpenFile(file) : state;
}

Database::State Database::OpenFile(File& file) {
  const std::string path = SystemPath(file.path);
  if (!file.db) {
    // To read it, too, takes a writable file: what a writer that died has left half-done is taken back first.
    const int create = m_access == Access::kReadOnly ? 0 : SQLITE_OPEN_CREATE;
    sqlite3* db = nullptr;
    if (create != 0) KeepPrivate(file.path);
    const int result =
        sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | create, nullptr);
    file.db.reset(db);
    if (result != SQLITE_OK) {
      Fail(file, "cannot be opened");
      file.Close();
      return State::kFailed;
    }
    struct stat status {};
    lstat(path.c_str(), &status);
    file.device = status.st_dev;
    file.inode = status.st_ino;
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, kMostRowBytes);
    sqlite3_busy_handler(db, WaitForLock, &file);
  }
  if (!PrepareTables(file)) return State::kFailed;
  return file.hasTable ? State::kReady : State::kEmpty;
}

// A table or index that cannot be made is no failure.
bool Database::PrepareTables(File& file) {
  sqlite3* db = file.db.get();
  const SqliteStatement look = PrepareStatement(db, "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1");
  if (look) BindText(look.get(), 1, file.table);
  const int step = look ? sqlite3_step(look.get()) : SQLITE_ERROR;
  if (step != SQLITE_ROW && step != SQLITE_DONE) {
    Fail(file, "cannot be read");
    return false;
  }
  sqlite3_reset(look.get());
  file.hasTable = step == SQLITE_ROW;
  if (m_access == Access::kReadOnly) return true;
  if (!file.hasTable) {
    file.hasTable =
        Execute(db, std::string("CREATE TABLE IF NOT EXISTS ").append(file.table).append(file.columns).c_str());
    if (!file.hasTable) Log(file, DLOG_WARN, "its table cannot be made: " + Reason(db));
  }
  if (file.hasTable && !Execute(db, file.createIndex))
    Log(file, DLOG_WARN, "its index cannot be made, so that queries are slow: " + Reason(db));
  return true;
}

void Database::File::Close() {
  select.reset();
  insert.reset();
  db.reset();
  hasTable = false;
  reading = false;
  isDamaged = false;
}

int Database::Fail(File& file, const char* doing) {
  if (file.db && IsDatabaseDamage(sqlite3_errcode(file.db.get()))) file.isDamaged = true;
  return Fail(file, doing, file.db ? Reason(file.db.get()) : std::strerror(errno));
}

int Database::Fail(File& file, const char* doing, const std::string& reason) {
  m_lastError = std::string(file.path) + ": " + doing + ": " + reason;
  Log(file, DLOG_ERROR, std::string(doing) + ": " + reason);
  return TREVLIN_ERROR_DATABASE;
}

void Database::Log(File& file, int priority, const std::string& line) {
  if (file.logged == line) return;
  __dlog_print(LOG_ID_APPS, priority, kTag, "%s: %s", file.path, line.c_str());
  file.logged = line;
}

void Database::WaitForLocksUntil(std::chrono::steady_clock::time_point end) {
  m_inference.lockEnd = m_solution.lockEnd = end;
}

void Database::Succeeded(File& file) {
  file.lockedSince.reset();
  file.logged.clear();
}

int Database::WaitForLock(void* data, int) {
  File& file = *static_cast<File*>(data);
  const auto now = std::chrono::steady_clock::now();
  // After a pause between operations it is another lock.
  if (!file.lockedSince || now - file.lockSeen > kLockBudget) file.lockedSince = now;
  file.lockSeen = now;
  const auto left = std::min(kLockBudget - (now - *file.lockedSince), file.lockEnd - now);
  if (left <= left.zero()) return 0;
  std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(left, kLockPause));
  return 1;
}

}  // namespace trevlin
