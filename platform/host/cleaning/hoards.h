#pragma once
/// @file
/// Where the space of a machine goes over the years, and what of it nobody may miss: what is removed only after the
/// viewer was asked. Below a set root all of it is the root's.
///
/// As with all trees (packages/safe_tree.h) no link is followed, no mount entered and another owner's file stays.
///
/// Thread rule: any thread but the main one; the calls block for as long as they take.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "packages/safe_tree.h"

namespace cleaning {

enum class Hoard {
  kJournals,         ///< archived journals beyond what the journal's owner lets them take, SystemMaxUse= of
                     ///< journald.conf(5); 64 MiB where that is not said
  kPackageArchives,  ///< RemovePackageArchives()
  kCoreDumps,        ///< of programs that crashed, in set_paths::kCoreDumps and set_paths::kCrashReports
  kThumbnails,       ///< all of this user's
  kFlatpakRuntimes,  ///< of the user's own installation those that no application needs
};

/// The key of its switch in the group [deep_clean] of the set's profile, which names it in requests, too.
const char* KeyOf(Hoard hoard);
/// Nothing for a text that is no key.
std::optional<Hoard> HoardOf(std::string_view key);

struct Stock {
  Hoard hoard;
  int64_t bytes;   ///< what removing it frees, as the file system counts
  bool mayRemove;  ///< else it takes an administrator
};

/// Those that there are, are not switched off and take a mebibyte at least: the largest first. What cannot be read is
/// left out.
std::vector<Stock> FindHoards(const packages::TreeStop& stop = {});

/// Removes it. `bytes` is what went, `error` is 0 when nothing of it stays, else the reason.
packages::TreeResult RemoveHoard(Hoard hoard, const packages::TreeStop& stop = {});

}  // namespace cleaning
