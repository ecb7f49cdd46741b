#pragma once
/// @file
/// The resolutions that an X server's screens show, over its extension RandR 1.3 (libXrandr).
///
/// Thread rule: the main thread. What breaks the connection ends the process.

#include <string>

namespace vexilo_screen {

/// Gives each screen that shows fewer pixels than it prefers the resolution that it prefers (its largest one where it
/// prefers none), and moves those to the right of it and below as far as they were covered otherwise. It stays until
/// the server ends or somebody chooses another. Empty, or why not; then all is as it was.
std::string ShowBestModes();

}  // namespace vexilo_screen
