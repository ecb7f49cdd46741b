#include "trevlin/collectors/time_services.h"

#include <string_view>

#include "base/bus.h"

namespace trevlin {

namespace {

constexpr const char* kNames[] = {"systemd-timesyncd.service", "chrony.service", "chronyd.service", "ntp.service",
                                  "ntpd.service", "ntpsec.service", "ntpd-rs.service", "openntpd.service",
                                  // They keep the clock by other means than the Internet.
                                  "ptp4l.service", "phc2sys.service", "timemaster.service", nullptr};

void Add(std::string_view load, std::string_view state, bool hasJob, TimeServices& services) {
  if (load != "loaded") return;
  services.isInstalled = true;
  services.hasFailed |= state == "failed";
  services.isRunning |= hasJob || (state != "failed" && state != "inactive");
}

}  // namespace

std::optional<TimeServices> AskTimeServices() {
  constexpr BusMethod kList = {"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                               "org.freedesktop.systemd1.Manager", "ListUnitsByNames", "(a(ssssssouso))"};
  const GVariantHandle reply = AskSystemBus(kList, g_variant_new("(^as)", kNames));
  if (!reply) return std::nullopt;
  TimeServices services;
  GVariantIter* units = nullptr;
  g_variant_get(reply.get(), "(a(ssssssouso))", &units);
  const char *load, *state;
  guint32 job;
  while (g_variant_iter_next(units, "(&s&s&s&s&s&s&ou&s&o)", nullptr, nullptr, &load, &state, nullptr, nullptr, nullptr,
                             &job, nullptr, nullptr))
    Add(load, state, job != 0, services);
  g_variant_iter_free(units);
  return services;
}

}  // namespace trevlin
