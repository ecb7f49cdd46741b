#pragma once
/// @file
/// What lies about on the machine and can always be made again: what deep clean removes besides the packages' own.
///
/// Below a set root all of it is the root's, so that a daemon with a root never touches the machine. As with all trees
/// (packages/safe_tree.h) no link is followed, no mount entered, and another owner's file stays.
///
/// Each returns what went, in number and bytes. `error` is 0 when nothing stands against the rest, also where there is
/// nothing of the kind; else the reason of the first thing that stays, ECANCELED when `stop` became true.
///
/// Thread rule: any thread but the main one; they block for as long as it takes.

#include <string>

#include "packages/safe_tree.h"

namespace cleaning {

/// Where programs of who this process serves keep their caches; empty where it is not known. A path of the set.
std::string UserCaches();

/// Thumbnails that nobody has looked at for 30 days (https://specifications.freedesktop.org/thumbnail-spec), in the
/// cache folder of this user, $XDG_CACHE_HOME or ~/.cache; below a set root in that of its owner. Where the file system
/// keeps no times of access, those that are that old.
packages::TreeResult RemoveOldThumbnails(const packages::TreeStop& stop);

/// All of them, however old.
packages::TreeResult RemoveThumbnails(const packages::TreeStop& stop);
packages::TreeResult MeasureThumbnails();

/// What the package tool has downloaded: *.deb in set_paths::kPackageArchives, and all files in its `partial`. Its lock
/// is held meanwhile; EAGAIN when another process has it, EACCES where this user may not.
packages::TreeResult RemovePackageArchives(const packages::TreeStop& stop);
packages::TreeResult MeasurePackageArchives();

/// What Flatpak would clean up itself, of the installation of the system and the user's own, as far as it is this
/// user's: removed applications that nobody runs any more, temporary files in its repository and catalogues that are
/// older than a day, and as old /var/tmp/flatpak-cache-*. What a process holds a lock on stays, and is no error.
packages::TreeResult RemoveFlatpakLeftovers(const packages::TreeStop& stop);

}  // namespace cleaning
