#pragma once
/// @file
/// The set's daemon as a process, of the program that the macro SETD names.

#include "support/files.h"
#include "support/process.h"

using Process = std::unique_ptr<ChildProcess>;

/// Returns when it serves the set.
inline Process StartDaemon(const ProcessOptions& options = {}) {
  const auto starts = [] { return Count(Log(), "serves this set"); };
  const int before = starts();
  auto daemon = std::make_unique<ChildProcess>(std::vector<std::string>{SETD}, options);
  EXPECT_TRUE(Until([&] { return starts() > before; }));
  return daemon;
}
