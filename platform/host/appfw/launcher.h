#pragma once
/// @file
/// Launches applications by their freedesktop desktop entries, set_paths::kDesktopEntries/<id>.desktop.
///
/// Thread rule: main thread.

#include <string>

#include "appfw/app_control.h"
#include "set_names.h"

namespace app_framework {

/// Applications that are launched from now on get the environment as it is at this moment, so that what is set
/// afterwards for the widget toolkit stays in this process. Without this call they get that of the launch.
void KeepLaunchEnvironment();

/// Settings key, text: the application that is looked at; memory boost leaves it alone.
inline constexpr auto& kForegroundAppKey = set_names::kForegroundAppKey;

/// What came of a launch.
struct LaunchResult {
  int error = 0;           ///< APP_CONTROL_ERROR_…
  std::string problem;     ///< the reason of an error
  bool isStandIn = false;  ///< what runs only says that the application is missing
};

/// Starts the program of the application's desktop entry, each extra behind its own arguments as one argument
/// "key=value", in their order. No shell is involved. The program's standard input and output are /dev/null, its
/// standard error is ours; it is no child of this process. Returns as soon as it runs.
///
/// APP_CONTROL_ERROR_NONE, _INVALID_PARAMETER (an id of other bytes than letters, digits, '.', '_', '-'),
/// _APP_NOT_FOUND (no entry, or a hidden one) or _LAUNCH_REJECTED (an entry that is wrong, or whose program is
/// missing). A failure is in the platform log, with the id and the reason.
LaunchResult Launch(const std::string& appId, const Extras& extras);

}  // namespace app_framework
