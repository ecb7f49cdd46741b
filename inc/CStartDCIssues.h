#pragma once

#include <vector>

#include "CPlainScreen.h"
#include "QUVA_Records.h"

namespace QUVA {

/// The outcome of a scan, or the remaining issues: so far the title.
/// Thread rule: main loop thread.
class CStartDCIssues {
 public:
  /// Created on first use, never destroyed.
  static CStartDCIssues* Instance();

  CStartDCIssues(const CStartDCIssues&) = delete;
  CStartDCIssues& operator=(const CStartDCIssues&) = delete;

  void m_StartDCIssues(std::vector<MapToDBTable> rows);
  void m_CleanObjects();

 private:
  CStartDCIssues() = default;

  std::vector<MapToDBTable> m_rows;
  CPlainScreen m_screen;
};

}  // namespace QUVA
