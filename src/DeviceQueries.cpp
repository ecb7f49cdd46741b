#include "DeviceQueries.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "VexiloLog.h"
#include "c_handle.h"
#include "tv_service.h"

namespace QUVA {

namespace {

constexpr int kMainScreen = 1;
constexpr int kNoChannel = -1;
constexpr int kNoSource = -1;
constexpr int kSignageProduct = 4;
constexpr int kHdmiInputs[] = {13, 14, 15, 16, 38, 39};
constexpr int kHdmiInputsWithoutIssues[] = {46, 47};
constexpr char kChipSetFeature[] = "com.tornelo/featureconf/product.chipset";
constexpr char kOstravFeature[] = "com.tornelo/featureconf/the_ostrav_version";
constexpr char kProductTypeFeature[] = "com.tornelo/featureconf/product.product_type";

template <size_t N>
bool Contains(const int (&numbers)[N], int number) {
  return std::find(std::begin(numbers), std::end(numbers), number) != std::end(numbers);
}

// The text that a query of the set's gave in `value`, or `failure` in the log and an empty one.
std::string Taken(int result, char* value, const char* what, const char* failure) {
  if (result != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("%s", failure);
    return "";
  }
  std::string text = CText(value).get();
  VEXILO_LOGI("%s : %s", what, text.c_str());
  return text;
}

}  // namespace

std::string GetSystemInfo(system_info_key_e key) {
  char* value = nullptr;
  if (system_info_get_value_string(key, &value) == SYSTEM_INFO_ERROR_NONE) return CText(value).get();
  VEXILO_LOGE("the set does not say system information %d", key);
  return "";
}

int GetChannelType() {
  const auto navigation = TVServiceAPI::CreateServiceNavigation(kMainScreen);
  if (!navigation) {
    VEXILO_LOGE("Unable to create ServiceNavigation handle");
    return kNoChannel;
  }
  TCCriteriaHelper criteria;
  criteria.FetchCurrentService();
  std::vector<TCService> services;
  if (navigation->Fetch(criteria, services) <= 0) {
    VEXILO_LOGD("Return false");
    return kNoChannel;
  }
  const int type = services.empty() ? kNoChannel : services.front().channelType;
  VEXILO_LOGD("Channel type : %d", type);
  return type;
}

int GetCurrentSourceInfo() {
  int source = kNoSource;
  const auto control = TVServiceAPI::CreateSourceControl(kMainScreen);
  if (control && control->GetCurrentSource(source) > 0) VEXILO_LOGD("GetCurrentSourceInfo success");
  VEXILO_LOGD("Current source : %d", source);
  return source;
}

bool IsHdmiForSignalCheck(int source) {
  return IsHdmiForIssues(source) || Contains(kHdmiInputsWithoutIssues, source);
}

bool IsHdmiForIssues(int source) {
  return Contains(kHdmiInputs, source);
}

std::string GetSwModel() {
  char* value = nullptr;
  const int result = system_info_get_value_string(SYSTEM_INFO_KEY_SW_MODEL, &value);
  return Taken(result, value, "software model", "Failed to get Software Model");
}

std::string GetChipSet() {
  char* value = nullptr;
  const int result = system_info_get_custom_string(kChipSetFeature, &value);
  return Taken(result, value, "chipset", "Failed to get chipset");
}

std::string GetLocalSet() {
  char* value = nullptr;
  const int result = system_info_get_value_string(SYSTEM_INFO_KEY_LOCAL_SET, &value);
  return Taken(result, value, "local set", "Failed to get local set");
}

int GetOstravVersion() {
  int version = 0;
  if (system_info_get_custom_int(kOstravFeature, &version) != SYSTEM_INFO_ERROR_NONE)
    VEXILO_LOGE("Failed to get Ostrav TV version value");
  VEXILO_LOGI("panel version : %d", version);
  return version;
}

int GetTVProductType() {
  int type = 0;
  if (system_info_get_custom_int(kProductTypeFeature, &type) != SYSTEM_INFO_ERROR_NONE)
    VEXILO_LOGE("Cannot get %s", kProductTypeFeature);
  VEXILO_LOGI("product type : %d", type);
  return type;
}

bool IsSignage() {
  const bool signage = GetTVProductType() == kSignageProduct;
  VEXILO_LOGI("signage : %d", signage);
  return signage;
}

}  // namespace QUVA
