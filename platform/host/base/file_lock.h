#pragma once
/// @file
/// Locks between processes that nobody waits for without an end.

#include <chrono>
#include <string>

#include "c_handle.h"

/// Opens a file (a path of this machine) that is there to be locked, and makes it and its folder where they are not, so
/// that only its owner can hold it. Without a handle, errno tells why. Any thread.
FdHandle OpenLockFile(const std::string& path);

/// Locks the open file `fd` (flock, exclusive) against all who lock it, waiting until `end` at the latest, in steps of
/// some milliseconds. False with errno: EWOULDBLOCK while somebody else holds it. Closing the file unlocks it. Any
/// thread.
bool LockFile(int fd, std::chrono::steady_clock::time_point end);

/// Locks what `path` names against all who call this, waiting until `end` at the latest: by a file of its own beside
/// it, `path` with ".lock" appended (OpenLockFile()), so that no lock of a reader is in the way. Closing the handle
/// unlocks it. Without one errno tells why. Any thread.
FdHandle LockBeside(const std::string& path, std::chrono::steady_clock::time_point end);
