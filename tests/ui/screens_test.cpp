// The screens as they ship, worked with keys: what they show, where the focus goes, what Back does.

#include <set>
#include <tuple>

#include "CGetData.h"
#include "ui/screen_fixture.h"

namespace {

using namespace std::string_literals;
using QUVA::CHomeScreen;
using QUVA::CLoadingScreen;
using QUVA::CStartDC;
using QUVA::CStartDCIssues;
using QUVA::CUtils;
using testing::ElementsAre;
using testing::StartsWith;

std::vector<std::string> Words(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

// ---- home

constexpr char kPlain[] = "feature product.partner.string_id=0";
constexpr char kReport[] =
    "set local_set=KOR; feature product.chipset=OSCARP; feature product.partner.string_id=0; home "
    "disclaimer_items=service_request";

constexpr char kHotel[] = "org.varno.ep-hotel-factory";

struct HomeCase {
  const char* name;
  std::string profile;
  int remaining;
  const char* launchFrom;
  const char* entries;  ///< in reading order
  const char* focus;
};

const HomeCase kHomeCases[] = {
    {"television", kPlain, 0, nullptr, "start storage diagnosis support", "start"},
    {"remaining", kPlain, 2, nullptr, "start remaining storage diagnosis support", "remaining"},
    {"for support", kPlain, 2, "request-support", "start remaining storage diagnosis support", "support"},
    {"for a report", kReport, 1, "ErrorReport", "start remaining storage diagnosis support report", "report"},
    {"unknown source", kReport, 0, "errorreport", "start storage diagnosis support report", "start"},
    {"signage", "feature product.product_type=4; "s + kReport, 0, "ErrorReport", "start diagnosis", "start"},
    {"partner", "feature product.partner.string_id=1", 0, "request-support", "start storage diagnosis", "start"},
    {"nothing known", "", 1, "request-support", "start remaining storage diagnosis", "remaining"},
    {"OSCARP alone", "feature product.chipset=OSCARP; set local_set=EUR", 0, nullptr, "start storage diagnosis",
     "start"},
    {"KOR alone", "feature product.chipset=OSCARPX; set local_set=KOR", 0, nullptr, "start storage diagnosis", "start"},
    {"projector", "feature product.device_sid=PJT; "s + kPlain, 0, nullptr, "start storage diagnosis support", "start"},
};

class ScreensInLanguage : public Screens, public testing::WithParamInterface<const char*> {
 protected:
  ScreensInLanguage() { Language(GetParam()); }

  /// From each widget that can be reached every arrow leads to one that is seen, and all are reached.
  void ExpectAllReachable(const std::set<std::string>& expected) {
    std::set<std::string> reached;
    std::vector<Evas_Object*> todo{m_ui->Focused()};
    while (!todo.empty()) {
      Evas_Object* const from = todo.back();
      todo.pop_back();
      if (!from || !reached.insert(NameOf(from)).second) continue;
      for (const char* key : {"Up", "Down", "Left", "Right"}) {
        elm_object_focus_set(from, EINA_TRUE);
        ASSERT_EQ(m_ui->Focused(), from);
        m_ui->FeedKey(key);
        ecore_main_loop_iterate();
        EXPECT_TRUE(expected.count(Focus())) << key << " from " << NameOf(from) << " leads to " << Focus();
        todo.push_back(m_ui->Focused());
      }
    }
    EXPECT_EQ(reached, expected);
  }
};

TEST_P(ScreensInLanguage, HomeHasTheEntriesOfTheSet) {
  Open();
  ASSERT_EQ(elm_config_mirrored_get(), GetParam() == "ar_AE.utf8"s);
  std::set<std::string> walked;
  for (const HomeCase& each : kHomeCases) {
    // The order is the language's; the entries are the set's.
    if (GetParam() != "en_US.utf8"s && each.profile != kReport) continue;
    SCOPED_TRACE(each.name);
    Profile(each.profile);
    CHomeScreen::Instance()->m_SetDCIssues(Rows(each.remaining));
    OpenHome(each.launchFrom);
    m_ui->Settle();
    const std::vector<std::string> expected = Words(each.entries);
    EXPECT_EQ(Names(), expected);
    EXPECT_TRUE(FocusBecomes(each.focus));
    if (walked.insert(each.entries).second) ExpectAllReachable({expected.begin(), expected.end()});
    const size_t lower = each.remaining > 0 ? 2 : 1;  // the first of the lower row
    elm_object_focus_set(Named()[lower].object, EINA_TRUE);
    for (size_t i = lower; i < expected.size(); ++i) {
      EXPECT_EQ(Focus(), expected[i]) << "in reading order";
      Press(elm_config_mirrored_get() ? "Left" : "Right");
    }
    Drop(CHomeScreen::Instance());
  }
}

/// The header is across the upper edge, the frame across the lower one, no text is wider than its box, and none is
/// outside the window.
TEST_P(ScreensInLanguage, EachScreenFitsTheWindowWhateverItsShapeAndHoweverLargeItsTexts) {
  Profile(kReport);
  vconf_set_int("db/menu/system/accessibility/focuszoom", 1);
  Open();
  CHomeScreen::Instance()->m_SetDCIssues(Rows(2));
  const auto check = [&](const OpenScreen& screen, int width, int height) {
    SCOPED_TRACE(testing::Message() << screen.name << " " << width << "x" << height);
    m_ui->Resize(width, height);
    EXPECT_TRUE(Soon([&] {
      return std::ranges::none_of(Texts(), [](const Shown& text) { return text.at.width <= 1; });
    })) << "the scan's rows are laid out anew at each step";
    const auto px = elm_flux_unit_to_px;
    int texts = 0, headers = 0, frames = 0;
    for (const Shown& shown : Texts()) {
      EXPECT_GE(shown.at.x, 0) << shown.text;
      EXPECT_LE(shown.at.x + shown.at.width, width) << shown.text;
      if (elm_object_widget_check(shown.object)) continue;
      int formatted = 0;
      evas_object_textblock_size_formatted_get(shown.object, &formatted, nullptr);
      EXPECT_LE(formatted, shown.at.width + 1) << shown.text;
      ++texts;
    }
    EachVisible([&](Evas_Object* object) {
      const UiHarness::Geometry at = UiHarness::GeometryOf(object);
      headers += at.x == 0 && std::abs(at.y) <= 1 && at.width == width && at.height == px(15);
      frames += at.x == px(11) && at.width == width - 2 * px(11) && at.height == px(screen.frameHeight) &&
                std::abs(height - px(screen.frameBottom) - at.y - at.height) <= 2;
    });
    EXPECT_GE(texts, 3);
    EXPECT_GE(headers, 1);
    EXPECT_TRUE(frames > 0 || screen.frameHeight == 0 || Utils().m_GetEnlarge());
  };
  for (const int enlarged : {1, 0}) {
    if (!enlarged && GetParam() != "en_US.utf8"s) break;
    vconf_set_int("db/menu/system/accessibility/focuszoom", enlarged);
    ASSERT_TRUE(Soon([&] { return elm_config_scale_get() == (enlarged ? FLUX_SCALE_ENLARGED : FLUX_SCALE_NORMAL); }));
    for (const OpenScreen& screen : AllScreens()) {
      screen.open();
      check(screen, 960, 540);
      if (!enlarged && screen.frameHeight > 0)
        for (const auto& [width, height] : {std::pair(950, 350), {500, 350}, {640, 512}, {450, 450}})
          check(screen, width, height);
      CleanAll();
    }
  }
}

// A screen that was there while a setting changed looks as one that is opened under it.
TEST_F(Screens, EachFollowsASettingHoweverOftenItChanges) {
  const auto set = [](const char* key) { return [key](int on) { vconf_set_int(key, on); }; };
  const std::pair<const char*, std::function<void(int)>> settings[] = {
      {"contrast", set("db/menu/system/accessibility/highcontrast")},
      {"enlarge", set("db/menu/system/accessibility/focuszoom")},
      {"direction", [](int on) { elm_config_mirrored_set(on); }},
      {"size", [this](int on) { m_ui->Resize(on ? 640 : 960, on ? 512 : 540); }},
  };
  Profile(kReport);
  Open();
  CHomeScreen::Instance()->m_SetDCIssues(Rows(2));
  const auto atRest = [this] {
    std::vector<uint32_t> last;
    int same = 0;
    Soon([&] {
      std::vector<uint32_t> now = m_ui->Pixels();
      same = now == last ? same + 1 : 0;
      last = std::move(now);
      return same > 30;  // a third of a second
    });
    return last;
  };
  std::map<std::string, std::vector<uint32_t>> untouched;  // before anything has changed
  for (const OpenScreen& screen : AllScreens()) {
    if (screen.moves) continue;
    screen.open();
    untouched[screen.name] = atRest();
    CleanAll();
  }
  for (const OpenScreen& screen : AllScreens()) {
    if (screen.moves) continue;
    for (const auto& [setting, change] : settings) {
      SCOPED_TRACE(screen.name + " and "s + setting);
      std::vector<uint32_t> fresh[2];
      for (const int on : {1, 0}) {
        change(on);
        m_ui->Settle();
        screen.open();
        fresh[on] = atRest();
        if (on) CleanAll();
      }
      // Of the last row of pixels the toolkit's own frame of the window may leave something, whatever lies in it.
      const auto end = fresh[0].end() - 960;
      EXPECT_TRUE(std::equal(fresh[0].begin(), end, untouched[screen.name].begin()));
      for (const int on : {1, 0, 1, 0}) {
        change(on);
        EXPECT_TRUE(atRest() == fresh[on]) << on;
      }
      CleanAll();
    }
  }
}

TEST_F(Screens, TheScansFrameTakesItsRowsWhenTextsGrow) {
  Open();
  CStartDC::Instance()->m_StartDC();
  m_ui->Settle();
  for (const auto& [enlarged, height] : {std::pair(1, 53.2), {0, 46.0}, {1, 53.2}, {0, 46.0}}) {
    vconf_set_int("db/menu/system/accessibility/focuszoom", enlarged);
    EXPECT_TRUE(Soon(
        [&, units = height] {
          bool found = false;
          EachVisible([&](Evas_Object* object) {
            const UiHarness::Geometry at = UiHarness::GeometryOf(object);
            found |= at.x == elm_flux_unit_to_px(11) && at.height == elm_flux_unit_to_px(units) &&
                     std::abs(at.y - elm_flux_unit_to_px(70)) <= 1;
          });
          return found;
        },
        5))
        << enlarged;
  }
}

// No text ends in an ellipsis, however many issues there are and whatever becomes of one, and a short message lies in
// the header.
TEST_F(Screens, NoTextIsCutInAnyLanguage) {
  Profile(kReport);
  Open();
  const auto cutTexts = [this] {
    std::string cut;
    for (const Shown& shown : Texts())
      if (!elm_object_widget_check(shown.object) && IsCut(shown.object)) cut += shown.text + "|";
    return cut;
  };
  for (const char* language :
       {"en_US", "ar_AE", "de_DE", "es_ES", "fr_FR", "hi_IN", "ja_JP", "ko_KR", "pt_BR", "zh_CN"})
    for (const int enlarged : {0, 1}) {
      Language((language + ".utf8"s).c_str());
      ApplyMenuLanguage();
      elm_config_mirrored_set(ua_UI_orientation_get() == 1);
      vconf_set_int("db/menu/system/accessibility/focuszoom", enlarged);
      m_ui->Settle();
      for (const int issues : {0, 11, 100}) {
        CHomeScreen::Instance()->m_SetDCIssues(Rows(issues));
        for (const OpenScreen& screen : AllScreens(issues)) {
          if (issues > 0 && screen.name != "home"s && screen.name != "list"s) continue;
          screen.open();
          m_ui->Settle();
          // The scan's rows are laid out anew at each step.
          std::string cut;
          EXPECT_TRUE(Soon(
              [&] {
                cut = cutTexts();
                return cut.empty();
              },
              screen.moves ? 3 : 0))
              << language << enlarged << " " << screen.name << ": " << cut;
          CleanAll();
        }
      }
      OpenHome();
      m_ui->Settle();
      std::set<std::string> sizes;
      for (const Shown& shown : Texts())
        if (!elm_object_widget_check(shown.object) && shown.at.y > elm_flux_unit_to_px(88))
          sizes.insert(SizeOf(shown.object));
      EXPECT_EQ(sizes.size(), 1u) << "home's tiles: " << language << enlarged;
      CleanAll();
      OpenList(Rows(3));
      m_ui->Settle();
      Evas_Object* const list = m_ui->Focused();
      for (const char* state : {"TV_SID_VEXILO_WORKING_ON_IT", "TV_SID_VEXILO_OPENED"}) {
        elm_flux_list_text_set(list, [state](int row, const std::string& part) {
          const bool marked = row < 2 && part == "SubText1";
          return marked ? CUtils::m_GetText(state) : CStartDCIssues::Instance()->m_item_label_get(row, part);
        });
        m_ui->Settle();
        EXPECT_TRUE(Shows(CUtils::m_GetText(state)));
        EXPECT_EQ(cutTexts(), "") << language << enlarged << " " << state;
      }
      for (const char* message : {"TV_SID_VEXILO_OPENED_MSG", "TV_SID_VEXILO_COULD_NOT_DO_IT",
                                  "TV_SID_VEXILO_NO_SUCH_APP", "TV_SID_VEXILO_NO_SUPPORT"}) {
        Evas_Object* const toast = elm_flux_toast_add(m_ui->Window(), CUtils::m_GetText(message), 9);
        const UiHarness::Geometry at = UiHarness::GeometryOf(toast);
        // The heading's line, or home's picture, begins five units below the header.
        const bool isLine = at.width < elm_flux_unit_to_px(160);
        EXPECT_LE(at.y + at.height, elm_flux_unit_to_px(isLine ? 15 : 20))
            << language << enlarged << " " << message << " " << at;
        evas_object_del(toast);
      }
      CleanAll();
    }
}

INSTANTIATE_TEST_SUITE_P(In, ScreensInLanguage, testing::Values("en_US.utf8", "ar_AE.utf8", "de_DE.utf8"),
                         [](const auto& each) { return std::string(each.param).substr(0, 2); });

TEST_F(Screens, AReportIsOpenedOrWhatIsMissingForItIsLaunched) {
  struct {
    bool network;
    int terms;
    const char* launched;
  } const cases[] = {
      {false, 0, "org.varno.menu"}, {false, 1, "org.varno.menu"}, {true, 0, "org.varno.wizard"}, {true, 1, ""}};
  for (const char* app : {"org.varno.menu", "org.varno.wizard"}) Install(app);
  Profile(kReport);
  Open();
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::Message() << each.network << each.terms);
    g_network = each.network;
    vconf_set_int(QUVA::kConsentKey, each.terms);
    OpenHome("ErrorReport");
    EXPECT_EQ(Launched(), each.launched);
    ASSERT_TRUE(FocusBecomes("report"));
    EXPECT_EQ(StackSize(), 1u);
    Press("Return");
    EXPECT_EQ(Launched(), each.launched);
    EXPECT_EQ(StackSize(), *each.launched ? 1u : 2u);
    EXPECT_TRUE(FocusBecomes(*each.launched ? "report" : "Screen"));
    EXPECT_TRUE(Utils().m_GetExitOnPause());
    EXPECT_EQ(QUVA::CGetData::GetInstance()->m_GetCurrentScreen(), QUVA::SCREEN_ERROR_REPORT);
    CleanAll();
  }
}

