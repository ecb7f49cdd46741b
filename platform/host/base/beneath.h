#pragma once
/// @file
/// Files in a folder that somebody else filled.
///
/// Thread rule: callable from any thread.

#include <string>

#include "c_handle.h"

/// Opens `path`, relative to the folder, to read. Links in it are followed as long as they stay in the folder; EXDEV
/// for one that leads out of it. Without a handle, errno tells why.
FdHandle OpenBeneath(int folder, const std::string& path, int flags = 0);

/// The whole of a regular file of at most `limit` bytes; else false with errno (EINVAL for what is no regular file,
/// EFBIG), `content` untouched.
bool ReadBeneath(int folder, const std::string& path, size_t limit, std::string& content);
