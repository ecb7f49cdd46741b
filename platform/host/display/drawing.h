#pragma once
/// @file
/// Who draws with this machine's graphics cards. Any thread; starts a program that loads their drivers.

#include <optional>
#include <string>
#include <vector>

namespace display {

/// Whether nothing that is installed draws with any of the machine's cards, whose device files for drawing are `nodes`
/// ("/dev/dri/renderD128"). Within 1.5 seconds; nothing when it is not known by then, or this user may not draw.
std::optional<bool> IsDrawnBySoftware(const std::vector<std::string>& nodes);

}  // namespace display
