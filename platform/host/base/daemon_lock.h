#pragma once
/// @file
/// The one place that there is in each set root for vexilo-setd, the task manager and log collector: who has it, and
/// how the daemon takes it.
///
/// The place is a record lock on set_paths::kDaemonLock, which the kernel takes away with the process and no child
/// inherits. Its file is for its owner only, so that no other user can hold a lock there. Beside it stands a name of
/// the kernel's, which nobody can remove as the file can be, and which any user can ask. Since any user can also take
/// that name first, only that of the owner of set_paths::kHostRun, of root and of this user counts.

#include <sys/types.h>

#include <optional>
#include <string>

#include "c_handle.h"

/// The process of the vexilo-setd that serves this set, if any does; 0 where it is one that this process cannot see.
/// Takes no lock and waits for nobody. Any thread of any process but the daemon's own, whose lock it would give away.
std::optional<pid_t> DaemonProcess();

/// Whether vexilo-setd serves this set. As DaemonProcess().
inline bool DaemonRuns() {
  return DaemonProcess().has_value();
}

/// The daemon's hold of its place, which lasts until the process ends. Main thread.
class DaemonPlace {
 public:
  /// Waits for some seconds while another process has the place, which may be just about to end. False with `problem`,
  /// which names that process, when it stays, or when the lock file cannot be made.
  bool Take(std::string& problem);

  /// Readable when Answer() is to be called. -1 when a stranger has the name, or none is to be had: then just the lock
  /// guards the place.
  int Fd() const { return m_name.get(); }
  /// Lets go one who has asked the name, for whom the kernel has answered.
  void Answer();

 private:
  bool TakeLock(int& error);

  FdHandle m_lock;
  FdHandle m_name;
};
