#include "setd/log_collector.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/atomic_file.h"
#include "base/folder.h"
#include "base/machine_path.h"
#include "ownership.h"
#include "packages/package_store.h"
#include "request_files.h"
#include "set_paths.h"
#include "setd/report.h"
#include "setd/report_results.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

constexpr size_t kMaxName = 100;
constexpr size_t kMaxUnknown = 1000;
constexpr unsigned int kPruneSeconds = 60 * 60;
// In kSetdState: the boot id of the kernel that this daemon last ran on, and a folder with a file for each trigger that
// waits for a restart, holding the boot id of the kernel that saw it come.
constexpr char kKernelFile[] = "/boot_id";
constexpr char kWaitingFolder[] = "/after_restart";

std::string StatePath(const std::string& name) {
  return SystemPath(set_paths::kSetdState + name);
}
std::string WaitingPath(const std::string& trigger) {
  return StatePath(kWaitingFolder + ("/" + trigger));
}

/// Whether the trigger's name is one that can be the name of a report.
bool IsTriggerName(const std::string& trigger) {
  return trigger.ends_with(kov::kSuffix) && trigger.size() <= kMaxName && packages::IsId(trigger) &&
         trigger.size() > std::strlen(kov::kSuffix);
}

bool IsRegularFile(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool Remove(const std::string& path) {
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return true;
  Log(DLOG_ERROR, path.substr(SystemRoot().size()) + " stays: " + std::strerror(errno));
  return false;
}

}  // namespace

LogCollector::LogCollector(Jobs& jobs)
    : m_jobs(jobs),
      m_bootId(BootId()),
      m_triggers(set_paths::kReportTriggers,
                 [this](const std::string& name) { Look(set_paths::kReportTriggers, name); }),
      m_restartTriggers(set_paths::kRebootReportTriggers,
                        [this](const std::string& name) { Look(set_paths::kRebootReportTriggers, name); }) {}

LogCollector::~LogCollector() {
  if (m_timer) g_source_remove(m_timer);
}

void LogCollector::Start() {
  Prune();
  // So that the time that the set runs is known although it may lose its power.
  const auto prune = [](void* self) -> gboolean {
    static_cast<LogCollector*>(self)->Prune();
    return G_SOURCE_CONTINUE;
  };
  m_timer = g_timeout_add_seconds(kPruneSeconds, prune, this);
  RememberKernel();
  m_triggers.Start();
  m_restartTriggers.Start();
  // The folder may have been emptied by the restart.
  for (const std::filesystem::path& waiting : EntriesOf(StatePath(kWaitingFolder)))
    if (IsTriggerName(waiting.filename())) LookAfterRestart(waiting.filename());
}

void LogCollector::Prune() {
  const auto prune = [](const StopFlag&) {
    PruneReports();
    return true;
  };
  m_jobs.Run(Lane::kReports, "prune reports", prune, [] {});
}

void LogCollector::RememberKernel() {
  const std::string path = StatePath(kKernelFile);
  const std::string last = FirstLineOf(path);
  if (last == m_bootId) return;
  if (!last.empty()) {
    // Came after this daemon had ended, before the restart.
    for (const std::filesystem::path& each : EntriesOf(SystemPath(set_paths::kRebootReportTriggers))) {
      const std::string trigger = each.filename();
      if (IsTriggerName(trigger) && !IsRegularFile(WaitingPath(trigger)) && MakeFolders(StatePath(kWaitingFolder)))
        PublishFile(WaitingPath(trigger), last + "\n");
    }
  }
  if (!MakeFolders(StatePath("")) || !PublishFile(path, m_bootId + "\n"))
    Log(DLOG_ERROR, std::string(set_paths::kSetdState) + kKernelFile + ": " + std::strerror(errno));
}

