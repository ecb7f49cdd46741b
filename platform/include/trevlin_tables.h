#pragma once
/// @file
/// The tables of the diagnosis engine's databases (set_paths.h): their names, and the column lists of CREATE TABLE.
/// Whoever comes first makes them. "INTEFER" is how shipped sets have it; SQLite takes it as a type name.

namespace trevlin_tables {

inline constexpr char kInference[] = "inferenceTBL";
inline constexpr char kInferenceColumns[] =
    "(registerTime TEXT, lastUpdatedTime TEXT, issueCode TEXT, TR INTEGER, solutionCode INTEGER)";
inline constexpr char kSolution[] = "solutionTBL";
inline constexpr char kSolutionColumns[] =
    "(registerTime TEXT, issueCode TEXT, solutionCode TEXT, type TEXT, isApply INTEFER)";

}  // namespace trevlin_tables
