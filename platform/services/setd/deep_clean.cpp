#include "setd/deep_clean.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>
#include <set>
#include <vector>

#include "c_handle.h"
#include "packages/package_store.h"
#include "set_paths.h"
#include "setd/report.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

constexpr time_t kDay = 24 * 60 * 60;
constexpr time_t kReportAge = 7 * kDay;
constexpr int kMaxDepth = 64;
// Folders of /tmp through which programs talk to each other, whatever a package calls itself.
constexpr const char* kExchangeFolders[] = {set_paths::kTager, "/tmp/qsyslink", set_paths::kReportTriggers,
                                            set_paths::kRebootReportTriggers};

using Folder = std::unique_ptr<DIR, CRelease<&closedir>>;

/// Takes over the descriptor of the folder.
int RemoveOldBelow(int fd, const struct stat& top, time_t cutoff, int depth = 0) {
  const Folder folder(fdopendir(fd));
  if (!folder) {
    close(fd);
    return 0;
  }
  int removed = 0;
  while (const dirent* entry = readdir(folder.get())) {
    const char* name = entry->d_name;
    struct stat status;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 ||
        fstatat(fd, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || status.st_uid != top.st_uid ||
        status.st_dev != top.st_dev)
      continue;
    const bool old = status.st_mtime < cutoff;
    if (S_ISDIR(status.st_mode)) {
      FdHandle inner(openat(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      struct stat opened;
      if (!inner || fstat(inner.get(), &opened) != 0 || opened.st_ino != status.st_ino || opened.st_dev != top.st_dev)
        continue;
      if (depth < kMaxDepth) removed += RemoveOldBelow(inner.release(), top, cutoff, depth + 1);
      if (old && unlinkat(fd, name, AT_REMOVEDIR) == 0) ++removed;
    } else if (old && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) && unlinkat(fd, name, 0) == 0) {
      ++removed;
    }
  }
  return removed;
}

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

int RemoveOlderThan(const std::string& folder, time_t cutoff) {
  FdHandle handle(open(SystemPath(folder).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!handle || fstat(handle.get(), &status) != 0 || status.st_uid != geteuid()) return 0;
  return RemoveOldBelow(handle.release(), status, cutoff);
}

namespace {

int RemoveTemporaryFiles(const std::string& id, time_t cutoff) {
  const std::string folder = "/tmp/" + id;
  const bool isExchange =
      std::find(std::begin(kExchangeFolders), std::end(kExchangeFolders), folder) != std::end(kExchangeFolders);
  return isExchange ? 0 : RemoveOlderThan(folder, cutoff);
}

}  // namespace

bool CleanAll(const StopFlag& stop) {
  const long long before = FreeBytes();
  const time_t now = time(nullptr);
  int caches = 0, files = 0;
  for (const packages::Package& package : packages::List()) {
    if (stop) return false;
    if (packages::ClearCache(package) == 0)
      ++caches;
    else
      Log(DLOG_WARN, "deep clean: the cache of " + package.packageId + " could not be emptied completely");
    // Of /tmp only the folders that bear a package's or application's id are the set's to clean.
    files += RemoveTemporaryFiles(package.packageId, now - kDay);
    if (package.appId != package.packageId) files += RemoveTemporaryFiles(package.appId, now - kDay);
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
