#pragma once

namespace setd {

/// Gives up, for good and for all programs that are started from here on, what neither the daemon nor these need: new
/// privileges by an exec, capabilities, and calls of the kernel that only an attacker would make. Before the first
/// thread. What cannot be given up is in the log, and nothing else comes of it.
void DropPrivileges();

}  // namespace setd
