#pragma once
/// @file
/// Error reports: compressed archives in set_paths::kReportsDir. docs/setd.md says what is in them.
///
/// Thread rule: callable from any thread. Calls block.

#include <ctime>
#include <string>

#include "setd/jobs.h"

namespace setd {

/// "SCREEN" for "SCREEN-QUVAKOV"; a name of no category is "OTHER".
std::string CategoryOf(const std::string& name);

/// The file of a report that tells of the others: "files" has the size and the checksum of each, and of itself that
/// which it has with zeros in the place of that.
inline constexpr char kMetaFile[] = "meta.json";

/// Collects and publishes a report of the name (letters, digits, '.', '_', '-'). `file` is set to the path, of the set,
/// of the archive, which only this user can read (0600) and never takes another's place. False when it is not there;
/// `problem` tells why, also that it was to stop.
bool MakeReport(const std::string& name, const StopFlag& stop, std::string& file, std::string& problem);

inline constexpr time_t kMaxReportAge = 30 * 24 * 60 * 60;

/// Removes reports that came more than `age` seconds of running time (running_time.h) ago, and those that came first
/// while there are more than 20 or they take more than 32 MiB in all; also what an interrupted MakeReport() left. One
/// that is seen for the first time has come then. Returns how many.
int PruneReports(time_t age = kMaxReportAge);

}  // namespace setd
