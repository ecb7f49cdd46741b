// Launching other applications, and the checks that decide what is offered.

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "AppIds.h"
#include "AppState.h"
#include "CGetData.h"
#include "QUVA_DiagManager.h"
#include "QUVA_KPISender.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "app_framework.h"
#include "c_handle.h"
#include "home_data_control.h"
#include "set_paths.h"
#include "system_info.h"
#include "vconf.h"

namespace QUVA {

namespace {

constexpr char kSmartMonitorFeature[] = "com.tornelo/featureconf/product.smart_monitor_feature_support";

using Extras = std::vector<std::pair<const char*, std::string>>;

bool Launch(const char* appId, const Extras& extras) {
  app_control_h handle = nullptr;
  app_control_create(&handle);
  const std::unique_ptr<app_control_s, CRelease<&app_control_destroy>> control(handle);
  app_control_set_operation(handle, APP_CONTROL_OPERATION_DEFAULT);
  app_control_set_app_id(handle, appId);
  for (const auto& [key, value] : extras) app_control_add_extra_data(handle, key, value.c_str());
  if (app_control_send_launch_request(handle, nullptr, nullptr) == APP_CONTROL_ERROR_NONE) return true;
  VEXILO_LOGE("Error while executing Menu");
  return false;
}

Extras LaunchedFromHere() {
  AppState::Instance().exitOnPause = true;
  return {{"launchedFrom", kApplicationId}};
}

Extras SignalInformation() {
  const std::string page = QUVA_DiagManager::GetInstance()->StartSelfDiagnosis("SignalInfo");
  AppState::Instance().exitOnPause = true;
  VEXILO_LOGI("signal launch %s", page.c_str());
  return {{"ID", page}, {"PrevSubmenu", kApplicationId}, {"__K_RELOCATE_BELOW", "org.varno.tv-viewer"}};
}

Extras NetworkStatus() {
  return {{"launchby", "others"}, {"callerid", kApplicationId}, {"type", "networkstatus"}};
}

Extras HdmiTroubleshooting() {
  return {{"type", "VIDEO_TROUBLE_SHOOTING_SETUP"}};
}

Extras Terms() {
  return {{"type", "TERMS_SETUP"}};
}

// What each application is told; the others are told nothing.
struct Target {
  const char* appId;
  Extras (*extras)();
};
constexpr Target kTargets[] = {
    {app_ids::kPictureTest, LaunchedFromHere},
    {app_ids::kVideoTest, LaunchedFromHere},
    {app_ids::kSoundTest, LaunchedFromHere},
    {app_ids::kHomedeckReset, LaunchedFromHere},
    {app_ids::kHomedeckConnectionTest, LaunchedFromHere},
    {app_ids::kModulesTest, LaunchedFromHere},
    {app_ids::kHdmiTroubleshooting, HdmiTroubleshooting},
    {app_ids::kSignalPages, SignalInformation},
    {app_ids::kMenu, NetworkStatus},
    {app_ids::kWizard, Terms},
};

}  // namespace

bool CGetData::ProcessLaunchApp(const char* appId) {
  if (!appId) {
    VEXILO_LOGE("no application to launch");
    return false;
  }
  const std::string_view id = appId;
  const auto target =
      std::find_if(std::begin(kTargets), std::end(kTargets), [id](const Target& each) { return id == each.appId; });
  const bool exitOnPause = AppState::Instance().exitOnPause;
  if (Launch(appId, target == std::end(kTargets) ? Extras() : target->extras())) return true;
  // Nothing was launched that this application would have to make room for.
  AppState::Instance().exitOnPause = exitOnPause;
  return false;
}

void CGetData::launch_menu_app() {
  Launch(app_ids::kMenu, {{"menuitem", "tdm"}});
}

void CGetData::launch_hotel_menu() {
  VEXILO_LOGI("launch Hotel Menu");
  Launch(app_ids::kHotelMenu, {});
}

int CGetData::CheckFlashFreespaceState() {
  long long remaining = 0;
  long long used = 0;
  long long total = 0;
  getFlashSize(set_paths::kUserPartition, &remaining, &used, &total);
  VEXILO_LOGI("CheckFlashFreespaceState() : remaining size : %lld, used size : %lld, total size : %lld", remaining,
              used, total);
  if (remaining == 0) {
    VEXILO_LOGI("freespaceRate is %d%% ", 0);
    return FLASH_FULL;
  }
  return remaining < kReservedSpace ? FLASH_LOW : FLASH_ENOUGH;
}

namespace {

int StateOf(int flash) {
  return flash == FLASH_FULL ? DEVICE_NORMAL : DEVICE_GOOD;
}

}  // namespace

int CGetData::CheckDeviceState() {
  VEXILO_LOGI("CheckDeviceState");
  const int flash = CheckFlashFreespaceState();
  VEXILO_LOGI("CheckFlashState : %d", flash);
  const int state = StateOf(flash);
  QUVA_KPISender::GetInstance()->SendVexiloKPI("DeviceState", state == DEVICE_GOOD ? "Good" : "Normal");
  return state;
}

int CGetData::LookAtDeviceState() {
  return StateOf(CheckFlashFreespaceState());
}

std::string CGetData::getSIDForDeviceState(int state) {
  VEXILO_LOGI("get SID for device state");
  if (state == DEVICE_NORMAL) {
    VEXILO_LOGI("it is normal");
    return "COM_SID_NORMAL";
  }
  if (state == DEVICE_GOOD) {
    VEXILO_LOGI("state is good");
    return "TV_SID_VOICEASSISTANT_WEATHER_GOOD";
  }
  VEXILO_LOGI("It is bad");
  return "TV_SID_VOICEASSISTANT_WEATHER_BAD";
}

int CGetData::m_CheckTermsCond() {
  int value = 0;
  const int result = vconf_get_int(kConsentKey, &value);
  if (result != 0) {
    VEXILO_LOGE("(ret=%d) get defaultdisclaimeragree failed", result);
    return 0;
  }
  VEXILO_LOGI("(ret=%d, value=%d) get defaultdisclaimeragree success", result, value);
  return value;
}

bool CGetData::check_request_support_enable() {
  bool smartMonitor = true;
  if (system_info_get_custom_bool(kSmartMonitorFeature, &smartMonitor) != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("Failed to get fms key value for Smart Monitor.. Forcely setting as False..");
    smartMonitor = false;
  } else {
    VEXILO_LOGI("isProductTornelo %d", smartMonitor);
  }
  const bool known = CHomeDataControlAPI::GetInstance()->IsDisclaimerItemExist("service_request", "TV");
  const bool enabled = known && !smartMonitor;
  VEXILO_LOGI("%s", enabled ? "CHECK_REQUEST_SUPPORT_ENABLE" : "CHECK_REQUEST_SUPPORT_DISABLE");
  return enabled;
}

}  // namespace QUVA
