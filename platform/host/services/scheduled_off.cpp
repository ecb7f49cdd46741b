#include "scheduled_off.h"

#include "base/system_bus.h"

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

}  // namespace

ScheduledOff AskScheduledOff() {
  ScheduledOff off;
  const GVariantHandle reply = AskSystemBus({kLogind, kPath, "org.freedesktop.DBus.Properties", "Get", "(v)"},
                                            g_variant_new("(ss)", kManager, "ScheduledShutdown"), &off.hasLogind);
  if (reply) off.isSet = IsOff(*reply);
  return off;
}

bool CancelScheduledOff(FixProblem& problem) {
  problem = {};
  const ScheduledOff before = AskScheduledOff();
  if (!before.hasLogind || before.isSet == false) return true;
  SystemBus bus(kReply);
  const bool isCancelled = bus.Call({kLogind, kPath, kManager, "CancelScheduledShutdown", "(b)"}, nullptr) != nullptr;
  if (isCancelled && AskScheduledOff().isSet == false) return true;
  problem = {"cannot stop the shutdown that is scheduled: " + (isCancelled ? "it still is" : bus.Problem()),
             "sudo shutdown -c"};
  return false;
}
