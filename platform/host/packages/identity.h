#pragma once
/// @file
/// Whose an id is. An application id leads to data, to processes and to what is launched, so it stays with the package
/// that had it first, whatever comes later and however that is called.
///
/// The order in which packages came is in set_paths::kPackageOwners, for no date of a file tells it. Of those that are
/// new at once, what the set shipped comes first, then folders, then the first by package id.
///
/// Thread rule: callable from any thread. Calls read the disk, and write where something has changed.

#include <string>
#include <vector>

#include "packages/package.h"

namespace packages {

/// Whether the set shipped the package as one that stays (set_paths::kShippedPackages).
bool IsFixed(const std::string& packageId);

/// Removes from `packages` (folders and Flatpaks) those that claim the id of another, or, unless the set shipped them,
/// of an application that the set launches by a desktop entry. `folderNames` are all folders of packages, which have
/// their names as ids also while their manifests cannot be used. Each package that goes is in the log, once.
void KeepRightful(std::vector<Package>& packages, const std::vector<std::string>& folderNames);

}  // namespace packages
