#pragma once
/// @file
/// A test tool's pages on a canvas in memory.

#include "tools.h"
#include "ui/screen_fixture.h"

class ToolPages : public Screens {
 protected:
  /// Opens the tool of this name ("picture") as vexilo-test does, in a window of this size.
  void OpenTool(const char* name, const char* size = "960x540", const app_framework::Extras& extras = {}) {
    const tools::Tool* const tool = tools::FindTool(name);
    ASSERT_NE(tool, nullptr) << name;
    Utils().m_SetLeave([] { ++g_loopEnds; });
    OpenWindow(size, kStill, [tool, extras] {
      QUVA::CMainView::Instance().m_OpenWindow("", [tool, extras] { tool->open(*tool, extras); });
    });
    ASSERT_TRUE(Soon([] { return StackSize() >= 1; })) << name;
  }
};
