#pragma once
/// @file
/// What keeps the machine's clock right.
///
/// Thread rule: callable from any thread; blocks. The system bus of this machine is asked, and nobody for a password.

#include <string>

/// Has timedate1 start the machine's time service, now and at each start of the machine, and waits up to ten seconds
/// until it runs. Returns whether it does, also where it did before; that it has reached a time server is another
/// matter. Otherwise `problem` has the reason: no time service, nothing that switches it, no permission, no start.
bool SynchroniseClock(std::string& problem);