TEST_F(Screens, WhatCannotBeLaunchedSaysSo) {
  Profile("feature product.smart_monitor_feature_support=0; "s + kReport);
  Open();
  OpenHome("request-support");
  ASSERT_TRUE(FocusBecomes("support"));
  for (const bool isThere : {false, true}) {
    if (isThere) Install("org.varno.request-support");
    Press("Return");
    EXPECT_EQ(ShowsSid("TV_SID_VEXILO_COULD_NOT_DO_IT"), !isThere);
    EXPECT_FALSE(ShowsSid("TV_SID_VEXILO_NO_SUPPORT"));
    if (!isThere) Press("XF86Back");
    EXPECT_EQ(std::tuple(StackSize(), Launched()), std::tuple(1u, isThere ? "org.varno.request-support" : ""));
    EXPECT_TRUE(FocusBecomes("support"));
  }
  CleanAll();
  OpenHome("ErrorReport");  // without a network, and without the menu that would mend it
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_COULD_NOT_DO_IT"));
  EXPECT_TRUE(FocusBecomes("report"));
}

TEST_F(Screens, BackLeadsFromEachScreenToItsEntryAndThenOut) {
  g_network = true;
  vconf_set_int(QUVA::kConsentKey, 1);
  Profile(kReport);
  Open();
  CHomeScreen::Instance()->m_SetDCIssues(Rows(2));
  OpenHome();
  m_ui->Settle();
  const struct {
    const char *entry, *focus, *title, *leave;
  } cases[] = {{"remaining", "list", "TV_SID_VEXILO_OFF_TIMER_ON", "XF86Back"},
               {"remaining", "list", "TV_SID_VEXILO_OFF_TIMER_ON", "Down Down Return"},
               {"storage", "close", "TV_SID_DEVICE_MANAGE_STORAGE", "Escape"},
               {"diagnosis", "(no text)", "SID_SELF_DIAGNOSIS", "BackSpace"},
               {"report", "Screen", "TV_SID_VEXILO_CBMAY_ERROR_REPORT", "Down Down Down Return"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.entry);
    for (const Shown& shown : Named())
      if (shown.text == each.entry) elm_object_focus_set(shown.object, EINA_TRUE);
    ASSERT_EQ(Focus(), each.entry);
    Press("Return");
    EXPECT_TRUE(FocusBecomes(each.focus));
    EXPECT_TRUE(ShowsSid(each.title));
    EXPECT_FALSE(ShowsSid("TV_SID_CARE_START_VEXILO")) << "home is hidden";
    EXPECT_EQ(StackSize(), 2u);
    Press(each.leave);
    EXPECT_TRUE(FocusBecomes(each.entry));
    EXPECT_TRUE(ShowsSid("TV_SID_CARE_START_VEXILO"));
    EXPECT_EQ(StackSize(), 1u);
    EXPECT_EQ(g_loopEnds, 0);
  }
  // The scan alone cannot be left; it stands on no stack.
  elm_object_focus_set(Named()[0].object, EINA_TRUE);
  Press("Return");
  ASSERT_TRUE(Soon([] { return Utils().m_GetKeyBlock(); }));
  Press("XF86Back");
  EXPECT_EQ(std::tuple(StackSize(), g_loopEnds, InLog("Key blocked..")), std::tuple(1u, 0, 1));
  CStartDC::Instance()->m_CleanObjects();
  Press("XF86Back");
  EXPECT_EQ(std::tuple(StackSize(), g_loopEnds), std::tuple(1u, 1));
}

