#include "trevlin/collectors/young_services.h"

#include <unistd.h>

#include <functional>
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

/// A login at a terminal is begun anew after each.
bool IsLogin(std::string_view service) {
  return service.find("getty@") != service.npos;
}

/// Calls `take` with the name and the folder of each service in a group and in the groups below it: those of one
/// template ("net@eth0.service") are in one of their own.
void ForEachService(const Machine& machine, const std::string& group,
                    const std::function<void(const std::string&, const std::string&)>& take) {
  for (const std::string& name : ListNames(machine, group)) {
    const std::string folder = group + "/" + name;
    if (name.ends_with(".slice")) ForEachService(machine, folder, take);
    if (name.ends_with(".service")) take(name, folder);
  }
}

}  // namespace

std::vector<std::string> YoungServices(const Machine& machine, const std::string& group, std::chrono::seconds within) {
  const auto now = SecondsSinceStart(machine);
  const auto young = static_cast<double>(within.count());
  if (!now || *now < 2 * young) return {};
  std::multimap<double, std::string> byAge;
  for (const std::string_view root : kRoots)
    ForEachService(machine, std::string(root) + group, [&](const std::string& name, const std::string& folder) {
      if (IsLogin(name)) return;
      const auto process = ReadLine(machine, folder + "/cgroup.procs");
      const auto start = process ? StartOf(machine, *process) : std::nullopt;
      if (start && *now - *start < young) byAge.emplace(*now - *start, name);
    });
  std::vector<std::string> names;
  for (const auto& [age, name] : byAge) names.push_back(name);
  return names;
}

std::string MachineGroup() {
  return "system.slice";
}

std::string UserGroup() {
  const std::string user = std::to_string(getuid());
  return "user.slice/user-" + user + ".slice/user@" + user + ".service";
}

}  // namespace trevlin
