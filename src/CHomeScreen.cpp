#include "CHomeScreen.h"

#include <utility>

#include "QUVA_DiagManager.h"
#include "QUVA_DiagResultManager.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"

namespace QUVA {

CHomeScreen* CHomeScreen::Instance() {
  static auto* instance = new CHomeScreen;
  return instance;
}

void CHomeScreen::m_GetRemainingData() {
  m_SetDCIssues({});
  m_isRemainingDataArrived = false;
  if (QUVA_DiagResultManager::GetInstance()->LoadRemainingProblems())
    QUVA_DiagManager::GetInstance()->RemainingProblem();
  else
    SetEngineOperation("NoRemaining");
}

void CHomeScreen::m_DiagResCallback(std::vector<MapToDBTable> issues) {
  VEXILO_LOGI("m_DiagResCallback triggered.. Size = %zu", issues.size());
  m_SetDCIssues(std::move(issues));
  m_isRemainingDataArrived = true;
}

void CHomeScreen::m_SetDCIssues(std::vector<MapToDBTable> issues) {
  std::lock_guard lock(m_issuesMutex);
  m_issues = std::move(issues);
}

std::vector<MapToDBTable> CHomeScreen::m_GetDCIssues() const {
  std::lock_guard lock(m_issuesMutex);
  return m_issues;
}

}  // namespace QUVA