TEST_F(Screens, AShortMessageOfHomeGoesByItselfByBackAndWithItsScreen) {
  constexpr char kToast[] = "TV_SID_VEXILO_NO_SUPPORT";
  Profile(kPlain);
  Open();
  OpenHome("request-support");
  ASSERT_TRUE(FocusBecomes("support"));
  for (const bool byItself : {false, true}) {
    Press("Return Return");  // the second changes nothing
    EXPECT_TRUE(ShowsSid(kToast));
    EXPECT_EQ(StackSize(), 2u);
    if (!byItself) Press("XF86Back");
    EXPECT_TRUE(Soon([] { return StackSize() == 1; }));
    EXPECT_FALSE(ShowsSid(kToast));
    EXPECT_EQ(InLog("Auto TimeOut"), byItself);
    EXPECT_TRUE(FocusBecomes("support"));
  }
  Press("Return Left Return");  // another screen before it has timed out
  EXPECT_FALSE(ShowsSid(kToast));
  EXPECT_TRUE(FocusBecomes("(no text)"));
  const double end = ecore_time_get() + 3.3;
  Soon([&] { return ecore_time_get() > end; });
  EXPECT_EQ(std::tuple(StackSize(), Focus(), InLog("Auto TimeOut"), g_loopEnds), std::tuple(2u, "(no text)"s, 1, 0));
  Press("XF86Back");
  EXPECT_TRUE(FocusBecomes("diagnosis"));
}

