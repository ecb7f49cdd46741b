#pragma once

#include <atomic>

#include "set_names.h"

namespace QUVA {

/// What the application can be launched from, as the extra set_names::kLaunchMechanism says; the self-diagnosis has
/// more.
namespace launch_source {
inline constexpr char kMenu[] = "menu";
inline constexpr char kOrlo[] = "Orlo";
inline constexpr char kHotelMenu[] = "HotelMenu";
inline constexpr char kScan[] = "StartVexilo";
inline constexpr char kErrorReport[] = "ErrorReport";
inline constexpr char kRequestSupport[] = "request-support";
inline constexpr auto& kBackground = set_names::kBackgroundLaunch;
}  // namespace launch_source

/// Which screen is showing.
enum _CurrentScreen {
  SCREEN_NONE = 0,
  SCREEN_HOME = 1,
  SCREEN_START_CARE = 2,
  SCREEN_SELF_DIAGNOSIS = 3,
  SCREEN_MANAGE_STORAGE = 4,
  SCREEN_ERROR_REPORT = 5,
};

/// What the application is doing, as far as all of it goes by that. Thread rule: any thread.
struct AppState {
  /// Never destroyed.
  static AppState& Instance();

  /// What the application was launched from, or null. The text stays for as long as the process.
  std::atomic<char*> launchFrom{nullptr};
  /// Whether the application ends when it is no longer visible, as after launching another one from here.
  std::atomic<bool> exitOnPause{false};
  std::atomic<_CurrentScreen> currentScreen{SCREEN_NONE};
};

}  // namespace QUVA
