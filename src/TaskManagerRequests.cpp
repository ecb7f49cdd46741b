#include "TaskManagerRequests.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <mutex>

#include "FileWatch.h"
#include "SafeFile.h"
#include "VexiloLog.h"
#include "ownership.h"
#include "request_files.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

constexpr auto kPause = std::chrono::seconds(1);
constexpr auto kTurnPatience = std::chrono::seconds(3);
constexpr auto kHoardsPatience = std::chrono::seconds(120);
constexpr size_t kLargestAnswer = 64;  // bytes: two numbers
constexpr int kSizeChecks = 5;
constexpr int kDeepCleanChecks = 10;

bool CreateAndLog(const std::string& path, const std::string& content) {
  const bool created = CreateFileWithoutLinks(path, content);
  if (created)
    VEXILO_LOGI("[TVMGR-NATIVE] file created successfully (%s)", path.c_str());
  else
    VEXILO_LOGE("[TVMGR-NATIVE] file creation failed (%s)", path.c_str());
  return created;
}

/// Those who leave requests of one name.
struct Turns {
  const char* request;  ///< the name of those
  std::mutex mutex{};
  std::string overdue{};  ///< the request that took the place of one that nobody took in time
};

/// Requests of one name share their files, so each waits until the task manager has taken the one before; one that it
/// does not take in time is overwritten. Where it took none, there is no other wait until something changes.
class Turn {
 public:
  explicit Turn(Turns& turns) : m_turns(turns), m_lock(turns.mutex) {
    const std::string trigger = tager::TriggerPath(turns.request);
    // What a link leads to is nobody's request.
    if (!IsExchangeInOrder(trigger)) return;
    const std::string writing = WritingOf(SystemPath(trigger));
    m_isLate = !writing.empty() && (writing == turns.overdue || !FileWatch(trigger).WaitFor(false, kTurnPatience));
    if (m_isLate) VEXILO_LOGE("[TVMGR-NATIVE] an earlier request is still there (%s)", trigger.c_str());
  }
  ~Turn() { m_turns.overdue = m_isLate ? WritingOf(SystemPath(tager::TriggerPath(m_turns.request))) : ""; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Turns& m_turns;
  const std::unique_lock<std::mutex> m_lock;
  bool m_isLate = false;
};

bool AwaitAnswer(const std::string& answer) {
  FileWatch watch(answer);
  for (int check = 0; check < kSizeChecks; ++check)
    if (watch.WaitFor(true, kPause)) return true;
  return false;
}

/// What the task manager has written there; false when it cannot be read, which is in the log.
bool ReadAnswer(const std::string& path, std::string& text) {
  std::string problem;
  if (!IsExchangeInOrder(path))
    problem = exchange::WhyNot(errno);
  else if (ReadRegularFile(path, kLargestAnswer, false, text, problem))
    return true;
  VEXILO_LOGE("[TAGER-NATIVE] Unable to open file %s", path.c_str());
  VEXILO_LOGE("%s: %s", path.c_str(), problem.c_str());
  return false;
}

void RemoveFile(const std::string& path) {
  std::remove(SystemPath(path).c_str());
}

}  // namespace

void KillApp(const char* packageName) {
  if (!packageName) {
    VEXILO_LOGE("no application to end");
    return;
  }
  VEXILO_LOGI("Package Name for the app to be killed is : %s", packageName);
  static Turns& turns = *new Turns{tager::kKill};
  const Turn turn(turns);
  if (CreateAndLog(tager::PayloadPath(tager::kKill), tager::PackageLine(packageName)))
    CreateAndLog(tager::TriggerPath(tager::kKill), "");
}

int ClearAppCache(const std::string& packageName, const std::string& appId) {
  VEXILO_LOGI("Package Name and Varno Id of App for cache clean are %s and %s", packageName.c_str(), appId.c_str());
  static Turns& turns = *new Turns{tager::kClearCache};
  const Turn turn(turns);
  const std::string payload = tager::PayloadPath(tager::kClearCache);
  if (!CreateFileWithoutLinks(payload, tager::ApplicationLine(packageName, appId))) {
    VEXILO_LOGE("[TVMGR-NATIVE] file creation failed (%s)", payload.c_str());
    return -1;
  }
  return CreateAndLog(tager::TriggerPath(tager::kClearCache), "") ? 0 : -1;
}