TEST_F(Screens, ADatabaseThatWasMadeAnewIsToldOnceWhoeverHasFoundIt) {
  constexpr char kToast[] = "TV_SID_VEXILO_DATABASE_RENEWED";
  Open();
  for (const bool before : {true, false}) {
    SCOPED_TRACE(before ? "found before the screen is there" : "found while it shows");
    vconf_set_bool(set_names::kDatabaseRenewedKey, before);
    OpenHome();
    EXPECT_EQ(ShowsSid(kToast), before);
    vconf_set_bool(set_names::kDatabaseRenewedKey, true);
    EXPECT_TRUE(Soon([&] { return ShowsSid(kToast); }));
    EXPECT_TRUE(Soon([&] { return !ShowsSid(kToast); }));
    EXPECT_EQ(StackSize(), 1u);
    int isToBeTold = 1;
    EXPECT_TRUE(vconf_get_bool(set_names::kDatabaseRenewedKey, &isToBeTold) == 0 && !isToBeTold);
    CleanAll();
  }
  OpenHome();
  EXPECT_FALSE(ShowsSid(kToast));
}

// ---- what screens share

TEST_F(Screens, TheViewerLeavesToWhereTheSetWasLaunchedFrom) {
  Install(kHotel);
  Utils().m_ExecuteReturn();
  EXPECT_EQ(InLog("Return Stack Empty.."), 1);
  Utils().m_RegisterForReturnStack({}, true);  // nothing to replace
  for (const auto& [point, launched] : {std::pair(0, ""), {1, ""}, {3, kHotel}}) {
    vconf_set_int(QUVA::kLaunchPointKey, point);
    Utils().m_ExecuteReturn();
    EXPECT_EQ(Launched(), launched) << point;
  }
  EXPECT_EQ(std::tuple(g_loopEnds, StackSize()), std::tuple(3, 1u));
}

