#include "packages/removal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <map>
#include <mutex>

#include "base/file_lock.h"
#include "dlog.h"
#include "log_tags.h"
#include "pkgmgr_client.h"
#include "set_paths.h"
#include "system_path.h"

namespace packages {

namespace {

constexpr const char* kTag = log_tags::kPackages;
constexpr size_t kMaxTold = 1000;

/// The byte of the file that stands for a name.
bool LockByte(int fd, const std::string& name) {
  struct flock range {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(std::hash<std::string>()(name) >> 2);
  range.l_len = 1;
  return fcntl(fd, F_OFD_SETLK, &range) == 0;
}

}  // namespace

bool IsThere(const std::string& path) {
  return faccessat(AT_FDCWD, SystemPath(path).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

void Complain(const std::string& path, const std::string& problem) {
  static std::mutex& mutex = *new std::mutex;
  static auto& told = *new std::map<std::string, std::string>;
  const std::lock_guard guard(mutex);
  if (problem.empty()) {
    told.erase(path);
    return;
  }
  if (told.size() >= kMaxTold && !told.contains(path))
    std::erase_if(told, [](const auto& one) { return !IsThere(one.first); });
  if (told.size() >= kMaxTold && !told.contains(path)) return;
  std::string& last = told[path];
  if (last == problem) return;
  last = problem;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: %s", path.c_str(), problem.c_str());
}

int ResultOf(int error) {
  if (error == 0) return PKGMGR_R_OK;
  if (error == EPERM) error = EACCES;
  return error > -PKGMGR_R_ERROR ? -error : static_cast<int>(PKGMGR_R_ERROR);
}

FdHandle LockForRemoval(const std::string& folder) {
  const std::string path = SystemPath(folder);
  struct stat found, there;
  if (lstat(path.c_str(), &found) != 0) return {};
  if (!S_ISDIR(found.st_mode)) {
    errno = S_ISLNK(found.st_mode) ? ELOOP : ENOTDIR;
    return {};
  }
  FdHandle lock = OpenLockFile(SystemPath(set_paths::kRemovalLock));
  if (!lock) return lock;
  int error = 0;
  // By its number, as it gets another name while it is removed.
  if (!LockByte(lock.get(), std::to_string(found.st_dev) + ":" + std::to_string(found.st_ino)) ||
      lstat(path.c_str(), &there) != 0)
    error = errno;
  else if (found.st_dev != there.st_dev || found.st_ino != there.st_ino)
    error = ENOENT;
  if (error != 0) lock.reset();
  errno = error;
  return lock;
}

}  // namespace packages
