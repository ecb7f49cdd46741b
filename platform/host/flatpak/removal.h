#pragma once
/// @file
/// Removing Flatpaks (docs/packages.md). While one is removed, a folder with its id in set_paths::kFlatpakRemovals is
/// locked (flock) by who does it; what is there unlocked was interrupted, and is finished by its owner only.
///
/// Thread rule: callable from any thread. Results are PKGMGR_R_* (pkgmgr_client.h) or -errno.

#include <functional>

#include "packages/package.h"

namespace flatpak {

/// As packages::Remove() promises. Blocks for as long as it takes, six minutes at most. `onProgress` is told the
/// library's own progress and the bytes of the data that are gone.
int Remove(const packages::Package& package, const std::function<void(int)>& onProgress);

/// Finishes or undoes this user's removals that were interrupted. One that is going on is left to its process. Takes
/// ten seconds at most, and once it has tried does nothing for a minute.
void FinishRemovals();
/// How many there are to finish, by whomever.
int UnfinishedRemovals();

}  // namespace flatpak
