#include "packages/background.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>
#include <utility>
#include <variant>

#include "base/atomic_file.h"
#include "packages/package_store.h"
#include "set_names.h"
#include "settings/settings_store.h"

namespace packages {

namespace {

/// The sum in bytes of the lines "Name:  1234 kB" of these names; nothing where the file has none of them.
std::optional<int64_t> SumOf(const std::string& file, const std::vector<std::string>& names) {
  std::string text;
  if (!ReadWholeFile(file, text)) return std::nullopt;
  std::optional<int64_t> sum;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    for (const std::string& name : names)
      if (line.starts_with(name + ":")) sum = sum.value_or(0) + std::atoll(line.c_str() + name.size() + 1) * 1024;
  return sum;
}

/// What it shares with others counts in shares, where the kernel tells them: proc(5), smaps_rollup.
int64_t MemoryOf(pid_t process) {
  const std::string proc = "/proc/" + std::to_string(process);
  if (const auto shares = SumOf(proc + "/smaps_rollup", {"Pss_Anon", "Pss_Shmem", "SwapPss"})) return *shares;
  return SumOf(proc + "/status", {"RssAnon", "RssShmem", "VmSwap"}).value_or(0);
}

}  // namespace

std::optional<std::string> ForegroundApp(std::string& problem) {
  settings::Value value;
  const settings::ReadResult result = settings::Read(set_names::kForegroundAppKey, value, problem);
  if (result == settings::ReadResult::kNotSet) return "";
  if (result != settings::ReadResult::kOk) return std::nullopt;
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  problem = std::string("settings key \"") + set_names::kForegroundAppKey + "\" is no text";
  return std::nullopt;
}

std::vector<RunningApp> BackgroundApps(const std::string& foreground, bool withFlatpaks) {
  std::vector<Package> packages = List();
  std::erase_if(packages, [&](const Package& package) {
    return package.keepRunning || package.appId == foreground || (package.source == Source::kFlatpak && !withFlatpaks);
  });
  std::map<std::string, int64_t> running;
  for (const Process& process : ProcessesOf(packages)) running[process.packageId] += MemoryOf(process.pid);
  std::vector<RunningApp> apps;
  for (Package& package : packages)
    if (const auto found = running.find(package.packageId); found != running.end())
      apps.push_back({std::move(package), found->second});
  std::ranges::stable_sort(apps, std::ranges::greater(), &RunningApp::bytes);
  return apps;
}

EndedApps EndApps(const std::vector<RunningApp>& apps, const std::atomic<bool>& stop) {
  EndedApps all;
  for (const RunningApp& app : apps) {
    if (stop) break;
    const EndedProcesses ended = EndProcesses({app.package}, stop);
    all.processes.politely += ended.politely;
    all.processes.forced += ended.forced;
    all.processes.left += ended.left;
    if (ended.left == 0 && ended.politely + ended.forced > 0) all.apps.push_back(app);
  }
  return all;
}

}  // namespace packages
