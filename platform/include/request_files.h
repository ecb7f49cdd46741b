#pragma once
/// @file
/// The files by which programs ask the set's services for something: what they are called and what they say.
/// docs/setd.md has the protocols.
///
/// Thread rule: callable from any thread.

#include <sys/stat.h>

#include <string>

#include "set_paths.h"

/// Tells a file (a path of this machine) as it was written from one that was written anew or has come in its place;
/// empty when there is none.
inline std::string WritingOf(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return {};
  return std::to_string(status.st_ino) + " " + std::to_string(status.st_mtim.tv_sec) + "." +
         std::to_string(status.st_mtim.tv_nsec);
}

/// The task manager. A request is a trigger of that name; of some it has a payload too, written before. Paths are the
/// set's.
namespace tager {

inline constexpr char kKill[] = "killApp";                         ///< payload: a package's line
inline constexpr char kClearCache[] = "clearAppCache";             ///< payload: an application's line
inline constexpr char kMeasurePrefix[] = "calcAppDataCacheSize_";  ///< and the application id; both say its line
inline constexpr char kMemoryBoost[] = "memBoost";
inline constexpr char kDeepClean[] = "CleanAll.txt";
inline constexpr char kDeepCleanText[] = "CleanUp\n";  ///< what the trigger of a deep clean says

inline constexpr char kCleanHoards[] =
    "CleanHoards.txt";  ///< says "HOARD HOARD…\n", names of what the viewer agreed to

/// Of the answer to a measurement, and the application id: an acknowledgement and, there before it, a result.
inline constexpr char kAnswerPrefix[] = "appDataCacheSize_";
/// What the result says, for printf and scanf: data and cache, long, in bytes.
inline constexpr char kSizesFormat[] = "%ld|%ld";

inline std::string TriggerPath(const std::string& name) {
  return set_paths::kTagerRequests + ("/" + name);
}
/// Also of a result.
inline std::string PayloadPath(const std::string& name) {
  return set_paths::kTager + ("/" + name);
}
inline std::string AcknowledgementPath(const std::string& name) {
  return set_paths::kTagerAnswers + ("/" + name);
}

inline std::string PackageLine(const std::string& packageId) {
  return packageId + "\n";
}
inline std::string ApplicationLine(const std::string& packageId, const std::string& appId) {
  return packageId + "|" + appId + "\n";
}

}  // namespace tager

/// The log collector. A request is a trigger, the report's name with the suffix; what became of it is told as a JSON
/// object.
namespace kov {

inline constexpr char kSuffix[] = ".log";
inline constexpr char kReport[] = "report";    ///< member: the archive's file name
inline constexpr char kProblem[] = "problem";  ///< member: why there is none, or what went wrong beside it

}  // namespace kov
