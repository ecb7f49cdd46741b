#pragma once
/// @file
/// The icons of Flatpaks, drawn for the list of applications: set_paths::kFlatpakIcons/<id>/ has "304x304.png" and
/// "448x448.png", and "drawn" with the path of the deployment that they are of.
///
/// Thread rule: callable from any thread.

#include <vector>

#include "packages/package.h"

namespace flatpak {

/// Has them drawn for those of the packages that are Flatpaks and whose deployment is another than the one that was
/// drawn, and removes those of applications that are not among them. Blocks for as long as that takes, a minute at
/// most; what was not drawn is in the log, and is tried again at the next call.
void RenewIcons(const std::vector<packages::Package>& packages);

}  // namespace flatpak
