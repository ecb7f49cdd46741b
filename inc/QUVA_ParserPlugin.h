#pragma once
/// @file
/// The entries of the solution-map parser plug-in, set_paths::kParserPlugin. No argument may be null; none throws.
/// Thread rule: callable from any thread, on which they then run.

/// What came of a solution. SOLUTION_OPENED: it has opened another application, in which the viewer may solve the
/// issue; SOLUTION_NOT_ON_DEVICE: the device has no such application, and a stand-in was shown.
enum { SOLUTION_FAILED = -1, SOLUTION_DONE = 0, SOLUTION_OPENED = 1, SOLUTION_NOT_ON_DEVICE = 2 };

extern "C" {

/// Reads the solution map into the information storage. 0, or -1 after a log line that names the file and the reason;
/// what the storage held before then stays.
int ParseSolutionMap(void);

/// Does what the issue's solution says and records it: as applied when it is done, as not applied when it opened
/// another application, so that the issue stays until it is gone. SOLUTION_FAILED when the issue is unknown, a step
/// failed (the later ones are then not done) or it could not be recorded. Waits for what a step waits for: ten seconds
/// at most for each deep clean, a minute for services, so not on the main thread.
int RequestApplySolution(const char* issueCode);

/// What the viewer is to be told of this thread's last RequestApplySolution(), where it failed and there is more to
/// tell than that: a text in the menu language, else empty. Good until the thread's next one.
const char* AdviceAfterFailure(void);

/// Records what became of the issue's solution without doing anything: "cancel" as not applied, anything else as
/// applied. 0 or -1.
int SaveResultToSolutionDB(const char* issueCode, const char* result);

/// Launches an application. Whether the request was accepted.
bool ProcessLaunchApp(const char* applicationId);
}

namespace QUVA {

/// What SaveResultToSolutionDB() is told of a solution that the viewer declined.
inline constexpr char kDeclined[] = "cancel";

using ParseSolutionMapEntry = decltype(&::ParseSolutionMap);
using ApplySolutionEntry = decltype(&::RequestApplySolution);
using AdviceEntry = decltype(&::AdviceAfterFailure);
using SaveResultEntry = decltype(&::SaveResultToSolutionDB);
using LaunchAppEntry = decltype(&::ProcessLaunchApp);

}  // namespace QUVA
