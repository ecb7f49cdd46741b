#pragma once
/// @file
/// Owners for SQLite's handles.

#include <sqlite3.h>

#include <memory>
#include <string_view>

#include "c_handle.h"

using SqliteDb = std::unique_ptr<sqlite3, CRelease<&sqlite3_close>>;
using SqliteStatement = std::unique_ptr<sqlite3_stmt, CRelease<&sqlite3_finalize>>;

/// A prepared statement, or null; then sqlite3_errmsg() of `db` says why.
SqliteStatement PrepareStatement(sqlite3* db, std::string_view sql);

/// The text of a column of the current row; empty for NULL. Valid until the statement moves on.
std::string_view ColumnText(sqlite3_stmt* statement, int column);

/// Binds a text that outlives the statement's next reset.
void BindText(sqlite3_stmt* statement, int index, std::string_view text);
