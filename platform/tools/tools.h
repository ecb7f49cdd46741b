#pragma once
/// @file
/// The tools that there are, and what each opens with: main loop thread, once.

#include <string>
#include <string_view>

#include "tool.h"

namespace tools {

/// Null for a name that none has.
const Tool* FindTool(std::string_view name);
/// All their names, with blanks between them.
std::string ToolNames();

void OpenPictureTest(const Tool& tool, const app_framework::Extras& extras);
void OpenHdmiTroubleshooting(const Tool& tool, const app_framework::Extras& extras);
void OpenSignalInformation(const Tool& tool, const app_framework::Extras& extras);
void OpenModulesTest(const Tool& tool, const app_framework::Extras& extras);
void OpenConnectionTest(const Tool& tool, const app_framework::Extras& extras);
void OpenHomeDeckReset(const Tool& tool, const app_framework::Extras& extras);
void OpenSoundTest(const Tool& tool, const app_framework::Extras& extras);
void OpenVideoTest(const Tool& tool, const app_framework::Extras& extras);

}  // namespace tools
