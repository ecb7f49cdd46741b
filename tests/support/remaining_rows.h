#pragma once
/// @file
/// The database of remaining problems, as other programs see it.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "base/sqlite_handle.h"
#include "set_paths.h"
#include "system_path.h"

inline SqliteDb OpenDatabase(const char* path, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
  sqlite3* raw = nullptr;
  sqlite3_open_v2(SystemPath(path).c_str(), &raw, flags, nullptr);
  sqlite3_busy_timeout(raw, 2000);
  return SqliteDb(raw);
}

inline void Execute(sqlite3* db, const std::string& sql) {
  ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
}

/// Makes it, with one row for each code.
inline void StoreRemaining(const std::vector<int>& codes) {
  const SqliteDb db = OpenDatabase(set_paths::kRemainingDb);
  std::string sql =
      "CREATE TABLE remainingTBL(idx TEXT, issue_code TEXT, is_fix TEXT, last_time TEXT, sol_type TEXT, sid_issue "
      "TEXT, sid_sol TEXT, sid_button1 TEXT, sid_button2 TEXT, action TEXT, toast1 TEST, toast2 TEXT, source TEXT, "
      "view_authority TEXT);";
  for (const int code : codes)
    sql += "INSERT INTO remainingTBL VALUES('1','" + std::to_string(code) +
           "','0','2024-03-07T09:05:00','','','','','','','','','','USER');";
  Execute(db.get(), sql);
}

/// The first column of a query's rows; empty too where it cannot be asked.
inline std::vector<std::string> Texts(const char* path, const char* query) {
  const SqliteDb db = OpenDatabase(path, SQLITE_OPEN_READWRITE);
  const SqliteStatement rows = PrepareStatement(db.get(), query);
  std::vector<std::string> texts;
  while (rows && sqlite3_step(rows.get()) == SQLITE_ROW) texts.emplace_back(ColumnText(rows.get(), 0));
  return texts;
}
inline std::vector<int> Numbers(const char* path, const char* query) {
  std::vector<int> numbers;
  for (const std::string& text : Texts(path, query)) numbers.push_back(std::atoi(text.c_str()));
  return numbers;
}

/// The codes of its rows, in their order.
inline std::vector<int> RemainingCodes() {
  return Numbers(set_paths::kRemainingDb, "SELECT issue_code FROM remainingTBL ORDER BY rowid");
}
