#pragma once
/// @file
/// What the machine's own package system says of itself in its files: dpkg's and rpm's.
///
/// Thread rule: callable from any thread. Nothing is asked for longer than a disk takes.

#include <ctime>
#include <optional>
#include <string>

#include "trevlin/facts.h"

namespace trevlin {

/// Software that dpkg did not finish installing or removing.
struct Interrupted {
  int count = 0;      ///< packages, and one for a record of changes that was never taken over
  std::string first;  ///< the name of the first; empty where none is known
};

/// Reads dpkg's records only when they have changed: they are megabytes.
class PackageRecords {
 public:
  /// Nothing where there is no dpkg, or its records cannot be read.
  std::optional<Interrupted> Read(const Machine& machine);

 private:
  timespec m_changed{};
  long m_size = -1;
  Interrupted m_last;
};

/// Who works on the installed software right now.
struct PackageWorker {
  std::string program;
  /// How long it has been running; nothing of a daemon, which does other things before; 0 of a program that is only
  /// open.
  std::optional<double> hours;
};

/// The one that holds a lock of dpkg, apt or rpm; nothing where none is held, or another user's cannot be seen.
std::optional<PackageWorker> FindPackageWorker(const Machine& machine);

/// The days since lists of what can be installed were last fetched. Nothing where that is not known.
std::optional<double> DaysSinceRefresh(const Machine& machine);

/// Whether updates that were prepared for a start of the machine then failed; nothing where none were.
std::optional<bool> HasOfflineUpdateFailed(const Machine& machine);

}  // namespace trevlin
