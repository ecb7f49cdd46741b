#include "packages/removal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>

#include "dlog.h"
#include "log_tags.h"
#include "pkgmgr_client.h"
#include "system_path.h"

namespace packages {

namespace {

constexpr const char* kTag = log_tags::kPackages;
constexpr size_t kMaxTold = 1000;

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
  FdHandle lock(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!lock) return lock;
  struct stat locked, there;
  int error = 0;
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0 || fstat(lock.get(), &locked) != 0 || lstat(path.c_str(), &there) != 0)
    error = errno;
  else if (locked.st_dev != there.st_dev || locked.st_ino != there.st_ino)
    error = ENOENT;
  if (error != 0) lock.reset();
  errno = error;
  return lock;
}

}  // namespace packages
