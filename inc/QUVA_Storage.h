#pragma once

#include <mutex>
#include <vector>

#include "QUVA_Records.h"

namespace QUVA {

/// Guards the information storage: its creation and every access to its fields.
extern std::mutex m_QUVAmutex;

/// The process-wide store of the parsed solution map: filled when the map has been parsed, read at each resolution.
/// Thread rule: every operation is callable from any thread; readers get copies.
class TCInformationStorage {
 public:
  /// Created on first use, never destroyed.
  static TCInformationStorage* Instance();

  TCInformationStorage(const TCInformationStorage&) = delete;
  TCInformationStorage& operator=(const TCInformationStorage&) = delete;

  /// Both empty the store: version and count 0, no solutions.
  void Initialize();
  void ResetInformationStorage();

  /// Replaces the solutions. `count` is what the map declares, whatever the length of the list.
  void SetSolutionInformation(unsigned int count, std::vector<QUVA_Solution> solutions);
  /// Gives the count and appends a copy of every solution to `out`.
  void GetSolutionInformation(unsigned int& count, std::vector<QUVA_Solution>& out);

  void SetSMCount(unsigned int count);
  void GetSMCount(unsigned int& count);
  void SetSMVersion(unsigned int version);
  void GetSMVersion(unsigned int& version);

  /// Replaces `out` by a copy of the whole map.
  void GetQUVAMapInformation(TSCurrentQUVAMap& out);

 private:
  TCInformationStorage() = default;

  unsigned int m_SMVersion = 0;
  unsigned int m_SMCount = 0;
  std::vector<QUVA_Solution> m_solutions;
  static TCInformationStorage* m_pInstance;
};

}  // namespace QUVA
