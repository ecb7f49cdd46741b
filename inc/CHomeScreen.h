#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "QUVA_Records.h"

namespace QUVA {

/// The main screen's data: the issues that remain from earlier scans.
/// Thread rule: callable from any thread.
class CHomeScreen {
 public:
  /// Created on first use, never destroyed.
  static CHomeScreen* Instance();

  CHomeScreen(const CHomeScreen&) = delete;
  CHomeScreen& operator=(const CHomeScreen&) = delete;

  /// Forgets the list and asks for it anew; m_IsRemainingDataArrived() tells when the answer is there. Where nothing is
  /// stored no answer comes.
  void m_GetRemainingData();
  /// Takes the answer, on the engine's thread.
  void m_DiagResCallback(std::vector<MapToDBTable> issues);
  void m_SetDCIssues(std::vector<MapToDBTable> issues);

  bool m_IsRemainingDataArrived() const { return m_isRemainingDataArrived; }
  std::vector<MapToDBTable> m_GetDCIssues() const;

 private:
  CHomeScreen() = default;

  std::atomic<bool> m_isRemainingDataArrived{false};
  mutable std::mutex m_issuesMutex;
  std::vector<MapToDBTable> m_issues;
};

}  // namespace QUVA
