#pragma once
/// @file
/// What happens in a folder, by inotify(7). As the owners in c_handle.h it is the kernel's, on a set as on any Linux.

#include <sys/inotify.h>

#include <cstdint>
#include <string>

#include "c_handle.h"

/// An inotify instance with a watch of one folder. Two watches of one instance on the same folder would be one, so each
/// has its own.
/// Thread rule: an object belongs to one thread.
class FolderEvents {
 public:
  /// False with errno when there can be none. Watch() opens it as well.
  bool Open() {
    if (!m_inotify) m_inotify.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    return static_cast<bool>(m_inotify);
  }
  /// Readable when Take() has something; -1 before Open().
  int Fd() const { return m_inotify.get(); }

  /// Watches `folder`, a path of this machine, in the place of what was watched, for `kinds` (IN_CREATE, IN_ONLYDIR).
  /// False with errno when it cannot be watched; then nothing is.
  bool Watch(const std::string& folder, uint32_t kinds) {
    Unwatch();
    if (Open()) m_watch = inotify_add_watch(m_inotify.get(), folder.c_str(), kinds);
    return IsWatching();
  }
  void Unwatch() {
    if (IsWatching()) inotify_rm_watch(m_inotify.get(), m_watch);
    m_watch = -1;
  }
  bool IsWatching() const { return m_watch >= 0; }

  /// Takes all that has come, without waiting: take(kinds, name), name null for what concerns the folder itself. Of a
  /// watch that has been replaced, also by `take`, nothing comes; IN_Q_OVERFLOW comes when some was lost.
  template <typename Taker>
  void Take(const Taker& take) {
    alignas(inotify_event) char buffer[16384];
    ssize_t size;
    while ((size = read(m_inotify.get(), buffer, sizeof buffer)) > 0) {
      for (const char* next = buffer; next < buffer + size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(next);
        next += sizeof *event + event->len;
        if ((event->mask & IN_Q_OVERFLOW) != 0 || event->wd == m_watch)
          take(event->mask, event->len > 0 ? event->name : nullptr);
      }
    }
  }

 private:
  FdHandle m_inotify;
  int m_watch = -1;
};
