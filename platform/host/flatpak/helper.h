#pragma once
/// @file
/// The program that does what takes Flatpak's library or draws: set_paths::kFlatpakHelper. It is a process of its own,
/// so that what the library loads, waits for or breaks on is not the caller's.
///
/// Its lines, on standard output:
///
///     progress N        0 to 100, rising
///     unused N          the bytes that the runtimes take which no application needs
///     done              at last, when all went well
///     failed N REASON   at last, when not; N is an errno, 0 when none says it: EBUSY when another program is changing
///     the
///                       installation, ENOSPC when the disk is too full
///
/// Thread rule: callable from any thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace flatpak {

/// Tells what the runtimes take which no application in the installation needs, and removes them. Both have the
/// installation as their argument.
inline constexpr char kListUnused[] = "unused";
inline constexpr char kRemoveUnused[] = "remove-unused";

enum class HelperEnd {
  kDone,
  kFailed,  ///< it said why, and has left things as they were or in a whole state
  kNotStarted,
  kLost,  ///< it ended or was ended under way
};

/// Why not, for a reader and as an errno.
struct Problem {
  std::string text{};
  int error = 0;  ///< 0: none says it
};

/// Runs it with these arguments until it has ended, which it is made to after `limit`. It holds `input` as long as it
/// lives. `problem` says why it is not done.
HelperEnd RunHelper(std::vector<std::string> arguments, int input, std::chrono::milliseconds limit,
                    const std::function<void(int)>& onProgress, Problem& problem,
                    const std::function<void(int64_t bytes)>& onUnused = {});

}  // namespace flatpak
