#include "base/daemon_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"

bool DaemonRuns() {
  const FdHandle lock(open(SystemPath(set_paths::kDaemonLock).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  return lock && flock(lock.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}
