#pragma once
/// @file
/// The settings keys of the application, and how it writes those that tell the diagnosis engine what is going on.

#include "set_names.h"

namespace QUVA {

inline constexpr auto& kApplicationId = set_names::kCareApplication;

/// int: where the application was launched from, a LaunchPoint.
inline constexpr char kLaunchPointKey[] = "memory/quva/launch_point";
enum LaunchPoint { LAUNCH_POINT_OTHER = 0, LAUNCH_POINT_MENU = 1, LAUNCH_POINT_ORLO = 2, LAUNCH_POINT_HOTEL_MENU = 3 };
/// bool: the remaining problems are to be cleared at the next first launch.
inline constexpr char kDbResetKey[] = "db/vexilo/db_reset";
inline constexpr auto& kMenuLanguageKey = set_names::kMenuLanguageKey;
inline constexpr auto& kConsentKey = set_names::kConsentKey;
/// bool: the tools of self-diagnosis whose configuration asks for it cannot be started.
inline constexpr char kToolsLockedKey[] = "db/vexilo/tools_locked";
/// text: the step that is running.
inline constexpr char kEngineOperationKey[] = "system/trevlin/STOperation";
/// text: the scenario that the user started.
inline constexpr char kEngineScenarioKey[] = "system/trevlin/STScenario";

/// Write {"id" : "ID"} to the operation or the scenario key. A failure is logged. Any thread.
void SetEngineOperation(const char* id);
void SetEngineScenario(const char* id);

}  // namespace QUVA
