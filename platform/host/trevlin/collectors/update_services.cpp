#include "trevlin/collectors/update_services.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace trevlin {

namespace {

constexpr std::chrono::seconds kAnswer(2);

}  // namespace

std::optional<std::vector<ServiceUnit>> AskUpdateServices(ServiceManager& manager) {
  return manager.UnitsNamed({std::begin(kUpdateServices), std::end(kUpdateServices)});
}

std::optional<double> AskHoursAtWork(ServiceManager& manager, const ServiceUnit& service) {
  if (service.state != "activating") return std::nullopt;
  const auto since = manager.Number(service.path, "Unit", "InactiveExitTimestampMonotonic");
  if (!since) return std::nullopt;
  // systemd's clock is the one of Clock.
  const std::chrono::duration<double> now = ServiceManager::Clock::now().time_since_epoch();
  return std::max(0.0, (now - std::chrono::duration<double, std::micro>(*since)).count()) / 3600;
}

std::optional<double> AskHoursOfUpdateServices(bool& isSilent) {
  ServiceManager manager(ServicesOf::kMachine, ServiceManager::Clock::now() + kAnswer);
  std::optional<double> hours;
  for (const ServiceUnit& service : AskUpdateServices(manager).value_or(std::vector<ServiceUnit>()))
    hours = std::max(hours, AskHoursAtWork(manager, service));
  isSilent = manager.IsThere() && !manager.Problem().empty();
  return hours;
}

}  // namespace trevlin
