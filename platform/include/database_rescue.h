#pragma once
/// @file
/// What becomes of a database of SQLite's that is damaged.
///
/// Thread rule: callable from any thread. Calls block on the disk.

#include <string>

/// Whether a result of SQLite's (sqlite3_errcode()) says that the file is damaged: no database, or malformed. One that
/// is locked, full or not permitted is not.
bool IsDatabaseDamage(int result);

enum class DatabaseRescue {
  kRenewed,  ///< there is a new database
  kSound,    ///< nothing is wrong with it, as when another process was faster
  kFailed    ///< all is as it was
};

/// Sets a damaged database aside, with its journals, as "NAME.damaged-NUMBER-DATE" in its folder, and makes it anew
/// with the one table, in which are the rows that can still be read (100,000 at most, of a megabyte each). At every
/// moment there is one of the two under its name. Of those that were set aside the newest three are kept. Connections
/// to it must be closed; of several processes one does it. Takes about ten seconds at most; what has failed is not
/// tried again for a minute.
///
/// `path` is of the set, `columns` the column list of CREATE TABLE. `report` says in a line what was wrong and what was
/// done, or why nothing could be; it is empty where nothing was tried.
DatabaseRescue RescueDatabase(const std::string& path, const std::string& table, const std::string& columns,
                              std::string& report);
