#pragma once
/// @file
/// Databases of the set, as other programs see them.

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
