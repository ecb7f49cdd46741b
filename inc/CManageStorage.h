#pragma once

#include "CPlainScreen.h"

namespace QUVA {

/// The storage manager: so far its title.
/// Thread rule: main loop thread.
class CManageStorage {
 public:
  /// Created on first use, never destroyed.
  static CManageStorage* Instance();

  CManageStorage(const CManageStorage&) = delete;
  CManageStorage& operator=(const CManageStorage&) = delete;

  void m_CreateManageStorageScreen();
  void m_HideManageStorage();
  void m_ShowScreenPostReturn();

 private:
  CManageStorage() = default;

  CPlainScreen m_screen;
};

}  // namespace QUVA
