#pragma once
/// @file
/// Whether the machine has what an application is for.
///
/// Thread rule: callable from any thread. Some files of the kernel are read; no device is opened.

namespace hardware {

/// A connector for a display, built-in panels included.
bool HasDisplayConnector();
/// A picture or a reception that can be told of: a display that is plugged in, an X server of the session, a tuner.
bool HasSignal();

}  // namespace hardware
