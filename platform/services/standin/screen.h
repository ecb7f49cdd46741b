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
  std::vector<std::string> advice;                          ///< message ids: what is done there, and how to do without
  std::string with;                                         ///< what the last of them ends in: a command, say
};

/// Shows it full-screen, the extras only where there is no advice, until the viewer leaves it or the process is told to
/// end. False when there is no window.
bool Show(const Asked& asked);

}  // namespace standin
