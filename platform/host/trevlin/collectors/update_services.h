#pragma once
/// @file
/// The services that fetch and install updates, by systemd.
///
/// Thread rule: callable from any thread; blocks, two seconds at most for each question.

#include <optional>
#include <vector>

#include "base/service_manager.h"

namespace trevlin {

/// What fetches or installs for longer, in hours, hangs.
inline constexpr double kHangingHours = 3;

/// Those that the rule of failing updates names.
inline constexpr const char* kUpdateServices[] = {"apt-daily.service",
                                                  "apt-daily-upgrade.service",
                                                  "unattended-upgrades.service",
                                                  "dnf-automatic.service",
                                                  "dnf-automatic-install.service",
                                                  "dnf5-automatic.service",
                                                  "dnf-makecache.service",
                                                  "dnf5-makecache.service",
                                                  "packagekit.service",
                                                  "packagekit-offline-update.service"};

/// All of them, also those that are not there; nothing, with the problem, where systemd does not tell.
std::optional<std::vector<ServiceUnit>> AskUpdateServices(ServiceManager& manager);

/// For how long it has been at work; nothing where it is not, or systemd does not tell.
std::optional<double> AskHoursAtWork(ServiceManager& manager, const ServiceUnit& service);

/// For how long the one has been at work that has been so for the longest; nothing where none is. `isSilent`: systemd
/// is there and does not tell.
std::optional<double> AskHoursOfUpdateServices(bool& isSilent);

}  // namespace trevlin
