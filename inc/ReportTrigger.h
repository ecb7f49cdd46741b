#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace QUVA {

/// A report that was asked for, as LeaveReportTrigger() returns it to AwaitReport(). A value, for any thread.
struct ReportRequest {
  std::string path{};     ///< of the trigger file, on the set
  std::string before{};   ///< what the log collector had told of an earlier request of the name; empty when nothing
  std::string problem{};  ///< why nothing is asked for; empty when it is
};

/// What became of a report that was asked for.
struct ReportOutcome {
  /// The archive's file name in set_paths::kReportsDir, with its suffix; empty when there is none.
  std::string report;
  /// Why there is none, in English, for the log. With a report: what went wrong beside it; else empty then.
  std::string problem;
};

/// Asks the log collector for a report by touching `fileName` in one of its folders (set_paths::kReportTriggers,
/// set_paths::kRebootReportTriggers), with the shell. The name is one of letters, digits, '.', '_' and '-', as the
/// shell gets it unquoted; any other name is refused, as is a symbolic link on the way to the file. Refusals and
/// failures are logged, and are the request's `problem`. Does not wait for the collector: the request is for
/// AwaitReport(), and may be left alone. Any thread; blocks for as long as the shell takes.
ReportRequest LeaveReportTrigger(const char* folder, const std::string& fileName);

/// Asks for the report NAME-DETAIL.log, with `reboot` in the folder for after a restart of the set.
void RequestReport(const std::string& name, const std::string& detail, bool reboot);

/// Waits until the log collector tells what became of the request (docs/setd.md), for `limit` at most, a day or less;
/// with 0 it looks once. Never returns what became of an earlier request of the name, whatever the clock does; asked
/// for twice before the collector came to it, it is one report, and both have its name. Calls `isCancelled`, where
/// there is one, about ten times a second, on the caller's thread, and returns when it is true.
///
/// Without a report there is a problem: the request's own, at once; the collector's, that tries again by itself all the
/// same; "cancelled"; that the trigger still lies there at the end of `limit`, as the collector does not run or is not
/// done; that it has gone for two seconds without a word; or that its folder is the one for after a restart, at once.
/// Any thread; blocks, so none that draws. Logs nothing and throws nothing but what `isCancelled` does.
ReportOutcome AwaitReport(const ReportRequest& request, std::chrono::milliseconds limit,
                          const std::function<bool()>& isCancelled);

}  // namespace QUVA
