#include "appfw/launcher.h"

#include <cerrno>
#include <optional>
#include <string_view>
#include <vector>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "dlog.h"
#include "log_tags.h"
#include "plain_text.h"
#include "set_paths.h"
#include "system_path.h"
#include "vconf.h"

// GDesktopAppInfo is not used: it looks for programs on this machine only, so an entry whose program lies below the
// set root would be none, and it does not say why it refuses an entry.

namespace app_framework {

namespace {

constexpr const char* kTag = log_tags::kAppfw;

constexpr std::string_view kEmptyFieldCodes = "fFuUdDnNvmi";  // files, which a launch has none of, and old ones

/// Whether the program stands in for an application that is missing: "true", or "ask": run with "--has" before its
/// arguments, it names the program that it would start on its standard output, or nothing. Else it does not.
constexpr char kStandInKey[] = "X-Vexilo-StandIn";

/// Why a launch fails.
struct Failure {
  int code;
  std::string reason;
};

GTextArray& KeptEnvironment() {
  static GTextArray environment;
  return environment;
}

/// The keys of a desktop entry that a launch needs; empty when absent.
struct DesktopEntry {
  std::string path;
  std::string name;
  std::string icon;
  std::string exec;
  std::string tryExec;
  std::string folder;
  std::string standIn;
};

std::optional<Failure> ReadEntry(const std::string& appId, DesktopEntry& entry) {
  const std::string setPath = std::string(set_paths::kDesktopEntries) + "/" + appId + ".desktop";
  entry.path = SystemPath(setPath);
  std::string content;
  if (!ReadWholeFile(entry.path, content, Links::kFollow, kMostNoted)) {
    const int reason = errno;
    if (reason == ENOENT) return Failure{APP_CONTROL_ERROR_APP_NOT_FOUND, "there is no " + setPath};
    return Failure{APP_CONTROL_ERROR_LAUNCH_REJECTED, setPath + ": " + WhyUnread(reason, kMostNoted)};
  }
  const GKeyFileHandle file(g_key_file_new());
  GErrorHandle error;
  if (!g_key_file_load_from_data(file.get(), content.data(), content.size(), G_KEY_FILE_NONE, error.Out()))
    return Failure{APP_CONTROL_ERROR_LAUNCH_REJECTED, setPath + ": " + error.Message()};
  const auto text = [&file](const char* key) {
    const GText value(g_key_file_get_string(file.get(), G_KEY_FILE_DESKTOP_GROUP, key, nullptr));
    return std::string(value ? value.get() : "");
  };
  if (g_key_file_get_boolean(file.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_HIDDEN, nullptr))
    return Failure{APP_CONTROL_ERROR_APP_NOT_FOUND, setPath + " is hidden"};
  if (text(G_KEY_FILE_DESKTOP_KEY_TYPE) != G_KEY_FILE_DESKTOP_TYPE_APPLICATION)
    return Failure{APP_CONTROL_ERROR_LAUNCH_REJECTED, setPath + " is not of type Application"};
  const GText name(g_key_file_get_locale_string(file.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_NAME,
                                                nullptr, nullptr));
  entry.name = name ? name.get() : "";
  entry.icon = text(G_KEY_FILE_DESKTOP_KEY_ICON);
  entry.exec = text(G_KEY_FILE_DESKTOP_KEY_EXEC);
  entry.tryExec = text(G_KEY_FILE_DESKTOP_KEY_TRY_EXEC);
  entry.folder = text(G_KEY_FILE_DESKTOP_KEY_PATH);
  entry.standIn = text(kStandInKey);
  if (entry.exec.empty()) return Failure{APP_CONTROL_ERROR_LAUNCH_REJECTED, setPath + " has no Exec"};
  return std::nullopt;
}

bool IsProgram(const std::string& path) {
  return g_file_test(path.c_str(), G_FILE_TEST_IS_EXECUTABLE) && !g_file_test(path.c_str(), G_FILE_TEST_IS_DIR);
}

/// Where a program is: an absolute path is looked for below the set root and then on this machine, a name in PATH.
/// Empty when it is nowhere.
std::string FindProgram(const std::string& program) {
  if (g_path_is_absolute(program.c_str())) {
    std::string inRoot = SystemPath(program);
    if (IsProgram(inRoot)) return inRoot;
    return IsProgram(program) ? program : "";
  }
  if (program.find('/') != std::string::npos) return "";
  const GText found(g_find_program_in_path(program.c_str()));
  return found ? found.get() : "";
}

/// Adds an argument of Exec with its field codes expanded. An argument that holds only codes without
/// a text is left out. False for a code that does not exist.
bool AddExpanded(const DesktopEntry& entry, std::string_view argument, std::vector<std::string>& arguments) {
  if (argument == "%i") {
    if (!entry.icon.empty()) arguments.insert(arguments.end(), {"--icon", entry.icon});
    return true;
  }
  std::string text;
  bool onlyCodes = !argument.empty();
  for (size_t i = 0; i < argument.size(); ++i) {
    if (argument[i] != '%') {
      text += argument[i];
      onlyCodes = false;
      continue;
    }
    const char code = ++i < argument.size() ? argument[i] : '\0';
    if (code == '%') {
      text += '%';
    } else if (code == 'c') {
      text += entry.name;
    } else if (code == 'k') {
      text += entry.path;
    } else if (kEmptyFieldCodes.find(code) == std::string_view::npos) {
      return false;
    }
  }
  if (!text.empty() || !onlyCodes) arguments.push_back(text);
  return true;
}

std::optional<Failure> BuildCommand(const DesktopEntry& entry, const Extras& extras,
                                    std::vector<std::string>& arguments) {
  const auto rejected = [](const std::string& reason) { return Failure{APP_CONTROL_ERROR_LAUNCH_REJECTED, reason}; };
  char** parsed = nullptr;
  int count = 0;
  GErrorHandle error;
  if (!g_shell_parse_argv(entry.exec.c_str(), &count, &parsed, error.Out()))
    return rejected("Exec=" + entry.exec + ": " + error.Message());
  const GTextArray words(parsed);

  const std::string program = FindProgram(parsed[0]);
  if (program.empty()) return rejected("the program " + std::string(parsed[0]) + " is missing or cannot be executed");
  if (!entry.tryExec.empty() && FindProgram(entry.tryExec).empty())
    return rejected("the program " + entry.tryExec + " that it needs (TryExec) is missing or cannot be executed");

  arguments.push_back(program);
  for (int i = 1; i < count; ++i)
    if (!AddExpanded(entry, parsed[i], arguments)) return rejected("Exec=" + entry.exec + ": unknown field code");
  for (const auto& [key, value] : extras) arguments.emplace_back(key).append("=").append(value);
  return std::nullopt;
}

std::vector<char*> Argv(std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return argv;
}

bool IsStandIn(const DesktopEntry& entry, std::vector<std::string> arguments) {
  if (entry.standIn != "ask") return entry.standIn == "true";
  arguments.insert(arguments.begin() + 1, "--has");
  // Its exit status may go to the toolkit, which collects ended children as well.
  char* text = nullptr;
  g_spawn_sync(nullptr, Argv(arguments).data(), KeptEnvironment().get(), G_SPAWN_DEFAULT, nullptr, nullptr, &text,
               nullptr, nullptr, nullptr);
  const GText program(text);
  return !program || !*program.get();
}

std::optional<Failure> Spawn(const std::string& appId, const DesktopEntry& entry, std::vector<std::string>& arguments) {
  // By the id the task manager knows the processes of the application.
  char** const kept = KeptEnvironment() ? g_strdupv(KeptEnvironment().get()) : g_get_environ();
  const GTextArray environment(g_environ_setenv(kept, "VEXILO_APP_ID", appId.c_str(), TRUE));
  std::string folder = SystemPath(entry.folder);
  if (!g_file_test(folder.c_str(), G_FILE_TEST_IS_DIR)) folder = entry.folder;
  GErrorHandle error;
  // Without G_SPAWN_DO_NOT_REAP_CHILD the program is the child of a child that has ended: nothing is left to reap.
  const auto flags = static_cast<GSpawnFlags>(G_SPAWN_STDIN_FROM_DEV_NULL | G_SPAWN_STDOUT_TO_DEV_NULL);
  if (!g_spawn_async(entry.folder.empty() ? nullptr : folder.c_str(), Argv(arguments).data(), environment.get(), flags,
                     nullptr, nullptr, nullptr, error.Out()))
    return Failure{APP_CONTROL_ERROR_LAUNCH_REJECTED, error.Message()};
  return std::nullopt;
}

std::optional<Failure> TryLaunch(const std::string& appId, const Extras& extras, bool& isStandIn) {
  if (appId.empty() || !IsPlain(appId))
    return Failure{APP_CONTROL_ERROR_INVALID_PARAMETER, "an application id has letters, digits, '.', '_', '-' only"};
  DesktopEntry entry;
  if (auto failure = ReadEntry(appId, entry)) return failure;
  std::vector<std::string> arguments;
  if (auto failure = BuildCommand(entry, extras, arguments)) return failure;
  isStandIn = IsStandIn(entry, arguments);
  return Spawn(appId, entry, arguments);
}

}  // namespace

void KeepLaunchEnvironment() {
  KeptEnvironment().reset(g_get_environ());
}

LaunchResult Launch(const std::string& appId, const Extras& extras) {
  const GText printable(g_strescape(appId.c_str(), nullptr));
  bool isStandIn = false;
  if (const auto failure = TryLaunch(appId, extras, isStandIn)) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "cannot launch \"%s\": %s", printable.get(), failure->reason.c_str());
    return {failure->code, failure->reason, false};
  }
  vconf_set_str(kForegroundAppKey, appId.c_str());
  __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "launched \"%s\"", printable.get());
  return {APP_CONTROL_ERROR_NONE, "", isStandIn};
}

}  // namespace app_framework

int app_control_send_launch_request(app_control_h control, app_control_reply_cb, void*) {
  if (!control) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  const app_framework::LaunchResult result = app_framework::Launch(control->appId, control->extras);
  control->startedStandIn = result.isStandIn;
  return result.error;
}

bool app_control_started_stand_in(app_control_h control) {
  return control && control->startedStandIn;
}
