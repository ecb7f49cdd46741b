#include "trevlin/collectors/young_services.h"

#include <unistd.h>

#include <map>

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

/// cgroup v2, and systemd's own tree where the machine has v1.
constexpr std::string_view kRoots[] = {"/sys/fs/cgroup/", "/sys/fs/cgroup/systemd/"};
constexpr size_t kStartTime = 19;  // among what follows the name in /proc/PID/stat; proc(5)

/// When it began, in seconds after the machine's start.
std::optional<double> StartOf(const Machine& machine, std::string_view process) {
  const std::string text = ReadText(machine, "/proc/" + std::string(process) + "/stat").value_or("");
  const size_t name = text.rfind(')');
  if (name == text.npos) return std::nullopt;
  const auto words = SplitWords(std::string_view(text).substr(name + 1));
  const auto ticks = words.size() > kStartTime ? ParseNumber(words[kStartTime]) : std::nullopt;
  return ticks ? std::optional(*ticks / static_cast<double>(sysconf(_SC_CLK_TCK))) : std::nullopt;
}

}  // namespace

std::vector<std::string> YoungServices(const Machine& machine, const std::vector<std::string>& groups,
                                       std::chrono::seconds within) {
  const auto now = SecondsSinceStart(machine);
  const auto young = static_cast<double>(within.count());
  if (!now || *now < 2 * young) return {};
  std::multimap<double, std::string> byAge;
  for (const std::string_view root : kRoots)
    for (const std::string& group : groups) {
      const std::string folder = std::string(root) + group;
      for (const std::string& name : ListNames(machine, folder)) {
        if (!name.ends_with(".service")) continue;
        const auto process = ReadLine(machine, folder + "/" + name + "/cgroup.procs");
        const auto start = process ? StartOf(machine, *process) : std::nullopt;
        if (start && *now - *start < young) byAge.emplace(*now - *start, name);
      }
    }
  std::vector<std::string> names;
  for (const auto& [age, name] : byAge) names.push_back(name);
  return names;
}

std::vector<std::string> MachineGroups() {
  return {"system.slice"};
}

std::vector<std::string> UserGroups() {
  const std::string user = std::to_string(getuid());
  const std::string manager = "user.slice/user-" + user + ".slice/user@" + user + ".service";
  return {manager, manager + "/session.slice", manager + "/app.slice"};
}

}  // namespace trevlin