TEST_F(Screens, DimmingLiesInLayers) {
  Open();
  const auto layers = [&](const UiHarness::Geometry& screen) {
    int count = 0;
    for (Evas_Object* each = evas_object_bottom_get(m_ui->Canvas()); each; each = evas_object_above_get(each)) {
      int red = 1, alpha = 0;
      evas_object_color_get(each, &red, nullptr, nullptr, &alpha);
      count += red == 0 && alpha == 178 && UiHarness::GeometryOf(each) == screen;
    }
    return count;
  };
  for (int i = 0; i < 2; ++i) Utils().m_ShowDimBackground();
  EXPECT_EQ(layers({0, 0, 960, 540}), 2);
  m_ui->Resize(1200, 600);
  for (const int expected : {2, 1, 0, 0}) {
    EXPECT_EQ(layers({0, 0, 1200, 600}), expected);
    Utils().m_HideDimBackground();
  }
}

TEST_F(Screens, TheLoadingPopupBlocksKeysAndSpeaksUntilItIsStopped) {
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  Open();
  OpenHome();
  g_said.clear();
  const auto loading = [] { return std::ranges::count(g_said, CUtils::m_GetText("COM_TV_SID_LOADING")); };
  for (int i = 0; i < 2; ++i) Utils().m_CreateLoadingPopup(Utils().m_pGetRootLayout());
  Press("XF86Back");
  EXPECT_EQ(std::tuple(g_loopEnds, InLog("Key blocked.."), loading()), std::tuple(0, 1, 1));
  EXPECT_TRUE(Soon([&] { return loading() == 2; })) << "spoken again";
  Utils().m_StopLoadingPopup();
  Press("XF86Back");
  EXPECT_EQ(g_loopEnds, 1);
  EXPECT_FALSE(Soon([&] { return loading() > 2; }, 10)) << "and no more";
  Utils().m_CreateLoadingPopup(Utils().m_pGetRootLayout());
  Utils().m_CleanObjects();
  Utils().m_StopLoadingPopup();
  EXPECT_FALSE(Utils().m_GetKeyBlock());
}

