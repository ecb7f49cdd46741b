#pragma once
/// @file
/// Services that began to run a short while ago, by the control groups that systemd makes for each.
///
/// Thread rule: callable from any thread.

#include <chrono>
#include <string>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

/// Those in `group` ("system.slice") and the slices below it whose first process began less than `within` ago, the
/// latest first, but for logins at terminals. One that is started again and again is among them, whatever its manager
/// says of it at the moment. None until twice that after the machine's start: all are young then, and some need several
/// attempts until others are there.
std::vector<std::string> YoungServices(const Machine& machine, const std::string& group, std::chrono::seconds within);

/// Where a manager has its services: the machine's, or the one of this user.
std::string MachineGroup();
std::string UserGroup();

}  // namespace trevlin
