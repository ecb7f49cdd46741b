#include "CUtils.h"

#include <vector>

#include "QUVA_DiagManager.h"
#include "ReportTrigger.h"
#include "VexiloLog.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_info.h"
#include "tv_service.h"

namespace QUVA {

namespace {

constexpr int kMainScreen = 1;
constexpr int kNoChannel = -1;

}  // namespace

CUtils& CUtils::Instance() {
  static auto* instance = new CUtils;
  return *instance;
}

void CUtils::m_SetExitFlag(int code) {
  QUVA_DiagManager::GetInstance()->SetExitFlag(code);
}

int CUtils::GetChannelType() {
  const auto navigation = TVServiceAPI::CreateServiceNavigation(kMainScreen);
  if (!navigation) {
    VEXILO_LOGE("Unable to create ServiceNavigation handle");
    return kNoChannel;
  }
  TCCriteriaHelper criteria;
  criteria.FetchCurrentService();
  std::vector<TCService> services;
  if (navigation->Fetch(criteria, services) <= 0) {
    VEXILO_LOGI("Return false");
    return kNoChannel;
  }
  const int type = services.empty() ? kNoChannel : services.front().channelType;
  VEXILO_LOGI("Channel type : %d", type);
  return type;
}

int CUtils::GetCurrentSourceInfo() {
  return QUVA::GetCurrentSourceInfo();
}

std::string CUtils::m_GetSwModel() {
  char* value = nullptr;
  if (system_info_get_value_string(SYSTEM_INFO_KEY_SW_MODEL, &value) != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("Failed to get Software Model");
    return "";
  }
  const std::string model = CText(value).get();
  VEXILO_LOGI("software model : %s", model.c_str());
  return model;
}

void CUtils::m_RequestNDF(const std::string& name, const std::string& detail, bool reboot) {
  const char* const folder = reboot ? set_paths::kRebootReportTriggers : set_paths::kReportTriggers;
  LeaveReportTrigger(folder, name + "-" + detail + ".log");
}

}  // namespace QUVA
