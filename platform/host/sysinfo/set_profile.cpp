#include "sysinfo/set_profile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"

namespace set_profile {

namespace {

// Bytes; a profile has some hundred.
constexpr size_t kLargest = 1 << 20;
constexpr const char* kTag = log_tags::kSystemInfo;

class Profile {
 public:
  static Profile& Get() {
    static Profile& profile = *new Profile;
    return profile;
  }

  /// Calls `read` (one of g_key_file_get_…) for the entry and stores what it gives.
  template <typename Reader, typename Output>
  Answer Ask(const char* group, const char* key, Reader read, Output& output) {
    const std::lock_guard guard(m_lock);
    Refresh();
    if (!m_entries) return Answer::kNone;
    GErrorHandle error;
    auto value = read(m_entries.get(), group, key, error.Out());
    if (!error.Get()) {
      output = std::move(value);
      return Answer::kValue;
    }
    if (error.Matches(G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_KEY_NOT_FOUND) ||
        error.Matches(G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_GROUP_NOT_FOUND))
      return Answer::kNone;
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: [%s] %s: %s", set_paths::kSetProfile, group, key, error.Message());
    return Answer::kWrong;
  }

 private:
  void Refresh() {
    const std::string path = SystemPath(set_paths::kSetProfile);
    struct stat now {};
    if (stat(path.c_str(), &now) != 0) now = {};
    if (m_looked && Same(now, m_state)) return;
    m_looked = true;
    m_state = now;
    m_entries.reset();
    std::string text;
    if (!ReadWholeFile(path, text, Links::kFollow, kLargest)) {
      const bool absent = errno == ENOENT;
      __dlog_print(LOG_ID_APPS, absent ? DLOG_INFO : DLOG_ERROR, kTag, "no profile of the set: %s: %s",
                   set_paths::kSetProfile, WhyUnread(errno, kLargest).c_str());
      return;
    }
    GKeyFileHandle entries(g_key_file_new());
    GErrorHandle error;
    if (g_key_file_load_from_data(entries.get(), text.data(), text.size(), G_KEY_FILE_NONE, error.Out()))
      m_entries = std::move(entries);
    else if (!text.empty())
      __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is malformed and not used: line %d: %s", set_paths::kSetProfile,
                   FirstBadLine(text), error.Message());
  }

  static bool Same(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec && one.st_mtim.tv_nsec == other.st_mtim.tv_nsec &&
           one.st_ctim.tv_sec == other.st_ctim.tv_sec && one.st_ctim.tv_nsec == other.st_ctim.tv_nsec;
  }

  /// The parser does not tell, so it is asked how many lines it takes.
  static int FirstBadLine(const std::string& text) {
    std::vector<size_t> ends;
    for (size_t end = 0; end < text.size(); ends.push_back(end))
      end = std::min(text.find('\n', end), text.size() - 1) + 1;
    const auto isTaken = [&text](size_t end) {
      const GKeyFileHandle entries(g_key_file_new());
      GErrorHandle error;
      return g_key_file_load_from_data(entries.get(), text.data(), end, G_KEY_FILE_NONE, error.Out()) != FALSE;
    };
    return 1 + static_cast<int>(std::partition_point(ends.begin(), ends.end(), isTaken) - ends.begin());
  }

  std::mutex m_lock;
  bool m_looked = false;
  struct stat m_state {};
  GKeyFileHandle m_entries;
};

}  // namespace

Answer Text(const char* group, const char* key, std::string& value) {
  GText text;
  const auto read = [](GKeyFile* file, const char* inGroup, const char* name, GError** error) {
    return GText(g_key_file_get_string(file, inGroup, name, error));
  };
  const Answer answer = Profile::Get().Ask(group, key, read, text);
  if (answer == Answer::kValue) value = g_strchomp(text.get());
  return answer;
}

Answer Int(const char* group, const char* key, int& value) {
  return Profile::Get().Ask(group, key, g_key_file_get_integer, value);
}

Answer Bool(const char* group, const char* key, bool& value) {
  return Profile::Get().Ask(group, key, g_key_file_get_boolean, value);
}

}  // namespace set_profile
