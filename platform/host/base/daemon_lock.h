#pragma once

/// Whether vexilo-setd, the task manager and log collector, serves this set: it holds the lock (flock) on
/// set_paths::kDaemonLock for as long as it lives. Any thread; waits for nobody.
bool DaemonRuns();
