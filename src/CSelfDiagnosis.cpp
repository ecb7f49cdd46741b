#include "CSelfDiagnosis.h"

#include "CGetData.h"
#include "VexiloLog.h"

namespace QUVA {

CSelfDiagnosis* CSelfDiagnosis::Instance() {
  static auto* instance = new CSelfDiagnosis;
  return instance;
}

void CSelfDiagnosis::m_CreateSelfDiagnosis(bool registers) {
  CUtils::Instance().m_SetExitOnPause(true);
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_SELF_DIAGNOSIS);
  const char* const launchFrom = CUtils::Instance().m_pGetLaunchFrom();
  VEXILO_LOGI("Self Diagnosis Launched from %s", launchFrom ? launchFrom : "(null)");
  m_screen.m_Open("SID_SELF_DIAGNOSIS", {[this] { m_ShowScreenPostReturn(); }, [this] { m_HideSelfDiagnosis(); }},
                  registers);
}

void CSelfDiagnosis::m_HideSelfDiagnosis() {
  CUtils::Instance().m_SetExitOnPause(false);
  m_screen.m_Clean();
}

void CSelfDiagnosis::m_ShowScreenPostReturn() {
  m_screen.m_ShowAfterReturn();
}

void CSelfDiagnosis::m_ClearSelfDiagnosis() {
  m_screen.m_Clean();
}

}  // namespace QUVA
