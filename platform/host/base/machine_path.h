#pragma once

#include <string>

/// Where a file of the kernel or the system lies: in the set root where it has one of its own, else the machine's. Any
/// thread.
std::string MachinePath(const std::string& path);

/// The first line of a file of this machine, a mark or an id; empty when it cannot be read. No link is followed. Any
/// thread.
std::string FirstLineOf(const std::string& path);

/// Tells this start of the machine from every other; empty where it is not known. Any thread.
std::string BootId();
