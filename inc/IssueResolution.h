#pragma once
/// @file
/// What the engine's databases say of one issue, and the result row that comes of it. Queries block on the disk; their
/// failures are lines in the log. Thread rule: any thread, once the engine is ready.

#include <optional>
#include <vector>

#include "QUVA_Records.h"
#include "trevlin_engine.h"

namespace QUVA {

/// An issue that is true now.
struct TrueIssue {
  std::vector<_DTInfDBRecord> trues;  ///< when it became so, newest first; at least one
  _DTSolDBRecord solution;            ///< the newest solution that was applied or declined; fresh when there is none
};

/// Nothing when the issue is not true, or has become false later, or cannot be asked about.
std::optional<TrueIssue> FindTrueIssue(int code);

/// Whether the issue that became true as `inf` says has not been solved since: there is no solution of it in
/// `solRecord`, or it became true again after that, or the solution was not applied.
bool IsUnsolved(const QUVA_Solution& solution, const _DTInfDBRecord& inf, const _DTSolDBRecord& solRecord);

/// The row of an issue that was found.
MapToDBTable RowOf(const QUVA_Solution& solution, const _DTInfDBRecord& inf);

/// Whether an issue that was true has become false since; not when that cannot be asked.
bool IsFalseNow(int code);

/// Whether the issue of a stored row is an on-demand one and became false after the row was found.
bool HasCleared(const MapToDBTable& row);

}  // namespace QUVA
