#pragma once
/// @file
/// What is known of connectors and tuners, as rows of a page in the menu language. Any thread.

#include <string>
#include <vector>

#include "display/connector.h"
#include "fact.h"
#include "tv/frontends.h"

namespace tools {

/// "HDMI 2", "Built-in screen"
std::string TitleOf(const display::Connector& connector);
/// The display's own name, or that it is there; what is wrong with it, or that there is none.
std::string StateOf(const display::Connector& connector);
/// There is a display that says what it can.
bool IsRecognized(const display::Connector& connector);

/// Each connector with its state; below one with a display, what is known of picture, sound and copy protection.
std::vector<Fact> ConnectorFacts(const std::vector<display::Connector>& connectors);
/// What each picture that is shown is like.
std::vector<Fact> PictureFacts(const std::vector<display::Connector>& connectors);
/// What each tuner receives.
std::vector<Fact> TunerFacts(const std::vector<tv::Frontend>& frontends);

}  // namespace tools
