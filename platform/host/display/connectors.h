#pragma once
/// @file
/// Connectors for screens: what the kernel's files and the graphics card's device tell of them. Any thread; takes
/// milliseconds, no screen is probed or blinks.

#include <optional>
#include <vector>

#include "display/connector.h"
#include "trevlin/facts.h"

namespace display {

/// All of the machine, in the order of their names, but for those that lead into memory. Nothing when it is not known
/// which there are. What only devices tell is left out of a captured machine; cards without a screen are not asked, as
/// that would wake them.
std::optional<std::vector<Connector>> ReadConnectors(const trevlin::Machine& machine);

}  // namespace display
