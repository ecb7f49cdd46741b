#pragma once
/// @file
/// Where libraries and what they load are installed.

#include <string>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

/// The folders of a machine, whether they exist or not; those of its architectures ("*-linux-*") as far as they do.
struct InstallFolders {
  explicit InstallFolders(const Machine& machine);

  std::vector<std::string> libraries;
  std::vector<std::string> drivers;  ///< of graphics: dri, dri-nonfree and va/drivers below the libraries
  std::vector<std::string> plugins;  ///< of GStreamer, below the libraries

 private:
  void Add(const Machine& machine, const std::string& folder);
};

}  // namespace trevlin
