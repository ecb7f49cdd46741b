#include "base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>
#include <utility>

#include "base/atomic_file.h"

namespace {

constexpr std::chrono::milliseconds kPause(2);

}  // namespace

FdHandle OpenLockFile(const std::string& path) {
  return OpenToAppend(path);
}

bool LockFile(int fd, std::chrono::steady_clock::time_point end) {
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (std::chrono::steady_clock::now() >= end) {
      errno = EWOULDBLOCK;
      return false;
    }
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

FdHandle LockBeside(const std::string& path, std::chrono::steady_clock::time_point end) {
  FdHandle file = OpenLockFile(path + ".lock");
  return file && LockFile(file.get(), end) ? std::move(file) : FdHandle();
}
