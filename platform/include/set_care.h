#pragma once
/// @file
/// What takes the memory and the storage of the machine, and giving it back. Below a set root all of it is the root's.
///
/// Thread rule: any thread but the main one; the calls measure and wait, for minutes at worst.

#include <cstdint>
#include <string>
#include <vector>

namespace set_care {

/// An application that runs where the viewer does not look: a package of the set or a Flatpak.
struct App {
  std::string packageId;
  std::string title;
  int64_t bytes;  ///< of memory, that come free with it; no file cache
};

/// Those of this process's user that may be ended, that which has the most memory first. None, after a log line, where
/// it cannot be known what the viewer looks at.
std::vector<App> BackgroundApps();
/// Ends those of BackgroundApps() with these package ids. Returns those of which nothing is left.
std::vector<App> EndApps(const std::vector<std::string>& packageIds);

/// Who may remove something.
enum class Remover { kThisProcess, kDaemon, kAdministrator };

/// Files that somebody may miss, of one kind (docs/setd.md).
struct Hoard {
  std::string key;
  int64_t bytes;
  Remover remover;
};

/// Those that are worth it and that the set's profile does not keep, the largest first.
std::vector<Hoard> FindHoards();
/// Removes one that this process may remove. Whether nothing of it stays; else the log says why.
bool RemoveHoard(const std::string& key);

/// Whether the set's daemon runs, whose requests CleanUp() would take the place of.
bool HasDaemon();
/// Removes what can always be made again, as the daemon's deep clean does, as far as this process may.
void CleanUp();

/// What is free on the file systems that all this is about, in bytes, as they tell it.
int64_t FreeBytes();

}  // namespace set_care
