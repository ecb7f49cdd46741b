#pragma once
/// @file
/// Deep clean.
///
/// Thread rule: any thread but the main one; it blocks for as long as it takes.

#include <sys/types.h>

#include <string>

#include "setd/jobs.h"

namespace setd {

/// Removes regular files and links that were last changed before `cutoff` (seconds since 1970), and folders that are
/// empty then and as old, below the folder (of the set), which stays. Never through a link, into a mount or another
/// owner's folder, nor another owner's files. Returns how many.
int RemoveOlderThan(const std::string& folder, time_t cutoff);

/// Empties every package's cache, removes the packages' temporary files of more than a day and reports of more than a
/// week. The log has what the file systems say was freed. False when it was interrupted.
bool CleanAll(const StopFlag& stop);

}  // namespace setd
