#include "service_control.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string_view>
#include <thread>

#include "base/service_manager.h"

namespace {

using Clock = ServiceManager::Clock;
using namespace std::chrono_literals;

constexpr auto kLimit = 60s;
constexpr auto kStart = 10s;
constexpr auto kHold = 10s;
constexpr auto kPoll = 200ms;

using Names = std::vector<std::string>;

bool IsSettled(const ServiceUnit& unit) {
  constexpr std::string_view kEnds[] = {"active", "inactive", "failed"};
  return !unit.hasJob && (unit.IsAboutToRestart() || std::ranges::find(kEnds, unit.state) != std::end(kEnds));
}

/// The names, with those of a template's that have failed or are on their way in the place of the template.
Names WithInstances(ServiceManager& manager, const Names& services) {
  Names names;
  for (const std::string& service : services) {
    const size_t at = service.find("@.");
    if (at == service.npos) {
      names.push_back(service);
      continue;
    }
    const std::string pattern = service.substr(0, at + 1) + "*" + service.substr(at + 1);
    const auto units = manager.UnitsIn({"failed", "activating"}, {pattern});
    for (const ServiceUnit& unit : units.value_or(std::vector<ServiceUnit>())) names.push_back(unit.name);
  }
  return names;
}

std::string Sentence(const std::string& service, const std::string& why) {
  return "cannot restart " + service + ": " + why;
}

/// Whether services run on and on. One that ends at once and is started again is mostly seen running.
class Hold {
 public:
  Hold(ServiceManager& manager, const Names& services) : m_manager(manager), m_services(services) {}

  /// Waits until each has run for kHold. Empty then, else the problem.
  std::string Wait() {
    while (true) {
      const auto units = m_manager.UnitsNamed(m_services);
      if (!units) return Sentence(m_services.front(), m_manager.Problem());
      bool haveHeld = true;
      for (const ServiceUnit& unit : *units) {
        const std::string problem = Look(unit, haveHeld);
        if (!problem.empty()) return Sentence(unit.name, problem);
      }
      if (haveHeld) return "";
      std::this_thread::sleep_for(kPoll);
    }
  }

 private:
  std::string Look(const ServiceUnit& unit, bool& haveHeld) {
    if (!IsSettled(unit)) {
      haveHeld = false;
      const auto limit = m_since.contains(unit.name) ? kStart + kHold : kStart;
      return Clock::now() - m_begin > limit ? "it takes too long" : "";
    }
    if (unit.state != "active")
      return (m_since.contains(unit.name) ? "it does not keep running: " : "it does not start: ") + unit.phase;
    const auto since = m_manager.Number(unit.path, "Unit", "ActiveEnterTimestampMonotonic");
    if (!since) return m_manager.Problem();
    if (m_since.emplace(unit.name, *since).first->second != *since) return "it ends again and again";
    // systemd's clock is the one of Clock.
    const std::chrono::duration<double> now = Clock::now().time_since_epoch();
    haveHeld = haveHeld && now - std::chrono::duration<double, std::micro>(*since) >= kHold;
    return "";
  }

  ServiceManager& m_manager;
  const Names m_services;
  const Clock::time_point m_begin = Clock::now();
  std::map<std::string, double> m_since;  ///< microseconds of the time when it began to run
};

std::string CommandFor(ServicesOf whose, const Names& services) {
  std::string command = whose == ServicesOf::kUser ? "systemctl --user restart" : "systemctl restart";
  for (const std::string& service : services) command += " " + service;
  return command;
}

FixProblem RestartFailed(const Names& services, ServicesOf whose) {
  for (const std::string& service : services)
    if (!IsServiceName(service)) return {Sentence('"' + service + '"', "it is no name of a service")};
  if (services.empty()) return {"no service is named"};

  ServiceManager manager(whose, Clock::now() + kLimit);
  const auto units = manager.UnitsNamed(WithInstances(manager, services));
  if (!units || !manager.Problem().empty()) return {Sentence(services.front(), manager.Problem())};
  Names failed, wanted;
  for (const ServiceUnit& unit : *units) {
    const bool hasFailed = unit.isLoaded && (unit.state == "failed" || unit.IsAboutToRestart());
    if (hasFailed) failed.push_back(unit.name);
    if (hasFailed || unit.state == "active") wanted.push_back(unit.name);
  }
  if (wanted.empty()) return {Sentence(services.front(), "neither it nor another of its kind is on this machine")};
  for (const std::string& service : failed)
    if (!manager.Restart(service))
      return {Sentence(service, manager.Problem()), manager.IsForbidden() ? CommandFor(whose, failed) : ""};
  return {Hold(manager, wanted).Wait()};
}

}  // namespace

bool RestartFailedServices(const std::vector<std::string>& services, ServicesOf whose, FixProblem& problem) {
  problem = RestartFailed(services, whose);
  return problem.reason.empty();
}
