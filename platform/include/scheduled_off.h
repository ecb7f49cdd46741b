#pragma once
/// @file
/// The machine's own off timer: that logind is to turn the machine off at a set time, as `shutdown +60` asks it to.
///
/// Thread rule: callable from any thread; blocks, two seconds at most for each question to the system bus.

#include <optional>

#include "fix_problem.h"

struct ScheduledOff {
  bool hasLogind = false;  ///< true also where it, or the system bus, is there and does not answer
  std::optional<bool>
      isSet;  ///< the machine is to be turned off, not started again; nothing where logind does not tell
};
ScheduledOff AskScheduledOff();

/// Has logind forget about it. Nobody is asked for a password. Returns whether nothing is scheduled then, also where
/// there is no logind; otherwise `problem` has the reason: no permission, no answer.
bool CancelScheduledOff(FixProblem& problem);
