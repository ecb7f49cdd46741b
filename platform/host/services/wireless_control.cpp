#include "wireless_control.h"

#include <fcntl.h>
#include <linux/rfkill.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/system_bus.h"
#include "c_handle.h"
#include "trevlin/collectors/network_state.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kReply = 5s;
constexpr auto kSwitch = 2s;
constexpr auto kJoin = 20s;

constexpr char kManager[] = "org.freedesktop.NetworkManager";
constexpr char kManagerPath[] = "/org/freedesktop/NetworkManager";
constexpr char kDevice[] = "org.freedesktop.NetworkManager.Device";
constexpr char kActive[] = "org.freedesktop.NetworkManager.Connection.Active";
constexpr char kConnection[] = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr char kConnMan[] = "net.connman";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";
constexpr guint32 kWirelessDevice = 2;  // NM_DEVICE_TYPE_WIFI
constexpr guint32 kActivated = 2;       // NM_ACTIVE_CONNECTION_STATE_ACTIVATED
constexpr guint32 kNoPowerSave = 2;     // NM_SETTING_WIRELESS_POWERSAVE_DISABLE

std::string GetPath(SystemBus& bus, const std::string& object, const char* interface, const char* name) {
  const GVariantHandle path = bus.Get(kManager, object, interface, name, "o");
  const char* const text = path ? g_variant_get_string(path.get(), nullptr) : "/";
  return g_strcmp0(text, "/") == 0 ? "" : text;
}

guint32 GetNumber(SystemBus& bus, const std::string& object, const char* interface, const char* name) {
  const GVariantHandle number = bus.Get(kManager, object, interface, name, "u");
  return number ? g_variant_get_uint32(number.get()) : 0;
}

/// All at once, as the switches of a desktop do. 0 or an errno.
int UnblockRadios() {
  const FdHandle device(open("/dev/rfkill", O_WRONLY | O_CLOEXEC | O_NONBLOCK));
  rfkill_event event{};
  event.type = RFKILL_TYPE_WLAN;
  event.op = RFKILL_OP_CHANGE_ALL;
  if (!device) return errno;
  return write(device.get(), &event, RFKILL_EVENT_SIZE_V1) == RFKILL_EVENT_SIZE_V1 ? 0 : errno;
}

bool IsRadioOn() {
  return trevlin::ReadRadioOff({}) == false;
}

/// Empty when a radio is on.
FixProblem SwitchOn() {
  if (!trevlin::ReadRadioOff({})) return {"there is none"};
  if (IsRadioOn()) return {};
  SystemBus bus(kReply);
  if (bus.Call({kManager, kManagerPath, kProperties, "Set", nullptr},
               g_variant_new("(ssv)", kManager, "WirelessEnabled", g_variant_new_boolean(TRUE))) &&
      Await(kSwitch, IsRadioOn))
    return {};
  if (bus.Call({kConnMan, "/net/connman/technology/wifi", "net.connman.Technology", "SetProperty", nullptr},
               g_variant_new("(sv)", "Powered", g_variant_new_boolean(TRUE))) &&
      Await(kSwitch, IsRadioOn))
    return {};
  const int error = UnblockRadios();
  if (error == 0 && Await(kSwitch, IsRadioOn)) return {};
  if (trevlin::IsRadioLocked({})) return {"a switch of the device holds it off"};
  if (error == 0) return {"it stays off"};
  return {(bus.Problem().empty() ? "" : bus.Problem() + "; ") + "/dev/rfkill: " + std::strerror(error),
          "sudo rfkill unblock wlan"};
}

/// The settings of a connection with power saving switched off; floating.
GVariant* WithoutPowerSaving(GVariant* settings) {
  GVariantBuilder all;
  g_variant_builder_init(&all, G_VARIANT_TYPE("a{sa{sv}}"));
  for (size_t i = 0; i < g_variant_n_children(settings); ++i) {
    const GVariantHandle group(g_variant_get_child_value(settings, i));
    const char* name;
    GVariant* entries;
    g_variant_get(group.get(), "{&s@a{sv}}", &name, &entries);
    const GVariantHandle owned(entries);
    GVariantDict changed;
    g_variant_dict_init(&changed, entries);
    if (g_strcmp0(name, "802-11-wireless") == 0) g_variant_dict_insert(&changed, "powersave", "u", kNoPowerSave);
    g_variant_builder_add(&all, "{s@a{sv}}", name, g_variant_dict_end(&changed));
  }
  return g_variant_builder_end(&all);
}

