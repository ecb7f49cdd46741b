#pragma once
/// @file
/// The requests that the set's task manager answers through files. Thread rule: any thread; what blocks says so and is
/// kept off the main thread.

#include <string>
#include <vector>

namespace QUVA {

/// Ends an application. Not awaited, but for an earlier such request to be taken: three seconds at most.
void KillApp(const char* packageName);
/// Empties an application's caches. Not awaited, but for an earlier such request to be taken: three seconds at most.
/// 0 when the request was left, -1 otherwise.
int ClearAppCache(const std::string& packageName, const std::string& appId);
/// Measures an application's data and cache in bytes. Blocks for five seconds at most. False, with the numbers
/// untouched, when no answer to this very request comes.
bool FindDataCacheSize(const std::string& packageName, const std::string& appId, long* dataSize, long* cacheSize);
/// Asks the task manager to end applications that nobody looks at. Does not wait for it.
/// 0 when the request was left, -1 otherwise.
int PerformMemBoost();
/// Asks the task manager to clean every cache, and waits up to ten seconds for it.
/// 0 when it has taken the request away, -1 otherwise.
int PerformDeepClean();
/// Asks the task manager to remove hoards that the viewer has agreed to, by their keys (set_care.h), and waits
/// for it, two minutes at most; then the request is withdrawn. Whether it was served.
bool PerformCleanHoards(const std::vector<std::string>& keys);
/// What the browser engine of "YouTube" stores, in bytes; 0 when the task manager does not say.
long long getAppSizeForYoutube();

}  // namespace QUVA
