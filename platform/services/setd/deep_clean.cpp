#include "setd/deep_clean.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <set>

#include "packages/package_store.h"
#include "packages/processes.h"
#include "set_paths.h"
#include "setd/report.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

constexpr time_t kDay = 24 * 60 * 60;
constexpr time_t kReportAge = 7 * kDay;
// Only what lies here is the set's to clean: all else in /tmp may be any program's.
constexpr char kTemporaryDir[] = "/tmp/vexilo-apps";

/// What is free on the file systems that a deep clean works on.
long long FreeBytes() {
  long long bytes = 0;
  std::set<unsigned long> counted;
  for (const char* path : {set_paths::kUserPartition, "/tmp", set_paths::kHostState}) {
    struct stat status;
    struct statvfs space;
    const std::string full = SystemPath(path);
    if (stat(full.c_str(), &status) == 0 && statvfs(full.c_str(), &space) == 0 && counted.insert(status.st_dev).second)
      bytes += static_cast<long long>(space.f_bfree) * static_cast<long long>(space.f_frsize);
  }
  return bytes;
}

}  // namespace

int64_t RemoveTemporaryFiles(const std::string& packageId, time_t cutoff) {
  struct stat status;
  // Of /tmp anybody may be the first to make it.
  if (lstat(SystemPath(kTemporaryDir).c_str(), &status) != 0 || status.st_uid != geteuid()) return 0;
  const std::string folder = kTemporaryDir + ("/" + packageId);
  const packages::TreeResult removed = packages::EmptyTree(folder, {}, kTemporaryDir, {.before = cutoff});
  if (removed.error != 0 && removed.error != ENOENT)
    Log(DLOG_WARN, "deep clean: something old stays in " + folder + ": " + std::strerror(removed.error));
  return removed.files;
}

bool CleanAll(const StopFlag& stop) {
  const long long before = FreeBytes();
  const time_t now = time(nullptr);
  int caches = 0;
  int64_t files = 0;
  for (const packages::Package& package : packages::List()) {
    if (stop) return false;
    const bool runs = package.source == packages::Source::kFlatpak && !packages::ProcessesOf({package}).empty();
    if (runs)
      Log(DLOG_INFO, "deep clean: the cache of " + package.packageId + " stays: it is running");
    else if (packages::ClearCache(package) == 0)
      ++caches;
    else
      Log(DLOG_WARN, "deep clean: the cache of " + package.packageId + " could not be emptied completely");
    files += RemoveTemporaryFiles(package.packageId, now - kDay);
  }
  const int reports = PruneReports(kReportAge);
  const long long after = FreeBytes();
  Log(DLOG_INFO, "deep clean: emptied " + std::to_string(caches) + " caches, removed " + std::to_string(files) +
                     " temporary files and " + std::to_string(reports) + " reports; freed " +
                     std::to_string(after - before) + " bytes; free bytes before " + std::to_string(before) +
                     ", after " + std::to_string(after));
  return true;
}

}  // namespace setd
