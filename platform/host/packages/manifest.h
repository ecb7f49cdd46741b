#pragma once
/// @file
/// The manifest of a package, docs/packages.md.
///
/// Thread rule: callable from any thread.

#include <optional>
#include <string>

#include "packages/package.h"

namespace packages {

/// The package of the folder `packageId` as its manifest's text describes it; else nothing, and `problem` names the
/// member and the reason.
std::optional<Package> ParseManifest(const std::string& packageId, const std::string& text, std::string& problem);

/// Whether people can be shown the text as a title: 1 to 256 bytes of UTF-8 without control characters.
bool IsTitle(const std::string& text);

}  // namespace packages
