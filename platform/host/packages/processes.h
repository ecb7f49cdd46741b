#pragma once
/// @file
/// The processes of packages.
///
/// Thread rule: callable from any thread. Calls block.

#include <sys/types.h>

#include <atomic>
#include <string>
#include <vector>

#include "c_handle.h"
#include "packages/package.h"

namespace packages {

struct Process {
  pid_t pid = 0;
  FdHandle handle{};  ///< pidfd: never another process that got the same number later
  std::string packageId{};
};

/// This user's running processes that belong to one of the packages; never this one. A process belongs to the package
/// whose folder holds its executable, else its script, else to the one whose application id is in its environment
/// variable VEXILO_APP_ID (with this set root in VEXILO_ROOT), else to the one whose folder holds its working
/// directory, when a process that started it, or one above, belongs to that package by its program or environment. What
/// runs in the sandbox of a Flatpak belongs to that one.
std::vector<Process> ProcessesOf(const std::vector<Package>& packages);

struct EndedProcesses {
  int politely = 0;  ///< ended after SIGTERM
  int forced = 0;    ///< after SIGKILL, two seconds later
  int left = 0;      ///< not at all, or not within another second
};

/// Ends the processes of the packages, those included that they start meanwhile; gives up when `stop` becomes true.
EndedProcesses EndProcesses(const std::vector<Package>& packages, const std::atomic<bool>& stop);

/// Ends those of one package. False, and a line in the log, when some are left.
bool EndAll(const Package& package);

}  // namespace packages
