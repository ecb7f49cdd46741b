#pragma once
/// @file
/// What became of the reports that were asked for, told to whoever asked. docs/setd.md has the form.
///
/// Thread rule: callable from any thread. Calls block.

#include <string>

namespace setd {

/// Publishes what became of the report of a trigger (its file name) in set_paths::kReportResults, readable for every
/// user, in the place of what was told before: the report's file name in set_paths::kReportsDir, or `problem`, or both
/// where there is a report and yet something to tell. No two publications have the same content. What more than 100
/// triggers were told goes, the oldest first. Where it cannot be published the log has the reason, and what was told
/// before goes, as it is not true any more.
void PublishResult(const std::string& trigger, const std::string& report, const std::string& problem);

}  // namespace setd
