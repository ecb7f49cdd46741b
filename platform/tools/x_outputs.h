#pragma once
/// @file
/// What the X server of the session shows on which screen (RandR 1.3), where the graphics card's device may not be
/// asked.
///
/// Thread rule: any thread. Waits for the server's answers.

#include <vector>

#include "display/connector.h"

namespace tools {

/// Fills the modes of the connectors whose screens the server shows something on; it knows them by their EDIDs, as it
/// has names of its own for plugs. With no connectors at all, as on a server without a screen, adds those of the server
/// that show something. Nothing happens where the session has no X server.
void TakeModesOfX(std::vector<display::Connector>& connectors);

}  // namespace tools
