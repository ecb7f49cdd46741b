#pragma once
/// @file
/// The data that the benchmarks run on: a solution map, and a history of transitions in the set root.

#include <string>

namespace bench {

constexpr int kSolutions = 20000;
constexpr int kTransitions = 200000;
constexpr int kFirstIssue = 10000000;

/// The text of a map of `count` solutions, written as shipped maps are.
std::string SolutionMap(int count);

/// Makes inference.db with `transitions` rows spread evenly over `issues` issues, every second of which is true at the
/// end, and solution.db in which every tenth issue is solved. False with a message on standard error.
bool FillDatabases(int issues, int transitions);

}  // namespace bench
