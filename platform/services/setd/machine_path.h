#pragma once

#include <string>

namespace setd {

/// Where a file of the kernel or the system lies: in the set root where it has one of its own, else the machine's. Any
/// thread.
std::string MachinePath(const std::string& path);

}  // namespace setd
