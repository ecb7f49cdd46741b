#include "update_control.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/atomic_file.h"
#include "base/program.h"
#include "base/service_manager.h"
#include "base/system_bus.h"
#include "package_kit.h"
#include "trevlin/collectors/automatic_updates.h"
#include "trevlin/collectors/package_system.h"
#include "trevlin/collectors/readings.h"
#include "trevlin/collectors/update_services.h"

namespace {

using namespace std::chrono_literals;
using trevlin::UpdateMeans;

constexpr auto kReply = 5s;
constexpr auto kRepair = 10min;
constexpr auto kRefresh = 5min;
constexpr auto kStop = 30s;
constexpr auto kEnable = 30s;
constexpr auto kLastAnswer = 10s;
constexpr char kPackageKit[] = "org.freedesktop.PackageKit";
constexpr char kAptSettings[] = "/etc/apt/apt.conf.d/20auto-upgrades";  // what apt's own set-up writes
const trevlin::Machine kMachine;

enum class WhenLate { kEnd, kLeave };

/// Runs a program of the package system, which asks nothing then. False where it cannot be started, takes too long, or
/// fails so that one sees it.
bool RunAsRoot(const std::vector<std::string>& words, std::chrono::seconds limit, WhenLate whenLate) {
  std::vector<std::string> argv = {"/usr/bin/env", "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                   "DEBIAN_FRONTEND=noninteractive", "LC_ALL=C.UTF-8"};
  argv.insert(argv.end(), words.begin(), words.end());
  const FdHandle none(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const Program program = StartProgram(argv, none.get());
  if (!program.handle) return false;
  const bool hasEnded = HasEnded(program, limit);
  if (!hasEnded && whenLate == WhenLate::kLeave) return false;
  return EndProgram(program) <= 0 && hasEnded;
}

bool IsApt() {
  return trevlin::Exists(kMachine, "/usr/bin/apt-get");
}

/// `records` decide, whatever those say who were asked.
FixProblem Repair(trevlin::PackageRecords& records) {
  const auto count = [&records] { return records.Read(kMachine).value_or(trevlin::Interrupted{-1, ""}).count; };
  if (count() < 0) return {"its records cannot be read"};
  if (const auto worker = trevlin::FindPackageWorker(kMachine)) return {worker->program + " is at work on it"};
  if (count() == 0) return {};
  std::optional<std::string> reason;
  if (getuid() == 0) {
    RunAsRoot({"dpkg", "--force-confdef", "--force-confold", "--configure", "-a"}, kRepair, WhenLate::kLeave);
    if (count() > 0)
      RunAsRoot({"apt-get", "-y", "-f", "--no-remove", "-o", "Dpkg::Options::=--force-confold", "install"}, kRepair,
                WhenLate::kLeave);
  } else {
    reason = RunPackageKit("RepairSystem", g_variant_new("(t)", guint64{0}), kRepair);
  }
  const auto left = records.Read(kMachine);
  if (!left) return {"it takes too long, and goes on"};
  if (left->count == 0) return {};
  return {reason && !reason->empty() ? *reason : (left->first.empty() ? "it" : left->first) + " is still not whole",
          "sudo dpkg --configure -a && sudo apt -f install"};
}

/// Ends what hangs while it fetches. What installs is left alone: ended, it would leave its work half done.
void StopHanging() {
  constexpr const char* kFetching[] = {"apt-daily.service", "dnf-makecache.service", "dnf5-makecache.service"};
  ServiceManager manager(ServicesOf::kMachine, ServiceManager::Clock::now() + kStop);
  const auto ask = [&manager] { return trevlin::AskUpdateServices(manager).value_or(std::vector<ServiceUnit>()); };
  for (const ServiceUnit& service : ask()) {
    const bool isFetching = std::find(std::begin(kFetching), std::end(kFetching), service.name) != std::end(kFetching);
    if (!isFetching || trevlin::AskHoursAtWork(manager, service).value_or(0) <= trevlin::kHangingHours) continue;
    manager.Stop(service.name);
    Await(kStop, [&] {
      for (const ServiceUnit& now : ask())
        if (now.name == service.name) return now.state != "activating" && now.state != "deactivating";
      return true;
    });
  }
}

/// Updates that failed at a start are prepared anew; until then PackageKit keeps that they did.
FixProblem ForgetFailedStart() {
  if (trevlin::HasOfflineUpdateFailed(kMachine) != true) return {};
  SystemBus bus(kReply);
  bus.Start(kPackageKit);
  bus.Call({kPackageKit, "/org/freedesktop/PackageKit", "org.freedesktop.PackageKit.Offline", "ClearResults", nullptr},
           nullptr);
  if (trevlin::HasOfflineUpdateFailed(kMachine) != true) return {};
  return {bus.Problem().empty() ? "the failed updates are not forgotten" : bus.Problem(),
          "sudo rm /var/lib/PackageKit/offline-update-competed"};
}

/// What one of them is still at, or has failed at again; empty for nothing. Where systemd is there, it has to say so.
FixProblem WhatServicesLack(ServiceManager& manager, bool& isAtWork) {
  const auto services = trevlin::AskUpdateServices(manager);
  isAtWork = false;
  if (!services) return {manager.IsThere() ? manager.Problem() : ""};
  FixProblem lack;
  for (const ServiceUnit& service : *services) {
    if (service.state == "failed") return isAtWork = false, FixProblem{service.name + " fails again"};
    if (service.state != "activating") continue;
    isAtWork = true;
    lack = {service.name + " is still at work"};
  }
  return lack;
}

/// Has those that have failed try again. Empty when none is failed or at work any more.
FixProblem RetryServices() {
  ServiceManager manager(ServicesOf::kMachine, ServiceManager::Clock::now() + kRefresh + kLastAnswer);
  for (const ServiceUnit& service : trevlin::AskUpdateServices(manager).value_or(std::vector<ServiceUnit>()))
    if (service.state == "failed" && !manager.Start(service.name))
      return {manager.Problem(), "sudo systemctl start " + service.name};
  FixProblem lack;
  Await(kRefresh, [&] {
    bool isAtWork = false;
    lack = WhatServicesLack(manager, isAtWork);
    return !isAtWork;
  });
  return lack;
}

FixProblem Refresh() {
  const std::string byHand = IsApt() ? "sudo apt update" : "sudo dnf makecache";
  StopHanging();
  if (const auto worker = trevlin::FindPackageWorker(kMachine))
    return {worker->program + " is at work; where that takes hours, restart the device"};
  const auto reason = RunPackageKit("RefreshCache", g_variant_new("(b)", TRUE), kRefresh);
  if (reason && !reason->empty()) return {*reason, byHand};
  if (!reason && getuid() != 0) return {"nothing on this machine does it for this user", byHand};
  if (!reason &&
      !RunAsRoot(IsApt() ? std::vector<std::string>{"apt-get", "-qq", "-o", "APT::Update::Error-Mode=any", "update"}
                         : std::vector<std::string>{"dnf", "-q", "makecache", "--refresh"},
                 kRefresh, WhenLate::kEnd))
    return {"the lists do not come", byHand};
  const FixProblem problem = RetryServices();
  return problem.reason.empty() ? ForgetFailedStart() : problem;
}

/// `text` without lines that set one of the two, and with both of them set.
std::string WithAptUpdates(const std::string& text) {
  std::string kept;
  for (const std::string_view line : trevlin::SplitLines(text)) {
    std::map<std::string, std::string> settings;
    trevlin::ParseAptSettings(line, settings);
    if (!settings.contains(trevlin::kAptLists) && !settings.contains(trevlin::kAptUpgrade))
      kept.append(line).append("\n");
  }
  return kept + "APT::Periodic::Update-Package-Lists \"1\";\nAPT::Periodic::Unattended-Upgrade \"1\";\n";
}

/// Empty when done; where nothing is to be written, too.
FixProblem WriteAptSettings() {
  const auto settings = trevlin::ReadAptSettings(kMachine);
  const auto isSet = [&settings](const char* name) {
    const auto at = settings.find(name);
    return at != settings.end() && !at->second.empty() && at->second != "0";
  };
  if (isSet(trevlin::kAptLists) && isSet(trevlin::kAptUpgrade)) return {};
  std::string text;
  if ((ReadWholeFile(kAptSettings, text) || errno == ENOENT) &&
      PublishFile(kAptSettings, WithAptUpdates(text), Readers::kEverybody))
    return {};
  return {std::string(kAptSettings) + ": " + std::strerror(errno), "sudo dpkg-reconfigure unattended-upgrades"};
}

/// Where dnf's timer installs only when told to.
FixProblem WriteDnfSettings(const std::string& timer) {
  if (timer == "dnf-automatic-install.timer") return {};
  std::string text;
  const GKeyFileHandle file(g_key_file_new());
  GErrorHandle error;
  if (!ReadWholeFile(trevlin::kDnfSettings, text) && errno != ENOENT)
    return {std::string(trevlin::kDnfSettings) + ": " + std::strerror(errno)};
  if (!text.empty() &&
      !g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_KEEP_COMMENTS, error.Out()))
    return {std::string(trevlin::kDnfSettings) + ": " + error.Message()};
  g_key_file_set_string(file.get(), "commands", "apply_updates", "yes");
  const GText changed(g_key_file_to_data(file.get(), nullptr, nullptr));
  if (PublishFile(trevlin::kDnfSettings, changed.get(), Readers::kEverybody)) return {};
  return {std::string(trevlin::kDnfSettings) + ": " + std::strerror(errno),
          "sudo sed -i 's/^apply_updates.*/apply_updates = yes/' " + std::string(trevlin::kDnfSettings) +
              " && sudo systemctl enable --now " + timer};
}

/// At each start of the machine, and now.
FixProblem EnableTimers(const std::vector<std::string>& timers) {
  ServiceManager manager(ServicesOf::kMachine, ServiceManager::Clock::now() + kEnable);
  if (manager.Enable(timers)) return {};
  std::string command = "sudo systemctl enable --now";
  for (const std::string& timer : timers) command += " " + timer;
  return {manager.Problem().empty() ? "there is no systemd" : manager.Problem(), command};
}

FixProblem SwitchDesktopOn() {
  const GObjectHandle<GSettings> settings(g_settings_new(trevlin::kDesktopSchema));
  if (!g_settings_set_boolean(settings.get(), trevlin::kDesktopKey, TRUE)) return {"the desktop's setting is locked"};
  g_settings_sync();
  return {};
}

FixProblem SwitchOn(UpdateMeans means) {
  if (means == UpdateMeans::kNone) return {"nothing on this machine installs them"};
  if (means == UpdateMeans::kDesktop) return SwitchDesktopOn();
  const std::string timer = trevlin::FindDnfTimer(kMachine);
  const bool isApt = means == UpdateMeans::kApt;
  const FixProblem problem = isApt ? WriteAptSettings() : WriteDnfSettings(timer);
  if (!problem.reason.empty()) return problem;
  if (isApt && !trevlin::Exists(kMachine, "/run/systemd/system")) return {};  // cron
  return EnableTimers(isApt ? std::vector<std::string>(std::begin(trevlin::kAptTimers), std::end(trevlin::kAptTimers))
                            : std::vector{timer});
}

bool IsDone(const char* what, const FixProblem& found, FixProblem& problem) {
  problem = found;
  // Root has been permitted to: it failed for another reason.
  if (getuid() == 0 && !problem.command.empty()) problem = {problem.reason + "; by hand: " + problem.command};
  if (!problem.reason.empty()) problem.reason = std::string("cannot ") + what + ": " + problem.reason;
  return problem.reason.empty();
}

}  // namespace

bool RepairSoftware(FixProblem& problem) {
  trevlin::PackageRecords records;
  return IsDone("repair the installed software", Repair(records), problem);
}

bool RefreshUpdates(FixProblem& problem) {
  return IsDone("fetch updates", Refresh(), problem);
}

bool SwitchAutomaticUpdatesOn(FixProblem& problem) {
  FixProblem found;
  if (trevlin::AreUpdatesAutomatic(kMachine) != true) found = SwitchOn(trevlin::FindUpdateMeans(kMachine));
  if (found.reason.empty() && trevlin::AreUpdatesAutomatic(kMachine) != true)
    found.reason = "another setting of the machine keeps them off (apt-config dump APT::Periodic)";
  return IsDone("switch automatic updates on", found, problem);
}
