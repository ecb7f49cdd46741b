#pragma once
/// @file
/// Deep clean.
///
/// Thread rule: any thread but the main one; it blocks for as long as it takes.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "packages/safe_tree.h"
#include "setd/jobs.h"

namespace setd {

/// Removes what the package put into /tmp/vexilo-apps/<package id> and was last changed before `cutoff` (seconds since
/// 1970), as packages::EmptyTree() does: never through a link, into a mount or another owner's folder, nor another
/// owner's files. Nothing where /tmp/vexilo-apps is not this user's, nor any more once `stop` is true. Returns
/// how many.
int64_t RemoveTemporaryFiles(const std::string& packageId, time_t cutoff, const packages::TreeStop& stop = {});

/// Within the ten seconds for which an application waits for it.
inline constexpr std::chrono::seconds kDeepCleanPatience(8);

/// Empties every package's cache, removes the packages' temporary files of more than a day and reports of more than a
/// week; then, as far as the set's profile has them ([deep_clean] in docs/set-profile.md), what lies about on the
/// machine (leftovers.h): all but the reports as far as `patience` lasts from the beginning on. What is not reached
/// stays for the next time. The log has what each came to, and what the file systems say was freed. False when it was
/// interrupted.
bool CleanAll(const StopFlag& stop, std::chrono::milliseconds patience = kDeepCleanPatience);

}  // namespace setd
