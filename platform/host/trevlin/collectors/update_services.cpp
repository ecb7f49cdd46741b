#include "trevlin/collectors/update_services.h"

#include <time.h>

#include <algorithm>

namespace trevlin {

namespace {

constexpr char kSystemd[] = "org.freedesktop.systemd1";
constexpr std::chrono::seconds kReply(1);

}  // namespace

std::vector<SystemUnit> AskUpdateServices(SystemBus& bus) {
  return AskUnits(bus, kUpdateServices).value_or(std::vector<SystemUnit>());
}

std::optional<double> AskHoursAtWork(SystemBus& bus, const SystemUnit& service) {
  if (service.state != "activating") return std::nullopt;
  const GVariantHandle since =
      bus.Get(kSystemd, service.object, "org.freedesktop.systemd1.Unit", "InactiveExitTimestampMonotonic", "t");
  timespec now;
  if (!since || clock_gettime(CLOCK_MONOTONIC, &now) != 0) return std::nullopt;
  const double seconds = static_cast<double>(now.tv_sec) - static_cast<double>(g_variant_get_uint64(since.get())) / 1e6;
  return std::max(0.0, seconds) / 3600;
}

std::optional<double> AskHoursOfUpdateServices() {
  SystemBus bus(kReply);
  std::optional<double> hours;
  for (const SystemUnit& service : AskUpdateServices(bus)) hours = std::max(hours, AskHoursAtWork(bus, service));
  return hours;
}

}  // namespace trevlin
