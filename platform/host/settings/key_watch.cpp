#include "settings/key_watch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "base/atomic_file.h"
#include "settings/settings_log.h"
#include "settings/settings_store.h"
#include "system_path.h"

namespace settings {

KeyWatch::KeyWatch(const char* setPath) : m_setPath(setPath), m_folder(SystemPath(setPath)) {}

bool KeyWatch::Open() {
  if (!m_events.Open()) return false;
  MakeFolders(m_folder);
  Place();
  return true;
}

bool KeyWatch::Holds(const std::string& key) const {
  return std::strcmp(FolderOfKey(key), m_setPath) == 0;
}

bool KeyWatch::Take(std::vector<std::string>& set) {
  bool missed = false;
  m_events.Take([&](uint32_t kinds, const char* name) {
    if (m_onFolder && (kinds & IN_MOVED_TO) != 0) {
      const std::string key = KeyOfFileName(name);
      if (!key.empty() && Holds(key) && std::find(set.begin(), set.end(), key) == set.end()) set.push_back(key);
    } else {
      Place();
      missed = missed || m_onFolder;
    }
  });
  return missed;
}

/// (Re)places the watch: on the folder, or on the nearest one above it that is there. What comes between the two looks
/// is seen by the second.
void KeyWatch::Place() {
  std::filesystem::path path = m_folder;
  while (true) {
    m_onFolder = path == m_folder;
    const uint32_t kinds = m_onFolder ? IN_MOVED_TO : IN_CREATE | IN_MOVED_TO;
    if (m_events.Watch(path, kinds | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR)) {
      if (m_onFolder || !NextIsThere(path)) return;
      path = m_folder;
    } else if (errno == ENOENT || errno == ENOTDIR) {
      path = path.parent_path();
    } else {
      return LogError(std::string("changes of the keys in ") + m_setPath +
                      " cannot be watched: " + std::strerror(errno));
    }
  }
}

/// Whether the part of the folder's path that follows `above` is a folder by now.
bool KeyWatch::NextIsThere(const std::filesystem::path& above) const {
  auto part = m_folder.begin();
  std::advance(part, std::distance(above.begin(), above.end()));
  std::error_code error;
  return std::filesystem::is_directory(above / *part, error);
}

}  // namespace settings
