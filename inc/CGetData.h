#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "AppState.h"
#include "DeviceQueries.h"
#include "TaskManagerRequests.h"
#include "pkgmgr_client.h"
#include "was_api.h"

namespace QUVA {

/// Bytes of the user partition that are kept from the user; what is free beyond them is low below as many.
inline constexpr long long kReservedSpace = 70LL << 20;

/// How much of the user partition is left.
enum FlashState { FLASH_FULL = 0, FLASH_LOW = 1, FLASH_ENOUGH = 2 };

/// What CheckDeviceState() finds.
enum DeviceState { DEVICE_NORMAL = 0, DEVICE_GOOD = 1 };

/// An application of the list.
struct app_list_struct {
  bool valid = false;  ///< it passed the filters
  std::string app_name;
  long long size = 0;      ///< bytes
  bool measured = false;   ///< the size is the whole of it; else something could not be measured
  std::string package_id;  ///< for the package manager
  std::string app_id;      ///< for the task manager and for launching
  std::string service_id;
  std::string icon_path;  ///< of the set
  int attribute1 = 0;     ///< the web-application service's own
  int attribute2 = 0;
  int selected = 0;
  int locked = 0;  ///< a was_lock_e; non-zero: must not be deleted
};

/// The nominal storage of the set in bytes; `*total` is untouched when the set does not say.
void getTotalSize(long long* total);

/// The device data service: what the application knows of the set and its applications, and what it asks the set's
/// services to do.
/// Thread rule: callable from any thread; what blocks says so and is kept off the main thread. The measured sizes are
/// those of the newest call: one thread at a time asks for them.
class CGetData {
 public:
  /// Created on first use, never destroyed.
  static CGetData* GetInstance();

  CGetData(const CGetData&) = delete;
  CGetData& operator=(const CGetData&) = delete;

  void m_SetCurrentScreen(_CurrentScreen screen) { AppState::Instance().currentScreen = screen; }
  _CurrentScreen m_GetCurrentScreen() const { return AppState::Instance().currentScreen; }

  // ---- applications

  /// Builds the list of removable applications anew. Blocks for as long as the task manager takes for the slowest one,
  /// five seconds at most for each twenty applications. When it answers for none of the first twenty, it is not asked
  /// for the others.
  void sendAppList();
  /// Does nothing; the list is built by calling sendAppList() from a worker.
  void EcoreToSendAppList() {}
  std::vector<app_list_struct> m_GetAppsDataStructure() const;
  int m_GetAppsCount() const { return m_appsCount; }

  /// Measures one application; its cache is the package's and the web engine's. Blocks for five seconds at most. What a
  /// call finds is dropped when a later one was made meanwhile.
  void sendAppData(const std::string& packageName, const std::string& appId);
  /// Whether the last sendAppData() found out all sizes; else some stand as 0.
  bool m_AreAppSizesKnown() const { return m_appSizesKnown; }
  /// Whether it found that the application is not installed.
  bool m_IsAppGone() const { return m_appGone; }
  long m_GetTotalSizeOfApp() const { return m_totalSizeOfApp; }
  long m_GetDataSizeOfApp() const { return m_dataSizeOfApp; }
  long m_GetCacheSizeOfApp() const { return m_cacheSizeOfApp; }
  void m_SetTotalSizeOfApp(long bytes) { m_totalSizeOfApp = bytes; }
  void m_SetDataSizeOfApp(long bytes) { m_dataSizeOfApp = bytes; }
  void m_SetCacheSizeOfApp(long bytes) { m_cacheSizeOfApp = bytes; }

  /// A size of a package in bytes, for the user of this process; 0 when it is not known, and `result`, if given, says
  /// why (PKGMGR_R_*). Blocks while it is measured.
  long long getAppSize(pkgmgr_client* client, const std::string& packageName, pkgmgr_getsize_type type,
                       int* result = nullptr);

