#include "setd/folder_watch.h"

#include <glib-unix.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "base/state.h"
#include "ownership.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

// A folder that is being removed is free a moment later; one that is somebody else's, when they are asked.
constexpr unsigned kFirstRetryMs = 50, kLongestRetryMs = 5000;
constexpr uint32_t kEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;

}  // namespace

bool MakeOwnFolder(const std::string& folder, std::string& problem) {
  // State is made for its owner alone; what cannot be made is told below.
  if (IsState(SystemPath(folder))) MakeFolders(SystemPath(folder));
  const bool isThere = static_cast<bool>(exchange::MakeFolder(folder, problem));
  if (isThere && !problem.empty()) Log(DLOG_WARN, problem);
  return isThere;
}

unsigned AddTimer(unsigned milliseconds, std::function<void()> action) {
  return g_timeout_add_full(
      G_PRIORITY_DEFAULT, milliseconds,
      [](void* held) -> gboolean {
        (*static_cast<std::function<void()>*>(held))();
        return G_SOURCE_REMOVE;
      },
      new std::function<void()>(std::move(action)),
      [](void* held) { delete static_cast<std::function<void()>*>(held); });
}

FolderWatch::FolderWatch(const char* folder, OnFile onFile, OnMade onMade)
    : m_folder(folder), m_onFile(std::move(onFile)), m_onMade(std::move(onMade)), m_retryMs(kFirstRetryMs) {}

FolderWatch::~FolderWatch() {
  if (m_source) g_source_remove(m_source);
  if (m_retry) g_source_remove(m_retry);
}

void FolderWatch::Start() {
  m_events.Unwatch();
  Establish();
}

void FolderWatch::Establish() {
  if (!m_source && m_events.Open())
    m_source = g_unix_fd_add(
        m_events.Fd(), G_IO_IN,
        [](int, GIOCondition, void* self) -> gboolean {
          static_cast<FolderWatch*>(self)->TakeEvents();
          return G_SOURCE_CONTINUE;
        },
        this);
  std::string problem;
  if (MakeOwnFolder(m_folder, problem) && !m_events.Watch(SystemPath(m_folder), kEvents))
    problem = std::string(m_folder) + " cannot be watched: " + std::strerror(errno);
  if (m_events.IsWatching()) {
    m_logged.clear();
    m_retryMs = kFirstRetryMs;
    if (m_onMade) m_onMade();
    return Rescan();
  }
  if (m_logged != problem) Log(DLOG_ERROR, problem + "; trying again");
  m_logged = problem;
  if (!m_retry)
    m_retry = AddTimer(std::exchange(m_retryMs, std::min(2 * m_retryMs, kLongestRetryMs)), [this] {
      m_retry = 0;
      if (!m_events.IsWatching()) Establish();
    });
}

void FolderWatch::Rescan() {
  for (const std::filesystem::path& each : EntriesOf(SystemPath(m_folder))) m_onFile(each.filename());
}

void FolderWatch::TakeEvents() {
  bool lost = false, gone = false;
  m_events.Take([&](uint32_t kinds, const char* name) {
    lost |= (kinds & IN_Q_OVERFLOW) != 0;
    gone |= (kinds & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0;
    if ((kinds & (IN_CLOSE_WRITE | IN_MOVED_TO)) != 0 && name) m_onFile(name);
  });
  if (gone) {
    Log(DLOG_WARN, std::string(m_folder) + " was taken away; making it again");
    return Start();
  }
  if (lost) Rescan();
}

}  // namespace setd
