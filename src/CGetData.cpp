#include "CGetData.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <mutex>

#include "ContentTerms.h"
#include "DeviceQueries.h"
#include "SafeFile.h"
#include "TCThreadPool.h"
#include "VexiloLog.h"
#include "c_handle.h"
#include "connection.h"
#include "set_names.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

constexpr int kListThreads = 20;
constexpr char kYouTubeTitle[] = "YouTube";
// Applications whose data the user would not get back.
constexpr const char* kKeptData[] = {"org.varno.primevideo", set_names::kCobaltPackage, "org.varno.netflix-app"};

using PackageClient = std::unique_ptr<pkgmgr_client, CRelease<&pkgmgr_client_free>>;
using Connection = std::unique_ptr<connection_s, CRelease<&connection_destroy>>;

template <size_t N>
bool IsOneOf(const char* const (&texts)[N], const std::string& text) {
  for (const char* each : texts)
    if (text == each) return true;
  return false;
}

/// The largest or smallest number where there is no room for the sum: an answer may hold any number.
long long Sum(std::initializer_list<long long> parts) {
  long long sum = 0;
  for (const long long part : parts)
    if (__builtin_add_overflow(sum, part, &sum)) return part < 0 ? LLONG_MIN : LLONG_MAX;
  return sum;
}

long long WebCacheSize(const std::string& appId) {
  if (!IsPlainName(appId)) {
    VEXILO_LOGE("the web cache of [%s] is not measured: it is no application id", appId.c_str());
    return 0;
  }
  const std::string folder = std::string(set_paths::kWebCacheDir) + "/" + appId;
  if (!FileExists(folder)) return 0;
  const std::string word = CGetData::GetInstance()->GetStdoutFromCommand("du -bs " + SystemPath(folder));
  return std::strtoll(word.c_str(), nullptr, 10);
}

std::string IconPath(const std::string& folder, bool panel8K) {
  const std::string sized = folder + (panel8K ? "448x448.png" : "304x304.png");
  return FileExists(sized) ? sized : folder + "icon.png";
}

class AppInfoList {
 public:
  AppInfoList() = default;
  AppInfoList(const AppInfoList&) = delete;
  AppInfoList& operator=(const AppInfoList&) = delete;
  ~AppInfoList() { was_free_app_list(m_apps, m_count); }

  bool Fetch() { return was_get_app_list(WAS_LIST_REMOVABLE, &m_apps, &m_count) == WAS_ERROR_NONE; }
  const was_app_info_s* Data() const { return m_apps; }
  int Count() const { return m_count; }

 private:
  was_app_info_s* m_apps = nullptr;
  int m_count = 0;
};

}  // namespace

std::atomic<CGetData*> CGetData::m_pInstance = nullptr;
std::mutex CGetData::m_TVDMmutex;

CGetData* CGetData::GetInstance() {
  std::lock_guard lock(m_TVDMmutex);
  if (!m_pInstance) m_pInstance = new CGetData;
  return m_pInstance;
}

// ---- applications

/// One building of the list, which all its threads share.
struct CGetData::ListBuild {
  const bool panel8K;
  const bool hasConsent;

  /// Whether to ask the task manager for one more application: not when it left as many as are asked at once, and all
  /// so far, without an answer. Who asks then calls Tell(). Blocks until that many have told, or one had an answer.
  bool IsWorthAsking() {
    std::unique_lock lock(m_mutex);
    if (m_asked++ < kListThreads) return true;
    m_told.wait(lock, [this] { return m_answered || m_unanswered >= kListThreads; });
    return m_answered;
  }
  bool Tell(bool answered) {
    const std::lock_guard lock(m_mutex);
    (answered ? m_answered : m_unanswered) += 1;
    m_told.notify_all();
    return answered;
  }

  std::mutex m_mutex{};
  std::condition_variable m_told{};
  int m_asked = 0;
  int m_answered = 0;
  int m_unanswered = 0;
};

void CGetData::sendAppList() {
  std::lock_guard oneBuild(m_appListBuild);
  {
    std::lock_guard lock(m_appListMutex);
    m_appList.clear();
    m_appsCount = 0;
  }
  int count = 0;
  was_get_app_count(&count);
  VEXILO_LOGI("The app count is: [%d]", count);
  const bool panel8K = m_GetTypeOfTV();
  AppInfoList apps;
  if (!apps.Fetch()) {
    VEXILO_LOGE("get app list failed");
    return;
  }
  VEXILO_LOGI("app_list = %p,  apps count: %d", static_cast<const void*>(apps.Data()), apps.Count());
  std::vector<app_list_struct> records(static_cast<size_t>(apps.Count()));
  ListBuild build{panel8K, HasConsent()};
  try {
    // Its end waits for all of them.
    TCThreadPool pool(kListThreads);
    for (int i = 0; i < apps.Count(); ++i)
      boost::asio::post(pool.m_GetContext(), [this, &apps, &records, &build, i] {
        m_fillRecord(apps.Data()[i], i, build, records[static_cast<size_t>(i)]);
      });
  } catch (const boost::thread_resource_error& error) {
    VEXILO_LOGE("no threads to measure the applications with: %s", error.what());
  }
  std::lock_guard lock(m_appListMutex);
  for (app_list_struct& record : records)
    if (record.valid) m_appList.push_back(std::move(record));
  m_appsCount = static_cast<int>(m_appList.size());
  VEXILO_LOGI("actual value of count of apps is %d", m_appsCount.load());
}

