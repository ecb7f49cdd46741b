#pragma once
/// @file
/// What a solution takes away, for the viewer to agree to beforehand and to be told of afterwards.

#include <cstdint>
#include <string>
#include <vector>

namespace QUVA {

enum class PlannedKind {
  kApp,   ///< an application is ended; the id is its package's
  kHoard  ///< files are removed; the id is a hoard's key (set_care.h)
};

struct PlannedThing {
  PlannedKind kind = PlannedKind::kApp;
  std::string id{};
  std::string name{};  ///< a message id, or the title of an application
  int64_t bytes = 0;   ///< what comes free with it
};

/// What more a solution would do than what can always be done.
struct SolutionPlan {
  std::vector<PlannedThing> things{};  ///< largest first. The viewer has to agree, unless there are none.
  std::vector<PlannedThing> kept{};    ///< what only an administrator could remove
};

/// What a solution has done.
struct SolutionEffect {
  std::vector<PlannedThing> things{};  ///< what was agreed to and is gone
  int64_t memory = 0;                  ///< bytes that came free with applications; no file cache
  bool hadNothingToClose = false;      ///< applications were to be ended, and none was there
  bool isCleaned = false;              ///< files were removed; then, in bytes as the file systems tell:
  int64_t freeBefore = 0;
  int64_t freeAfter = 0;
  std::string advice{};  ///< where it failed and the viewer can do more: a text in the menu language, else empty
};

}  // namespace QUVA
