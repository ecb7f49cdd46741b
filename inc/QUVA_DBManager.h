#pragma once

#include <chrono>
#include <list>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace QUVA {

/// The databases, in the order of their tables.
enum EDBName : int { DB_INFERENCE = 0, DB_SOLUTION, DB_REMAINING, DB_TEST };

/// The table of the remaining problems, and the column list of its CREATE TABLE, as shipped sets have it; SQLite takes
/// "TEST" as a type name.
inline constexpr char kRemainingTable[] = "remainingTBL";
inline constexpr char kRemainingColumns[] =
    "(idx TEXT, issue_code TEXT, is_fix TEXT, last_time TEXT, sol_type TEXT, sid_issue TEXT, sid_sol TEXT, "
    "sid_button1 TEXT, sid_button2 TEXT, action TEXT, toast1 TEST, toast2 TEXT, source TEXT, view_authority TEXT)";

/// The names of the columns.
namespace Column {
inline const std::string registerTime = "registerTime";
inline const std::string lastUpdatedTime = "lastUpdatedTime";
inline const std::string issueCode = "issueCode";
inline const std::string TR = "TR";
inline const std::string solutionCode = "solutionCode";
inline const std::string type = "type";
inline const std::string isApply = "isApply";
inline const std::string statusCode = "statusCode";
inline const std::string idx = "idx";
inline const std::string issue_code = "issue_code";
inline const std::string is_fix = "is_fix";
inline const std::string last_time = "last_time";
inline const std::string sol_type = "sol_type";
inline const std::string sid_issue = "sid_issue";
inline const std::string sid_sol = "sid_sol";
inline const std::string sid_button1 = "sid_button1";
inline const std::string sid_button2 = "sid_button2";
inline const std::string action = "action";
inline const std::string toast1 = "toast1";
inline const std::string toast2 = "toast2";
inline const std::string source = "source";
inline const std::string view_authority = "view_authority";
}  // namespace Column

/// What of a table is looked at: so many rows, with texts of so many bytes each. No scan finds that many issues.
inline constexpr size_t kMostRows = 500;
inline constexpr int kMostTextBytes = 4096;

/// The application's SQLite layer: one database open at a time, on one connection.
/// Thread rule: no lock of its own; its one user serialises the calls. They block on the disk, and for a second
/// at most from OpenDB() on for a lock of another process.
/// Results are 1 for success and 0 for failure; the log has the reason.
class TCDBManager {
 public:
  /// Created on first use, never destroyed.
  static TCDBManager* GetInstance();

  TCDBManager(const TCDBManager&) = delete;
  TCDBManager& operator=(const TCDBManager&) = delete;

  /// Opens the database, making its file and table where they are missing; the folder must be there. A symbolic link is
  /// refused.
  /// Returns 1 in every case: after a failure the operations that follow fail.
  int OpenDB(EDBName db);
  int CloseDB();

  /// Inserts a row. Values are not escaped (a double quote must come doubled), and a value that equals the last one
  /// makes the statement fail.
  int SetDB(std::string table, std::list<std::string> values);
  /// Appends the column's value of every row of the database's table to `out`. The open database is read, whatever
  /// `db` says; a table that it has not is no failure. Values of more than kMostTextBytes are.
  int GetDB(EDBName db, std::string column, std::vector<std::string>& out);
  /// Appends several columns' values to the vectors of `out`, which has one for each; as GetDB(), but at once, and of
  /// the first kMostRows rows those whose texts all have kMostTextBytes at most. The log has what is left out.
  int GetRows(EDBName db, const std::vector<std::string>& columns, std::vector<std::vector<std::string>>& out);
  /// Deletes the rows of an issue from the remaining-problems table. `code` is not escaped (a single quote must come
  /// doubled).
  int DeleteDB(std::string code);
  /// The same for several, among the rows that GetRows() looks at.
  int DeleteDB(const std::vector<std::string>& codes);
  /// Empties the database's table.
  int FlushDB(EDBName db);

  /// What is changed from here to EndChanges() is there as a whole or, when the process ends or CloseDB() comes first,
  /// not at all. A statement that fails is left out, as ever.
  int BeginChanges();
  /// Whether it is still so: a full disk ends it, and takes back what was changed.
  bool IsChanging() const;
  int EndChanges();

  /// Whether what was opened last has shown itself to be no database, or a malformed one. Until the next OpenDB().
  bool IsDamaged() const { return m_isDamaged; }

 private:
  static constexpr int kTableNameSize = 20;
  static constexpr int kDatabaseCount = 4;

  TCDBManager();

  std::string m_GetDBPath(EDBName db);
  std::string m_GetTableName(EDBName db, int index);
  int m_GetLimitForTableCnt(EDBName db);
  bool m_IsTableExist(std::string table);
  std::string m_GetQueryForCreateTable(std::string table);
  int m_Create(std::string table);
  int m_Drop(std::string table);
  int m_Insert(std::string table, std::string valueText);
  int m_Select(std::string table, std::vector<std::string>& out);
  int m_Select(std::string table, std::string columns, std::vector<std::string>& out);
  int m_SqlExecute(std::string query);
  const char* m_Problem() const;
  void m_NoteDamage();
  static int m_WaitForLock(void* self, int attempt);

  int m_ReadFrom(size_t first, const std::string& query, std::vector<std::vector<std::string>>& out, size_t& next);
  template <typename AppendColumn>
  int m_ReadRows(const std::string& table, const std::string& query, std::vector<std::string>& out,
                 AppendColumn append);

  char m_tableNames[kDatabaseCount][kTableNameSize] = {};
  sqlite3* m_db = nullptr;
  bool m_isDamaged = false;
  std::chrono::steady_clock::time_point m_lockDeadline;
  static TCDBManager* m_instance;
};

}  // namespace QUVA
