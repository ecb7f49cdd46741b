#pragma once
/// @file
/// The services that keep the machine's clock right.
///
/// Thread rule: callable from any thread; blocks, two seconds at most.

#include <optional>

namespace trevlin {

struct TimeServices {
  bool isInstalled = false;  ///< one that can be started; those that the owner has masked are not
  bool isRunning = false;    ///< or on its way
  bool hasFailed = false;
};

/// What systemd tells of all that it knows by their names; nothing where it does not answer.
std::optional<TimeServices> AskTimeServices();

}  // namespace trevlin
