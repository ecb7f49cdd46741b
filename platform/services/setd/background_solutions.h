#pragma once
/// @file
/// Solutions that nobody is asked about: those of issues that the solution map marks "bg".
///
/// Thread rule: callable from any thread.

#include "trevlin/inference.h"

namespace setd {

/// Performs the solution of each such issue that is there and has become so since its solution was last recorded, and
/// records it as applied; the log names it. Memory boost and deep clean are left as requests to this daemon, nothing
/// else can be done here. Whether it helped is recorded by the first run two minutes later or after that.
void ApplyBackgroundSolutions(trevlin::Database& database, const trevlin::Outcome& outcome);

}  // namespace setd
