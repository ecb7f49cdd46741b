#include "CErrorReport.h"

#include "QUVA_KPISender.h"
#include "ReportTrigger.h"
#include "VexiloLog.h"
#include "set_paths.h"

namespace QUVA {

namespace {

constexpr char kKpiItem[] = "ErrorReport";

}  // namespace

CErrorReport* CErrorReport::Instance() {
  static auto* instance = new CErrorReport;
  return instance;
}

void CErrorReport::m_CreateErrorReport() {
  m_screen.m_Open("TV_SID_VEXILO_CBMAY_ERROR_REPORT",
                  {[this] { m_ShowScreenPostReturn(); }, [this] { m_HideErrorReportScreen(); }}, true);
}

void CErrorReport::m_HideErrorReportScreen() {
  m_screen.m_Clean();
}

void CErrorReport::m_ShowScreenPostReturn() {
  m_screen.m_ShowAfterReturn();
}

bool CErrorReport::m_ToggleCategory(int row) {
  if (row < 0 || row >= static_cast<int>(kErrorCategories.size())) {
    VEXILO_LOGE("no error category %d", row);
    return false;
  }
  std::lock_guard lock(m_tickedMutex);
  if (m_ticked.erase(row) > 0) return false;
  m_ticked.emplace(row, kErrorCategories[static_cast<size_t>(row)]);
  return true;
}

bool CErrorReport::m_CheckIfAnyCheckboxIsSelected() {
  std::lock_guard lock(m_tickedMutex);
  VEXILO_LOGI("map siz is %zu", m_ticked.size());
  return !m_ticked.empty();
}

void CErrorReport::m_UntickAll() {
  std::lock_guard lock(m_tickedMutex);
  m_ticked.clear();
}

void CErrorReport::m_SendBtnBackendCall(CErrorReport* screen) {
  VEXILO_LOGI("Send Btn backend call");
  if (!screen) {
    VEXILO_LOGE("pThis is NULL");
    return;
  }
  const auto ticked = [screen] {
    std::lock_guard lock(screen->m_tickedMutex);
    return screen->m_ticked;
  }();
  VEXILO_LOGI("size of map is %zu", ticked.size());
  for (const auto& [row, category] : ticked) {
    QUVA_KPISender::GetInstance()->SendVexiloKPI(kKpiItem, category.kpiValue);
    m_SendErrorTypeNDF(category.triggerFile);
    VEXILO_LOGI("Send NDF to KOV for : %s and QUVA KPI : %s", category.triggerFile, category.kpiValue);
  }
}

void CErrorReport::m_SendErrorTypeNDF(const std::string& fileName) {
  LeaveReportTrigger(set_paths::kReportTriggers, fileName);
}

}  // namespace QUVA
