#include "database_rescue.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

#include "base/atomic_file.h"
#include "base/file_lock.h"
#include "base/folder.h"
#include "base/sqlite_handle.h"
#include "c_handle.h"
#include "system_path.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPause{60}, kLongestLock{4}, kLongestLook{10}, kLongestReading{5};
constexpr int kBusyMs = 1000;
constexpr int kMaxRows = 100000;
constexpr int kMaxLookups = 10000;
constexpr int kMaxBytes = 1 << 20;
constexpr int kKept = 3;
constexpr char kMark[] = ".damaged-";
constexpr const char* kJournals[] = {"-journal", "-wal", "-shm"};

/// Ends the statements of a connection at that time.
struct Limit {
  Clock::time_point end;
  static int IsOver(void* self) { return Clock::now() >= static_cast<Limit*>(self)->end; }
};

SqliteDb Open(const std::string& path) {
  sqlite3* handle = nullptr;
  // Writable: what a writer that died has left half-done is taken back first.
  sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  sqlite3_busy_timeout(handle, kBusyMs);
  return SqliteDb(handle);
}

/// What is wrong with it. False when that cannot be told; `problem` says why then. Empty when nothing is.
bool Look(sqlite3* db, std::string& problem) {
  Limit limit{Clock::now() + kLongestLook};
  sqlite3_progress_handler(db, 1000, Limit::IsOver, &limit);
  const SqliteStatement check = PrepareStatement(db, "PRAGMA integrity_check(1)");
  const int step = check ? sqlite3_step(check.get()) : sqlite3_errcode(db);
  problem = step == SQLITE_ROW ? std::string(ColumnText(check.get(), 0)) : sqlite3_errmsg(db);
  sqlite3_progress_handler(db, 0, nullptr, nullptr);
  if (problem == "ok") problem.clear();
  std::replace(problem.begin(), problem.end(), '\n', ' ');
  return step == SQLITE_ROW || IsDatabaseDamage(step);
}

/// Carries rows from a damaged table to a new one of the same columns.
class Carrier {
 public:
  Carrier(sqlite3* from, sqlite3* to, const std::string& table) : m_from(from), m_to(to), m_table(table) {
    sqlite3_progress_handler(from, 1000, Limit::IsOver, &m_limit);
    sqlite3_limit(from, SQLITE_LIMIT_LENGTH, kMaxBytes);
    // So that a file that was cut short is read at all.
    sqlite3_exec(from, "PRAGMA writable_schema = ON", nullptr, nullptr, nullptr);
    std::string places = "?1";
    const SqliteStatement columns = PrepareStatement(to, "SELECT name FROM pragma_table_info('" + table + "')");
    for (int i = 2; columns && sqlite3_step(columns.get()) == SQLITE_ROW; ++i) {
      m_columns.append(", ").append(ColumnText(columns.get(), 0));
      places += ", ?" + std::to_string(i);
    }
    m_insert =
        PrepareStatement(to, "INSERT OR IGNORE INTO " + table + "(rowid" + m_columns + ") VALUES (" + places + ")");
  }

  /// From both ends, then one by one what lies between.
  int Carry() {
    sqlite3_int64 first = 0, last = 0;
    if (Read(" ORDER BY rowid", 0, first) || !m_isReadable) return m_rows;
    if (!Read(" ORDER BY rowid DESC", first, last) && last == 0) last = first + kMaxLookups;
    for (sqlite3_int64 each = first + 1; each < last && each - first <= kMaxLookups && !Limit::IsOver(&m_limit);
         ++each) {
      sqlite3_int64 ignored = 0;
      Read(" LIMIT 1", each - 1, ignored, each);
    }
    return m_rows;
  }

 private:
  /// True when it came to the end of the rows after `after`; `reached` is the last that it has read.
  bool Read(const char* order, sqlite3_int64 after, sqlite3_int64& reached, sqlite3_int64 until = INT64_MAX) {
    const SqliteStatement select =
        PrepareStatement(m_from, "SELECT rowid" + m_columns + " FROM " + m_table +
                                     " NOT INDEXED WHERE rowid > ?1 AND rowid <= ?2" + order);
    m_isReadable = select && m_insert;
    if (!m_isReadable) return false;
    sqlite3_bind_int64(select.get(), 1, after);
    sqlite3_bind_int64(select.get(), 2, until);
    int step;
    while ((step = sqlite3_step(select.get())) == SQLITE_ROW && m_rows < kMaxRows) {
      reached = sqlite3_column_int64(select.get(), 0);
      for (int i = 0; i < sqlite3_column_count(select.get()); ++i)
        sqlite3_bind_value(m_insert.get(), i + 1, sqlite3_column_value(select.get(), i));
      if (sqlite3_step(m_insert.get()) == SQLITE_DONE) m_rows += sqlite3_changes(m_to);
      sqlite3_reset(m_insert.get());
    }
    return step == SQLITE_DONE || m_rows >= kMaxRows;
  }

  sqlite3* m_from;
  sqlite3* m_to;
  std::string m_table, m_columns;
  SqliteStatement m_insert;
  Limit m_limit{Clock::now() + kLongestReading};
  int m_rows = 0;
  bool m_isReadable = true;  ///< its table can be asked for rows
};

