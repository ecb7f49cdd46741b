#pragma once
/// @file
/// The applications that run where nobody looks at them, and ending them.
///
/// Thread rule: callable from any thread. Calls block.

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "packages/package.h"
#include "packages/processes.h"

namespace packages {

/// The application that the viewer looks at, as the settings key set_names::kForegroundAppKey tells; empty when nobody
/// tells. Nothing, with `problem`, when that cannot be known.
std::optional<std::string> ForegroundApp(std::string& problem);

struct RunningApp {
  Package package;
  int64_t bytes = 0;  ///< the memory of its processes that comes free with them, swapped out or not; no file cache
};

/// The packages with processes that may be ended (their manifest does not say keepRunning), without the application
/// `foreground`: that which has the most memory first. Flatpaks only `withFlatpaks`.
std::vector<RunningApp> BackgroundApps(const std::string& foreground, bool withFlatpaks);

struct EndedApps {
  std::vector<RunningApp> apps;  ///< those of which nothing is left
  EndedProcesses processes;
};

/// Ends them one after the other; gives up when `stop` becomes true.
EndedApps EndApps(const std::vector<RunningApp>& apps, const std::atomic<bool>& stop);

}  // namespace packages
