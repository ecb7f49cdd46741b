#include "clock_control.h"

#include "base/system_bus.h"
#include "trevlin/collectors/time_services.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kReply = 5s;
constexpr auto kStart = 10s;
constexpr char kTimedate[] = "org.freedesktop.timedate1";
constexpr char kPath[] = "/org/freedesktop/timedate1";

std::optional<bool> GetTruth(SystemBus& bus, const char* property) {
  const GVariantHandle truth = bus.Get(kTimedate, kPath, kTimedate, property, "b");
  return truth ? std::optional<bool>(g_variant_get_boolean(truth.get())) : std::nullopt;
}

/// timedate1 of an old systemd tells what is to start, not what runs; and not each systemd lists services by name.
bool IsRunning(SystemBus& bus) {
  if (GetTruth(bus, "NTP") != true) return false;
  const auto services = trevlin::AskTimeServices();
  return !services || services->isRunning;
}

/// Empty when the service runs.
std::string Synchronise() {
  SystemBus bus(kReply);
  const auto reason = [&bus](const char* other) { return bus.Problem().empty() ? other : bus.Problem(); };
  bus.Start(kTimedate);
  const auto isThere = GetTruth(bus, "CanNTP");
  if (!isThere) return reason("nothing on this machine switches it");
  if (!*isThere) return "no time service is installed";
  if (!bus.Call({kTimedate, kPath, kTimedate, "SetNTP", nullptr}, g_variant_new("(bb)", TRUE, FALSE)))
    return reason("timedate1 is gone");
  return Await(kStart, [&bus] { return IsRunning(bus); }) ? "" : "it does not start";
}

}  // namespace

bool SynchroniseClock(std::string& problem) {
  const std::string reason = Synchronise();
  problem = reason.empty() ? "" : "cannot switch the time service on: " + reason;
  return reason.empty();
}