TEST_F(Screens, AScreenEndsWhatWasSpokenAndSaysItsSentenceBeforeWhatHasTheFocus) {
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  Profile(kPlain);
  Open();
  CHomeScreen::Instance()->m_SetDCIssues(Rows(2));
  const auto said = [this] {
    Pass();
    return std::exchange(g_said, {});
  };
  const auto text = [](const char* sid) { return CUtils::m_GetText(sid); };
  said();
  OpenHome();
  ASSERT_TRUE(FocusBecomes("remaining"));
  const std::string remaining = elm_object_text_get(m_ui->Focused());
  EXPECT_THAT(said(), ElementsAre(StartsWith(text("TV_SID_CARE_VEXILO") + ", "), "focus: " + remaining));
  Press("Return");
  ASSERT_TRUE(FocusBecomes("list"));
  const std::string complete = text("TV_SID_CARE_OPTIMIZATION_AND_DIAGNOSTICS_ARE_COMPLETE");
  EXPECT_THAT(said(),
              ElementsAre("", StartsWith(complete), StartsWith("focus: " + text("TV_SID_VEXILO_OFF_TIMER_ON"))));
  Press("XF86Back");
  ASSERT_TRUE(FocusBecomes("remaining"));
  const std::vector<std::string> back = said();
  EXPECT_EQ(std::tuple(back.front(), back.back()), std::tuple("", "focus: " + remaining));
  Press("Left Return");
  ASSERT_TRUE(Soon([] { return Utils().m_GetKeyBlock(); }));
  EXPECT_THAT(said(), ElementsAre("focus: " + text("TV_SID_CARE_START_VEXILO"), "",
                                  text("TV_SID_CARE_VEXILO_IN_PROGRESS_DOT")));
  CStartDC::Instance()->m_CleanObjects();
  said();
  OpenList({});
  ASSERT_TRUE(FocusBecomes("done"));
  const auto all =
      ElementsAre(complete + ", " + text("TV_SID_CHECK_SELF_DIAGNOSIS"), StartsWith("focus: " + text("SID_DONE")));
  EXPECT_THAT(said(), all);
  SwitchVoiceGuide(false);
  EXPECT_THAT(said(), ElementsAre("")) << "what was spoken ends";
  SwitchVoiceGuide(true);
  EXPECT_THAT(said(), all) << "in the middle of a screen, too";
  Drop(CStartDCIssues::Instance());
  OpenList(Rows(1));
  ASSERT_TRUE(FocusBecomes("list"));
  said();
  CStartDCIssues::Instance()->m_CreateIssueDetailsPopUp(0);
  const std::string popup = "focus: " + text("TV_SID_VEXILO_OFF_TIMER_ON") + ". " + text("TV_SID_USING_OFF_TIMER") +
                            " " + text("TV_SID_VEXILO_OPEN_SETTINGS");
  EXPECT_TRUE(Soon([&] { return !g_said.empty(); }));
  EXPECT_THAT(said(), ElementsAre(popup)) << "its text ends in a full stop of its own";
  SwitchVoiceGuide(false);
  said();
  SwitchVoiceGuide(true);
  EXPECT_THAT(said(), ElementsAre(popup)) << "of a popup that is open, not of what lies below it";
}

