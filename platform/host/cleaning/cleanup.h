#pragma once
/// @file
/// What a deep clean removes without asking: what can always be made again and nobody misses. What is asked about is in
/// cleaning/hoards.h.
///
/// Thread rule: any thread but the main one; it blocks for as long as it takes.

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "packages/safe_tree.h"

namespace cleaning {

/// Whether the group [deep_clean] of the set's profile lets what that key names be removed: what it does not say is on;
/// where it is not clear what it says, it is off.
bool IsOn(const char* key);

/// What is free on the file systems that a clean-up works on, in bytes, as they tell it.
int64_t FreeBytes();

/// Removes what the package put into /tmp/vexilo-apps/<package id> and was last changed before `cutoff` (seconds since
/// 1970), as packages::EmptyTree() does: never through a link, into a mount or another owner's folder, nor another
/// owner's files. Nothing where /tmp/vexilo-apps is not this user's, nor any more once `stop` is true. Returns
/// how many.
int64_t RemoveTemporaryFiles(const std::string& packageId, time_t cutoff, const packages::TreeStop& stop = {});

/// Within the ten seconds for which an application waits for it.
inline constexpr std::chrono::seconds kPatience(8);

/// Who cleans up.
struct Caller {
  std::function<void(int priority, const std::string& text)> log;  ///< writes a line (dlog.h); not empty
  std::function<int()> removeReports{};  ///< removes old reports of the log collector and returns how many; empty: none
};

/// Empties every package's cache, removes the packages' temporary files of more than a day and old reports; then, as
/// far as the set's profile has them ([deep_clean] in docs/set-profile.md), what lies about on the machine
/// (leftovers.h): all but the reports as far as `patience` lasts from the beginning on. What is not reached stays for
/// the next time. The log has what each came to, and what the file systems say was freed. False when it was
/// interrupted.
bool CleanUp(const std::atomic<bool>& stop, const Caller& caller, std::chrono::milliseconds patience = kPatience);

}  // namespace cleaning
