#pragma once
/// @file
/// The engine's two databases: the history of transitions (inference.db) and of solutions (solution.db).
///
/// Thread rule: an object belongs to one thread at a time; the engine guards its own with a mutex. Several processes
/// may have the databases open.
///
/// Unless said otherwise an operation returns TREVLIN_OK, TREVLIN_NO_MATCH or TREVLIN_ERROR_DATABASE
/// (trevlin_engine.h). The reason of an error is in LastError() and in the platform log, there once for as long as it
/// stays the same. A database that another process has locked is waited for, two seconds in all since the last
/// operation on it that went through; after two seconds without an operation anew. WaitForLocksUntil() ends it earlier.
///
/// A file that is replaced or deleted meanwhile is noticed at the next operation outside BeginRead() and EndRead().
/// A row of more than 64 KiB is an error for each query that comes to it.
/// A link in place of a file is refused. A file that is damaged (database_rescue.h) is an error to a kReadOnly object,
/// and stays as it is. A kReadWrite object has it set aside and made anew with what can be read, says so in the log,
/// sets set_names::kDatabaseRenewedKey, and goes on with that; where this is not possible it is an error.

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/sqlite_handle.h"
#include "trevlin_engine.h"

namespace trevlin {

/// A whole inference row.
struct Transition {
  std::string registerTime{};  ///< when the issue was first recorded; empty when adding: as in the rows that are there
  std::string time{};          ///< when this transition happened
  int issueCode = 0;
  int type = DT_TRANSITION_TYPE_FALSE;
  int solutionCode = 0;
};

/// Whether an issue is there.
struct IssueTruth {
  int issueCode = 0;
  bool isTrue = false;
};

/// The local time as the databases write it, `offset` from now.
std::string CurrentTime(std::chrono::seconds offset = {});

/// Whether `text` is a time as the databases write it ("2024-03-07T09:05:00"), of a day that the calendar has.
bool IsTime(const std::string& text);

/// What is looked at where all rows are asked for: the newest. An engine's databases have a hundred of each issue.
inline constexpr size_t kMostRows = 20000;

/// The queries that a diagnosis makes for every issue; ?1 is the issue code as text, ?2 the type of transition.
/// Each is answered from the index that a kReadWrite object makes.
inline constexpr char kSelectTransitions[] =
    "SELECT lastUpdatedTime FROM inferenceTBL WHERE issueCode = ?1 AND TR = ?2 "
    "ORDER BY lastUpdatedTime DESC, rowid DESC LIMIT 1000";
inline constexpr char kSelectNewestSolution[] =
    "SELECT registerTime, issueCode, solutionCode, type, isApply FROM solutionTBL WHERE issueCode = ?1 "
    "ORDER BY registerTime DESC, rowid DESC LIMIT 1";

class Database {
 public:
  enum class Access { kReadOnly, kReadWrite };

  /// Files are opened at the first operation that needs them. With kReadWrite a file or table that is missing is made,
  /// as is the index that the queries need; where that is not possible queries answer from what there is.
  /// A kReadOnly object changes nothing, but that what a writer that died has left half-done is taken back; a file that
  /// is missing is an empty one to it. A missing folder is an error.
  explicit Database(Access access) : m_access(access) {}
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Newest first, 1000 at most. `out` is replaced, by nothing when the result is not TREVLIN_OK.
  int Transitions(int issueCode, int type, std::vector<_DTInfDBRecord>& out);
  /// `out` is untouched unless the result is TREVLIN_OK.
  int NewestSolution(int issueCode, _DTSolDBRecord& out);

  /// The codes of the issues whose newest row, of equal times one that is true, says that they are there, in their
  /// order. `out` is replaced, by nothing when the result is not TREVLIN_OK.
  int StandingIssues(std::vector<int>& out);

  /// Every row, or the newest kMostRows of more, oldest first. `out` is replaced, by nothing when the result is not
  /// TREVLIN_OK.
  int AllTransitions(std::vector<Transition>& out);
  int AllSolutions(std::vector<_DTSolDBRecord>& out);

  /// Add a row. It is on the disk when they return TREVLIN_OK. Of an issue's solutions the newest 100 are kept. A
  /// solution is as late as the issue's newest transition and solution, whatever the clock said of them, or later.
  /// TREVLIN_ERROR_INVALID for an issue code below 1, a type that is none, or a time that IsTime() refuses.
  int AddTransition(const Transition& transition);
  int AddSolution(const _DTSolDBRecord& record);

