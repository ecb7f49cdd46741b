#include "FileWatch.h"

#include <poll.h>
#include <sys/stat.h>

#include <algorithm>

#include "system_path.h"

namespace QUVA {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kLongestPause(1000);

}  // namespace

FileWatch::FileWatch(const std::string& path) : m_path(SystemPath(path)) {
  m_folder.Watch(m_path.substr(0, m_path.rfind('/') + 1),
                 IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF);
}

bool FileWatch::Exists() const {
  struct stat info {};
  return stat(m_path.c_str(), &info) == 0;
}

bool FileWatch::WaitFor(bool present, milliseconds limit) {
  const auto end = steady_clock::now() + limit;
  while (Exists() != present) {
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
    if (left <= milliseconds::zero()) return false;
    Pause(std::min(left, kLongestPause));
  }
  return true;
}

// Until something changes in the folder. The changes themselves do not matter: the file is looked at anew.
void FileWatch::Pause(milliseconds limit) {
  pollfd change = {m_folder.Fd(), POLLIN, 0};
  if (poll(&change, m_folder.IsWatching() ? 1 : 0, static_cast<int>(limit.count())) <= 0) return;
  m_folder.Take([](uint32_t, const char*) {});
}

}  // namespace QUVA
