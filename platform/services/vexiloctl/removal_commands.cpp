// What frees storage: emptying caches and data, removing applications.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>

#include "CGetData.h"
#include "FileWatch.h"
#include "applications.h"
#include "base/daemon_lock.h"
#include "c_handle.h"
#include "command.h"
#include "pkgmgr_client.h"
#include "set_paths.h"
#include "system_path.h"
#include "was_api.h"

namespace vexiloctl {

namespace {

using packages::Package;

constexpr auto kTaskManagerPatience = std::chrono::seconds(10);

/// What is being done, on standard error: a line that changes on a terminal, one line for each application elsewhere.
class Progress {
 public:
  explicit Progress(const std::string& text) : m_text("vexiloctl: " + Visible(text)) {
    Flush();  // what was printed before comes before
    std::fprintf(stderr, m_terminal ? "%s" : "%s\n", m_text.c_str());
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() {
    if (m_terminal) std::fprintf(stderr, "\n");
  }
  void Tell(int percent) const {
    if (m_terminal) std::fprintf(stderr, "\r%s, %d %%", m_text.c_str(), percent);
  }

 private:
  const bool m_terminal = isatty(STDERR_FILENO);
  const std::string m_text;
};

/// What became of one application.
struct Outcome {
  const char* by = "vexiloctl";  ///< who did it
  std::string problem{};         ///< empty when all went well
  int64_t freed = 0;             ///< bytes, measured before and after
  int64_t left = 0;
};

std::string ReasonOf(int result) {
  if (result == PKGMGR_R_ENOPKG) return "it is not installed any more";
  if (result < PKGMGR_R_ERROR) return std::strerror(-result);
  return std::string("not all could be removed, see ") + set_paths::kLogFile;
}

/// Does it to each application and prints what became of it.
void ForEach(const std::vector<Package>& apps, bool json, const std::function<Outcome(const Package&)>& work) {
  Listing listing(json, {"APPLICATION", "TITLE", "FREED", "LEFT", "BY", "RESULT"});
  size_t failures = 0;
  for (const Package& package : apps) {
    const Outcome outcome = work(package);
    if (!outcome.problem.empty()) ++failures;
    listing.Add(
        [&] {
          Json::Value object = IdsOf(package);
          object["done"] = outcome.problem.empty();
          if (!outcome.problem.empty()) object["problem"] = outcome.problem;
          object["by"] = outcome.by;
          object["freed_bytes"] = Json::Int64(outcome.freed);
          object["left_bytes"] = Json::Int64(outcome.left);
          return object;
        },
        [&]() -> std::vector<std::string> {
          return {package.appId,          package.title, SizeText(outcome.freed),
                  SizeText(outcome.left), outcome.by,    outcome.problem.empty() ? "done" : "failed"};
        });
    if (!outcome.problem.empty()) Complain(package.appId + ": " + outcome.problem);
  }
  listing.Print();
  Flush();
  if (failures > 0) throw Failure(std::to_string(failures) + " of " + std::to_string(apps.size()) + " failed");
}

/// Has the task manager empty the caches; empty, or why it did not.
std::string AskTaskManager(const Package& package) {
  const std::string request = set_paths::kTagerRequests + std::string("/clearAppCache");
  if (QUVA::ClearAppCache(package.packageId, package.appId) != 0)
    return request + ": it could not be left, see " + set_paths::kLogFile;
  if (!QUVA::FileWatch(request).WaitFor(false, kTaskManagerPatience))
    return request + ": the task manager has not served it in 10 seconds";
  return "";
}

Outcome ClearCacheOf(const Package& package, bool taskManager) {
  Outcome outcome;
  if (taskManager) outcome.by = "task manager";
  const Progress progress("clearing the cache of " + package.title + " (by " + outcome.by + ")");
  const int64_t before = MeasureCaches(package).bytes;
  if (taskManager) {
    outcome.problem = AskTaskManager(package);
  } else if (const int result = packages::ClearCache(package); result != PKGMGR_R_OK) {
    outcome.problem = ReasonOf(result);
  }
  const Caches after = MeasureCaches(package);
  outcome.left = after.bytes;
  outcome.freed = before - after.bytes;
  if (outcome.problem.empty() && after.kept > 0) outcome.problem = ReasonOf(PKGMGR_R_ERROR);
  return outcome;
}

Outcome ClearDataOf(const Package& package) {
  const Progress progress("clearing the data of " + package.title);
  const Sizes before = Measure(package);
  Outcome outcome;
  switch (QUVA::CGetData::GetInstance()->clearAppData(package.packageId)) {
    case 0:
      break;
    case 1:
      outcome.problem = "its data has to stay: the viewer would not get it back";
      break;
    default:
      outcome.problem = ReasonOf(PKGMGR_R_ERROR);
  }
  const Sizes after = Measure(package);
  outcome.left = after.data + after.cache;
  outcome.freed = before.data + before.cache - outcome.left;
  return outcome;
}

/// The removal of one application by the web-application service, which ends its programs first.
class Removal {
 public:
  explicit Removal(const Progress& progress) : m_progress(progress) {}

