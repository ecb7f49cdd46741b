#include "hardware.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "display/connectors.h"
#include "tv/frontends.h"

namespace hardware {

namespace {

using display::Connector;

std::vector<Connector> Connectors() {
  return display::FindConnectors({}).value_or(std::vector<Connector>());
}

}  // namespace

bool HasDisplayConnector() {
  const auto connectors = Connectors();
  return std::any_of(connectors.begin(), connectors.end(), [](const Connector& each) { return each.isForViewers; });
}

bool HasSignal() {
  const char* const server = std::getenv("DISPLAY");
  if ((server && *server) || tv::HasFrontends()) return true;
  const auto connectors = Connectors();
  return std::any_of(connectors.begin(), connectors.end(),
                     [](const Connector& each) { return each.isConnected == true; });
}

}  // namespace hardware
