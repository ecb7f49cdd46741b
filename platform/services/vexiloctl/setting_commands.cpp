#include <glib-unix.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <memory>

#include "c_handle.h"
#include "command.h"
#include "set_paths.h"
#include "settings/settings_store.h"
#include "vconf.h"

namespace vexiloctl {

namespace {

void CheckKey(const std::string& key) {
  if (const char* problem = settings::KeyProblem(key)) throw UsageError("KEY \"" + key + "\": " + problem);
}

settings::Value ValueOf(keynode_t* node) {
  switch (vconf_keynode_get_type(node)) {
    case VCONF_TYPE_INT:
      return vconf_keynode_get_int(node);
    case VCONF_TYPE_BOOL:
      return vconf_keynode_get_bool(node) != 0;
    case VCONF_TYPE_DOUBLE:
      return vconf_keynode_get_dbl(node);
    default:
      return std::string(vconf_keynode_get_str(node));
  }
}

/// The loop of a watch, and what ended it besides a signal.
struct Watch {
  std::unique_ptr<GMainLoop, CRelease<&g_main_loop_unref>> loop{g_main_loop_new(nullptr, FALSE)};
  std::exception_ptr failure;

  /// Exceptions must not pass through the C library.
  void PrintChange(keynode_t* node) {
    try {
      Print(Visible(vconf_keynode_get_name(node)) + " = " + Visible(settings::ToText(ValueOf(node))) + "\n");
      Flush();
    } catch (...) {
      failure = std::current_exception();
      g_main_loop_quit(loop.get());
    }
  }

  static gboolean End(void* self) {
    g_main_loop_quit(static_cast<Watch*>(self)->loop.get());
    return G_SOURCE_CONTINUE;
  }
};

}  // namespace

void SettingGet(const Arguments& arguments) {
  const std::string& key = arguments.values[0];
  CheckKey(key);
  settings::Value value;
  std::string error;
  switch (settings::Read(key, value, error)) {
    case settings::ReadResult::kOk:
      return Print(settings::ToText(value) + "\n");
    case settings::ReadResult::kNotSet:
      throw Failure("settings key \"" + key + "\": it is not set");
    case settings::ReadResult::kFailed:
      throw Failure(error);
  }
}

void SettingSet(const Arguments& arguments) {
  const std::string& key = arguments.values[0];
  const std::string& type = arguments.values[1];
  CheckKey(key);
  constexpr const char* kTypes[] = {"int", "bool", "double", "string"};
  if (std::find(std::begin(kTypes), std::end(kTypes), type) == std::end(kTypes))
    throw UsageError("TYPE \"" + type + "\": it is none of int, bool, double and string");
  const auto value = settings::FromText(type, arguments.values[2]);
  if (!value && type == "string") throw UsageError("VALUE: a text is at most 65536 bytes");
  if (!value) throw UsageError("VALUE \"" + arguments.values[2] + "\": it is not of type " + type);
  std::string error;
  if (!settings::Write(key, *value, error)) throw Failure(error);
}

void SettingWatch(const Arguments& arguments) {
  std::for_each(arguments.values.begin(), arguments.values.end(), CheckKey);
  std::vector<std::string> keys = arguments.values;
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());

  Watch watch;
  for (const std::string& key : keys) {
    const auto changed = [](keynode_t* node, void* data) { static_cast<Watch*>(data)->PrintChange(node); };
    if (vconf_notify_key_changed(key.c_str(), changed, &watch) != 0)
      throw Failure("settings key \"" + key + "\": it cannot be watched, see " + set_paths::kLogFile);
  }
  g_unix_signal_add(SIGINT, Watch::End, &watch);
  g_unix_signal_add(SIGTERM, Watch::End, &watch);
  // Nobody is left to read, which a write would tell only at the next change.
  g_unix_fd_add(
      STDOUT_FILENO, static_cast<GIOCondition>(G_IO_ERR | G_IO_HUP),
      [](int, GIOCondition, void* self) { return Watch::End(self); }, &watch);
  std::fprintf(stderr, "vexiloctl: watching\n");
  g_main_loop_run(watch.loop.get());
  if (watch.failure) std::rethrow_exception(watch.failure);
}

}  // namespace vexiloctl
