// The requests that the task manager answers through files.

#include <cerrno>
#include <chrono>
#include <cstdio>

#include "CGetData.h"
#include "FileWatch.h"
#include "SafeFile.h"
#include "VexiloLog.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

constexpr auto kPause = std::chrono::seconds(1);
constexpr int kSizeChecks = 5;
constexpr int kDeepCleanChecks = 10;

constexpr char kKillPayload[] = "/tmp/tager/killApp";
constexpr char kKillRequest[] = "/tmp/tager/req/killApp";
constexpr char kClearCachePayload[] = "/tmp/tager/clearAppCache";
constexpr char kClearCacheRequest[] = "/tmp/tager/req/clearAppCache";
constexpr char kSizePayload[] = "/tmp/tager/calcAppDataCacheSize_";
constexpr char kSizeRequest[] = "/tmp/tager/req/calcAppDataCacheSize_";
constexpr char kSizeAnswer[] = "/tmp/tager/ack/appDataCacheSize_";
constexpr char kSizeResult[] = "/tmp/tager/appDataCacheSize_";
constexpr char kDeepCleanContent[] = "CleanUp\n";

bool CreateAndLog(const char* path, const std::string& content) {
  const bool created = CreateFileWithoutLinks(path, content);
  if (created)
    VEXILO_LOGI("[TVMGR-NATIVE] file created successfully (%s)", path);
  else
    VEXILO_LOGE("[TVMGR-NATIVE] file creation failed (%s)", path);
  return created;
}

bool AwaitAnswer(const std::string& answer) {
  FileWatch watch(answer);
  for (int check = 0; check < kSizeChecks; ++check)
    if (watch.WaitFor(true, kPause)) return true;
  return false;
}

void RemoveFile(const std::string& path) {
  std::remove(SystemPath(path).c_str());
}

}  // namespace

void CGetData::killApp(const char* packageName) {
  if (!packageName) {
    VEXILO_LOGE("no application to end");
    return;
  }
  VEXILO_LOGI("Package Name for the app to be killed is : %s", packageName);
  if (CreateAndLog(kKillPayload, std::string(packageName) + "\n")) CreateAndLog(kKillRequest, "");
}

int CGetData::clearAppCache(const std::string& packageName, const std::string& appId) {
  VEXILO_LOGI("Package Name and Varno Id of App for cache clean are %s and %s", packageName.c_str(), appId.c_str());
  if (!CreateFileWithoutLinks(kClearCachePayload, packageName + "|" + appId + "\n")) {
    VEXILO_LOGE("[TVMGR-NATIVE] file creation failed (%s)", kClearCachePayload);
    return -1;
  }
  return CreateAndLog(kClearCacheRequest, "") ? 0 : -1;
}

void CGetData::findDataCacheSize(const std::string& packageName, const std::string& appId, long* dataSize,
                                 long* cacheSize) {
  const std::string line = packageName + "|" + appId + "\n";
  const std::string payload = kSizePayload + appId;
  const std::string request = kSizeRequest + appId;
  const std::string answer = kSizeAnswer + appId;
  const std::string result = kSizeResult + appId;
  if (!CreateFileWithoutLinks(payload, line)) {
    VEXILO_LOGE("[TVMGR-NATIVE] File creation failed of %s", payload.c_str());
    return;
  }
  if (!CreateFileWithoutLinks(request, line)) {
    VEXILO_LOGE("[TVMGR-NATIVE] file creation failed for %s", request.c_str());
    return;
  }
  if (!AwaitAnswer(answer)) return;
  FileHandle file(std::fopen(SystemPath(result).c_str(), "re"));
  if (!file) {
    VEXILO_LOGE("[TAGER-NATIVE] Unable to open file %s", result.c_str());
    return;
  }
  if (std::fscanf(file.get(), "%ld|%ld", dataSize, cacheSize) != 2)
    VEXILO_LOGE("%s does not hold two numbers", result.c_str());
  file.reset();
  RemoveFile(answer);
  RemoveFile(result);
}

int CGetData::performMemBoost() {
  if (CreateFileWithoutLinks(set_paths::kMemBoostRequest, "")) return 0;
  VEXILO_LOGE("File creation failed (%s) with error number : %d", set_paths::kMemBoostRequest, errno);
  return -1;
}

int CGetData::performDeepClean() {
  if (!CreateFileWithoutLinks(set_paths::kDeepCleanRequest, kDeepCleanContent)) {
    VEXILO_LOGE("File creation failed (%s)", set_paths::kDeepCleanRequest);
    return -1;
  }
  VEXILO_LOGI("[TVMGR] File (%s) Created Successfully", set_paths::kDeepCleanRequest);
  FileWatch watch(set_paths::kDeepCleanRequest);
  for (int check = 0; check < kDeepCleanChecks; ++check) {
    if (!watch.Exists()) return 0;
    VEXILO_LOGI("Waiting for another 1 second to complete deep Clean Process");
    if (watch.WaitFor(false, kPause)) return 0;
  }
  VEXILO_LOGE("Deep Clean Process unable to complete in 10 seconds.. so returning failure...");
  return -1;
}

long long getAppSizeForYoutube() {
  VEXILO_LOGI("request size 4 YouTube");
  long long size = 0;
  const FileHandle file(std::fopen(SystemPath(set_paths::kCobaltSize).c_str(), "re"));
  if (!file) {
    VEXILO_LOGE("[TAGER-NATIVE] Unable to open file %s", set_paths::kCobaltSize);
    return 0;
  }
  if (std::fscanf(file.get(), "%lld", &size) != 1) size = 0;
  VEXILO_LOGI("size obtained for cobalt = %lld", size);
  return size;
}

}  // namespace QUVA
