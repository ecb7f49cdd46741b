#include "setd/task_manager.h"

#include <glib.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "base/atomic_file.h"
#include "packages/package_store.h"
#include "packages/processes.h"
#include "request_files.h"
#include "set_names.h"
#include "set_paths.h"
#include "setd/deep_clean.h"
#include "setd/memory.h"
#include "setd/setd_log.h"
#include "system_path.h"

namespace setd {

namespace {

constexpr unsigned kCobaltPeriodMs = 10 * 60 * 1000;
constexpr unsigned kWriterMs = 2000;  // how long a writer may take from making a file to having written it
constexpr unsigned kSweepMs = 31000;
constexpr size_t kMaxUnknown = 1000;
constexpr auto kClearingPatience = std::chrono::seconds(3);
constexpr auto kStep = std::chrono::milliseconds(20);

bool Removed(const Request& request) {
  if (RemoveServed(request)) return true;
  Log(DLOG_ERROR, "the request " + request.trigger + " was served but stays: " + std::strerror(errno));
  return false;
}

bool EndPackage(const packages::Package& package, const StopFlag& stop) {
  const packages::EndedProcesses ended = packages::EndProcesses({package}, stop);
  Log(ended.left == 0 ? DLOG_INFO : DLOG_ERROR,
      "ended " + std::to_string(ended.politely + ended.forced) + " processes of " + package.packageId + ", " +
          std::to_string(ended.forced) + " of them by force; " + std::to_string(ended.left) + " left");
  return !stop;
}

bool EmptyCache(const packages::Package& package) {
  const int result = packages::ClearCache(package);
  if (result == 0)
    Log(DLOG_INFO, "emptied the cache of " + package.packageId);
  else
    Log(DLOG_ERROR,
        "the cache of " + package.packageId + " could not be emptied completely: " + std::to_string(result));
  return true;
}

long SizeOf(const packages::TreeResult& measured, const std::string& folder) {
  if (measured.error != 0 && measured.error != ENOENT)
    Log(DLOG_WARN, folder + " could not be measured completely: " + std::strerror(measured.error));
  return measured.bytes;
}

/// What is left is measured: who has a cache emptied and asks at once for its size wants that one. The asker waits for
/// five seconds.
void AwaitClearing(const std::string& packageId, const StopFlag& stop) {
  const auto end = std::chrono::steady_clock::now() + kClearingPatience;
  Request clearing;
  std::string ignored;
  while (!stop && std::chrono::steady_clock::now() < end &&
         ReadRequest(tager::kClearCache, true, clearing, ignored) == ReadState::kReady &&
         clearing.packageId == packageId)
    std::this_thread::sleep_for(kStep);
}

bool Answer(const Request& request, const packages::Package* package) {
  long data = 0, cache = 0;
  if (package) {
    data = SizeOf(packages::MeasureData(*package), packages::DataFolderOf(*package));
    // Without the web engine's cache, which lies outside the package and is counted by who asks.
    cache = SizeOf(packages::MeasureCache(*package), packages::CacheFolderOf(*package));
  }
  std::string problem;
  if (PublishAnswer(request, data, cache, problem)) return true;
  Log(DLOG_ERROR, "no answer to " + request.trigger + ": " + problem);
  return false;
}

/// Serves a request that names a package.
bool ServePackage(const Request& request, const StopFlag& stop) {
  // Measuring changes nothing, and is asked for every package of a set at once.
  const std::optional<packages::Package> package = request.kind == Kind::kMeasure
                                                       ? packages::ReadPackage(request.packageId)
                                                       : packages::FindByPackageId(request.packageId);
  if (!package) Log(DLOG_WARN, request.trigger + ": there is no package " + request.packageId);
  if (package && !request.appId.empty() && package->appId != request.appId) {
    Log(DLOG_ERROR, request.trigger + ": " + request.appId + " is no application of " + request.packageId);
    return RemoveServed(request);
  }
  const bool storesInCobalt = request.packageId == set_names::kCobaltPackage;
  if (request.kind == Kind::kMeasure) {
    AwaitClearing(request.packageId, stop);
    // Who asks adds it to the answer.
    if (storesInCobalt) PublishCobaltSize();
    return Answer(request, package ? &*package : nullptr);
  }
  const bool done = !package || (request.kind == Kind::kKill ? EndPackage(*package, stop) : EmptyCache(*package));
  if (request.kind == Kind::kClearCache && storesInCobalt) PublishCobaltSize();
  return done && Removed(request);
}

bool ServeSet(const Request& request, const StopFlag& stop) {
  if (request.kind == Kind::kMemoryBoost) return BoostMemory(stop) && Removed(request);
  if (request.kind == Kind::kCleanHoards) return CleanHoards(request.hoards, stop) && Removed(request);
  if (!CleanAll(stop)) return false;
  PublishCobaltSize();
  return Removed(request);
}

}  // namespace

bool PublishCobaltSize() {
  const std::string text = std::to_string(SizeOf(packages::MeasureTree(set_paths::kCobaltDir), set_paths::kCobaltDir));
  const std::string path = SystemPath(set_paths::kCobaltSize);
  std::string published, problem;
  if (ReadWholeFile(path, published, Links::kRefuse, kMostNoted) && published == text) return true;
  if (!MakeOwnFolder(set_paths::kTager, problem))
    Log(DLOG_ERROR, problem);
  else if (PublishFile(path, text, Readers::kEverybody))
    return true;
  else
    Log(DLOG_ERROR, std::string(set_paths::kCobaltSize) + ": " + std::strerror(errno));
  return false;
}

TaskManager::TaskManager(Jobs& jobs)
    : m_jobs(jobs),
      m_requests(set_paths::kTagerRequests, [this](const std::string& name) { Look(name); }),
      // When it was moved away the folders in it went along, unnoticed by their watches.
      m_folder(
          set_paths::kTager, [](const std::string&) {},
          [this] {
            m_requests.Start();
            m_answers.Start();
          }),
      m_answers(set_paths::kTagerAnswers, [](const std::string&) {}),
      m_results(set_paths::kQGuideFolder, [](const std::string&) {}) {}

TaskManager::~TaskManager() {
  if (m_cobaltTimer) g_source_remove(m_cobaltTimer);
  if (m_sweepTimer) g_source_remove(m_sweepTimer);
}

void TaskManager::Start() {
  FinishInterrupted();
  if (RemoveOldAnswers()) SweepLater();
  m_folder.Start();
  m_results.Start();
  KeepCobaltSize();
}

void TaskManager::KeepCobaltSize() {
  m_jobs.Run(
      Lane::kRequests, "cobalt size", [](const StopFlag&) { return PublishCobaltSize(); }, [] {});
  m_cobaltTimer = AddTimer(kCobaltPeriodMs, [this] { KeepCobaltSize(); });
}

void TaskManager::SweepLater() {
  if (m_sweepTimer) return;
  m_sweepTimer = AddTimer(kSweepMs, [this] {
    m_sweepTimer = 0;
    if (RemoveOldAnswers()) SweepLater();
  });
}

void TaskManager::Look(const std::string& trigger, bool isFinal) {
  Request request;
  std::string problem;
  switch (ReadRequest(trigger, isFinal, request, problem)) {
    case ReadState::kReady:
      return Serve(request);
    case ReadState::kIncomplete:
      return m_jobs.LookLater("writer of " + trigger, kWriterMs, [this, trigger] { Look(trigger, true); });
    case ReadState::kRefused:
      return Refuse(trigger, problem);
    case ReadState::kNoRequest:
      if (IsRequestName(trigger) || m_unknown.size() >= kMaxUnknown || !m_unknown.insert(trigger).second) return;
      Log(DLOG_WARN, std::string(set_paths::kTagerRequests) + "/" + trigger + " is no request; it is left alone");
  }
}

void TaskManager::Refuse(const std::string& trigger, const std::string& problem) {
  const std::string kept = RemoveRefused(trigger) ? "" : std::string("; it stays: ") + std::strerror(errno);
  Log(DLOG_ERROR, std::string(set_paths::kTagerRequests) + "/" + trigger + " is not served: " + problem + kept);
}

void TaskManager::Serve(const Request& request) {
  const bool ofPackage = !request.packageId.empty();
  m_jobs.Run(
      Lane::kRequests, request.trigger + " " + request.line,
      [=](const StopFlag& stop) { return ofPackage ? ServePackage(request, stop) : ServeSet(request, stop); },
      [this, trigger = request.trigger] { Look(trigger); });
  if (request.kind == Kind::kMeasure) SweepLater();
}

}  // namespace setd
