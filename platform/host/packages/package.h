#pragma once
/// @file
/// A package of the set, whatever it is installed as.

#include <string>
#include <string_view>
#include <vector>

namespace packages {

enum class Source { kFolder, kFlatpak };

struct Package {
  Source source = Source::kFolder;
  std::string installation{};  ///< of a Flatpak: the folder that it is installed in, of the set, without links
  std::string packageId;       ///< as IsId() allows
  std::string appId;           ///< as IsId() allows; unique among the packages, and no other one's package id
  std::string serviceId;
  std::string title;
  std::string iconDir;               ///< absolute, of the set, ends with '/'; of a folder: inside it
  std::vector<std::string> command;  ///< program (relative to the package, or absolute) and arguments; may be empty
  int attribute1 = 0;
  int attribute2 = 0;
  bool removable = true;
  bool locked = false;
  bool forAdministrator = false;  ///< this process may not remove it, an administrator may
  bool keepRunning = false;       ///< memory boost leaves its processes alone
};

/// Whether `id` is a name that a package or application can have: 1 to 128 letters, digits, '.', '_', '-', the first a
/// letter or digit. So it cannot lead out of a folder.
bool IsId(const std::string& id);

/// What has that name in the folder of the packages, a path of the set.
std::string InPackages(std::string_view name);

}  // namespace packages
