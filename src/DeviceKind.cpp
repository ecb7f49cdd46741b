#include "DeviceKind.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "VexiloLog.h"
#include "c_handle.h"
#include "system_info.h"

namespace QUVA {

namespace {

constexpr char kDeviceFeature[] = "com.tornelo/featureconf/product.device_sid";

// The ids of solutions that have variants. All begin with kTvPrefix.
constexpr std::string_view kVariedSids[] = {
    "TV_SID_USING_OFF_TIMER",
    "TV_SID_SELECT_SOUND_TEST",
    "TV_SID_TURN_ON_SW_AUTO_UPDATE",
    "TV_SID_CARE_CAMAR_WHEN_APO_WILL_OFF_DO_WANT_CONTINUE_APO",
    "TV_SID_CHECK_INVISIBLE_CABLE_BACK_TV",
};
constexpr std::string_view kTvPrefix = "TV_SID_";
constexpr char kProjectorPrefix[] = "PJT_SID_";
constexpr char kScreenPrefix[] = "REP.DEVICE.SCREEN_SID_CCDEC_";

}  // namespace

DeviceKind GetDeviceKind() {
  char* value = nullptr;
  if (system_info_get_custom_string(kDeviceFeature, &value) != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("Failed to get Product SID. Default SID is placed.");
    return DEVICE_KIND_TV;
  }
  const CText owner(value);
  const std::string_view kind = value;
  if (kind == "NOT_READY" || kind == "REP.DEVICE.TV") return DEVICE_KIND_TV;
  return kind == "REP.DEVICE.SCREEN" ? DEVICE_KIND_SCREEN : DEVICE_KIND_PROJECTOR;
}

std::string SidForDevice(const std::string& sid) {
  if (std::find(std::begin(kVariedSids), std::end(kVariedSids), sid) == std::end(kVariedSids)) return sid;
  VEXILO_LOGI("it contains TV term so  need to replace");
  const DeviceKind kind = GetDeviceKind();
  std::string variant = sid;
  if (kind != DEVICE_KIND_TV)
    variant.replace(0, kTvPrefix.size(), kind == DEVICE_KIND_SCREEN ? kScreenPrefix : kProjectorPrefix);
  VEXILO_LOGI("the sid for the same is %s", variant.c_str());
  return variant;
}

}  // namespace QUVA
