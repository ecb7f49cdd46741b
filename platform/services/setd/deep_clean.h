#pragma once
/// @file
/// Deep clean.
///
/// Thread rule: any thread but the main one; it blocks for as long as it takes.

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "setd/jobs.h"

namespace setd {

/// Removes what the package put into /tmp/vexilo-apps/<package id> and was last changed before `cutoff` (seconds since
/// 1970), as packages::EmptyTree() does: never through a link, into a mount or another owner's folder, nor another
/// owner's files. Nothing where /tmp/vexilo-apps is not this user's. Returns how many.
int64_t RemoveTemporaryFiles(const std::string& packageId, time_t cutoff);

/// Empties every package's cache, removes the packages' temporary files of more than a day and reports of more than a
/// week. The log has what the file systems say was freed. False when it was interrupted.
bool CleanAll(const StopFlag& stop);

}  // namespace setd
