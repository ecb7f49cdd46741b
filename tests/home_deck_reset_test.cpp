// The reset of the content platform: all or nothing, whenever it is killed.

#include <signal.h>

#include "SettingsKeys.h"
#include "homedata/home_deck_data.h"
#include "support/fork.h"
#include "support/usage_events.h"
#include "ui/test_tool_fixture.h"

namespace {

using namespace homedata;
using testing::HasSubstr;

constexpr char kOther[] = "db/menu_widget/language", kOwn[] = "db/menu/home_deck/rows/order";
const std::string kStored = set_paths::kCobaltDir + std::string("/disk/");

void Fill() {
  vconf_set_int(QUVA::kConsentKey, 1);
  vconf_set_str(kOwn, "b;a");
  vconf_set_str(kOther, "en_US.utf8");
  for (int i = 0; i < 5; ++i) WriteFile(kStored + std::to_string(i), std::string(100000, 'x'));
}

std::string TextOf(const char* key) {
  const CText text(vconf_get_str(key));
  return text ? text.get() : "";
}

/// All of it, nothing of it, or what is there.
std::string State() {
  const HomeDeckData data = MeasureHomeDeck();
  if (data.IsEmpty() && !Exists(set_paths::kCobaltDir)) return "nothing";
  int files = 0;
  for (int i = 0; i < 5; ++i) files += ReadFile(kStored + std::to_string(i)).size() == 100000;
  if (data.isConsentGiven && TextOf(kOwn) == "b;a" && files == 5) return "all";
  return "consent " + std::to_string(data.isConsentGiven) + ", " + std::to_string(data.settings) + " settings, " +
         std::to_string(files) + " files";
}

/// Nothing that a reset sets aside is there any more.
bool IsClean() {
  const std::string store = set_paths::kCobaltDir;
  return !Exists(store + ".reset") && !Exists(store + ".newer") && !Exists(set_paths::kHomeDeckReset) &&
         !Exists(set_paths::kHomeDeckResetDone);
}

// Kills it at each of its steps, the removal of each file among them.
TEST(HomeDeckReset, IsAllOrNothingWheneverItIsKilled) {
  std::map<std::string, int> ends;
  for (int killed = 1;; ++killed) {
    SCOPED_TRACE("killed at step " + std::to_string(killed));
    Fill();
    const pid_t child = Fork([killed] {
      int step = 0;
      std::string problem;
      ResetHomeDeck([&](double) { ++step == killed ? kill(getpid(), SIGKILL) : 0; }, problem);
    });
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFSIGNALED(status)) {
      EXPECT_EQ(State(), "nothing");
      break;
    }
    ExpectEndsWell(Fork([] {  // the next application that starts
      MendHomeDeckResetAtStart();
      EXPECT_TRUE(Until(IsClean));
    }));
    const std::string state = State();
    EXPECT_TRUE(state == "all" || state == "nothing") << state;
    EXPECT_EQ(TextOf(kOther), "en_US.utf8") << "what is not its own stays";
    ++ends[state];
  }
  EXPECT_GE(ends["all"], 4);      // the folder, the store, two keys
  EXPECT_GE(ends["nothing"], 6);  // the moment itself, and each file
}

// The mending can be killed itself; what was set or stored meanwhile is newer for a setting, and in the way for a
// store.
TEST(HomeDeckReset, IsPutBackFromWhateverWasLeft) {
  const std::string store = set_paths::kCobaltDir;
  const struct {
    const char* what;
    std::function<void()> leaves;
  } cases[] = {
      {"the store is on its way back", [&] { fs::rename(SystemPath(store), SystemPath(store + ".reset")); }},
      {"and another was begun",
       [&] {
         fs::rename(SystemPath(store), SystemPath(store + ".reset"));
         WriteFile(store + "/new", "new");
       }},
      {"which is out of the way",
       [&] {
         fs::rename(SystemPath(store), SystemPath(store + ".reset"));
         WriteFile(store + ".newer/new", "new");
       }},
      {"and once more", [&] { WriteFile(store + ".newer/new", "new"); }},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    Fill();
    fs::create_directories(SystemPath(set_paths::kHomeDeckReset));
    each.leaves();
    std::string problem;
    EXPECT_TRUE(MendHomeDeckReset(problem)) << problem;
    EXPECT_EQ(State(), "all");
    EXPECT_TRUE(IsClean());
  }
  WriteFile(set_paths::kHomeDeckReset + "/db%2Fmenu%2Fhome_deck%2Frows%2Forder"s, "string\nold");
  std::string problem;
  EXPECT_TRUE(MendHomeDeckReset(problem)) << problem;
  EXPECT_EQ(TextOf(kOwn), "b;a");
}

TEST(HomeDeckReset, IsNotHeldUpByAStoreThatWasSetAsideLongAgo) {
  Fill();
  WriteFile(set_paths::kCobaltDir + std::string(".reset/x"), "old");
  std::string problem;
  EXPECT_TRUE(ResetHomeDeck([](double) {}, problem)) << problem;
  EXPECT_EQ(State(), "nothing");
  EXPECT_TRUE(IsClean());
}

TEST(HomeDeckReset, WhatCannotGoIsToldBeforeAnythingIsMoved) {
  Fill();
  fs::rename(SystemPath(set_paths::kCobaltDir), SystemPath("/elsewhere"));
  fs::create_directory_symlink(SystemPath("/elsewhere"), SystemPath(set_paths::kCobaltDir));
  std::string problem;
  EXPECT_FALSE(ResetHomeDeck([](double) { ADD_FAILURE() << "it begins"; }, problem));
  EXPECT_THAT(problem, HasSubstr(set_paths::kCobaltDir));
  EXPECT_EQ(TextOf(kOwn), "b;a");
  EXPECT_TRUE(IsClean());
}

class ResetTool : public ToolPages {};

TEST_F(ResetTool, AsksWithNoInFocusAndShowsWhatIsGone) {
  Fill();
  OpenTool("reset");
  const std::string reset = QUVA::CUtils::m_GetText("TV_SID_VEXILO_RESET_NOW");
  ASSERT_TRUE(FocusBecomes(reset));
  EXPECT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_TERMS_ACCEPTED") && Shows("1"); }));
  Press("Return");
  EXPECT_TRUE(FocusBecomes(QUVA::CUtils::m_GetText("COM_SID_NO")));
  Press("Return");
  EXPECT_TRUE(FocusBecomes(reset));
  EXPECT_EQ(State(), "all");
  EXPECT_THAT(StoredEvents(), HasSubstr("select_item=Reset Homedeck;status=Declined;"));
  Press("Return Right Return");
  ASSERT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_RESET_DONE"); }));
  EXPECT_EQ(State(), "nothing");
  EXPECT_TRUE(Soon([this] { return ShowsSid("TV_SID_VEXILO_TERMS_NOT_ACCEPTED"); }));
  EXPECT_THAT(StoredEvents(), HasSubstr("status=Reset;"));
  EXPECT_FALSE(Shows(reset)) << "there is nothing left";
  Press("Down Down Down Return");
  EXPECT_EQ(g_loopEnds, 1);
}

}  // namespace
