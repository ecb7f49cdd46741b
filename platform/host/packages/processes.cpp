#include "packages/processes.h"

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <filesystem>
#include <iterator>
#include <map>
#include <sstream>
#include <string_view>
#include <utility>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "dlog.h"
#include "flatpak/layout.h"
#include "set_paths.h"
#include "system_path.h"

namespace packages {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPoliteTime(2), kForcedTime(1);
constexpr int kRounds = 3;

// Programs whose first argument that is no option is the program that they run.
constexpr std::string_view kInterpreters[] = {"sh",     "dash", "bash", "ash", "busybox", "ksh", "zsh",
                                              "python", "perl", "ruby", "lua", "node",    "gjs", "php"};

// The header of glibc 2.36 for these does not say that it declares C functions.
int OpenProcess(pid_t pid) {
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}
void Send(const Process& process, int number) {
  syscall(SYS_pidfd_send_signal, process.handle.get(), number, nullptr, 0);
}

bool HasEnded(const Process& process) {
  pollfd fd{process.handle.get(), POLLIN, 0};
  return poll(&fd, 1, 0) != 0;
}

std::string LinkTarget(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t size = readlink(path.c_str(), target, sizeof target);
  std::string text(target, size > 0 ? static_cast<size_t>(size) : 0);
  constexpr std::string_view kDeleted = " (deleted)";
  if (text.ends_with(kDeleted)) text.resize(text.size() - kDeleted.size());
  return text;
}

std::vector<std::string> Texts(const std::string& path) {
  std::string bytes;
  std::vector<std::string> texts;
  if (!ReadWholeFile(path, bytes)) return texts;
  std::istringstream in(bytes);
  for (std::string text; std::getline(in, text, '\0');) texts.push_back(text);
  return texts;
}

/// The package whose folder the path (of this machine) is or lies in; empty for none.
std::string PackageAt(const std::string& path) {
  const std::string apps = SystemPath(set_paths::kPackagesDir) + "/";
  if (!path.starts_with(apps)) return {};
  const std::string normal = std::filesystem::path(path).lexically_normal();
  if (!normal.starts_with(apps)) return {};
  return normal.substr(apps.size(), normal.find('/', apps.size()) - apps.size());
}

/// The path of the script that an interpreter runs; empty when it runs none.
std::string ScriptOf(const std::string& proc, const std::string& executable) {
  const std::string program = std::filesystem::path(executable).filename();
  const std::string_view name = std::string_view(program).substr(0, program.find_first_of("0123456789.-"));
  if (std::find(std::begin(kInterpreters), std::end(kInterpreters), name) == std::end(kInterpreters)) return {};
  const std::vector<std::string> arguments = Texts(proc + "cmdline");
  for (size_t i = 1; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (program == "busybox" && i == 1 && argument.find('/') == std::string::npos) continue;
    if (argument == "-c" || argument == "-e" || argument == "-m") return {};
    if (argument.starts_with('-')) continue;
    return argument.starts_with('/') ? argument : LinkTarget(proc + "cwd") + "/" + argument;
  }
  return {};
}

/// 0 for none, or when it has ended.
pid_t ParentOf(const std::string& proc) {
  std::string stat;
  if (!ReadWholeFile(proc + "stat", stat)) return 0;
  // After the name, which may hold anything.
  std::istringstream fields(stat.substr(std::min(stat.rfind(')'), stat.size() - 1) + 1));
  std::string state;
  pid_t parent = 0;
  fields >> state >> parent;
  return parent;
}

/// The package id that a process with that executable belongs to; empty for none.
std::string OwnerOf(const std::string& proc, const std::string& executable, const std::vector<Package>& packages) {
  const bool hasFlatpaks =
      std::any_of(packages.begin(), packages.end(), [](const auto& each) { return each.source == Source::kFlatpak; });
  // A sandbox has a file system of its own, where paths have another meaning.
  std::string owner = hasFlatpaks ? flatpak::IdOfProcess(proc) : "";
  if (owner.empty()) owner = PackageAt(executable);
  if (owner.empty()) owner = PackageAt(ScriptOf(proc, executable));
  if (!owner.empty()) return owner;
  std::string root, appId;
  for (const std::string& entry : Texts(proc + "environ")) {
    const size_t equals = std::min(entry.find('='), entry.size());
    const std::string_view name(entry.data(), equals);
    const std::string value = entry.substr(std::min(equals + 1, entry.size()));
    if (name == "VEXILO_ROOT") root = value;
    if (name == "VEXILO_APP_ID") appId = value;
  }
  while (root.ends_with('/')) root.pop_back();
  const auto named =
      std::find_if(packages.begin(), packages.end(), [&](const auto& each) { return each.appId == appId; });
  // Sets in other roots may have an application of the same id.
  if (!appId.empty()) return named == packages.end() || root != SystemRoot() ? "" : named->packageId;
  return {};
}

/// The same of a process that may be about to become another program: all that was read must be of one.
std::string OwnerOf(const std::string& proc, const std::vector<Package>& packages) {
  std::string executable = LinkTarget(proc + "exe");
  for (int attempt = 0; attempt < kRounds && !executable.empty(); ++attempt) {
    const std::string owner = OwnerOf(proc, executable, packages);
    const std::string now = LinkTarget(proc + "exe");
    if (now == executable) return owner;
    executable = now;
  }
  return {};
}

/// Waits until all have ended, the time is over or the daemon is to stop; removes those that have ended.
int WaitForEnd(std::vector<Process>& processes, Clock::duration time, const std::atomic<bool>& stop) {
  const size_t before = processes.size();
  const auto deadline = Clock::now() + time;
  while (true) {
    std::erase_if(processes, HasEnded);
    if (processes.empty() || stop || Clock::now() >= deadline) break;
    std::vector<pollfd> fds;
    for (const Process& each : processes) fds.push_back({each.handle.get(), POLLIN, 0});
    poll(fds.data(), fds.size(), 100);
  }
  return static_cast<int>(before - processes.size());
}

/// A process that may belong to a package.
struct Candidate {
  Process process;  // with the package of its program, if any
  pid_t parent = 0;
  std::string workingPackage{};  // whose folder it works in
};
using Candidates = std::map<pid_t, Candidate>;

/// This user's processes, but this one.
Candidates AllProcesses(const std::vector<Package>& packages) {
  Candidates found;
  // The processes are the machine's, whatever the set root.
  for (const std::filesystem::path& each : EntriesOf("/proc")) {
    const std::string name = each.filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    Candidate one{{static_cast<pid_t>(std::stol(name))}};
    Process& process = one.process;
    struct stat status;
    if (process.pid == getpid() || process.pid == 1 || stat(each.c_str(), &status) != 0 || status.st_uid != geteuid())
      continue;
    process.handle.reset(OpenProcess(process.pid));
    if (!process.handle) continue;
    const std::string proc = each.string() + "/";
    process.packageId = OwnerOf(proc, packages);
    if (process.packageId.empty()) one.workingPackage = PackageAt(LinkTarget(proc + "cwd"));
    one.parent = ParentOf(proc);
    // While its handle lives on, what was read was read of this process and no later one of its number.
    if (HasEnded(process)) continue;
    // A mere link of a chain is never sent anything; a machine may have more of them than descriptors.
    if (process.packageId.empty() && one.workingPackage.empty()) process.handle.reset();
    found.emplace(process.pid, std::move(one));
  }
  return found;
}

/// Anybody's program may work in a package's folder: that counts only below a process of the package.
std::string OwnerOf(const Candidate& candidate, const Candidates& all) {
  if (!candidate.process.packageId.empty()) return candidate.process.packageId;
  if (candidate.workingPackage.empty()) return {};
  auto above = all.find(candidate.parent);
  // Numbers that were given again meanwhile could lead round in a circle.
  for (size_t steps = 0; above != all.end() && steps < all.size(); ++steps) {
    if (above->second.process.packageId == candidate.workingPackage) return candidate.workingPackage;
    above = all.find(above->second.parent);
  }
  return {};
}

}  // namespace