void CGetData::m_fillRecord(const was_app_info_s& app, int index, ListBuild& build, app_list_struct& record) {
  VEXILO_LOGD("Fetching information for %d -> %s...", index, app.title);
  PackageClient client(pkgmgr_client_new(PC_REQUEST));
  if (!client) {
    VEXILO_LOGE("out of memory");
    return;
  }
  const std::string title = app.title;
  int totalResult = PKGMGR_R_OK;
  int dataResult = PKGMGR_R_OK;
  long long total = getAppSize(client.get(), app.package_id, PM_GET_TOTAL_SIZE, &totalResult);
  if (title == kYouTubeTitle) {
    total = Sum({total, getAppSizeForYoutube()});
    VEXILO_LOGD("final value of appsize for Youtube is %lld", total);
  }
  long data = 0;
  long cache = 0;
  const bool answered =
      build.IsWorthAsking() && build.Tell(findDataCacheSize(app.package_id, app.app_id, &data, &cache));
  const long long packageData = getAppSize(client.get(), app.package_id, PM_GET_DATA_SIZE, &dataResult);
  client.reset();
  const std::string icon = IconPath(app.icon_dir, build.panel8K);
  const long long webCache = WebCacheSize(app.app_id);
  if (!IsShownToViewer(title, build.hasConsent)) {
    VEXILO_LOGD("T&C NOT accepted");
    return;
  }
  if (!FileExists(icon)) {
    VEXILO_LOGE("Icon of the app doesnt exist");
    return;
  }
  record = {.valid = true,
            .app_name = title,
            .size = Sum({total, webCache, -packageData, data, cache}),
            .measured = answered && totalResult == PKGMGR_R_OK && dataResult == PKGMGR_R_OK,
            .package_id = app.package_id,
            .app_id = app.app_id,
            .service_id = app.service_id,
            .icon_path = icon,
            .attribute1 = app.attribute1,
            .attribute2 = app.attribute2,
            .selected = 0,
            .locked = app.locked};
}

std::vector<app_list_struct> CGetData::m_GetAppsDataStructure() const {
  std::lock_guard lock(m_appListMutex);
  return m_appList;
}

void CGetData::sendAppData(const std::string& packageName, const std::string& appId) {
  unsigned call = 0;
  {
    std::lock_guard lock(m_appSizesMutex);
    call = ++m_appDataCalls;
  }
  long data = 0;
  long cache = 0;
  const bool known = findDataCacheSize(packageName, appId, &data, &cache);
  const PackageClient client(pkgmgr_client_new(PC_REQUEST));
  if (!client) {
    VEXILO_LOGE("out of memory");
    return;
  }
  int totalResult = PKGMGR_R_OK;
  int dataResult = PKGMGR_R_OK;
  long total = static_cast<long>(getAppSize(client.get(), packageName, PM_GET_TOTAL_SIZE, &totalResult));
  VEXILO_LOGD("Total App Data size for requested app with Package name : %s and Varno ID : %s is %ld",
              packageName.c_str(), appId.c_str(), total);
  if (packageName == set_names::kCobaltPackage) {
    VEXILO_LOGD("For utube");
    total = static_cast<long>(Sum({total, getAppSizeForYoutube()}));
    VEXILO_LOGD("final value of appsize for Youtube is %ld", total);
  }
  const long packageData = static_cast<long>(getAppSize(client.get(), packageName, PM_GET_DATA_SIZE, &dataResult));
  VEXILO_LOGD("App Data + App Cache size for requested app with Package name : %s and Varno ID : %s is %ld",
              packageName.c_str(), appId.c_str(), packageData);
  // The web engine's cache lies outside the package, and goes with the package's own.
  const long webCache = static_cast<long>(WebCacheSize(appId));
  std::lock_guard lock(m_appSizesMutex);
  if (call != m_appDataCalls) return;
  m_appGone = totalResult == PKGMGR_R_ENOPKG;
  m_appSizesKnown = known && totalResult == PKGMGR_R_OK && dataResult == PKGMGR_R_OK;
  m_dataSizeOfApp = data;
  m_cacheSizeOfApp = static_cast<long>(Sum({cache, webCache}));
  m_totalSizeOfApp = static_cast<long>(Sum({total, webCache, -packageData, data, cache}));
}

long long CGetData::getAppSize(pkgmgr_client* client, const std::string& packageName, pkgmgr_getsize_type type,
                               int* result) {
  long long size = 0;
  const int error = pkgmgr_client_usr_get_size(client, packageName.c_str(), type, getuid(), &size);
  if (error != PKGMGR_R_OK)
    VEXILO_LOGE("size %d of package %s is not known: error %d", type, packageName.c_str(), error);
  if (result) *result = error;
  return size;
}

