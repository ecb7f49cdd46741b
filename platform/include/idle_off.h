#pragma once
/// @file
/// Whether the machine turns itself off when nobody uses it: logind's IdleAction, and what the settings of the desktop
/// in whose session this process is say of a machine at the mains (sleep-inactive-ac-type). Off is what a key does not
/// end: a shutdown, or a sleep on the disk.
///
/// Thread rule: callable from any thread; blocks, two seconds at most for each question to a bus.

#include <optional>

#include "fix_problem.h"

struct IdleOff {
  bool hasDecider = false;    ///< logind or such a desktop is there, or may be where this process has no session
  std::optional<bool> isSet;  ///< nothing where one does not tell and no other says that it is
};
IdleOff AskIdleOff();

/// Has all of them leave the machine on: the desktop by its settings; logind by a file of its configuration
/// (/etc/systemd/logind.conf.d/zz-vexilo-idle.conf, with the right to write it), read anew. Waits up to two seconds
/// until logind says so. Nobody is asked for a password. Returns whether none turns it off then, also where there is
/// none; otherwise `problem` has the reason, and of what failed nothing is left.
bool StopIdleOff(FixProblem& problem);
