// The picture test: is it the screen, or what comes in?

#include "CUtils.h"
#include "pattern_view.h"
#include "question.h"
#include "tools.h"

namespace tools {

namespace {

constexpr Question kQuestion = {"TV_SID_VEXILO_TEST_SEEN", "TV_SID_VEXILO_PICTURE_NOTICED_MSG",
                                "TV_SID_VEXILO_PICTURE_MISSED_MSG"};

}  // namespace

void OpenPictureTest(const Tool& tool, const app_framework::Extras&) {
  static PatternView* view = nullptr;
  view = new PatternView(PicturePatterns(), [&tool] { Ask(tool, kQuestion, [] { view->Resume(); }); });
  QUVA::CUtils::Instance().m_RegisterForReturnStack({[] {}, [] {}}, false);
  view->Show(0);
}

}  // namespace tools
