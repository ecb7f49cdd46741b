#pragma once
/// @file
/// The database of remaining problems, as other programs see it.

#include "inc/QUVA_DBManager.h"
#include "support/databases.h"

/// Makes it, with one row for each code.
inline void StoreRemaining(const std::vector<int>& codes) {
  const SqliteDb db = OpenDatabase(set_paths::kRemainingDb);
  std::string sql = std::string("CREATE TABLE ") + QUVA::kRemainingTable + QUVA::kRemainingColumns + ";";
  for (const int code : codes)
    sql += "INSERT INTO remainingTBL VALUES('1','" + std::to_string(code) +
           "','0','2024-03-07T09:05:00','','','','','','','','','','USER');";
  Execute(db.get(), sql);
}

/// The codes of its rows, in their order.
inline std::vector<int> RemainingCodes() {
  return Numbers(set_paths::kRemainingDb, "SELECT issue_code FROM remainingTBL ORDER BY rowid");
}
