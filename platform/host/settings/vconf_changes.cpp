// Settings keys for callers in C: who is told of their changes.

#include <gio/gio.h>
#include <glib-unix.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "set_paths.h"
#include "settings/key_watch.h"
#include "settings/settings_log.h"
#include "settings/settings_store.h"
#include "vconf.h"

struct _keynode_t {
  std::string name;
  settings::Value value;
};

namespace {

using settings::KeyWatch;
using settings::LogError;

template <typename Type>
Type NodeValue(const keynode_t* node) {
  const Type* value = node ? std::get_if<Type>(&node->value) : nullptr;
  return value ? *value : Type();
}

/// One registered callback. It may end, while it is about to be called, by what another one does.
struct Registration {
  std::string key;
  vconf_callback_fn callback;
  void* userData;
  bool ended = false;
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
    for (KeyWatch& folder : m_folders) {
      if (folder.Fd() >= 0) continue;
      if (!folder.Open()) {
        LogError(std::string("changes of settings keys cannot be watched: ") + std::strerror(errno));
        return false;
      }
      g_unix_fd_add(
          folder.Fd(), G_IO_IN,
          [](int, GIOCondition, void* watch) -> gboolean {
            Get().Dispatch(*static_cast<KeyWatch*>(watch));
            return G_SOURCE_CONTINUE;
          },
          &folder);
    }
    m_started = true;
    return true;
  }

  void Dispatch(KeyWatch& folder) {
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

  KeyWatch m_folders[2] = {KeyWatch(set_paths::kSettingsDir), KeyWatch(set_paths::kVolatileSettingsDir)};
  bool m_started = false;
  Registrations m_registrations;
};

bool CheckRegistration(const char* action, const char* key, vconf_callback_fn callback) {
  const char* problem = !callback ? "no callback" : !key ? "no key" : settings::KeyProblem(key);
  if (problem) LogError(std::string(action) + " \"" + (key ? key : "") + "\": " + problem);
  return !problem;
}

}  // namespace

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
