#pragma once
/// @file
/// The test tools, as the command line, the desktop entries and the care application know them.
///
/// Thread rule: main loop thread.

#include "appfw/app_control.h"

namespace tools {

struct Tool {
  const char* name;          ///< on the command line
  const char* appId;         ///< of its desktop entry
  const char* titleSid;      ///< its title, in the catalogue of the care application
  const char* eventItem;     ///< what usage events call it
  const char* launchSource;  ///< which card of the care application's menu it belongs to
  /// Shows its first screen.
  void (*open)(const Tool& tool, const app_framework::Extras& extras);
};

}  // namespace tools
