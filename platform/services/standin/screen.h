#pragma once
/// @file
/// The stand-in's one screen.
///
/// Thread rule: main thread, while the toolkit runs.

#include <string>
#include <utility>
#include <vector>

namespace standin {

/// What was asked for. The texts are UTF-8.
struct Asked {
  std::string name;                                         ///< of the application
  std::vector<std::pair<std::string, std::string>> extras;  ///< in their order
};

/// Shows it full-screen until the viewer leaves it or the process is told to end. False when there is no window.
bool Show(const Asked& asked);

}  // namespace standin
