#include "cleaning/cleanup.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/running_time.h"
#include "cleaning/leftovers.h"
#include "dlog.h"
#include "flatpak/layout.h"
#include "log_tags.h"
#include "packages/package_store.h"
#include "packages/processes.h"
#include "set_paths.h"
#include "sysinfo/set_profile.h"
#include "system_path.h"

namespace cleaning {

namespace {

constexpr time_t kDay = 24 * 60 * 60;
// Only what lies here is the set's to clean: all else in /tmp may be any program's.
constexpr char kTemporaryDir[] = "/tmp/vexilo-apps";

/// What is cleaned on the machine around the packages.
struct Cleaner {
  const char* key;  ///< its switch in the group [deep_clean] of the set's profile
  const char* what;
  packages::TreeResult (*clean)(const packages::TreeStop& stop);
};
constexpr Cleaner kCleaners[] = {
    {"thumbnails", "old thumbnails", RemoveOldThumbnails},
    {"package_archives", "downloaded package archives", RemovePackageArchives},
    {"flatpak_leftovers", "leftovers of Flatpak", RemoveFlatpakLeftovers},
};

constexpr char kTimeIsUp[] = "the time is used up, the rest stays for the next deep clean";

void Clean(const Cleaner& cleaner, const packages::TreeStop& stop, const Caller& caller) {
  const std::string what = std::string("deep clean: ") + cleaner.what + ": ";
  if (!IsOn(cleaner.key)) return caller.log(DLOG_INFO, what + "switched off");
  packages::TreeResult removed;
  if (stop())
    removed.error = ECANCELED;
  else
    removed = cleaner.clean(stop);
  std::string text =
      what + "removed " + std::to_string(removed.files) + ", freed " + std::to_string(removed.bytes) + " bytes";
  if (removed.error == ECANCELED)
    text += std::string("; ") + kTimeIsUp;
  else if (removed.error != 0)
    text += std::string("; something stays: ") + std::strerror(removed.error);
  caller.log(DLOG_INFO, text);
}

struct Cleaned {
  int caches = 0;
  int64_t files = 0;  ///< temporary ones
};

Cleaned CleanPackages(const packages::TreeStop& stop, const Caller& caller) {
  const std::optional<time_t> cutoff = ChangedWithin(kDay);
  Cleaned cleaned;
  for (const packages::Package& package : packages::List()) {
    const bool runs = package.source == packages::Source::kFlatpak && !packages::ProcessesOf({package}).empty();
    const int result = stop() ? -ECANCELED : runs ? -EBUSY : packages::ClearCache(package, stop);
    if (result == 0)
      ++cleaned.caches;
    else if (runs)
      caller.log(DLOG_INFO, "deep clean: the cache of " + package.packageId + " stays: it is running");
    else if (result != -ECANCELED)
      caller.log(DLOG_WARN, "deep clean: the cache of " + package.packageId + " could not be emptied completely");
    if (cutoff) cleaned.files += RemoveTemporaryFiles(package.packageId, *cutoff, stop);
    if (!stop()) continue;
    caller.log(DLOG_INFO, std::string("deep clean: the packages' caches: ") + kTimeIsUp);
    break;
  }
  return cleaned;
}

}  // namespace

bool IsOn(const char* key) {
  bool on = true;
  return set_profile::Bool("deep_clean", key, on) != set_profile::Answer::kWrong && on;
}

int64_t FreeBytes() {
  std::vector<std::string> places = flatpak::Installations();
  places.insert(places.end(), {set_paths::kUserPartition, "/tmp", set_paths::kHostState, set_paths::kPackageArchives,
                               set_paths::kLastingTemporary, set_paths::kOwnerHome, set_paths::kJournals,
                               set_paths::kCoreDumps, set_paths::kCrashReports, UserCaches()});
  int64_t bytes = 0;
  std::set<unsigned long> counted;
  for (const std::string& path : places) {
    struct stat status;
    struct statvfs space;
    if (path.empty()) continue;
    const std::string full = SystemPath(path);
    if (stat(full.c_str(), &status) == 0 && statvfs(full.c_str(), &space) == 0 && counted.insert(status.st_dev).second)
      bytes += static_cast<int64_t>(space.f_bavail) * static_cast<int64_t>(space.f_frsize);
  }
  return bytes;
}

int64_t RemoveTemporaryFiles(const std::string& packageId, time_t cutoff, const packages::TreeStop& stop) {
  struct stat status;
  // Of /tmp anybody may be the first to make it.
  if (lstat(SystemPath(kTemporaryDir).c_str(), &status) != 0 || status.st_uid != geteuid()) return 0;
  const std::string folder = kTemporaryDir + ("/" + packageId);
  const packages::TreeResult removed = packages::EmptyTree(folder, {}, kTemporaryDir, {.before = cutoff, .stop = stop});
  if (removed.error != 0 && removed.error != ENOENT && removed.error != ECANCELED)
    __dlog_print(LOG_ID_APPS, DLOG_WARN, log_tags::kPackages, "%s",
                 ("deep clean: something old stays in " + folder + ": " + std::strerror(removed.error)).c_str());
  return removed.files;
}

bool CleanUp(const std::atomic<bool>& stop, const Caller& caller, std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  const int64_t before = FreeBytes();
  const packages::TreeStop isOver = [&stop, end] { return stop || std::chrono::steady_clock::now() >= end; };
  const Cleaned cleaned = CleanPackages(isOver, caller);
  if (stop) return false;
  const int reports = caller.removeReports ? caller.removeReports() : 0;
  for (const Cleaner& cleaner : kCleaners) Clean(cleaner, isOver, caller);
  const int64_t after = FreeBytes();
  caller.log(DLOG_INFO, "deep clean: emptied " + std::to_string(cleaned.caches) + " caches, removed " +
                            std::to_string(cleaned.files) + " temporary files and " + std::to_string(reports) +
                            " reports; freed " + std::to_string(after - before) + " bytes; free bytes before " +
                            std::to_string(before) + ", after " + std::to_string(after));
  return !stop;
}

}  // namespace cleaning
