#pragma once
/// @file
/// Time that no setting of the clock changes: for how long the machine has run, from start to start, sleep included.
///
/// It is kept in the file "running_time" in set_paths::kSetdState, which one daemon of a set writes. While the machine
/// is off, and where the file cannot be written, it stands still, so that by it nothing is older than it is.
///
/// Thread rule: callable from any thread. Calls read and write the file.

#include <cstdint>
#include <ctime>
#include <optional>

/// Seconds that the machine has run since this was first asked, as far as it is known.
int64_t RunningSeconds();

/// A time of the clock that files which were changed within the last `age` seconds of running time do not lie before:
/// the lowest that the clock has been in them (and up to six hours earlier). Nothing when it has not been watched for
/// that long.
std::optional<time_t> ChangedWithin(time_t age);