int CGetData::clearAppData(const std::string& appId) {
  if (m_IfDisableClearDataCache(appId)) return 1;
  const PackageClient client(pkgmgr_client_new(PC_REQUEST));
  if (!client) {
    VEXILO_LOGE("out of memory");
    return -1;
  }
  const int result = pkgmgr_client_clear_user_data(client.get(), nullptr, appId.c_str(), PM_QUIET);
  VEXILO_LOGI("Return value of pkgmgr_client_clear_user_data api is : %d", result);
  return result == PKGMGR_R_OK ? 0 : -1;
}

bool CGetData::m_IfDisableClearDataCache(const std::string& appId) {
  if (!IsOneOf(kKeptData, appId)) return false;
  VEXILO_LOGI("Do not clear data as prime, youtube & Netflix");
  return true;
}

// ---- storage and facts of the set

void CGetData::m_CalculateTotalSizeOfSystem() {
  long long total = 0;
  getTotalSize(&total);
  // Where no nominal size is told, or none is large enough, the disk has its own.
  if (total == 0 && system_info_get_storage_size(&total) != SYSTEM_INFO_ERROR_NONE) total = m_totalSystemSize;
  m_totalSystemSize = total;
  VEXILO_LOGI("total system size in fn Calculate total size of system is %lld", total);
}

void CGetData::sendFlashSize() {
  long long remaining = 0;
  long long used = 0;
  long long total = 0;
  getFlashSize(set_paths::kUserPartition, &remaining, &used, &total);
  m_usedSize = used;
  m_totalOptSize = total;
  // A nominal size may be smaller than what there is.
  m_systemUsedSize = std::max<int64_t>(0, m_totalSystemSize - total);
  VEXILO_LOGI("So system used will be %lld", static_cast<long long>(m_systemUsedSize));
}

int CGetData::getFlashSize(const std::string& path, long long* remaining, long long* used, long long* total) {
  struct statvfs info {};
  if (statvfs(SystemPath(path).c_str(), &info) != 0) {
    VEXILO_LOGE("API statvfs fails");
    return -1;
  }
  const auto blockSize = static_cast<long long>(info.f_frsize);
  const long long available = static_cast<long long>(info.f_bavail) * blockSize;
  const long long taken = static_cast<long long>(info.f_blocks - info.f_bfree) * blockSize;
  const long long hidden = available > kReservedSpace ? kReservedSpace : available;
  *remaining = available - hidden;
  *used = taken + hidden;
  *total = *remaining + *used;
  VEXILO_LOGI("remainingSize = %lld, usedSize = %lld", *remaining, *used);
  return 0;
}

void getTotalSize(long long* total) {
  constexpr long long kGigabytes[] = {4, 8, 16, 32, 64};
  VEXILO_LOGI("get Total sIZe called");
  int support = -1;
  const int result = system_info_get_custom_int("com.tornelo/featureconf/flash_size", &support);
  if (result != SYSTEM_INFO_ERROR_NONE || support < 0 || support > 4) {
    VEXILO_LOGE("Failed ret[%d] support[%d]", result, support);
    return;
  }
  VEXILO_LOGI("ram is %d", static_cast<int>(kGigabytes[support]));
  *total = kGigabytes[support] << 30;
  VEXILO_LOGI("total Bytes R -- %lld", *total);
}

bool CGetData::m_GetTypeOfTV() {
  int width = 0;
  int height = 0;
  system_info_get_custom_int("com.tornelo/featureconf/panel_resolution_width", &width);
  if (system_info_get_custom_int("com.tornelo/featureconf/panel_resolution_height", &height) != SYSTEM_INFO_ERROR_NONE)
    return false;
  VEXILO_LOGI("panel width  && height is %d ** %d", width, height);
  return width == 7680 && height == 4320;
}

bool CGetData::m_CheckForSwModel(const std::string& prefix) {
  const size_t found = GetSwModel().rfind(prefix);
  if (found == std::string::npos) return false;
  VEXILO_LOGD("at found index is %zu", found);
  return found == 0;
}

bool CGetData::m_CheckNetwork() {
  connection_h handle = nullptr;
  if (connection_create(&handle) != CONNECTION_ERROR_NONE) {
    VEXILO_LOGE("Connection create Failed");
    return false;
  }
  const Connection connection(handle);
  bool reachable = false;
  if (connection_is_gateway_reachable(handle, &reachable) != CONNECTION_ERROR_NONE) reachable = false;
  VEXILO_LOGI("%s", reachable ? "Connected" : "Not Connected");
  return reachable;
}

std::string CGetData::GetStdoutFromCommand(const std::string& command) {
  const std::unique_ptr<FILE, CRelease<&pclose>> pipe(popen((command + " 2>&1").c_str(), "re"));
  char line[256];
  if (!pipe || !std::fgets(line, sizeof line, pipe.get())) return "";
  VEXILO_LOGD("Buffer1 is : %s", line);
  char word[sizeof line] = "";
  std::sscanf(line, "%255s %*s", word);
  VEXILO_LOGD("Buffer2 is : %s", word);
  return word;
}

}  // namespace QUVA