TEST_F(Screens, TheScanSpeaksWhileTheVoiceGuideIsOn) {
  Open();
  CStartDC::Instance()->m_StartDC();
  Pass();
  EXPECT_THAT(g_said, IsEmpty());
  SwitchVoiceGuide(true);
  const auto speaks = [] {
    return std::ranges::any_of(g_said,
                               [](const std::string& text) { return text.find_first_of("0123456789") != text.npos; });
  };
  EXPECT_TRUE(Soon([&] { return speaks(); }, 10));
  EXPECT_EQ(g_said.front(), CUtils::m_GetText("TV_SID_CARE_VEXILO_IN_PROGRESS_DOT"));
  SwitchVoiceGuide(false);
  g_said.clear();
  EXPECT_FALSE(Soon([&] { return speaks(); }, 7));
}

TEST_F(Screens, AScanThatCannotBeginLeadsHomeWithAMessage) {
  Open();
  OpenHome();
  ASSERT_TRUE(FocusBecomes("start"));
  g_noThreads = true;
  Press("Return");
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_COULD_NOT_DO_IT"));
  EXPECT_TRUE(FocusBecomes("start"));
  EXPECT_FALSE(Utils().m_GetKeyBlock());
  EXPECT_EQ(StackSize(), 2u) << "home and the message";
  CleanAll();
  for (const auto& [source, stack] : {std::pair("StartVexilo"s, 2u), {"menu"s, 1u}}) {
    std::string from = source;  // from where there is no home to go back to
    CLoadingScreen::Instance()->m_StartLoading(Utils().m_pGetRootLayout(), from.data());
    EXPECT_TRUE(FocusBecomes("start")) << source;
    EXPECT_EQ(StackSize(), stack) << source;
    CleanAll();
  }
  g_noThreads = false;
}

TEST_F(Screens, ASignageSetTurnsWithItsMenus) {
  constexpr char kKey[] = "db/menu/onscreendisplay/display_orientation/onscreen_menu_orientation";
  Profile("feature product.product_type=4");
  vconf_set_int(kKey, 3);
  Open();
  OpenHome();
  const auto degrees = [&] { return elm_win_rotation_get(m_ui->Window()); };
  EXPECT_EQ(degrees(), 90);
  for (const auto& [value, expected] : {std::pair(0, 0), {1, 90}, {2, 0}, {3, 90}}) {
    vconf_set_int(kKey, value);
    EXPECT_TRUE(Soon([&, wanted = expected] { return degrees() == wanted; })) << value;
    m_ui->Settle();
    EXPECT_EQ(Focus(), "start");
    Press("Down");
    EXPECT_EQ(Focus(), "diagnosis");
    Press("Up");
  }
}

