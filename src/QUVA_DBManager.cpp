#include "QUVA_DBManager.h"

#include <sqlite3.h>

#include <cstdio>
#include <thread>

#include "SafeFile.h"
#include "VexiloLog.h"
#include "database_rescue.h"
#include "ownership.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin_tables.h"

namespace QUVA {

namespace {

constexpr char kTestTable[] = "testTBL";
constexpr const char* kTables[] = {trevlin_tables::kInference, trevlin_tables::kSolution, kRemainingTable, kTestTable};
constexpr const char* kPaths[] = {set_paths::kInferenceDb, set_paths::kSolutionDb, set_paths::kRemainingDb,
                                  set_paths::kTestDb};

// Another process that looks at the database is done within this time, from its opening on.
constexpr std::chrono::seconds kLockPatience(1);
constexpr std::chrono::milliseconds kLockPause(5);

constexpr int kFailure = 0;
constexpr int kSuccess = 1;

bool IsKnown(EDBName db) {
  return db >= DB_INFERENCE && db <= DB_TEST;
}

std::string TextOf(sqlite3_stmt* row, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
  return text ? std::string(text, static_cast<size_t>(sqlite3_column_bytes(row, column))) : std::string();
}

void AppendText(sqlite3_stmt* row, int column, std::string& out) {
  if (sqlite3_column_type(row, column) == SQLITE_TEXT) out += TextOf(row, column);
}

void AppendTextOrInteger(sqlite3_stmt* row, int column, std::string& out) {
  if (sqlite3_column_type(row, column) == SQLITE_INTEGER)
    out += std::to_string(sqlite3_column_int(row, column));
  else
    AppendText(row, column, out);
  VEXILO_LOGD("temp : %s", out.c_str());
}

}  // namespace

TCDBManager* TCDBManager::m_instance = nullptr;

TCDBManager* TCDBManager::GetInstance() {
  if (!m_instance) m_instance = new TCDBManager;
  return m_instance;
}

TCDBManager::TCDBManager() {
  for (int i = 0; i < kDatabaseCount; ++i) std::snprintf(m_tableNames[i], kTableNameSize, "%s", kTables[i]);
}

// ---- operations

int TCDBManager::OpenDB(EDBName db) {
  VEXILO_LOGD("OpenDB : %d", db);
  sqlite3_close(m_db);
  m_db = nullptr;
  m_isDamaged = false;
  const std::string path = m_GetDBPath(db);
  if (!path.empty()) KeepPrivate(path);
  if (IsLink(path)) {
    VEXILO_LOGE("ERROR: %s open is fail!! ( %s )", path.c_str(), "it is a symbolic link");
  } else if (sqlite3_open(SystemPath(path).c_str(), &m_db) != SQLITE_OK) {
    VEXILO_LOGE("ERROR: %s open is fail!! ( %s )", path.c_str(), sqlite3_errmsg(m_db));
    sqlite3_close(m_db);
    m_db = nullptr;
  } else {
    sqlite3_limit(m_db, SQLITE_LIMIT_LENGTH, kMostTextBytes);
    // Rows are inserted as double-quoted texts, which some builds of the library no longer take for strings.
    sqlite3_db_config(m_db, SQLITE_DBCONFIG_DQS_DML, 1, nullptr);
    m_lockDeadline = std::chrono::steady_clock::now() + kLockPatience;
    sqlite3_busy_handler(m_db, m_WaitForLock, this);
  }
  for (int i = 0; i < m_GetLimitForTableCnt(db); ++i) {
    const std::string table = m_GetTableName(db, i);
    if (m_IsTableExist(table)) continue;
    VEXILO_LOGI("%s is not exist!!", table.c_str());
    m_Create(table);
  }
  return kSuccess;
}

int TCDBManager::m_WaitForLock(void* self, int) {
  if (std::chrono::steady_clock::now() >= static_cast<TCDBManager*>(self)->m_lockDeadline) return 0;
  std::this_thread::sleep_for(kLockPause);
  return 1;
}

int TCDBManager::CloseDB() {
  VEXILO_LOGD("CloseDB");
  const int result = sqlite3_close(m_db);
  m_db = nullptr;
  return result == SQLITE_OK ? kSuccess : kFailure;
}

int TCDBManager::SetDB(std::string table, std::list<std::string> values) {
  VEXILO_LOGD("SetDB");
  std::string valueText = "(";
  for (const std::string& value : values) valueText += '"' + value + (value == values.back() ? "\")" : "\",");
  return m_Insert(table, valueText);
}

int TCDBManager::GetDB(EDBName db, std::string column, std::vector<std::string>& out) {
  VEXILO_LOGD("GetDB");
  for (int i = 0; i < m_GetLimitForTableCnt(db); ++i) {
    const std::string table = m_GetTableName(db, i);
    if (m_IsTableExist(table) && !m_Select(table, column, out)) return kFailure;
  }
  return kSuccess;
}

int TCDBManager::GetRows(EDBName db, const std::vector<std::string>& columns,
                         std::vector<std::vector<std::string>>& out) {
  const std::string table = m_GetTableName(db, 0);
  if (!m_IsTableExist(table)) return kSuccess;
  std::string query;
  for (const std::string& column : columns) query += (query.empty() ? "SELECT " : ", ") + column;
  query += " FROM " + table;
  VEXILO_LOGD("QUERY : %s", query.c_str());
  size_t next = 0, tooLarge = 0;
  int result = m_ReadFrom(0, query, out, next);
  for (; result == SQLITE_TOOBIG && next < kMostRows; ++tooLarge) result = m_ReadFrom(next + 1, query, out, next);
  if (tooLarge > 0)
    VEXILO_LOGE("%s: %zu rows with texts of more than %d bytes are left out", table.c_str(), tooLarge, kMostTextBytes);
  if (next >= kMostRows && (result == SQLITE_ROW || result == SQLITE_TOOBIG)) {
    VEXILO_LOGE("%s: it has more than %zu rows, the others are left out", table.c_str(), kMostRows);
    return kSuccess;
  }
  if (result == SQLITE_DONE) return kSuccess;
  m_NoteDamage();
  VEXILO_LOGE("ERROR: %s table select is fail!!", table.c_str());
  VEXILO_LOGE("statement that failed : %s ( %s )", query.c_str(), m_Problem());
  return kFailure;
}

int TCDBManager::DeleteDB(std::string code) {
  VEXILO_LOGD("DeleteDB");
  const std::string query = std::string("DELETE FROM ") + kTables[DB_REMAINING] + " WHERE issue_code='" + code + "'";
  const int result = m_SqlExecute(query);
  if (!result) VEXILO_LOGE("ERROR: %s column delete is fail!!", query.c_str());
  return result;
}

int TCDBManager::DeleteDB(const std::vector<std::string>& codes) {
  std::string list;
  for (const std::string& code : codes) list += (list.empty() ? "'" : ",'") + code + "'";
  const std::string table = kTables[DB_REMAINING];
  return m_SqlExecute("DELETE FROM " + table + " WHERE rowid IN (SELECT rowid FROM " + table + " LIMIT " +
                      std::to_string(kMostRows) + ") AND issue_code IN (" + list + ")");
}

int TCDBManager::FlushDB(EDBName db) {
  VEXILO_LOGD("FlushDB");
  std::string table;
  for (int i = 0; i < m_GetLimitForTableCnt(db); ++i) table = m_GetTableName(db, i);
  const int result = m_SqlExecute("DELETE FROM " + table);
  if (!result) VEXILO_LOGE("ERROR: %s column delete is fail!!", table.c_str());
  return result;
}

int TCDBManager::BeginChanges() {
  return m_SqlExecute("BEGIN IMMEDIATE");
}

bool TCDBManager::IsChanging() const {
  return m_db && !sqlite3_get_autocommit(m_db);
}

int TCDBManager::EndChanges() {
  return m_SqlExecute("COMMIT");
}

// ---- names

std::string TCDBManager::m_GetDBPath(EDBName db) {
  if (!IsKnown(db)) {
    VEXILO_LOGE("ERROR: db path is wrong!! : %d", db);
    return "";
  }
  VEXILO_LOGD("Path : %s", kPaths[db]);
  return kPaths[db];
}

std::string TCDBManager::m_GetTableName(EDBName db, int index) {
  VEXILO_LOGD("m_GetTableName");
  if (!IsKnown(db)) {
    VEXILO_LOGE("ERROR: table name is wrong!! : %d", db);
    return "";
  }
  return m_tableNames[db + index];
}

int TCDBManager::m_GetLimitForTableCnt(EDBName db) {
  VEXILO_LOGD("m_GetLimitForTableCnt");
  if (IsKnown(db)) return 1;
  VEXILO_LOGE("ERROR: db option is wrong!!");
  return 0;
}

std::string TCDBManager::m_GetQueryForCreateTable(std::string table) {
  VEXILO_LOGD("m_GetQueryForCreateTable");
  if (table == kTables[DB_INFERENCE] || table == kTables[DB_TEST]) return trevlin_tables::kInferenceColumns;
  if (table == kTables[DB_SOLUTION]) return trevlin_tables::kSolutionColumns;
  if (table == kTables[DB_REMAINING]) return kRemainingColumns;
  return "";
}

// ---- statements

bool TCDBManager::m_IsTableExist(std::string table) {
  VEXILO_LOGD("m_IsTableExist");
  const std::string query = "SELECT name FROM sqlite_master WHERE type='table' AND name='" + table + "';";
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(m_db, query.c_str(), static_cast<int>(query.size()), &statement, nullptr);
  if (!statement) m_NoteDamage();
  const bool exists = sqlite3_step(statement) == SQLITE_ROW;
  sqlite3_reset(statement);
  sqlite3_finalize(statement);
  return exists;
}

int TCDBManager::m_Create(std::string table) {
  VEXILO_LOGI("Create: %s table", table.c_str());
  const int result = m_SqlExecute("CREATE TABLE " + table + m_GetQueryForCreateTable(table) + ";");
  if (!result) VEXILO_LOGE("ERROR: %s table create is fail!!", table.c_str());
  return result;
}

int TCDBManager::m_Drop(std::string table) {
  VEXILO_LOGD("m_Drop");
  const int result = m_SqlExecute("DROP TABLE IF EXISTS " + table + ";");
  if (!result) VEXILO_LOGE("ERROR: %s table delete is fail!!", table.c_str());
  return result;
}

int TCDBManager::m_Insert(std::string table, std::string valueText) {
  VEXILO_LOGD("m_Insert");
  const int result = m_SqlExecute("INSERT INTO " + table + " VALUES " + valueText + ";");
  if (!result) VEXILO_LOGE("ERROR: %s table insert is fail!!", table.c_str());
  return result;
}

void TCDBManager::m_NoteDamage() {
  if (m_db && IsDatabaseDamage(sqlite3_errcode(m_db))) m_isDamaged = true;
}

const char* TCDBManager::m_Problem() const {
  return m_db ? sqlite3_errmsg(m_db) : "no database is open";
}

/// Rows from the one of that number on; `next` becomes the number of the one behind the last that was taken. SQLITE_ROW
/// when there are more than are looked at, else as sqlite3_step() ends: SQLITE_TOOBIG at a row with too long a text.
int TCDBManager::m_ReadFrom(size_t first, const std::string& query, std::vector<std::vector<std::string>>& out,
                            size_t& next) {
  sqlite3_stmt* statement = nullptr;
  // What is skipped is not read in.
  const std::string rest = query + " LIMIT -1 OFFSET " + std::to_string(first);
  sqlite3_prepare_v2(m_db, rest.c_str(), -1, &statement, nullptr);
  int result;
  for (next = first; (result = sqlite3_step(statement)) == SQLITE_ROW && next < kMostRows; ++next)
    for (size_t column = 0; column < out.size(); ++column)
      AppendTextOrInteger(statement, static_cast<int>(column), out[column].emplace_back());
  sqlite3_finalize(statement);
  return result;
}

template <typename AppendColumn>
int TCDBManager::m_ReadRows(const std::string& table, const std::string& query, std::vector<std::string>& out,
                            AppendColumn append) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(m_db, query.c_str(), static_cast<int>(query.size()), &statement, nullptr);
  int result;
  while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
    std::string temp;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) append(statement, column, temp);
    out.push_back(std::move(temp));
  }
  if (result != SQLITE_DONE) {
    m_NoteDamage();
    VEXILO_LOGE("ERROR: %s table select is fail!!", table.c_str());
    VEXILO_LOGE("statement that failed : %s ( %s )", query.c_str(), m_Problem());
  }
  sqlite3_reset(statement);
  sqlite3_finalize(statement);
  return result == SQLITE_DONE ? kSuccess : kFailure;
}

int TCDBManager::m_Select(std::string table, std::vector<std::string>& out) {
  VEXILO_LOGD("m_Select");
  return m_ReadRows(table, "SELECT * FROM " + table + ";", out, AppendText);
}

int TCDBManager::m_Select(std::string table, std::string columns, std::vector<std::string>& out) {
  VEXILO_LOGD("m_Select");
  const std::string query = "SELECT " + columns + " FROM " + table + ";";
  VEXILO_LOGD("QUERY : %s", query.c_str());
  return m_ReadRows(table, query, out, AppendTextOrInteger);
}

int TCDBManager::m_SqlExecute(std::string query) {
  VEXILO_LOGD("m_SqlExecute query : %s", query.c_str());
  if (sqlite3_exec(m_db, query.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return kSuccess;
  m_NoteDamage();
  VEXILO_LOGE("ERROR: sql execute is fail!! ( %s )", m_Problem());
  VEXILO_LOGE("statement that failed : %s", query.c_str());
  return kFailure;
}

}  // namespace QUVA
