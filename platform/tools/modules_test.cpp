// The installation test of a panel that is made of modules.

#include <algorithm>

#include "CUtils.h"
#include "pattern_view.h"
#include "question.h"
#include "sysinfo/set_profile.h"
#include "tools.h"

namespace tools {

namespace {

constexpr Question kQuestion = {"TV_SID_VEXILO_TEST_SEEN", "TV_SID_VEXILO_MODULES_NOTICED_MSG",
                                "TV_SID_VEXILO_MODULES_MISSED_MSG"};
constexpr int kMostModules = 64;  // in a row or a column

int FromProfile(const char* key) {
  int count = 1;
  set_profile::Int("modules", key, count);
  return std::clamp(count, 1, kMostModules);
}

}  // namespace

void OpenModulesTest(const Tool& tool, const app_framework::Extras&) {
  static PatternView* view = nullptr;
  const ModuleGrid grid{FromProfile("columns"), FromProfile("rows")};
  view = new PatternView(ModulePatterns(grid), [&tool] { Ask(tool, kQuestion, [] { view->Resume(); }); });
  QUVA::CUtils::Instance().m_RegisterForReturnStack({[] {}, [] {}}, false);
  view->Show(0);
}

}  // namespace tools
