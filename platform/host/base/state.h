#pragma once
/// @file
/// The platform's own state, in set_paths::kHostState and set_paths::kHostRun: its owner's alone, but for what every
/// user may read. docs/architecture.md has who may read what.
///
/// Thread rule: callable from any thread.

#include <sys/stat.h>

#include <string_view>

/// Whether a path of this machine is the state's.
bool IsState(std::string_view path);

/// The permissions of a folder (a path of this machine) that the platform makes.
mode_t ModeOfFolder(std::string_view path);

/// Changes the mode of a file or folder that may be open with O_PATH. False with errno.
bool ChangeMode(int fd, mode_t mode);

/// Takes away permissions that are not in `most`, where it is this user's, or root does it.
void Narrow(int fd, const struct stat& status, mode_t most);

/// At the start of a program that uses the set: takes away the permissions that state and databases had with earlier
/// versions, and removes the files that a writer which was killed has left half written; those that somebody writes now
/// stay. Goes by descriptors, so that nothing outside is touched.
void TidyState();