  /// Empties an application's data. 0 for success, -1 for failure, 1 for an application whose data must stay.
  int clearAppData(const std::string& appId);
  bool m_IfDisableClearDataCache(const std::string& appId);

  // ---- storage and facts of the set

  /// Refreshes the used, total and system sizes. m_CalculateTotalSizeOfSystem() comes first. What the system uses is
  /// never below 0.
  void sendFlashSize();
  /// The nominal storage of the set (getTotalSize()), or the size of the disk where that is not told.
  void m_CalculateTotalSizeOfSystem();
  int64_t m_GetUsedSize() const { return m_usedSize; }
  int64_t m_GetTotalOptSize() const { return m_totalOptSize; }
  int64_t m_GetSystemUsedSize() const { return m_systemUsedSize; }
  /// The space of the file system at `path` (of the set) in bytes, a reserve of 70 MiB counted as used. 0 or -1.
  int getFlashSize(const std::string& path, long long* remaining, long long* used, long long* total);

  /// Whether the panel is an 8K one.
  bool m_GetTypeOfTV();
  /// Whether the set's software model begins with `prefix` and has it nowhere else.
  bool m_CheckForSwModel(const std::string& prefix);
  /// Whether a default gateway can be reached.
  bool m_CheckNetwork();
  /// The first word of what a shell command prints, on either stream; at most 255 bytes. Blocks until it ends.
  std::string GetStdoutFromCommand(const std::string& command);

  // ---- requests to the task manager (TaskManagerRequests.h)

  void killApp(const char* packageName) { KillApp(packageName); }
  int clearAppCache(const std::string& packageName, const std::string& appId) {
    return ClearAppCache(packageName, appId);
  }
  bool findDataCacheSize(const std::string& packageName, const std::string& appId, long* dataSize, long* cacheSize) {
    return FindDataCacheSize(packageName, appId, dataSize, cacheSize);
  }
  int performMemBoost() { return PerformMemBoost(); }
  int performDeepClean() { return PerformDeepClean(); }

  // ---- other applications and the state of the set; main thread

  /// Launches an application with the extra data that it expects. Whether the request was accepted.
  bool ProcessLaunchApp(const char* appId);
  void launch_menu_app();
  void launch_hotel_menu();

  /// A FlashState.
  int CheckFlashFreespaceState();
  /// A DeviceState.
  int LookAtDeviceState();
  /// The same. Tells the KPI log as well.
  int CheckDeviceState();
  /// The message id of the verdict on a DeviceState.
  std::string getSIDForDeviceState(int state);
  /// The user's consent to the content terms; 1 when given.
  int m_CheckTermsCond();
  /// Whether the set offers support on request.
  bool check_request_support_enable();

 private:
  CGetData() = default;

  struct ListBuild;
  void m_fillRecord(const was_app_info_s& app, int index, ListBuild& build, app_list_struct& record);

  std::atomic<int> m_appsCount{0};
  std::mutex m_appListBuild;  ///< one build at a time: their requests have the same names
  mutable std::mutex m_appListMutex;
  std::vector<app_list_struct> m_appList;
  std::atomic<int64_t> m_usedSize{0};
  std::atomic<int64_t> m_totalOptSize{0};
  std::atomic<int64_t> m_systemUsedSize{0};
  std::atomic<int64_t> m_totalSystemSize{0};
  std::atomic<long> m_totalSizeOfApp{0};
  std::atomic<long> m_dataSizeOfApp{0};
  std::atomic<long> m_cacheSizeOfApp{0};
  std::atomic<bool> m_appSizesKnown{false};
  std::atomic<bool> m_appGone{false};
  std::mutex m_appSizesMutex;   ///< what one call found is stored as a whole
  unsigned m_appDataCalls = 0;  ///< guarded by it

  static std::atomic<CGetData*> m_pInstance;
  static std::mutex m_TVDMmutex;
};

}  // namespace QUVA
