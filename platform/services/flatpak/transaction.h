#pragma once
/// @file
/// Removals with Flatpak's library. Nothing is fetched from anywhere and nobody is asked anything.
///
/// Thread rule: the main thread. The results have no text when all went well, else one line.

#include <string>

#include "flatpak/helper.h"

namespace vexilo_flatpak {

/// Uninstalls all branches of the application in the installation (a path of the set), with the extensions that go
/// with it, and prints the progress. Runtimes and data stay.
flatpak::Problem RemoveApplication(const std::string& id, const std::string& installation);

/// Removes what is left of branches whose removal was interrupted: those that are not deployed any more. Where the
/// application is whole nothing is done.
flatpak::Problem FinishRemoval(const std::string& id, const std::string& installation);

/// Prints what the runtimes in the installation take that no application needs and nobody has pinned.
flatpak::Problem TellUnused(const std::string& installation);
/// Uninstalls them, and prints the progress.
flatpak::Problem RemoveUnused(const std::string& installation);

}  // namespace vexilo_flatpak
