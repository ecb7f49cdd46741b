#pragma once
/// @file
/// The issues that remained from the last scan, in a database of their own. Failures are lines in the log. One that is
/// damaged (database_rescue.h) is made anew with what can be read, and set_names::kDatabaseRenewedKey set. Thread rule:
/// callable from any thread.

#include <string>
#include <vector>

#include "QUVA_Records.h"

namespace QUVA {

/// The names of the stored columns, in the table's order.
const std::vector<std::string>& RemainingColumnNames();

/// Replaces the stored rows, or changes nothing and returns false: when another process holds the database, or the disk
/// is full. Then the rows are kept in memory, count as those that are stored, and are stored as soon as that can be
/// done in the life of this process: tried every two seconds. A row that alone cannot be stored is left out.
bool SaveRemaining(const std::vector<MapToDBTable>& rows);
/// What is stored, column by column, in the order of RemainingColumnNames(): of the first kMostRows rows.
using RemainingColumns = std::vector<std::vector<std::string>>;
RemainingColumns ReadRemaining();
/// Appends the stored rows to `rows`, without the solutions' names. False when a row's index is not possible: neither
/// that row nor any that follows is there then.
bool ToRows(const RemainingColumns& columns, std::vector<MapToDBTable>& rows);
void ClearRemaining();
/// Deletes the rows of one issue. False, with a line in the log, when they stay.
bool DeleteRemaining(const std::string& issueCode);
/// Deletes those of several issues at once, among the rows that ReadRemaining() has.
void DeleteRemaining(const std::vector<std::string>& issueCodes);

}  // namespace QUVA
