#pragma once
/// @file
/// Where libraries and what they load are installed: the folders of a machine, whether they exist or not; those of its
/// architectures ("*-linux-*") as far as they do.

#include <string>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

std::vector<std::string> LibraryFolders(const Machine& machine);
/// Of GStreamer.
std::vector<std::string> PluginFolders(const Machine& machine);
/// Of graphics and of its decoders (VA-API).
std::vector<std::string> GraphicsDriverFolders(const Machine& machine);

}  // namespace trevlin
