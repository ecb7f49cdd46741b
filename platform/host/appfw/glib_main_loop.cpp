#include "appfw/glib_main_loop.h"

#include <Ecore.h>
#include <glib.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace app_framework {

namespace {

Ecore_Select_Function g_ecoreSelect = nullptr;

/// The default context, held by this thread for one turn of the loop. GLib allows nesting.
class HeldContext {
 public:
  HeldContext() : m_held(g_main_context_acquire(g_main_context_default())) {}
  HeldContext(const HeldContext&) = delete;
  HeldContext& operator=(const HeldContext&) = delete;
  ~HeldContext() {
    if (m_held) g_main_context_release(g_main_context_default());
  }
  explicit operator bool() const { return m_held; }

 private:
  const bool m_held;
};

/// What GLib waits for, at the front of `fds`; `timeout` in milliseconds, -1 for ever.
int QueryGLib(int priority, std::vector<GPollFD>& fds, int& timeout) {
  for (;;) {
    const int capacity = static_cast<int>(fds.size());
    const int count = g_main_context_query(g_main_context_default(), priority, &timeout, fds.data(), capacity);
    fds.resize(count);
    if (count <= capacity) return count;
  }
}

void AppendEcore(std::vector<GPollFD>& fds, int limit, const fd_set* reads, const fd_set* writes,
                 const fd_set* exceptions) {
  for (int fd = 0; fd < limit; ++fd) {
    gushort events = 0;
    if (reads && FD_ISSET(fd, reads)) events |= G_IO_IN;
    if (writes && FD_ISSET(fd, writes)) events |= G_IO_OUT;
    if (exceptions && FD_ISSET(fd, exceptions)) events |= G_IO_PRI;
    if (events) fds.push_back({fd, events, 0});
  }
}

/// Puts an fd into the set when it was asked for with `asked` and any of `seen` happened. Returns how many that are.
int Report(const GPollFD& poll, gushort asked, gushort seen, fd_set* set) {
  if (!(poll.events & asked) || !(poll.revents & seen)) return 0;
  FD_SET(poll.fd, set);
  return 1;
}

/// A wait in whole milliseconds, rounded up lest a timer's last fraction is spent spinning.
int Milliseconds(const timeval* wait) {
  if (!wait) return -1;
  constexpr long kMaxSeconds = G_MAXINT / 1000 - 1;
  return static_cast<int>(std::min<long>(wait->tv_sec, kMaxSeconds) * 1000 + (wait->tv_usec + 999) / 1000);
}

/// As select(2), and serves GLib meanwhile.
int SelectBoth(int limit, fd_set* reads, fd_set* writes, fd_set* exceptions, timeval* wait) {
  GMainContext* const context = g_main_context_default();
  const HeldContext held;
  if (!held) return g_ecoreSelect(limit, reads, writes, exceptions, wait);

  // Local, as a dispatched callback may come back here through a nested loop.
  std::vector<GPollFD> fds(16);
  int priority = 0;
  int timeout = -1;
  g_main_context_prepare(context, &priority);
  const int glibCount = QueryGLib(priority, fds, timeout);
  AppendEcore(fds, limit, reads, writes, exceptions);

  const int ecoreTimeout = Milliseconds(wait);
  if (timeout < 0 || (ecoreTimeout >= 0 && ecoreTimeout < timeout)) timeout = ecoreTimeout;
  const int polled = g_poll(fds.data(), static_cast<guint>(fds.size()), timeout);
  int error = polled < 0 ? errno : 0;

  for (fd_set* set : {reads, writes, exceptions})
    if (set) FD_ZERO(set);
  int result = 0;
  for (size_t i = glibCount; polled > 0 && i < fds.size(); ++i) {
    if (fds[i].revents & G_IO_NVAL) error = EBADF;
    result += Report(fds[i], G_IO_IN, G_IO_IN | G_IO_HUP | G_IO_ERR, reads);
    result += Report(fds[i], G_IO_OUT, G_IO_OUT | G_IO_ERR, writes);
    result += Report(fds[i], G_IO_PRI, G_IO_PRI, exceptions);
  }

  if (g_main_context_check(context, priority, fds.data(), glibCount)) g_main_context_dispatch(context);
  if (!error) return result;
  errno = error;
  return -1;
}

}  // namespace

GLibMainLoop::GLibMainLoop() {
  g_ecoreSelect = ecore_main_loop_select_func_get();
  ecore_main_loop_select_func_set(SelectBoth);
}

GLibMainLoop::~GLibMainLoop() {
  ecore_main_loop_select_func_set(g_ecoreSelect);
}

}  // namespace app_framework
