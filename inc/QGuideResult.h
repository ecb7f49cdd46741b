#pragma once
/// @file
/// The result file of a quick diagnosis: the codes of the issues that were found, a line each, for another application.
/// A file is never written through a link, be it the file or its folder. Failures are lines in the log and on standard
/// error. Thread rule: one caller at a time.

#include <vector>

#include "QUVA_Records.h"
#include "c_handle.h"

namespace QUVA {

/// The path on the set of the result that was asked for from `launchFrom`, which may be null.
const char* QGuideResultPath(const char* launchFrom);

/// Says on standard error, which whoever asked for the result may see, that none is written to `path`, and why: a file
/// that stands there is an older result, or none at all. Any thread.
void SayNoQGuideResult(const char* path, const char* reason);

/// Says there, where no solutions could be read, that the result has no issues for that reason. Any thread.
void SayWhetherNothingIsKnown();

/// A first look: whether the result may be written to `path` of the set.
bool MayWriteQGuideResult(const char* path);

/// Looks again, and opens the file, created or emptied. Null when it must not or cannot be written.
FileHandle OpenQGuideResult(const char* path);

/// Writes the codes of the rows, in their order, to the file that was opened at `path`. False when not all could be
/// written; the file is removed then.
bool WriteQGuideResult(FILE* file, const char* path, const std::vector<MapToDBTable>& rows);

}  // namespace QUVA