std::vector<Process> ProcessesOf(const std::vector<Package>& packages) {
  Candidates all = AllProcesses(packages);
  std::vector<Process> found;
  std::vector<std::pair<pid_t, std::string>> owners;
  for (const auto& [pid, candidate] : all) {
    const std::string owner = OwnerOf(candidate, all);
    const bool belongs =
        std::any_of(packages.begin(), packages.end(), [&](const auto& each) { return each.packageId == owner; });
    if (belongs) owners.emplace_back(pid, owner);
  }
  for (auto& [pid, owner] : owners) {
    found.push_back(std::move(all.at(pid).process));
    found.back().packageId = owner;
  }
  return found;
}

EndedProcesses EndProcesses(const std::vector<Package>& packages, const std::atomic<bool>& stop) {
  EndedProcesses ended;
  for (int round = 0; round < kRounds && !stop; ++round) {
    std::vector<Process> processes = ProcessesOf(packages);
    ended.left = static_cast<int>(processes.size());
    if (processes.empty()) break;
    for (const Process& each : processes) Send(each, SIGTERM);
    ended.politely += WaitForEnd(processes, kPoliteTime, stop);
    if (stop) break;
    for (const Process& each : processes) Send(each, SIGKILL);
    ended.forced += WaitForEnd(processes, kForcedTime, stop);
    ended.left = static_cast<int>(processes.size());
  }
  return ended;
}

bool EndAll(const Package& package) {
  static const std::atomic<bool> goesOn{false};
  const int left = EndProcesses({package}, goesOn).left;
  if (left > 0)
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, "PACKAGES", "%d processes of %s do not end", left, package.packageId.c_str());
  return left == 0;
}

}  // namespace packages
