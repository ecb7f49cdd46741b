#pragma once
/// @file
/// What a diagnosis starts from and leaves: the engine's databases, what the engine is told, and rows.

#include "QUVA_Records.h"
#include "c_handle.h"
#include "support/test.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

constexpr char kEarly[] = "2024-03-07T09:05:00";
constexpr char kNoon[] = "2024-03-07T12:00:00";
constexpr char kLate[] = "2024-03-08T00:00:00";

/// The engine sees the issue become true or false.
inline void Becomes(bool isTrue, int code, const std::string& time = kNoon) {
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  ASSERT_EQ(database.AddTransition({.time = time, .issueCode = code, .type = isTrue}), TREVLIN_OK);
}

/// What the engine was told last that the application does.
inline std::string Operation() {
  const CText text(vconf_get_str("system/trevlin/STOperation"));
  return text ? text.get() : "";
}

inline std::string OperationOf(const std::string& id) {
  return "{\"id\" : \"" + id + "\"}";
}

inline std::vector<std::string> Codes(const std::vector<QUVA::MapToDBTable>& rows) {
  std::vector<std::string> codes;
  for (const QUVA::MapToDBTable& row : rows) codes.push_back(row.issue_code);
  return codes;
}