bool FindDataCacheSize(const std::string& packageName, const std::string& appId, long* dataSize, long* cacheSize) {
  const std::string line = tager::ApplicationLine(packageName, appId);
  const std::string payload = tager::PayloadPath(tager::kMeasurePrefix + appId);
  const std::string request = tager::TriggerPath(tager::kMeasurePrefix + appId);
  const std::string answer = tager::AcknowledgementPath(tager::kAnswerPrefix + appId);
  const std::string result = tager::PayloadPath(tager::kAnswerPrefix + appId);
  if (!CreateFileWithoutLinks(payload, line)) {
    VEXILO_LOGE("[TVMGR-NATIVE] File creation failed of %s", payload.c_str());
    return false;
  }
  // The answer to an earlier request that was given up is not the one to this. The task manager looks for a payload
  // that was written anew just before it publishes one: only where it has looked already, that answer, measured a
  // moment ago, still comes and serves this request, too.
  RemoveFile(answer);
  RemoveFile(result);
  if (!CreateFileWithoutLinks(request, line)) {
    VEXILO_LOGE("[TVMGR-NATIVE] file creation failed for %s", request.c_str());
    return false;
  }
  if (!AwaitAnswer(answer)) return false;
  std::string sizes;
  if (!ReadAnswer(result, sizes)) return false;
  long data = 0;
  long cache = 0;
  const bool whole = std::sscanf(sizes.c_str(), tager::kSizesFormat, &data, &cache) == 2;
  if (whole) {
    *dataSize = data;
    *cacheSize = cache;
  } else {
    VEXILO_LOGE("%s does not hold two numbers", result.c_str());
  }
  RemoveFile(answer);
  RemoveFile(result);
  return whole;
}

// Of several that are there at once one is enough: they say nothing that another could overwrite.
int PerformMemBoost() {
  const std::string request = tager::TriggerPath(tager::kMemoryBoost);
  if (CreateFileWithoutLinks(request, "")) return 0;
  VEXILO_LOGE("File creation failed (%s) with error number : %d", request.c_str(), errno);
  return -1;
}

int PerformDeepClean() {
  const std::string request = tager::TriggerPath(tager::kDeepClean);
  if (!CreateFileWithoutLinks(request, tager::kDeepCleanText)) {
    VEXILO_LOGE("File creation failed (%s)", request.c_str());
    return -1;
  }
  VEXILO_LOGI("[TVMGR] File (%s) Created Successfully", request.c_str());
  FileWatch watch(request);
  for (int check = 0; check < kDeepCleanChecks; ++check) {
    if (!watch.Exists()) return 0;
    VEXILO_LOGI("Waiting for another 1 second to complete deep Clean Process");
    if (watch.WaitFor(false, kPause)) return 0;
  }
  VEXILO_LOGE("Deep Clean Process unable to complete in 10 seconds.. so returning failure...");
  return -1;
}

bool PerformCleanHoards(const std::vector<std::string>& keys) {
  std::string line;
  for (const std::string& key : keys) line += (line.empty() ? "" : " ") + key;
  const std::string request = tager::TriggerPath(tager::kCleanHoards);
  if (!CreateAndLog(request, line + "\n")) return false;
  if (FileWatch(request).WaitFor(false, kHoardsPatience)) return true;
  VEXILO_LOGE("the task manager has not removed %s in time", line.c_str());
  RemoveFile(request);
  return false;
}

long long getAppSizeForYoutube() {
  VEXILO_LOGI("request size 4 YouTube");
  long long size = 0;
  std::string text;
  if (!ReadAnswer(set_paths::kCobaltSize, text)) return 0;
  if (std::sscanf(text.c_str(), "%lld", &size) != 1) size = 0;
  VEXILO_LOGI("size obtained for cobalt = %lld", size);
  return size;
}

}  // namespace QUVA
