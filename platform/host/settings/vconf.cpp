#include "vconf.h"

#include <gio/gio.h>
#include <glib-unix.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "base/atomic_file.h"
#include "c_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "settings/settings_store.h"
#include "system_path.h"

struct _keynode_t {
  std::string name;
  settings::Value value;
};

namespace {

constexpr const char* kTag = log_tags::kVconf;

void LogError(const std::string& message) {
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s", message.c_str());
}

// --- Values ----------------------------------------------------------------------------------------------------------

template <typename Type>
bool Get(const char* key, Type& value) {
  if (!key) {
    LogError("get: no key");
    return false;
  }
  settings::Value stored;
  std::string error;
  switch (settings::Read(key, stored, error)) {
    case settings::ReadResult::kNotSet:
      return false;
    case settings::ReadResult::kFailed:
      LogError(error);
      return false;
    case settings::ReadResult::kOk:
      break;
  }
  if (auto* held = std::get_if<Type>(&stored)) {
    value = std::move(*held);
    return true;
  }
  LogError("settings key \"" + std::string(key) + "\": is of type " + settings::TypeName(stored) + ", asked for as " +
           settings::TypeName(settings::Value(Type())));
  return false;
}

template <typename Type, typename Output>
int GetNumber(const char* key, Output* output) {
  Type value{};
  if (!output) {
    LogError("settings key \"" + std::string(key ? key : "") + "\": no place for the value");
    return -1;
  }
  if (!Get(key, value)) return -1;
  *output = value;
  return 0;
}

int Set(const char* key, const settings::Value& value) {
  std::string error;
  if (key && settings::Write(key, value, error)) return 0;
  LogError(key ? error : "set: no key");
  return -1;
}

template <typename Type>
Type NodeValue(const keynode_t* node) {
  const Type* value = node ? std::get_if<Type>(&node->value) : nullptr;
  return value ? *value : Type();
}

// --- Changes ---------------------------------------------------------------------------------------------------------

/// One registered callback. It may end, while it is about to be called, by what another one does.
struct Registration {
  std::string key;
  vconf_callback_fn callback;
  void* userData;
  bool ended = false;
};

/// Watches one of the two folders; while it is not there, the nearest one above that is, for its coming.
class FolderWatch {
 public:
  explicit FolderWatch(const char* setPath) : m_setPath(setPath), m_folder(SystemPath(setPath)) {}

  /// Each has an inotify instance of its own: two watches of one instance on the same folder would be one.
  bool Open() {
    m_inotify = FdHandle(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!m_inotify) return false;
    MakeFolders(m_folder);
    Place();
    return true;
  }

  int Fd() const { return m_inotify.get(); }
  bool Holds(const std::string& key) const { return std::strcmp(settings::FolderOfKey(key), m_setPath) == 0; }

  /// Takes what inotify has: the keys that were set go to `set`. True when other keys of the folder may have been set
  /// too, because events were lost or because the folder was not there all the time.
  bool Take(std::vector<std::string>& set) {
    bool missed = false;
    alignas(inotify_event) char buffer[16384];
    ssize_t size;
    while ((size = read(m_inotify.get(), buffer, sizeof buffer)) > 0) {
      for (const char* next = buffer; next < buffer + size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(next);
        next += sizeof(inotify_event) + event->len;
        if ((event->mask & IN_Q_OVERFLOW) == 0 && event->wd != m_watch) continue;
        if (m_onFolder && (event->mask & IN_MOVED_TO) != 0) {
          const std::string key = settings::KeyOfFileName(event->name);
          if (!key.empty() && Holds(key) && std::find(set.begin(), set.end(), key) == set.end()) set.push_back(key);
        } else {
          Place();
          missed = missed || m_onFolder;
        }
      }
    }
    return missed;
  }

 private:
  /// (Re)places the watch: on the folder, or on the nearest one above it that is there. What comes between the two
  /// looks is seen by the second.
  void Place() {
    if (m_watch >= 0) inotify_rm_watch(m_inotify.get(), m_watch);
    std::filesystem::path path = m_folder;
    while (true) {
      m_onFolder = path == m_folder;
      const uint32_t kind = m_onFolder ? IN_MOVED_TO : IN_CREATE | IN_MOVED_TO;
      m_watch = inotify_add_watch(m_inotify.get(), path.c_str(), kind | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
      if (m_watch >= 0 && (m_onFolder || !NextIsThere(path))) return;
      if (m_watch >= 0) {
        inotify_rm_watch(m_inotify.get(), m_watch);
        path = m_folder;
      } else if (errno == ENOENT || errno == ENOTDIR) {
        path = path.parent_path();
      } else {
        LogError(std::string("changes of the keys in ") + m_setPath + " cannot be watched: " + std::strerror(errno));
        return;
      }
    }
  }

  /// Whether the part of the folder's path that follows `above` is a folder by now.
  bool NextIsThere(const std::filesystem::path& above) const {
    auto part = m_folder.begin();
    std::advance(part, std::distance(above.begin(), above.end()));
    std::error_code error;
    return std::filesystem::is_directory(above / *part, error);
  }

  const char* m_setPath;
  std::filesystem::path m_folder;
  FdHandle m_inotify;
  int m_watch = -1;
  bool m_onFolder = false;
};

/// The process's registrations and the watches that feed them. Main thread only; lives to the process's end.
class Notifier {
 public:
  static Notifier& Get() {
    static Notifier& notifier = *new Notifier;
    return notifier;
  }

