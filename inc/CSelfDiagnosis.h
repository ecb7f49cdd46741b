#pragma once

#include "CPlainScreen.h"

namespace QUVA {

/// The self-diagnosis menu: so far its title, and the state that goes with showing it.
/// Thread rule: main loop thread.
class CSelfDiagnosis {
 public:
  /// Created on first use, never destroyed.
  static CSelfDiagnosis* Instance();

  CSelfDiagnosis(const CSelfDiagnosis&) = delete;
  CSelfDiagnosis& operator=(const CSelfDiagnosis&) = delete;

  /// `registers`: puts it on the return stack, which a screen that is there already does not need.
  void m_CreateSelfDiagnosis(bool registers);
  void m_HideSelfDiagnosis();
  void m_ShowScreenPostReturn();
  /// Deletes its widgets; m_CreateSelfDiagnosis(false) builds it again.
  void m_ClearSelfDiagnosis();

 private:
  CSelfDiagnosis() = default;

  CPlainScreen m_screen;
};

}  // namespace QUVA
