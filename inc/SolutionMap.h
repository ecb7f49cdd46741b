#pragma once

#include <string>

#include "QUVA_Records.h"

namespace QUVA {

/// How far the set's solution map could be read.
enum class MapReading {
  kDone,
  kUnreadable,     ///< the file cannot be read
  kNotWellFormed,  ///< what came before the error is in the map
  kValueTooEarly,  ///< a sol_val stands before any solution
};

/// Reads set_paths::kSolutionMap (docs/solution-map.md) into `map`. `problem` says why a file is unreadable. Any
/// thread.
MapReading ReadSolutionMap(QUVA_SolutionMap& map, std::string& problem);

}  // namespace QUVA