  bool Add(const char* key, vconf_callback_fn callback, void* userData) {
    if (!Start()) return false;
    m_registrations.push_back(std::make_shared<Registration>(Registration{key, callback, userData}));
    return true;
  }

  bool Remove(const char* key, vconf_callback_fn callback) {
    const auto found = Find(key, callback);
    if (found == m_registrations.end()) return false;
    (*found)->ended = true;
    m_registrations.erase(found);
    return true;
  }

  bool Has(const char* key, vconf_callback_fn callback) { return Find(key, callback) != m_registrations.end(); }

 private:
  using Registrations = std::vector<std::shared_ptr<Registration>>;

  Registrations::iterator Find(const std::string& key, vconf_callback_fn callback) {
    return std::find_if(m_registrations.begin(), m_registrations.end(),
                        [&](const auto& each) { return each->key == key && each->callback == callback; });
  }

  bool Start() {
    if (m_started) return true;
    for (FolderWatch& folder : m_folders) {
      if (folder.Fd() >= 0) continue;
      if (!folder.Open()) {
        LogError(std::string("changes of settings keys cannot be watched: ") + std::strerror(errno));
        return false;
      }
      g_unix_fd_add(
          folder.Fd(), G_IO_IN,
          [](int, GIOCondition, void* watch) -> gboolean {
            Get().Dispatch(*static_cast<FolderWatch*>(watch));
            return G_SOURCE_CONTINUE;
          },
          &folder);
    }
    m_started = true;
    return true;
  }

  void Dispatch(FolderWatch& folder) {
    std::vector<std::string> changed;
    if (folder.Take(changed)) {
      for (const auto& each : m_registrations)
        if (folder.Holds(each->key) && std::find(changed.begin(), changed.end(), each->key) == changed.end())
          changed.push_back(each->key);
    }
    for (const std::string& key : changed) Report(key);
  }

  void Report(const std::string& key) {
    Registrations asked;
    std::copy_if(m_registrations.begin(), m_registrations.end(), std::back_inserter(asked),
                 [&](const auto& each) { return each->key == key; });
    if (asked.empty()) return;
    keynode_t node{key, {}};
    std::string error;
    const settings::ReadResult result = settings::Read(key, node.value, error);
    if (result == settings::ReadResult::kFailed) LogError(error);
    if (result != settings::ReadResult::kOk) return;
    for (const auto& each : asked)
      if (!each->ended) each->callback(&node, each->userData);
  }

  FolderWatch m_folders[2] = {FolderWatch(set_paths::kSettingsDir), FolderWatch(set_paths::kVolatileSettingsDir)};
  bool m_started = false;
  Registrations m_registrations;
};

bool CheckRegistration(const char* action, const char* key, vconf_callback_fn callback) {
  const char* problem = !callback ? "no callback" : !key ? "no key" : settings::KeyProblem(key);
  if (problem) LogError(std::string(action) + " \"" + (key ? key : "") + "\": " + problem);
  return !problem;
}

}  // namespace

int vconf_get_int(const char* key, int* value) {
  return GetNumber<int>(key, value);
}

int vconf_get_bool(const char* key, int* value) {
  return GetNumber<bool>(key, value);
}

int vconf_get_dbl(const char* key, double* value) {
  return GetNumber<double>(key, value);
}

char* vconf_get_str(const char* key) {
  std::string value;
  return Get(key, value) ? strdup(value.c_str()) : nullptr;
}

int vconf_set_int(const char* key, int value) {
  return Set(key, value);
}

int vconf_set_bool(const char* key, int value) {
  return Set(key, value != 0);
}

int vconf_set_dbl(const char* key, double value) {
  return Set(key, value);
}

int vconf_set_str(const char* key, const char* value) {
  if (value) return Set(key, std::string(value));
  LogError("settings key \"" + std::string(key ? key : "") + "\": no text to set");
  return -1;
}

int vconf_notify_key_changed(const char* key, vconf_callback_fn callback, void* user_data) {
  if (!CheckRegistration("notify", key, callback)) return -1;
  if (Notifier::Get().Has(key, callback)) {
    LogError(std::string("notify \"") + key + "\": this callback is registered already");
    return -1;
  }
  return Notifier::Get().Add(key, callback, user_data) ? 0 : -1;
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn callback) {
  if (!CheckRegistration("ignore", key, callback)) return -1;
  if (Notifier::Get().Remove(key, callback)) return 0;
  LogError(std::string("ignore \"") + key + "\": this callback is not registered");
  return -1;
}

const char* vconf_keynode_get_name(keynode_t* node) {
  return node ? node->name.c_str() : nullptr;
}

int vconf_keynode_get_type(keynode_t* node) {
  constexpr int kTypes[] = {VCONF_TYPE_INT, VCONF_TYPE_BOOL, VCONF_TYPE_DOUBLE, VCONF_TYPE_STRING};
  return node ? kTypes[node->value.index()] : VCONF_TYPE_NONE;
}

int vconf_keynode_get_int(keynode_t* node) {
  return NodeValue<int>(node);
}

int vconf_keynode_get_bool(keynode_t* node) {
  return NodeValue<bool>(node);
}

double vconf_keynode_get_dbl(keynode_t* node) {
  return NodeValue<double>(node);
}

char* vconf_keynode_get_str(keynode_t* node) {
  auto* text = node ? std::get_if<std::string>(&node->value) : nullptr;
  return text ? text->data() : nullptr;
}