/// NetworkManager's wireless device in use.
std::string WirelessDevice(SystemBus& bus) {
  const GVariantHandle reply = bus.Call({kManager, kManagerPath, kManager, "GetDevices", "(ao)"}, nullptr);
  if (!reply) return "";
  const GVariantHandle devices(g_variant_get_child_value(reply.get(), 0));
  for (size_t i = 0; i < g_variant_n_children(devices.get()); ++i) {
    const GVariantHandle device(g_variant_get_child_value(devices.get(), i));
    const char* const path = g_variant_get_string(device.get(), nullptr);
    if (GetNumber(bus, path, kDevice, "DeviceType") == kWirelessDevice &&
        !GetPath(bus, path, kDevice, "ActiveConnection").empty())
      return path;
  }
  return "";
}

bool ReconnectByNetworkManager(SystemBus& bus) {
  const std::string device = WirelessDevice(bus);
  if (device.empty()) return false;
  const std::string connection = GetPath(bus, GetPath(bus, device, kDevice, "ActiveConnection"), kActive, "Connection");
  if (connection.empty()) return false;
  // It keeps the secrets of one that is stored without any.
  const GVariantHandle settings =
      bus.Call({kManager, connection.c_str(), kConnection, "GetSettings", "(a{sa{sv}})"}, nullptr);
  if (settings) {
    const GVariantHandle now(g_variant_get_child_value(settings.get(), 0));
    bus.Call({kManager, connection.c_str(), kConnection, "Update", nullptr},
             g_variant_new("(@a{sa{sv}})", WithoutPowerSaving(now.get())));
  }
  const GVariantHandle active = bus.Call({kManager, kManagerPath, kManager, "ActivateConnection", "(o)"},
                                         g_variant_new("(ooo)", connection.c_str(), device.c_str(), "/"));
  if (!active) return false;
  const GVariantHandle path(g_variant_get_child_value(active.get(), 0));
  return Await(
      kJoin, [&] { return GetNumber(bus, g_variant_get_string(path.get(), nullptr), kActive, "State") == kActivated; });
}

/// ConnMan's wireless network in use.
std::string WirelessService(SystemBus& bus) {
  const GVariantHandle reply = bus.Call({kConnMan, "/", "net.connman.Manager", "GetServices", "(a(oa{sv}))"}, nullptr);
  if (!reply) return "";
  const GVariantHandle services(g_variant_get_child_value(reply.get(), 0));
  for (size_t i = 0; i < g_variant_n_children(services.get()); ++i) {
    const GVariantHandle service(g_variant_get_child_value(services.get(), i));
    const GVariantHandle path(g_variant_get_child_value(service.get(), 0));
    const GVariantHandle properties(g_variant_get_child_value(service.get(), 1));
    const char *type = "", *state = "";
    g_variant_lookup(properties.get(), "Type", "&s", &type);
    g_variant_lookup(properties.get(), "State", "&s", &state);
    if (g_strcmp0(type, "wifi") == 0 && (g_strcmp0(state, "ready") == 0 || g_strcmp0(state, "online") == 0))
      return g_variant_get_string(path.get(), nullptr);
  }
  return "";
}

/// ConnMan answers when it is connected.
bool ReconnectByConnMan(SystemBus& bus) {
  const std::string service = WirelessService(bus);
  return !service.empty() &&
         bus.Call({kConnMan, service.c_str(), "net.connman.Service", "Disconnect", nullptr}, nullptr) &&
         bus.Call({kConnMan, service.c_str(), "net.connman.Service", "Connect", nullptr}, nullptr, kJoin);
}

}  // namespace

bool SwitchWirelessOn(FixProblem& problem) {
  problem = SwitchOn();
  if (problem.reason.empty()) return true;
  problem.reason = "cannot switch the wireless radio on: " + problem.reason;
  return false;
}

bool ReconnectWireless(FixProblem& problem) {
  problem = {};
  SystemBus bus(kReply);
  if (ReconnectByNetworkManager(bus) || ReconnectByConnMan(bus)) return true;
  problem = {"cannot join the wireless network anew: " +
             (bus.Problem().empty() ? "no connection manager has one in use, or it is not there again in time"
                                    : bus.Problem())};
  return false;
}
