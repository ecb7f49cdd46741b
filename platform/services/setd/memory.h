#pragma once
/// @file
/// Memory boost.
///
/// Thread rule: any thread but the main one; it blocks for seconds.

#include "setd/jobs.h"

namespace setd {

/// Ends the processes of the packages that may be ended (their manifest does not say keepRunning) and that nobody looks
/// at, what has the most memory first, and asks the kernel to reclaim what it keeps for later, where this is the whole
/// machine's set and it is permitted. The log has what was done, and the memory before and after the applications
/// ended. False when it was interrupted.
bool BoostMemory(const StopFlag& stop);

}  // namespace setd
