#include "trevlin/collectors/time_services.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "base/system_units.h"

namespace trevlin {

namespace {

constexpr std::chrono::seconds kReply(1);
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
                                  nullptr};
/// These keep the clock by other means than time servers, where they are set up to; elsewhere they are not missed.
constexpr std::string_view kByOtherMeans[] = {"ptp4l.service", "phc2sys.service", "timemaster.service"};

}  // namespace

std::optional<TimeServices> AskTimeServices() {
  SystemBus bus(kReply);
  const auto units = AskUnits(bus, kNames);
  if (!units) return std::nullopt;
  TimeServices services;
  for (const SystemUnit& unit : *units) {
    if (unit.load != "loaded") continue;
    const auto* const end = std::end(kByOtherMeans);
    services.isInstalled |= std::find(std::begin(kByOtherMeans), end, unit.name) == end;
    services.hasFailed |= unit.state == "failed";
    services.isRunning |= unit.hasJob || (unit.state != "failed" && unit.state != "inactive");
  }
  return services;
}

}  // namespace trevlin
