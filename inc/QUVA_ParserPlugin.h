#pragma once

#include "SolutionPlan.h"

/// @file
/// The entries of the solution-map parser plug-in, set_paths::kParserPlugin. No argument may be null; none throws.
/// Thread rule: callable from any thread, on which they then run.

/// What came of a solution. SOLUTION_OPENED: it has opened another application, in which the viewer may solve the
/// issue; SOLUTION_NOT_ON_DEVICE: the device has no such application, and a stand-in was shown; SOLUTION_TRIED: of an
/// issue that the engine can see pass, what can be done is done (memory or storage freed, the time service started, or
/// the viewer says that he did it), and whether it helped shows when the engine looks again.
enum { SOLUTION_FAILED = -1, SOLUTION_DONE = 0, SOLUTION_OPENED = 1, SOLUTION_NOT_ON_DEVICE = 2, SOLUTION_TRIED = 3 };

extern "C" {

/// Reads the solution map into the information storage. 0, or -1 after a log line that names the file and the reason;
/// what the storage held before then stays.
int ParseSolutionMap(void);

/// Does what the issue's solution says and records it: as applied when it is done, as not applied when it opened
/// another application, so that the issue stays until it is gone. SOLUTION_FAILED when the issue is unknown, a step
/// failed (the later ones are then not done) or it could not be recorded. Waits for what a step waits for: ten seconds
/// at most for each deep clean, a minute for services, so not on the main thread.
int RequestApplySolution(const char* issueCode);

/// Replaces `plan` by what the issue's solution would end and remove that somebody may miss. Measures: not on the main
/// thread. 0, or -1 when the issue is unknown.
int PlanSolution(const char* issueCode, QUVA::SolutionPlan* plan);

/// RequestApplySolution() with what the viewer has agreed to, things of a plan of that solution; where the daemon does
/// not run, cleaning up is done by this process, as far as its user may. Replaces `effect`. Takes
/// minutes at worst.
int ApplyAgreedSolution(const char* issueCode, const QUVA::SolutionPlan* agreed, QUVA::SolutionEffect* effect);

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
using PlanSolutionEntry = decltype(&::PlanSolution);
using ApplyAgreedEntry = decltype(&::ApplyAgreedSolution);
using SaveResultEntry = decltype(&::SaveResultToSolutionDB);
using LaunchAppEntry = decltype(&::ProcessLaunchApp);

}  // namespace QUVA
