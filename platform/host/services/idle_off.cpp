#include "idle_off.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <vector>

#include "base/atomic_file.h"
#include "base/system_bus.h"

namespace {

using namespace std::chrono_literals;
using Schema = std::unique_ptr<GSettingsSchema, CRelease<&g_settings_schema_unref>>;

constexpr auto kReply = 1s;
constexpr auto kTakenUp = 2s;

constexpr char kLogind[] = "org.freedesktop.login1";
constexpr char kLogindPath[] = "/org/freedesktop/login1";
constexpr char kLogindManager[] = "org.freedesktop.login1.Manager";
constexpr char kDropIn[] = "/etc/systemd/logind.conf.d/zz-vexilo-idle.conf";
constexpr char kLeaveOn[] = "[Login]\nIdleAction=ignore\n";

/// What turns the machine off in a desktop's session, by its name on the session bus, and the settings that it reads.
constexpr struct {
  const char* service;
  const char* schema;
} kDesktops[] = {
    {"org.gnome.SettingsDaemon.Power", "org.gnome.settings-daemon.plugins.power"},
    {"org.cinnamon.SettingsDaemon.Power", "org.cinnamon.settings-daemon.plugins.power"},
};
constexpr char kAction[] = "sleep-inactive-ac-type";
constexpr char kTimeout[] = "sleep-inactive-ac-timeout";  // seconds; 0 for never

bool IsOneOf(const char* text, std::initializer_list<const char*> all) {
  for (const char* each : all)
    if (g_strcmp0(text, each) == 0) return true;
  return false;
}

// ---- logind

/// Nothing where logind does not tell; `isThere` gets whether it is there.
std::optional<bool> AskLogind(bool* isThere = nullptr) {
  const GVariantHandle reply = AskSystemBus({kLogind, kLogindPath, "org.freedesktop.DBus.Properties", "Get", "(v)"},
                                            g_variant_new("(ss)", kLogindManager, "IdleAction"), isThere);
  const GVariantHandle action = reply ? ValueOf(*reply, "s") : nullptr;
  if (!action) return std::nullopt;
  return IsOneOf(g_variant_get_string(action.get(), nullptr), {"poweroff", "halt", "hibernate"});
}

/// Empty when logind leaves the machine on, or is not there.
std::string StopLogind() {
  bool isThere = false;
  if (AskLogind(&isThere) == false || !isThere) return "";
  const std::string file = kDropIn;
  if (!MakeFolders(file.substr(0, file.rfind('/'))) || !PublishFile(file, kLeaveOn, Readers::kEverybody))
    return file + ": " + std::strerror(errno);
  // It reads its configuration anew by this signal.
  SystemBus bus(kReply);
  const bool isTold = bus.Call({"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                                "org.freedesktop.systemd1.Manager", "KillUnit", nullptr},
                               g_variant_new("(ssi)", "systemd-logind.service", "main", SIGHUP)) != nullptr;
  if (isTold && Await(kTakenUp, [] { return AskLogind() == false; })) return "";
  unlink(file.c_str());
  return bus.Problem().empty() ? "logind still turns it off" : bus.Problem();
}

// ---- desktops

/// Null where the desktop has not both keys, or what they are is not what they were.
GObjectHandle<GSettings> SettingsOf(const char* name) {
  GSettingsSchemaSource* const source = g_settings_schema_source_get_default();
  const Schema schema(source ? g_settings_schema_source_lookup(source, name, TRUE) : nullptr);
  if (!schema || !g_settings_schema_has_key(schema.get(), kAction) ||
      !g_settings_schema_has_key(schema.get(), kTimeout))
    return nullptr;
  GObjectHandle<GSettings> settings(g_settings_new_full(schema.get(), nullptr, nullptr));
  const GVariantHandle action(g_settings_get_value(settings.get(), kAction));
  const GVariantHandle timeout(g_settings_get_value(settings.get(), kTimeout));
  const bool isKnown = g_variant_is_of_type(action.get(), G_VARIANT_TYPE_STRING) &&
                       g_variant_is_of_type(timeout.get(), G_VARIANT_TYPE_INT32);
  return isKnown ? std::move(settings) : nullptr;
}

/// Of the desktops that run in this session.
std::vector<GObjectHandle<GSettings>> SessionSettings() {
  std::vector<GObjectHandle<GSettings>> all;
  const std::string address = SessionBusAddress();
  std::string problem;
  const auto bus = address.empty() ? nullptr : ConnectToBus(address, kReply, nullptr, problem);
  if (!bus) return all;
  for (const auto& [service, schema] : kDesktops) {
    const GVariantHandle name(g_variant_ref_sink(g_variant_new("(s)", service)));
    GErrorHandle error;
    const GVariantHandle reply = CallOnBus(
        *bus, {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner", "(b)"},
        name.get(), kReply, error);
    gboolean isThere = FALSE;
    if (reply) g_variant_get(reply.get(), "(b)", &isThere);
    GObjectHandle<GSettings> settings = isThere ? SettingsOf(schema) : nullptr;
    if (settings) all.push_back(std::move(settings));
  }
  return all;
}

bool TurnsOff(GSettings* settings) {
  const GText action(g_settings_get_string(settings, kAction));
  return g_settings_get_int(settings, kTimeout) > 0 && IsOneOf(action.get(), {"shutdown", "hibernate"});
}

/// Empty when the desktop leaves the machine on.
std::string StopDesktop(GSettings* settings) {
  if (!TurnsOff(settings)) return "";
  const char* const what = kAction;
  if (!g_settings_is_writable(settings, what)) return std::string(what) + " is locked by the administrator";
  if (!g_settings_set_string(settings, what, "nothing")) return std::string(what) + " cannot be set";
  g_settings_sync();
  return TurnsOff(settings) ? std::string(what) + " is as it was" : "";
}

}  // namespace

IdleOff AskIdleOff() {
  bool hasLogind = false;
  const auto logind = AskLogind(&hasLogind);
  const auto desktops = SessionSettings();
  const bool desktopDoes =
      std::any_of(desktops.begin(), desktops.end(), [](const auto& settings) { return TurnsOff(settings.get()); });
  if (desktopDoes || logind == true) return {true, true};
  if (SessionBusAddress().empty()) return {true, std::nullopt};  // what the desktop does is not seen from here
  return {hasLogind || !desktops.empty(), hasLogind ? logind : std::optional(false)};
}

bool StopIdleOff(FixProblem& problem) {
  std::string reason;
  for (const auto& settings : SessionSettings())
    if (reason.empty()) reason = StopDesktop(settings.get());
  if (reason.empty()) reason = StopLogind();
  problem = {reason.empty() ? "" : "cannot have the machine stay on when nobody uses it: " + reason};
  return reason.empty();
}
