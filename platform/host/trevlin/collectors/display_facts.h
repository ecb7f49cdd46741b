#pragma once
/// @file
/// Screens: what their plugs and their self-description (EDID) tell.

#include <vector>

#include "display/connector.h"
#include "trevlin/facts.h"

namespace trevlin {

/// Adds the facts of docs/facts.md, "display".
void AddDisplayFacts(const std::vector<display::Connector>& connectors, Facts& facts);

}  // namespace trevlin
