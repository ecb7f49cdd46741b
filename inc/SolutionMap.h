#pragma once

#include <string>

#include "QUVA_Records.h"

namespace QUVA {

/// Reads set_paths::kSolutionMap (docs/solution-map.md) into `map`. False when the file cannot be read, or when it is
/// not well-formed: what came before the error is in the map then. `problem` says why, in English; it also says, with
/// true, that the map has no solutions, or another number of them than it declares. Else it is empty. Any thread.
bool ReadSolutionMap(QUVA_SolutionMap& map, std::string& problem);

}  // namespace QUVA
