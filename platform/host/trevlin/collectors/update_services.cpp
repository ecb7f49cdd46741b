#include "trevlin/collectors/update_services.h"

#include <time.h>

#include <algorithm>

namespace trevlin {

namespace {

constexpr char kSystemd[] = "org.freedesktop.systemd1";
constexpr std::chrono::seconds kReply(1);

}  // namespace

std::vector<UpdateService> AskUpdateServices(SystemBus& bus) {
  const GVariantHandle reply = bus.Call({kSystemd, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager",
                                         "ListUnitsByNames", "(a(ssssssouso))"},
                                        g_variant_new("(^as)", kUpdateServices));
  std::vector<UpdateService> services;
  if (!reply) return services;
  GVariantIter* units = nullptr;
  g_variant_get(reply.get(), "(a(ssssssouso))", &units);
  const char *name, *state, *object;
  while (g_variant_iter_next(units, "(&s&s&s&s&s&s&ou&s&o)", &name, nullptr, nullptr, &state, nullptr, nullptr, &object,
                             nullptr, nullptr, nullptr))
    services.push_back({name, state, object});
  g_variant_iter_free(units);
  return services;
}

std::optional<double> AskHoursOfUpdateServices() {
  SystemBus bus(kReply);
  std::optional<double> hours;
  for (const UpdateService& service : AskUpdateServices(bus)) {
    if (service.state != "activating") continue;
    const GVariantHandle since =
        bus.Get(kSystemd, service.object, "org.freedesktop.systemd1.Unit", "InactiveExitTimestampMonotonic", "t");
    timespec now;
    if (!since || clock_gettime(CLOCK_MONOTONIC, &now) != 0) continue;
    const double seconds =
        static_cast<double>(now.tv_sec) - static_cast<double>(g_variant_get_uint64(since.get())) / 1e6;
    hours = std::max(hours, std::optional(std::max(0.0, seconds) / 3600));
  }
  return hours;
}

}  // namespace trevlin
