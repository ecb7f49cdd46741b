#pragma once
/// @file
/// What the removals of packages have in common. For the packages' own files.
///
/// Thread rule: callable from any thread. Paths are of the set.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>

#include "c_handle.h"

namespace packages {

/// Whether anything has that name, a link that leads nowhere too.
bool IsThere(const std::string& path);

/// Logs what is wrong with what lies there when that is news; an empty problem forgets what was wrong. Of more than
/// 1,000 wrong ones at once the others are not told.
void Complain(const std::string& path, const std::string& problem);

/// An errno as a result (PKGMGR_R_*); the smallest ones would read as other results: EPERM is told as EACCES, the
/// others as PKGMGR_R_ERROR.
int ResultOf(int error);

/// Held by who removes the folder, for as long as that takes; gone with its process. It is a lock on a byte of
/// set_paths::kRemovalLock, which nobody but the set's owner can open, and never waits. Without one, errno tells why:
/// EAGAIN while somebody else removes it, ENOTDIR or ELOOP for what is no folder, ENOENT also when the folder went
/// while it was locked.
FdHandle LockForRemoval(const std::string& folder);

/// Bytes removed as percents, each told once.
class Percent {
 public:
  Percent(int64_t total, const std::function<void(int)>& tell) : m_total(total), m_tell(tell) { Reach(0); }
  void Removed(int64_t bytes) {
    if (m_total > 0) Reach(static_cast<int>(std::min<int64_t>(99, bytes * 100 / m_total)));
  }
  void Done() { Reach(100); }

 private:
  void Reach(int percent) {
    if (percent <= m_last) return;
    m_last = percent;
    if (m_tell) m_tell(percent);
  }

  const int64_t m_total;
  const std::function<void(int)>& m_tell;
  int m_last = -1;
};

}  // namespace packages
