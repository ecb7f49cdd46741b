#pragma once
/// @file
/// The icons of applications, drawn from what their makers put into them.
///
/// Thread rule: the main thread.

#include <string>

namespace vexilo_flatpak {

/// Draws the exported icon of the deployment (a path of the set) into the application's folder of icons
/// (platform/host/flatpak/icons.h), as a drawing when there is one, else from the largest picture. Where there is none
/// or all are broken, a plain one. Empty, or one line that says why there is none now.
std::string DrawIcon(const std::string& id, const std::string& deployment);

}  // namespace vexilo_flatpak
