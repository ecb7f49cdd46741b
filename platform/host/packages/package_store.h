#pragma once
/// @file
/// The packages of the set (docs/packages.md): folders in set_paths::kPackagesDir, each with a manifest, and the
/// applications that are installed as Flatpaks, which have a folder in their installation and one for the user's data.
///
///     <package id>/manifest.json   what it is
///     <package id>/data/           what the viewer made with it
///     <package id>/cache/          what it can make again
///     <package id>/…               the program
///
/// A folder is only used when its manifest is well-formed and names the folder that it lies in; others are named in
/// the log once and skipped.
///
/// Thread rule: callable from any thread. Calls read the disk; those that remove or measure block for as long as that
/// takes. Results are PKGMGR_R_* (pkgmgr_client.h).

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "packages/package.h"
#include "packages/safe_tree.h"

namespace packages {

/// All packages by title, then package id. A removal that was interrupted is finished first; one that is going on, in
/// any process, is left to it. Of packages that claim an id the first that was installed has it (identity.h), and the
/// others are skipped.
std::vector<Package> List();
/// The package by its own manifest alone, whatever application id another one claims: to measure it, not to change it.
/// Reads one manifest, or one Flatpak's title.
std::optional<Package> ReadPackage(const std::string& packageId);
/// One of List(), whose manifests are all read for it.
std::optional<Package> FindByPackageId(const std::string& packageId);
std::optional<Package> FindByAppId(const std::string& appId);

/// What packages there are, as it is: nothing is finished, removed or locked for longer than a look.
struct State {
  std::vector<Package> usable;      ///< folders, then Flatpaks, by package id, whatever application ids others claim
  std::vector<std::string> broken;  ///< folders that are no package that can be used, sorted
  int unfinished = 0;               ///< removals that were interrupted; one that is going on is none
};
/// Nothing when there is no folder of the packages, or it cannot be read.
std::optional<State> Inspect();

std::string FolderOf(const Package& package);      ///< of a Flatpak: its program in all branches
std::string DataFolderOf(const Package& package);  ///< of a Flatpak: with the cache in it
std::string CacheFolderOf(const Package& package);
/// The web engine's cache of the application, outside the package.
std::string WebCacheFolderOf(const Package& package);

/// What the package takes, as MeasureTree() tells it. A part that is not there is empty; a package that is not there is
/// ENOENT of MeasureWhole().
TreeResult MeasureWhole(const Package& package);  ///< all but the web engine's cache
TreeResult MeasureData(const Package& package);
TreeResult MeasureCache(const Package& package);  ///< its own
TreeResult MeasureWebCache(const Package& package);

/// Empties the cache folders (its own and the web engine's), or data and cache. The folders stay, and none is made. A
/// Flatpak's processes are ended first; -EBUSY when one does not end. -ECANCELED when `stop` has ended it.
int ClearCache(const Package& package, const TreeStop& stop = {});
int ClearData(const Package& package);

/// Why the viewer may not remove it ("it is locked"); null when nothing is against it.
const char* WhyNotRemovable(const Package& package);

/// Removes the package and its web cache, whatever the viewer may. A package that is or holds something that must be
/// left alone (-EACCES another owner's file, -EBUSY a mount point), or that cannot be read, is not removed at all. Else
/// its processes are ended (-EBUSY when one does not end, and it stays). Then the folder is renamed out of sight, so
/// that a package is there whole or not at all; List() finishes what an interruption left. A web cache that stays is a
/// failure too, though the package is gone. A Flatpak's data go unless another installation has it, too; -EACCES when
/// it takes an administrator. `onProgress` gets 0 to 100, rising.
int Remove(const Package& package, const std::function<void(int)>& onProgress = {});

}  // namespace packages
