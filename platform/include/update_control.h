#pragma once
/// @file
/// The machine's own software and its updates.
///
/// The system's services are asked first; what they are not there for, and only root may do, root does with the package
/// system's own programs. Nobody is asked for a password. Where it is not permitted the problem has the command that a
/// person can enter.
///
/// Thread rule: callable from any thread; blocks, for as long as each says.

#include "fix_problem.h"

/// Finishes what was interrupted: dpkg's and apt's own repair, else PackageKit's. Up to ten minutes for each. Returns
/// whether the records are in order now, also where they were before; nothing is begun while somebody works on them.
bool RepairSoftware(FixProblem& problem);

/// Ends what has been fetching for more than three hours, fetches the lists of updates anew, up to five minutes, and
/// has the update services that have failed try again, up to five minutes. Returns whether the lists came, and no such
/// service is failed or at work then.
bool RefreshUpdates(FixProblem& problem);

/// Has updates installed without being asked, by the machine's own means (docs/facts.md, updates.automatic): writes
/// their settings, and has systemd enable and start their timers. Returns whether it is so now; also where it was
/// before. Nothing is half-written.
bool SwitchAutomaticUpdatesOn(FixProblem& problem);
