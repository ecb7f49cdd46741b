#include "scheduled_off.h"

#include "base/bus.h"

namespace {

constexpr auto kReply = std::chrono::seconds(1);
constexpr char kLogind[] = "org.freedesktop.login1";
constexpr char kPath[] = "/org/freedesktop/login1";
constexpr char kManager[] = "org.freedesktop.login1.Manager";

/// The property has what is to be done and when.
std::optional<bool> IsOff(GVariant& reply) {
  const GVariantHandle value = ValueOf(reply, "(st)");
  if (!value) return std::nullopt;
  const char* what = "";
  g_variant_get(value.get(), "(&st)", &what, nullptr);
  return g_strcmp0(what, "poweroff") == 0 || g_strcmp0(what, "halt") == 0;
}

ScheduledOff AskOn(GDBusConnection& bus) {
  const GVariantHandle property(g_variant_ref_sink(g_variant_new("(ss)", kManager, "ScheduledShutdown")));
  GErrorHandle error;
  const GVariantHandle reply =
      CallOnBus(bus, {kLogind, kPath, "org.freedesktop.DBus.Properties", "Get", "(v)"}, property.get(), kReply, error);
  if (reply) return {true, IsOff(*reply)};
  return {!IsNobodyThere(error), std::nullopt};
}

}  // namespace

ScheduledOff AskScheduledOff() {
  std::string problem;
  const auto bus = ConnectToBus(SystemBusAddress(), kReply, nullptr, problem);
  return bus ? AskOn(*bus) : ScheduledOff();
}

bool CancelScheduledOff(std::string& problem) {
  std::string unreachable;
  const auto bus = ConnectToBus(SystemBusAddress(), kReply, nullptr, unreachable);
  const ScheduledOff before = bus ? AskOn(*bus) : ScheduledOff();
  if (!before.hasLogind || before.isSet == false) return true;
  GErrorHandle error;
  const GVariantHandle reply =
      CallOnBus(*bus, {kLogind, kPath, kManager, "CancelScheduledShutdown", "(b)"}, nullptr, kReply, error);
  if (reply && AskOn(*bus).isSet == false) return true;
  problem = "cannot stop the shutdown that is scheduled: " + (reply ? "it still is" : std::string(error.Message()));
  return false;
}
