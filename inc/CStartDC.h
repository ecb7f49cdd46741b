#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "CPlainScreen.h"
#include "QUVA_Records.h"

namespace QUVA {

/// The scan: so far its title, and the rows that the automatic diagnosis delivers.
/// Thread rule: main loop thread for the screen; any thread for the rest.
class CStartDC {
 public:
  /// Created on first use, never destroyed.
  static CStartDC* Instance();

  CStartDC(const CStartDC&) = delete;
  CStartDC& operator=(const CStartDC&) = delete;

  void m_StartDC();
  void m_CleanObjects();

  /// Forgets the rows and starts an automatic diagnosis.
  void m_GetDiagResults();
  /// Takes its rows, on the engine's thread.
  void m_DiagResCallback(std::vector<MapToDBTable> rows);

  bool m_IsResultReceived() const { return m_isResultReceived; }
  std::vector<MapToDBTable> m_GetRows() const;

 private:
  CStartDC() = default;

  std::atomic<bool> m_isResultReceived{false};
  mutable std::mutex m_rowsMutex;
  std::vector<MapToDBTable> m_rows;
  CPlainScreen m_screen;
};

}  // namespace QUVA
