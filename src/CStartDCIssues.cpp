#include "CStartDCIssues.h"

#include <utility>

namespace QUVA {

CStartDCIssues* CStartDCIssues::Instance() {
  static auto* instance = new CStartDCIssues;
  return instance;
}

void CStartDCIssues::m_StartDCIssues(std::vector<MapToDBTable> rows) {
  m_rows = std::move(rows);
  m_screen.m_Open("TV_SID_CARE_OPTIMIZATION_AND_DIAGNOSTICS_ARE_COMPLETE",
                  {[this] { m_screen.m_ShowAfterReturn(); }, [this] { m_CleanObjects(); }}, true);
}

void CStartDCIssues::m_CleanObjects() {
  m_screen.m_Clean();
}

}  // namespace QUVA
