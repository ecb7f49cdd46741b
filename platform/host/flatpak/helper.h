#pragma once
/// @file
/// The program that does what takes Flatpak's library or draws: set_paths::kFlatpakHelper (base/helper.h).
///
/// Its lines, on standard output, before the last: "progress N", 0 to 100, rising; "unused N", the bytes that the
/// runtimes take which no application needs. The errno of a failure is EBUSY when another program is changing the
/// installation, ENOSPC when the disk is too full.
///
/// Thread rule: callable from any thread.

#include <cstdint>

#include "base/helper.h"

namespace flatpak {

/// Tells what the runtimes take which no application in the installation needs, and removes them. Both have the
/// installation as their argument.
inline constexpr char kListUnused[] = "unused";
inline constexpr char kRemoveUnused[] = "remove-unused";

using HelperEnd = ::HelperEnd;
using Problem = HelperProblem;

/// Runs it with these arguments, as ::RunHelper() does.
HelperEnd RunHelper(std::vector<std::string> arguments, int input, std::chrono::milliseconds limit,
                    const std::function<void(int)>& onProgress, Problem& problem,
                    const std::function<void(int64_t bytes)>& onUnused = {});

}  // namespace flatpak
