#pragma once
/// @file
/// The services that fetch and install updates, by systemd.
///
/// Thread rule: callable from any thread; blocks, two seconds at most for each question.

#include <optional>
#include <string>
#include <vector>

#include "base/system_bus.h"

namespace trevlin {

/// Those that the rule of failing updates names; ends with a null.
inline constexpr const char* kUpdateServices[] = {"apt-daily.service",
                                                  "apt-daily-upgrade.service",
                                                  "unattended-upgrades.service",
                                                  "dnf-automatic.service",
                                                  "dnf-automatic-install.service",
                                                  "dnf5-automatic.service",
                                                  "dnf-makecache.service",
                                                  "dnf5-makecache.service",
                                                  "packagekit.service",
                                                  "packagekit-offline-update.service",
                                                  nullptr};

struct UpdateService {
  std::string name;
  std::string state;   ///< "failed", "activating"
  std::string object;  ///< its path on the bus
};
/// All of them, also those that are not there; empty, with the problem, where systemd does not tell.
std::vector<UpdateService> AskUpdateServices(SystemBus& bus);

/// For how long the one has been at work that has been so for the longest; nothing where none is.
std::optional<double> AskHoursOfUpdateServices();

}  // namespace trevlin
