#pragma once

#include <string>

namespace QUVA {

/// Asks the log collector for a report by touching `fileName` in one of its folders (set_paths::kReportTriggers,
/// set_paths::kRebootReportTriggers), with the shell. The name is one of letters, digits, '.', '_' and '-', as the
/// shell gets it unquoted; any other name is refused, as is a symbolic link on the way to the file. Refusals and
/// failures are logged; nobody waits for the collector. Any thread; blocks for as long as the shell takes.
void LeaveReportTrigger(const char* folder, const std::string& fileName);

}  // namespace QUVA