void LogCollector::Look(const std::string& folder, const std::string& trigger) {
  const std::string path = folder + "/" + trigger;
  const bool isOurs = static_cast<bool>(exchange::OpenFile(path, O_PATH));
  if (!isOurs && errno == ENOENT) return;
  if (!IsTriggerName(trigger) || !isOurs) {
    if (m_unknown.size() < kMaxUnknown && m_unknown.insert(path).second)
      Log(DLOG_WARN, path + " is no trigger of a report; it is left alone");
    return;
  }
  if (folder == set_paths::kRebootReportTriggers)
    LookAfterRestart(trigger);
  else
    Collect(folder, trigger);
}

void LogCollector::LookAfterRestart(const std::string& trigger) {
  const std::string seenBy = FirstLineOf(WaitingPath(trigger));
  if (!seenBy.empty() && seenBy != m_bootId) return Collect(set_paths::kRebootReportTriggers, trigger);
  if (!seenBy.empty()) return;
  const auto note = [this, trigger](const StopFlag&) {
    if (!MakeFolders(StatePath(kWaitingFolder)) || !PublishFile(WaitingPath(trigger), m_bootId + "\n"))
      Log(DLOG_ERROR,
          "the report of " + trigger + " is due after a restart, but that cannot be noted: " + std::strerror(errno));
    else
      Log(DLOG_INFO, "the report of " + trigger + " is due after a restart of the set");
    return true;
  };
  m_jobs.Run(Lane::kReports, "note " + trigger, note, [] {});
}

bool LogCollector::MakeReportOf(const std::string& folder, const std::string& trigger, const StopFlag& stop) {
  const bool isAfterRestart = folder == set_paths::kRebootReportTriggers;
  const std::string path = SystemPath(folder + "/" + trigger);
  // After a restart the note asks, with or without its trigger.
  const std::string asking = isAfterRestart ? WaitingPath(trigger) : path;
  // Nobody waits beyond a restart.
  const auto tell = [&](const std::string& report, const std::string& problem) {
    if (!isAfterRestart) PublishResult(trigger, report, problem);
  };
  const std::string identity = WritingOf(asking);
  std::string report = TakeCollected(asking, identity);
  const bool isNew = report.empty();
  if (isNew) {
    std::string file, problem;
    if (!MakeReport(trigger.substr(0, trigger.size() - std::strlen(kov::kSuffix)), stop, file, problem)) {
      Log(DLOG_ERROR, "no report of " + folder + "/" + trigger + ": " + problem);
      tell("", problem);
      return false;
    }
    Log(DLOG_INFO, "collected the report " + file);
    report = file.substr(file.rfind('/') + 1);
    // So that who sees the trigger go finds this, and nothing older.
    tell(report, "");
  }
  const bool isRemoved = Remove(path) && (!isAfterRestart || Remove(asking));
  // Once more: who asked again between the two took the first for the answer to an earlier request.
  if (isRemoved)
    tell(report, "");
  else if (isNew)
    tell(report, folder + "/" + trigger + " stays; the log tells why");
  if (isRemoved) return true;
  const std::lock_guard guard(m_lock);
  m_collected[asking] = {identity, report};
  return false;
}

/// The report of just that where it was made already, else empty; forgets it.
std::string LogCollector::TakeCollected(const std::string& path, const std::string& identity) {
  const std::lock_guard guard(m_lock);
  const auto found = m_collected.find(path);
  if (found == m_collected.end()) return {};
  const Collected collected = found->second;
  m_collected.erase(found);
  return collected.identity == identity ? collected.report : "";
}

void LogCollector::Collect(const std::string& folder, const std::string& trigger) {
  m_jobs.Run(
      Lane::kReports, "report " + folder + "/" + trigger,
      [=, this](const StopFlag& stop) { return MakeReportOf(folder, trigger, stop); },
      [this, folder, trigger] {
        Look(folder, trigger);
        // A due one may have no trigger any more.
        if (folder == set_paths::kRebootReportTriggers && IsRegularFile(WaitingPath(trigger)))
          LookAfterRestart(trigger);
      });
}

}  // namespace setd
