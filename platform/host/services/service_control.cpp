#include "service_control.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "base/service_manager.h"

namespace {

using Clock = ServiceManager::Clock;
using namespace std::chrono_literals;

constexpr auto kLimit = 10s;
constexpr auto kPoll = 100ms;

bool IsSettled(const ServiceUnit& unit) {
  return !unit.hasJob && unit.state != "activating" && unit.state != "deactivating";
}

/// The names, with those that have failed of a template's in the place of the template.
std::vector<std::string> WithInstances(ServiceManager& manager, const std::vector<std::string>& services) {
  std::vector<std::string> names;
  for (const std::string& service : services) {
    const size_t at = service.find("@.");
    if (at == service.npos) {
      names.push_back(service);
      continue;
    }
    const std::string pattern = service.substr(0, at + 1) + "*" + service.substr(at + 1);
    for (const ServiceUnit& unit : manager.UnitsIn({"failed"}, {pattern}).value_or(std::vector<ServiceUnit>()))
      names.push_back(unit.name);
  }
  return names;
}

std::string Sentence(const std::string& service, const std::string& why) {
  return "cannot restart " + service + ": " + why;
}

/// Waits until nothing is going on with the services. Empty when all run then, else the problem.
std::string WaitFor(ServiceManager& manager, const std::vector<std::string>& services) {
  while (true) {
    const auto units = manager.UnitsNamed(services);
    if (!units) return Sentence(services.front(), manager.Problem());
    const auto dead =
        std::find_if(units->begin(), units->end(), [](const ServiceUnit& unit) { return unit.state != "active"; });
    const bool settled = std::all_of(units->begin(), units->end(), IsSettled);
    if (dead == units->end() && settled) return "";
    if (dead != units->end() && settled) return Sentence(dead->name, "it does not start: " + dead->state);
    if (manager.IsLate()) return Sentence(services.front(), "it takes too long");
    std::this_thread::sleep_for(kPoll);
  }
}

std::string RestartFailed(const std::vector<std::string>& services) {
  for (const std::string& service : services)
    if (!IsServiceName(service)) return Sentence('"' + service + '"', "it is no name of a service");
  if (services.empty()) return "no service is named";

  ServiceManager manager(ManagerOf::kMachine, Clock::now() + kLimit);
  const auto units = manager.UnitsNamed(WithInstances(manager, services));
  if (!units || !manager.Problem().empty()) return Sentence(services.front(), manager.Problem());
  std::vector<std::string> failed;
  bool isAnyRunning = false;
  for (const ServiceUnit& unit : *units) {
    if (unit.isLoaded && unit.state == "failed") failed.push_back(unit.name);
    isAnyRunning |= unit.state == "active";
  }
  if (failed.empty())
    return isAnyRunning ? "" : Sentence(services.front(), "neither it nor another of its kind is on this machine");
  for (const std::string& service : failed)
    if (!manager.Restart(service)) return Sentence(service, manager.Problem());
  return WaitFor(manager, failed);
}

}  // namespace

bool RestartFailedServices(const std::vector<std::string>& services, std::string& problem) {
  problem = RestartFailed(services);
  return problem.empty();
}
