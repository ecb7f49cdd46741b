#pragma once
/// @file
/// The services of the machine.
///
/// Thread rule: callable from any thread; blocks.

#include <string>
#include <vector>

/// Restarts those of `services` ("bluetooth.service") that have failed, and waits until they run, ten seconds in all at
/// most. It is done when the system permits it to this user; nobody is asked for a password.
/// Returns whether they run now; also where none had failed and one is running. Otherwise `problem` names the service
/// and the reason: a name that is no service's, no service manager, none of the services on this machine, no
/// permission, one that does not start.
bool RestartFailedServices(const std::vector<std::string>& services, std::string& problem);