/// Makes the new database beside the other, with what can be carried over, and flushes it. How many rows; -1 and the
/// reason when there is none.
int MakeNew(const std::string& file, sqlite3* damaged, const std::string& table, const std::string& columns,
            std::string& problem) {
  const SqliteDb db = Open(file);
  const auto run = [&](const std::string& sql) {
    if (sqlite3_exec(db.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    problem = sqlite3_errmsg(db.get());
    return false;
  };
  if (!run("PRAGMA journal_mode = MEMORY; BEGIN; CREATE TABLE " + table + columns)) return -1;
  const int rows = Carrier(damaged, db.get(), table).Carry();
  return run("COMMIT") ? rows : -1;
}

/// The number of one that was set aside; 0 of anything else.
int NumberOfAside(const std::string& name, const std::string& base) {
  return name.starts_with(base + kMark) ? std::atoi(name.c_str() + base.size() + std::strlen(kMark)) : 0;
}

/// Where the next one goes; the oldest go.
std::string NextAside(const std::string& path) {
  const std::filesystem::path file(path);
  const std::string base = file.filename();
  int highest = 0;
  for (const auto& each : EntriesOf(file.parent_path()))
    highest = std::max(highest, NumberOfAside(each.filename(), base));
  for (const auto& each : EntriesOf(file.parent_path()))
    if (const int number = NumberOfAside(each.filename(), base); number > 0 && number <= highest + 1 - kKept)
      unlink(each.c_str());
  const time_t now = time(nullptr);
  tm local{};
  char date[32];
  localtime_r(&now, &local);
  strftime(date, sizeof date, "%Y%m%dT%H%M%S", &local);
  return path + kMark + std::to_string(highest + 1) + "-" + date;
}

/// The new file takes the name of the damaged one, which is there under another from then on; false where all is as it
/// was.
bool Exchange(const std::string& path, const std::string& aside, StagedFile& fresh) {
  const bool isLinked = link(path.c_str(), aside.c_str()) == 0;
  if (!isLinked && rename(path.c_str(), aside.c_str()) != 0) return false;
  const auto move = [](const std::string& from, const std::string& to) {
    for (const char* journal : kJournals) rename((from + journal).c_str(), (to + journal).c_str());
  };
  // They would be taken for those of the new one.
  move(path, aside);
  if (fresh.Publish()) return SyncFolderOf(path);
  const int reason = errno;
  move(aside, path);
  if (isLinked)
    unlink(aside.c_str());
  else
    rename(aside.c_str(), path.c_str());
  errno = reason;
  return false;
}

/// Those that a rescue has left which was killed. Under the lock, so that none is under way.
void RemoveUnfinished(const std::string& path) {
  const std::filesystem::path file(path);
  const std::string begin = file.filename().string() + "#";
  for (const auto& each : EntriesOf(file.parent_path()))
    if (each.filename().string().starts_with(begin)) unlink(each.c_str());
}

DatabaseRescue Rescue(const std::string& setPath, const std::string& table, const std::string& columns,
                      std::string& report) {
  const std::string path = SystemPath(setPath);
  const auto fail = [&](const std::string& reason) {
    report = setPath + ": is damaged and cannot be set aside: " + reason;
    return DatabaseRescue::kFailed;
  };
  const FdHandle lock = LockBeside(path, Clock::now() + kLongestLock);
  if (!lock) return fail(std::strerror(errno));
  RemoveUnfinished(path);
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return DatabaseRescue::kSound;
  const SqliteDb damaged = Open(path);
  std::string damage, problem;
  if (!Look(damaged.get(), damage)) return fail(damage);
  if (damage.empty()) return DatabaseRescue::kSound;
  // Where it can still be had, nobody writes to it until the new one is there.
  sqlite3_exec(damaged.get(), "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);

  StagedFile fresh;
  if (!fresh.Write(path, "", status.st_mode & 07777)) return fail(std::strerror(errno));
  const int rows = MakeNew(fresh.Path(), damaged.get(), table, columns, problem);
  if (rows < 0) return fail(problem);
  const std::string aside = NextAside(path);
  const bool isOwned = geteuid() != 0 || fchown(fresh.Fd(), status.st_uid, status.st_gid) == 0;
  if (!isOwned || fsync(fresh.Fd()) != 0 || !Exchange(path, aside, fresh)) return fail(std::strerror(errno));
  report = setPath + ": was damaged (" + damage + "); it is set aside as " + aside.substr(path.rfind('/') + 1) +
           " and made anew with the " + std::to_string(rows) + " rows that could be read";
  return DatabaseRescue::kRenewed;
}

}  // namespace

bool IsDatabaseDamage(int result) {
  return (result & 0xff) == SQLITE_CORRUPT || (result & 0xff) == SQLITE_NOTADB;
}

DatabaseRescue RescueDatabase(const std::string& path, const std::string& table, const std::string& columns,
                              std::string& report) {
  static std::mutex& mutex = *new std::mutex;
  static auto& failed = *new std::map<std::string, Clock::time_point>;
  const std::lock_guard guard(mutex);
  report.clear();
  const auto last = failed.find(path);
  if (last != failed.end() && Clock::now() - last->second < kPause) return DatabaseRescue::kFailed;
  const DatabaseRescue result = Rescue(path, table, columns, report);
  if (result == DatabaseRescue::kFailed)
    failed[path] = Clock::now();
  else
    failed.erase(path);
  return result;
}
