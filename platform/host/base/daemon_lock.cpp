#include "base/daemon_lock.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <thread>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "ownership.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

using Clock = std::chrono::steady_clock;

// A daemon that is told to end does so within two seconds.
constexpr std::chrono::milliseconds kPatience{3000}, kPause{10};

struct flock WholeFile() {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  return whole;
}

std::optional<pid_t> HolderOfLock() {
  const FdHandle file(open(SystemPath(set_paths::kDaemonLock).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct flock lock = WholeFile();
  if (!file || fcntl(file.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return std::nullopt;
  return lock.l_pid;
}

struct Name {
  sockaddr_un address{};
  socklen_t size = 0;
  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

Name NameOfPlace() {
  const std::string root(SystemRoot());
  const GText hash(g_compute_checksum_for_string(G_CHECKSUM_SHA256, root.c_str(), static_cast<gssize>(root.size())));
  Name name;
  name.address.sun_family = AF_UNIX;
  // A first byte of 0 makes it a name without a file.
  const int length =
      std::snprintf(name.address.sun_path + 1, sizeof name.address.sun_path - 1, "vexilo-setd-%s", hash.get());
  name.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length));
  return name;
}

FdHandle MakeSocket() {
  return FdHandle(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/// None with ECONNREFUSED while the name is that of a process that does not answer, or no longer anybody's.
std::optional<pid_t> HolderOfName() {
  const FdHandle asking = MakeSocket();
  const Name name = NameOfPlace();
  ucred holder{};
  socklen_t size = sizeof holder;
  if (!asking || connect(asking.get(), name.Get(), name.size) != 0 ||
      getsockopt(asking.get(), SOL_SOCKET, SO_PEERCRED, &holder, &size) != 0)
    return std::nullopt;
  if (IsTrustedUser(holder.uid)) return holder.pid;
  errno = EPERM;
  return std::nullopt;
}

/// False when another process has it, which may be a stranger.
bool TakeName(FdHandle& place) {
  const Name name = NameOfPlace();
  place = MakeSocket();
  if (place && bind(place.get(), name.Get(), name.size) == 0 && listen(place.get(), SOMAXCONN) == 0) return true;
  const bool isTaken = place && errno == EADDRINUSE;
  place.reset();
  return !isTaken;
}

/// Whether the file that is open is still the one at that path.
bool IsAt(const std::string& path, int file) {
  struct stat there, here;
  return lstat(path.c_str(), &there) == 0 && fstat(file, &here) == 0 && there.st_dev == here.st_dev &&
         there.st_ino == here.st_ino;
}

std::string RunsAlready(pid_t process) {
  return "vexilo-setd runs already, process " + std::to_string(process);
}

}  // namespace

std::optional<pid_t> DaemonProcess() {
  // The file is another user's or was removed: then the name tells.
  const std::optional<pid_t> holder = HolderOfLock();
  return holder ? holder : HolderOfName();
}

/// False with `error` 0 when it is worth another try.
bool DaemonPlace::TakeLock(int& error) {
  const std::string path = SystemPath(set_paths::kDaemonLock);
  m_lock.reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  struct flock whole = WholeFile();
  if (m_lock) GiveToSetOwner(m_lock.get());
  // An older version's file was for all to read.
  if (m_lock && fchmod(m_lock.get(), 0600) == 0 && fcntl(m_lock.get(), F_SETLK, &whole) == 0)
    return IsAt(path, m_lock.get());
  if (!m_lock || (errno != EACCES && errno != EAGAIN)) error = errno;
  return false;
}

bool DaemonPlace::Take(std::string& problem) {
  if (!MakeFolders(SystemPath(set_paths::kHostRun))) {
    problem = set_paths::kHostRun + std::string(": ") + std::strerror(errno);
    return false;
  }
  problem = set_paths::kDaemonLock + std::string(" is replaced again and again");
  bool isLocked = false;
  for (const auto end = Clock::now() + kPatience; Clock::now() < end; std::this_thread::sleep_for(kPause)) {
    int error = 0;
    isLocked = TakeLock(error);
    if (error != 0) {
      problem = set_paths::kDaemonLock + std::string(": ") + std::strerror(error);
      return false;
    }
    if (!isLocked) {
      if (const auto holder = HolderOfLock()) problem = set_paths::kDaemonLock + (": " + RunsAlready(*holder));
      continue;
    }
    if (TakeName(m_name)) return true;
    const auto holder = HolderOfName();
    if (!holder && errno != ECONNREFUSED) return true;
    isLocked = !holder;
    if (holder) problem = RunsAlready(*holder) + "; its lock file was removed";
  }
  return isLocked;
}

void DaemonPlace::Answer() {
  const FdHandle asker(accept4(m_name.get(), nullptr, nullptr, SOCK_CLOEXEC));
}
