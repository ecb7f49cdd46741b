#pragma once
/// @file
/// The services of the machine and of this user.
///
/// Thread rule: callable from any thread; blocks.

#include <string>
#include <vector>

#include "fix_problem.h"

enum class ServicesOf { kMachine, kUser };

/// Restarts those of `services` ("bluetooth.service") that have failed or are about to be restarted again, and waits
/// until they have run for ten seconds. Where this user is not permitted to and there is an agent for it, it may ask
/// the person for a password. Waits a minute at most, of that half for the password and ten seconds for the start.
/// Returns whether they run now; also where none had failed and one is running, and has for ten seconds. Otherwise the
/// problem names the service and the reason: a name that is no service's, no service manager, none of the services on
/// this machine, no permission, one that does not start or ends again.
bool RestartFailedServices(const std::vector<std::string>& services, ServicesOf whose, FixProblem& problem);
