#pragma once
/// @file
/// The machine's radio for wireless networks.
///
/// Thread rule: callable from any thread; blocks. The system bus of this machine is asked, and nobody for a password.

#include "fix_problem.h"

/// Switches it on through the connection manager, NetworkManager or ConnMan, or where none does so, by itself
/// (/dev/rfkill), and waits up to two seconds for each. Returns whether a radio is on now; otherwise `problem` has the
/// reason: no radio, a switch of the device that holds it off, no permission.
bool SwitchWirelessOn(FixProblem& problem);

/// Has the connection manager leave the wireless network and join it anew, with NetworkManager also without saving
/// power at the radio from then on. Waits up to twenty seconds for the connection. Otherwise `problem` has the reason:
/// no connection manager, no wireless network in use, no permission, no connection in time.
bool ReconnectWireless(FixProblem& problem);