  /// Waits until it has ended. A WAS_ERROR_*, or a negative errno.
  int Run(const Package& package) {
    const char* appId = package.appId.c_str();
    const int accepted = was_multi_uninstall_webapp(&appId, 1, OnEvent, this);
    if (accepted != WAS_ERROR_NONE) return accepted;
    std::unique_lock lock(m_mutex);
    m_change.wait(lock, [this] { return m_hasEnded; });
    return m_result;
  }

 private:
  /// On a thread of the service.
  static void OnEvent(const char*, was_notify_event_e event, int percent, int error, void* self) {
    static_cast<Removal*>(self)->Take(event, percent, error);
  }

  void Take(was_notify_event_e event, int percent, int error) {
    const std::lock_guard lock(m_mutex);
    if (event == WAS_EVENT_UNINSTALL_PROGRESS) m_progress.Tell(percent);
    if (event == WAS_EVENT_UNINSTALL_COMPLETED) m_result = WAS_ERROR_NONE;
    if (event == WAS_EVENT_UNINSTALL_FAILED) m_result = error;
    m_hasEnded = event == WAS_EVENT_MULTI_UNINSTALL_COMPLETE;
    if (m_hasEnded) m_change.notify_all();
  }

  const Progress& m_progress;
  std::mutex m_mutex;
  std::condition_variable m_change;
  int m_result = WAS_ERROR_FAILED;
  bool m_hasEnded = false;
};

std::string RemovalReasonOf(int result) {
  if (result == WAS_ERROR_NOT_FOUND) return ReasonOf(PKGMGR_R_ENOPKG);
  return ReasonOf(result < WAS_ERROR_FAILED ? result : static_cast<int>(PKGMGR_R_ERROR));
}

Outcome Uninstall(const Package& package) {
  const Progress progress("removing " + package.title);
  const int64_t before = Measure(package).Total();
  Outcome outcome;
  const int result = Removal(progress).Run(package);
  if (result != WAS_ERROR_NONE) outcome.problem = RemovalReasonOf(result);
  outcome.left = Measure(package).Total();
  outcome.freed = before - outcome.left;
  return outcome;
}

void ShowPlan(const std::vector<Package>& apps, int64_t (*bytesOf)(const Sizes&)) {
  Table table({"APPLICATION", "PACKAGE", "TITLE", "WILL GO"});
  int64_t total = 0;
  for (const Package& package : apps) {
    const int64_t bytes = bytesOf(Measure(package));
    total += bytes;
    table.Add({package.appId, package.packageId, package.title, SizeText(bytes)});
  }
  table.Add({"total", std::to_string(apps.size()), "", SizeText(total)});
  table.Print();
  Flush();
}

void ShowPartition(const Partition& before, bool json) {
  const Partition after = ReadPartition();
  if (!json)
    return Print(std::string(set_paths::kUserPartition) + ": " + SizeText(after.available) + " available now, " +
                 SizeText(before.available) + " before\n");
  Json::Value object;
  object["path"] = set_paths::kUserPartition;
  object["available_bytes"] = Json::Int64(after.available);
  object["available_before_bytes"] = Json::Int64(before.available);
  Print(JsonLine(object));
}

/// What cannot be had back: says first what will go and at last what the file system says. With one application that
/// must stay as it is, nothing is done.
void DoWithPlan(const Arguments& arguments, const char* (*whyNot)(const Package&), int64_t (*bytesOf)(const Sizes&),
                Outcome (*work)(const Package&)) {
  const std::vector<Package> apps = FindAll(arguments.values);
  for (const Package& package : apps)
    if (const char* reason = whyNot(package))
      throw Failure(package.appId + " (" + Visible(package.title) + ") has to stay: " + reason +
                    "; nothing was removed");
  if (!arguments.json) ShowPlan(apps, bytesOf);
  if (!arguments.option && !isatty(STDIN_FILENO))
    throw UsageError("nothing was removed: standard input is not a terminal, so --yes is needed");
  const Partition before = ReadPartition();
  try {
    ForEach(apps, arguments.json, work);
  } catch (const Failure&) {
    ShowPartition(before, arguments.json);
    throw;
  }
  ShowPartition(before, arguments.json);
}

const char* WhyDataStays(const Package& package) {
  return package.locked ? "it is locked" : nullptr;
}

}  // namespace

void AppsClearCache(const Arguments& arguments) {
  const bool taskManager = DaemonRuns();
  ForEach(FindAll(arguments.values), arguments.json,
          [taskManager](const Package& package) { return ClearCacheOf(package, taskManager); });
}

void AppsClearData(const Arguments& arguments) {
  DoWithPlan(
      arguments, WhyDataStays, [](const Sizes& sizes) { return sizes.data + sizes.cache; }, ClearDataOf);
}

void AppsUninstall(const Arguments& arguments) {
  DoWithPlan(
      arguments, packages::WhyNotRemovable, [](const Sizes& sizes) { return sizes.Total(); }, Uninstall);
}

}  // namespace vexiloctl
