#pragma once

#include "CScreen.h"

namespace QUVA {

/// A screen with a title and nothing to do but to go back. What has no screen of its own yet has it as a member.
/// Thread rule: main loop thread.
class CPlainScreen {
 public:
  /// Builds it; `entry` goes onto the return stack where `registers` says so.
  void m_Open(const char* titleSid, const _returnCBStruct& entry, bool registers);
  void m_Hide() { m_screen.m_Hide(); }
  void m_ShowAfterReturn();
  void m_Clean() { m_screen.m_Clean(); }

 private:
  CScreen m_screen;
};

}  // namespace QUVA
