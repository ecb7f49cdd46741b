#pragma once
/// @file
/// What systemd tells of the units of the system.

#include <optional>
#include <string>
#include <vector>

#include "base/system_bus.h"

struct SystemUnit {
  std::string name;
  std::string load;    ///< "loaded", "not-found", "masked"
  std::string state;   ///< "active", "activating", "inactive", "failed"
  std::string object;  ///< its path on the bus
  bool hasJob;         ///< it is about to change
};

/// Those of the names, which end with a null, also units that are not there. Nothing, with the bus's problem, where
/// systemd does not tell.
std::optional<std::vector<SystemUnit>> AskUnits(SystemBus& bus, const char* const* names);