  /// No lock of either database is waited for any longer than until then.
  void WaitForLocksUntil(std::chrono::steady_clock::time_point end);

  /// Adds a transition at `time` for each issue whose truth is another than that of its newest row (without rows:
  /// false; of rows of equal times, true counts), and keeps the newest `keep` rows of those issues, all in one
  /// transaction or not at all. Where a row or the newest solution of the issue is as late as `time` or later, the
  /// transition is a second later than that. What another process adds meanwhile is seen, so that of two only one adds
  /// a transition. `added` is replaced by the transitions that were added, without register times. TREVLIN_OK also when
  /// there was nothing to add. Not between BeginRead() and EndRead().
  int RecordTruths(const std::vector<IssueTruth>& issues, const std::string& time, size_t keep,
                   std::vector<Transition>& added);

  /// Replaces `changes` by the transitions that RecordTruths() would add, as far as it can be read what there is.
  int FindChanges(const std::vector<IssueTruth>& issues, const std::string& time, std::vector<Transition>& changes);

  /// Where the newest solution of the issue was applied at least `settled` of the machine's running time ago, whatever
  /// the clock has been since, and the issue has not become true since, adds the solution once more at `time`, as not
  /// applied. TREVLIN_NO_MATCH when there is no such solution. One that another program has added counts from the first
  /// question on. Of several processes one adds it.
  int RecordNoEffect(int issueCode, std::chrono::seconds settled, const std::string& time);

  /// Holds one state of the databases from here to EndRead(), so that many queries see the same and cost less. Failing
  /// to do so is no error: the queries then each see the newest state. What this object adds meanwhile is seen.
  void BeginRead();
  void EndRead();

  /// The reason of the last failure, naming the set's path of the file.
  const std::string& LastError() const { return m_lastError; }

 private:
  /// One file, its connection, and the statements that are used again and again.
  struct File {
    const char* path;
    const char* table;
    const char* columns;
    const char* createIndex;
    const char* selectSql;
    const char* insertSql;

    SqliteDb db{};
    SqliteStatement select{};
    SqliteStatement insert{};
    dev_t device = 0;
    ino_t inode = 0;
    bool hasTable = false;
    bool reading = false;
    bool isDamaged = false;
    std::optional<std::chrono::steady_clock::time_point> lockedSince{};  // no operation has gone through since
    std::chrono::steady_clock::time_point lockSeen{};
    std::chrono::steady_clock::time_point lockEnd = std::chrono::steady_clock::time_point::max();
    std::string logged{};  // the last line in the log, until an operation goes through

    void Close();
  };

  enum class State { kReady, kEmpty, kFailed };

  State Open(File& file);
  State OpenFile(File& file);
  bool PrepareTables(File& file);
  void BeginRead(File& file);
  bool Prepare(File& file, SqliteStatement& statement, const char* sql);
  template <typename Bind, typename Row>
  int Query(File& file, SqliteStatement& statement, const char* sql, Bind bind, Row row);
  template <typename Bind, typename Row>
  int Step(File& file, SqliteStatement& statement, const char* sql, Bind bind, Row row, bool& found);
  template <typename Bind>
  int Insert(File& file, Bind bind);
  template <typename Operation>
  int InTransaction(File& file, Operation operation);
  template <typename Operation>
  int Transact(File& file, Operation operation);
  int Prune(File& file, const char* sql, int issueCode, size_t keep);
  int AddChanges(const std::vector<Transition>& changes, size_t keep);
  int AddRow(const Transition& transition);
  int AddRow(const _DTSolDBRecord& record);
  int FindWithoutEffect(int issueCode, _DTSolDBRecord& out);
  int FindSettled(const _DTSolDBRecord& solution, std::chrono::seconds settled);
  int MarkSolution(const _DTSolDBRecord& solution);
  std::string LatestTime(int issueCode);

  bool Renew(File& file);

  int Fail(File& file, const char* doing);
  int Fail(File& file, const char* doing, const std::string& reason);
  void Log(File& file, int priority, const std::string& line);
  static void Succeeded(File& file);
  static int WaitForLock(void* file, int attempt);

  const Access m_access;
  File m_inference = InferenceFile();
  File m_solution = SolutionFile();
  std::string m_lastError;

  static File InferenceFile();
  static File SolutionFile();
};

}  // namespace trevlin
