#include "CGetData.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "SafeFile.h"
#include "VexiloLog.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

constexpr int kDeepCleanChecks = 10;
constexpr auto kDeepCleanPause = std::chrono::seconds(1);
constexpr char kDeepCleanContent[] = "CleanUp\n";

}  // namespace

std::atomic<CGetData*> CGetData::m_pInstance = nullptr;
std::mutex CGetData::m_TVDMmutex;

CGetData* CGetData::GetInstance() {
  std::lock_guard lock(m_TVDMmutex);
  if (!m_pInstance) m_pInstance = new CGetData;
  return m_pInstance;
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
  const std::string request = SystemPath(set_paths::kDeepCleanRequest);
  for (int check = 0; check < kDeepCleanChecks; ++check) {
    struct stat info {};
    if (stat(request.c_str(), &info) != 0) return 0;
    VEXILO_LOGI("Waiting for another 1 second to complete deep Clean Process");
    std::this_thread::sleep_for(kDeepCleanPause);
  }
  VEXILO_LOGE("Deep Clean Process unable to complete in 10 seconds.. so returning failure...");
  return -1;
}

}  // namespace QUVA
