#pragma once
/// @file
/// Programs of the platform that do what takes a library of their own: each is a process of its own, so that what the
/// library loads, waits for or breaks on is not the caller's.
///
/// Their lines, on standard output, after what they have to tell:
///
///     done              at last, when all went well
///     failed N REASON   at last, when not; N is an errno, 0 when none says it
///
/// Thread rule: callable from any thread.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

enum class HelperEnd {
  kDone,
  kFailed,  ///< it said why, and has left things as they were or in a whole state
  kNotStarted,
  kLost,  ///< it ended or was ended under way
};

/// Why not, for a reader and as an errno.
struct HelperProblem {
  std::string text{};
  int error = 0;  ///< 0: none says it
};

/// Runs the program of that path of the set with these arguments until it has ended, which it is made to after `limit`,
/// and hands over each line but the last. It reads `input`, and holds it as long as it lives. `problem` says why it is
/// not done.
HelperEnd RunHelper(const char* program, std::vector<std::string> arguments, int input, std::chrono::milliseconds limit,
                    const std::function<void(const std::string&)>& onLine, HelperProblem& problem);
