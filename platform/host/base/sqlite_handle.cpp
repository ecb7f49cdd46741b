#include "base/sqlite_handle.h"

SqliteStatement PrepareStatement(sqlite3* db, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return SqliteStatement(statement);
}

std::string_view ColumnText(sqlite3_stmt* statement, int column) {
  const unsigned char* text = sqlite3_column_text(statement, column);
  if (!text) return {};
  return {reinterpret_cast<const char*>(text), static_cast<size_t>(sqlite3_column_bytes(statement, column))};
}

void BindText(sqlite3_stmt* statement, int index, std::string_view text) {
  sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}
