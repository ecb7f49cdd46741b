#include "CStartDC.h"

#include <utility>

#include "QUVA_DiagManager.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"

namespace QUVA {

CStartDC* CStartDC::Instance() {
  static auto* instance = new CStartDC;
  return instance;
}

void CStartDC::m_StartDC() {
  m_screen.m_Open("TV_SID_CARE_VEXILO", {[this] { m_screen.m_ShowAfterReturn(); }, [this] { m_CleanObjects(); }}, true);
}

void CStartDC::m_CleanObjects() {
  m_screen.m_Clean();
}

void CStartDC::m_GetDiagResults() {
  {
    std::lock_guard lock(m_rowsMutex);
    m_rows.clear();
  }
  m_isResultReceived = false;
  SetEngineScenario("StartAutoDiagnosis");
  QUVA_DiagManager::GetInstance()->StartAutoDiagnosis();
}

void CStartDC::m_DiagResCallback(std::vector<MapToDBTable> rows) {
  VEXILO_LOGI("m_DiagResCallback triggered.. Size = %zu", rows.size());
  for (const MapToDBTable& row : rows)
    VEXILO_LOGI("%s, %s, %s, %s, %s, %s, %s, %s, %s, %s", row.issue_code.c_str(), row.last_time.c_str(),
                row.sid_issue.c_str(), row.sid_sol.c_str(), row.sid_button1.c_str(), row.sid_button2.c_str(),
                row.action.c_str(), row.toast1.c_str(), row.toast2.c_str(), row.sol_type.c_str());
  {
    std::lock_guard lock(m_rowsMutex);
    m_rows = std::move(rows);
  }
  m_isResultReceived = true;
}

std::vector<MapToDBTable> CStartDC::m_GetRows() const {
  std::lock_guard lock(m_rowsMutex);
  return m_rows;
}

}  // namespace QUVA
