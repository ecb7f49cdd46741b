#include "trevlin/collectors/time_services.h"

#include <iterator>
#include <string_view>

#include "base/service_manager.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

constexpr std::chrono::seconds kAnswer(2);
constexpr const char* kNames[] = {"systemd-timesyncd.service",
                                  "chrony.service",
                                  "chronyd.service",
                                  "ntp.service",
                                  "ntpd.service",
                                  "ntpsec.service",
                                  "ntpd-rs.service",
                                  "openntpd.service",
                                  "ptp4l.service",
                                  "phc2sys.service",
                                  "timemaster.service",
                                  "connman.service"};
/// These keep the clock by other means than time servers, where they are set up to, or beside their own work; elsewhere
/// they are not missed.
constexpr std::string_view kByOtherMeans[] = {"ptp4l.service", "phc2sys.service", "timemaster.service",
                                              "connman.service"};

}  // namespace

std::optional<TimeServices> AskTimeServices() {
  ServiceManager manager(ServicesOf::kMachine, ServiceManager::Clock::now() + kAnswer);
  const auto units = manager.UnitsNamed({std::begin(kNames), std::end(kNames)});
  if (!units) return std::nullopt;
  TimeServices services;
  for (const ServiceUnit& unit : *units) {
    if (!unit.isLoaded) continue;
    services.isInstalled |= !IsOneOf(kByOtherMeans, unit.name);
    services.hasFailed |= unit.state == "failed";
    services.isRunning |= unit.hasJob || (unit.state != "failed" && unit.state != "inactive");
  }
  return services;
}

}  // namespace trevlin
