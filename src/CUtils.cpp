#include "CUtils.h"

#include <vector>

#include "QUVA_DiagManager.h"
#include "VexiloLog.h"
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

}  // namespace QUVA
