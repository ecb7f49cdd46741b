#include "clock_control.h"

#include <unistd.h>

#include <utility>

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

/// A command that installs a time service; empty where none is known.
std::string HowToInstall() {
  constexpr std::pair<const char*, const char*> kCommands[] = {
      {"/usr/bin/apt-get", "sudo apt install systemd-timesyncd"}, {"/usr/bin/dnf", "sudo dnf install chrony"}};
  for (const auto& [program, command] : kCommands)
    if (access(program, X_OK) == 0) return command;
  return "";
}

/// Empty when the service runs.
FixProblem Synchronise() {
  SystemBus bus(kReply);
  const auto reason = [&bus](const char* other) { return bus.Problem().empty() ? other : bus.Problem(); };
  bus.Start(kTimedate);
  const auto isThere = GetTruth(bus, "CanNTP");
  if (!isThere) return {reason("nothing on this machine switches it")};
  if (!*isThere) return {"no time service is installed", HowToInstall()};
  if (!bus.Call({kTimedate, kPath, kTimedate, "SetNTP", nullptr}, g_variant_new("(bb)", TRUE, FALSE)))
    return {reason("timedate1 is gone"), "sudo timedatectl set-ntp true"};
  if (!Await(kStart, [&bus] { return IsRunning(bus); })) return {"it does not start"};
  return {};
}

}  // namespace

bool SynchroniseClock(FixProblem& problem) {
  problem = Synchronise();
  if (!problem.reason.empty()) problem.reason = "cannot switch the time service on: " + problem.reason;
  return problem.reason.empty();
}