TEST_F(Screens, AChangeOfLanguageEndsTheApplication) {
  Open();
  int heard = 0;
  Utils().ConnectLangChangeCB([&] { ++heard; });
  Language("de_DE.utf8");
  EXPECT_TRUE(Soon([] { return g_applicationExits > 0; }));
  EXPECT_EQ(std::tuple(heard, g_applicationExits), std::tuple(1, 1));
}

// ---- loading

TEST_F(Screens, LoadingEndsInTheScreenThatTheSourceAsksForUnlessItIsCleanedUp) {
  g_network = true;
  vconf_set_int(QUVA::kConsentKey, 1);
  Profile(kReport);
  Open(kMoving, kAtLoading);
  EXPECT_TRUE(ShowsSid("TV_SID_CARE_CHECKDING_YOUR_DEVICE_DOT"));
  EXPECT_TRUE(Soon([&] { return Picture() > "Motion/vexilo_progress/small/vexilo_progress_0.png"; }));
  vconf_set_int("db/menu/system/accessibility/highcontrast", 1);
  EXPECT_TRUE(Soon([&] { return Picture().starts_with("Motion/vexilo_highcontrast_progress/"); }));
  Install(kHotel);
  vconf_set_int(QUVA::kLaunchPointKey, 3);
  Press("XF86Back");  // nothing is on the stack: the viewer leaves
  EXPECT_EQ(std::tuple(std::exchange(g_loopEnds, 0), Launched()), std::tuple(1, kHotel));
  EXPECT_TRUE(Soon([] { return StackSize() == 1; }));
  EXPECT_TRUE(FocusBecomes("start"));
  EXPECT_TRUE(Soon([&] { return Picture() == "Motion/vexilo_highcontrast_good/vexilo_highcontrast_good _59.png"; }));
  vconf_set_int("db/menu/system/accessibility/highcontrast", 0);
  EXPECT_TRUE(Soon([&] { return Picture() == "Motion/vexilo_good/vexilo_good_59.png"; }));
  EXPECT_EQ(g_loopEnds, 0);
  CleanAll();

  const std::pair<std::string, const char*> cases[] = {{"ErrorReport", "Screen"}, {"Self-Diagnosis", "(no text)"}};
  for (auto [source, focus] : cases) {
    SCOPED_TRACE(source);
    const int ended = InLog("Change To HomeScreen");
    CLoadingScreen::Instance()->m_StartLoading(Utils().m_pGetRootLayout(), source.data());
    EXPECT_TRUE(Soon([&] { return Picture() > "Motion/vexilo_progress/small/vexilo_progress_0.png"; }));
    CLoadingScreen::Instance()->m_CleanObjects();  // as a pause does
    CLoadingScreen::Instance()->m_StartLoading(Utils().m_pGetRootLayout(), source.data());
    EXPECT_TRUE(Soon([&] { return StackSize() == 1; }));
    EXPECT_TRUE(FocusBecomes(focus));
    EXPECT_FALSE(ShowsSid("TV_SID_CARE_CHECKDING_YOUR_DEVICE_DOT"));
    EXPECT_EQ(InLog("Change To HomeScreen"), ended + 1) << "the one that was cleaned up opens nothing";
    CleanAll();
  }
  EXPECT_EQ(InLog("Error_Funtion for loading circle called"), 2);
}

TEST_F(Screens, LoadingWaitsForAnAnswerButNotForLong) {
  StoreRemaining({{"17", Step("memboost")}});  // the engine is not there to answer
  Open(kStill, kAtLoading);
  EXPECT_TRUE(Soon([] { return StackSize() == 1; }, 20));
  EXPECT_EQ(InLog("Waiting for remaining result data"), 5);
  EXPECT_TRUE(FocusBecomes("start"));
  std::thread([] { CHomeScreen::Instance()->m_DiagResCallback(Rows(1)); }).join();
  EXPECT_EQ(Focus(), "start");
  for (const Shown& shown : Named())
    if (shown.text == "diagnosis") elm_object_focus_set(shown.object, EINA_TRUE);
  Press("Return");
  ASSERT_TRUE(FocusBecomes("(no text)"));
  Press("XF86Back");
  EXPECT_TRUE(ShowsSid("SID_SELF_DIAGNOSIS"));
  EXPECT_TRUE(Soon([&] { return std::ranges::count(Names(), "remaining") > 0; }));
}

}  // namespace
