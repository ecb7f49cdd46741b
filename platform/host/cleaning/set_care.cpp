#include "set_care.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "base/daemon_lock.h"
#include "cleaning/cleanup.h"
#include "cleaning/hoards.h"
#include "dlog.h"
#include "log_tags.h"
#include "packages/background.h"

namespace set_care {

namespace {

const std::atomic<bool> kGoesOn{false};

void Log(int priority, const std::string& text) {
  __dlog_print(LOG_ID_APPS, priority, log_tags::kPackages, "%s", text.c_str());
}

App AppOf(const packages::RunningApp& app) {
  return {app.package.packageId, app.package.title, app.bytes};
}

/// Of both sources: a viewer who is asked looks at none of them.
std::vector<packages::RunningApp> Running() {
  std::string problem;
  if (const auto foreground = packages::ForegroundApp(problem)) return packages::BackgroundApps(*foreground, true);
  Log(DLOG_ERROR, "no applications are ended: " + problem);
  return {};
}

/// Whether the daemon may remove what this process may not.
bool HasDaemonOfRoot() {
  const auto process = DaemonProcess();
  struct stat status;
  return process && stat(("/proc/" + std::to_string(*process)).c_str(), &status) == 0 && status.st_uid == 0;
}

}  // namespace

std::vector<App> BackgroundApps() {
  std::vector<App> apps;
  for (const packages::RunningApp& app : Running()) apps.push_back(AppOf(app));
  return apps;
}

std::vector<App> EndApps(const std::vector<std::string>& packageIds) {
  std::vector<packages::RunningApp> running = Running();
  std::erase_if(running, [&](const auto& app) {
    return std::ranges::find(packageIds, app.package.packageId) == packageIds.end();
  });
  std::vector<App> ended;
  for (const packages::RunningApp& app : packages::EndApps(running, kGoesOn).apps) ended.push_back(AppOf(app));
  return ended;
}

std::vector<Hoard> FindHoards() {
  const Remover other = HasDaemonOfRoot() ? Remover::kDaemon : Remover::kAdministrator;
  std::vector<Hoard> hoards;
  for (const cleaning::Stock& stock : cleaning::FindHoards())
    hoards.push_back({cleaning::KeyOf(stock.hoard), stock.bytes, stock.mayRemove ? Remover::kThisProcess : other});
  return hoards;
}

bool RemoveHoard(const std::string& key) {
  const auto hoard = cleaning::HoardOf(key);
  if (!hoard) return false;
  const packages::TreeResult removed = cleaning::RemoveHoard(*hoard);
  if (removed.error != 0) Log(DLOG_ERROR, "of " + key + " something stays: " + std::strerror(removed.error));
  return removed.error == 0;
}

bool HasDaemon() {
  return DaemonRuns();
}

void CleanUp() {
  cleaning::CleanUp(kGoesOn, {.log = Log});
}

int64_t FreeBytes() {
  return cleaning::FreeBytes();
}

}  // namespace set_care
