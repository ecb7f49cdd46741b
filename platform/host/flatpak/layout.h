#pragma once
/// @file
/// The applications that are installed as Flatpaks, as packages (docs/packages.md), by the folders of their
/// installations:
///
///     <installation>/app/<id>/current             a link to <arch>/<branch>, the branch that is started
///     <installation>/app/<id>/<arch>/<branch>/active   a link to the folder beside it that is deployed
///
/// Below a set root the installations are the root's own; without one those that Flatpak itself has. Nothing here loads
/// Flatpak's library.
///
/// Thread rule: callable from any thread. Paths are of the set. Calls read the disk.

#include <optional>
#include <string>
#include <vector>

#include "packages/package.h"

namespace flatpak {

/// Each application once, by id: where several installations have it, the user's own before the system's, as it would
/// be started. An installation or application that cannot be used is in the log once.
std::vector<packages::Package> List();
std::optional<packages::Package> Read(const std::string& id);
/// The installations, the user's own first, whatever is in them. Those that are not there are left out.
std::vector<std::string> Installations();
bool IsOfUser(const std::string& installation);
/// Whether this process may change it: its own, or as root the system's, where that can be written.
bool MayChange(const std::string& installation);

/// All branches of the application in its installation.
std::string ProgramFolderOf(const packages::Package& package);
/// The folder of the branch that is started, which changes with each update; empty when there is none.
std::string DeploymentOf(const packages::Package& package);
/// A branch of an application for an architecture.
struct Branch {
  std::string folder;
  std::string ref;        ///< "app/<id>/<arch>/<branch>"
  bool deployed = false;  ///< else a removal has begun
};
std::vector<Branch> BranchesOf(const std::string& installation, const std::string& id);
/// The user's data of all Flatpaks: a folder for each id, the same for all installations.
std::string DataDir();
std::string DataFolderOf(const std::string& id);
std::string CacheFolderOf(const std::string& id);

/// The id of the application that a process runs, by the file ".flatpak-info" at its root; empty when it is none of
/// these installations. `proc` is the process's folder in /proc, a path of this machine.
std::string IdOfProcess(const std::string& proc);

}  // namespace flatpak
