#pragma once
/// @file
/// Locks between processes that nobody waits for without an end.

#include <chrono>

/// Locks the open file `fd` (flock, exclusive) against all who lock it, waiting until `end` at the latest, in steps of
/// some milliseconds. False with errno: EWOULDBLOCK while somebody else holds it. Closing the file unlocks it. Any
/// thread.
bool LockFile(int fd, std::chrono::steady_clock::time_point end);
