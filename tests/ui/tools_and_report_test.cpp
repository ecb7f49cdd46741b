// The self-diagnosis menu and the error report, worked with keys.

#include <sys/stat.h>

#include <optional>
#include <regex>
#include <tuple>

#include "CGetData.h"
#include "QUVA_MenuItemParser.h"
#include "support/held_daemon_place.h"
#include "support/usage_events.h"
#include "ui/screen_fixture.h"

namespace {

using QUVA::CErrorReport;
using QUVA::CErrorReportSuccess;
using QUVA::CHomeScreen;
using QUVA::CSelfDiagnosis;
using QUVA::CUtils;
using QUVA::ErrorReportSender;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kVideo[] = "TV_SID_CARE_VIDEO_TEST", kPicture[] = "SID_PICTURE_TEST", kSound[] = "SID_SOUND_TEST",
               kHdmi[] = "TV_SID_CONNECTION_HDMI_TROUBLSHOOTING", kSignal[] = "SID_SIGNAL_INFORMATION_KR_17",
               kConnection[] = "COM_SID_HOME_DECK_CONNECTION_TEST", kReset[] = "COM_TV_SID_RESET_HOME_DECK_KR_KOR",
               kPanel[] = "TV_SID_OOBE_CAJUL_MLED_INSTALL_TEST";
constexpr const char* kTools[] = {kVideo, kPicture, kSound, kHdmi, kSignal, kConnection, kReset, kPanel};

CSelfDiagnosis& Menu() {
  return *CSelfDiagnosis::Instance();
}

class ToolScreens : public Screens {
 protected:
  ToolScreens() {
    vconf_set_int(QUVA::kConsentKey, 1);
    const std::string folder = SystemPath(set_paths::kCheckerDir);
    fs::create_directories(folder);
    for (const char* library : {SYSINFO_CHECKER, SETTINGS_CHECKER}) fs::copy(library, folder);
    // Whatever this machine has, all can be chosen.
    const std::regex asked(R"re("machine", "key": "\w+ unless ([^"]*)", "type": "bool", "value": "1")re");
    const std::string shipped = ReadHostFile(VEXILO_SOURCE_DIR "/platform/set/menuitems.json");
    const std::string locked =
        std::regex_replace(shipped, asked, R"("settings", "key": "$1", "type": "bool", "value": "0")");
    WriteFile(set_paths::kMenuItems, std::regex_replace(locked, std::regex("machine"), "settings"));
  }

  void OpenMenu(const char* launchFrom = nullptr) {
    if (!m_ui) Open();
    m_launchFrom = launchFrom ? launchFrom : "";
    Utils().m_pSetLaunchFrom(launchFrom ? m_launchFrom.data() : nullptr);
    Menu().m_CreateSelfDiagnosis(true);
    ASSERT_TRUE(FocusBecomes("(no text)"));
    Pass();
  }
  void CloseMenu() { Drop(&Menu()); }

  /// The labels of the cards, in reading order, rows ended by "/".
  std::vector<std::string> Cards() const {
    std::vector<Shown> cards;
    for (const Shown& shown : Texts())
      for (const char* sid : kTools)
        if (elm_object_widget_check(shown.object) && shown.text == CUtils::m_GetText(sid)) cards.push_back(shown);
    const int direction = elm_config_mirrored_get() ? -1 : 1;
    std::ranges::stable_sort(cards, {}, [&](const Shown& card) { return std::pair(card.at.y, card.at.x * direction); });
    std::vector<std::string> labels;
    for (size_t i = 0; i < cards.size(); ++i) {
      if (i > 0 && cards[i].at.y > cards[i - 1].at.y + cards[i].at.height / 2) labels.push_back("/");
      labels.push_back(cards[i].text);
    }
    return labels;
  }
  static std::vector<std::string> TextsOf(const std::vector<const char*>& sids) {
    std::vector<std::string> texts;
    for (const char* sid : sids) texts.push_back(*sid == '/' ? sid : CUtils::m_GetText(sid));
    return texts;
  }
  static std::string Guide(const char* label) {
    char buffer[CSelfDiagnosis::kGuideSize];
    CSelfDiagnosis::getGuideMsg(label, buffer);
    return buffer;
  }
  /// Whether the toast with this text is the only thing above the screen.
  bool ToastSays(const char* sid) { return ShowsSid(sid) && StackSize() == 2; }

  std::string m_launchFrom;
};

TEST_F(ToolScreens, TheSetAndItsCheckersDecideOnTheCards) {
  const struct {
    const char* profile;
    std::vector<const char*> cards;
  } cases[] = {
      {"feature product.product_type=0", {kVideo, kPicture, kSound, kHdmi, "/", kSignal, kConnection, kReset}},
      {"feature the_ostrav_version=2", {kVideo, kPicture, kSound, kHdmi, "/", kSignal, kConnection, kReset, kPanel}},
      {"feature product.product_type=4; feature the_ostrav_version=2", {kVideo, kPicture, kSound, kHdmi}},
      {"feature product.product_type=4; feature no_video_test=1; feature no_sound=1; feature no_hdmi=1", {kPicture}},
      {"feature no_video_test=1; feature no_sound=1", {kPicture, kHdmi, kSignal, "/", kConnection, kReset}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.profile);
    Profile(each.profile);
    OpenMenu();
    EXPECT_EQ(Cards(), TextsOf(each.cards));
    EXPECT_EQ(Menu().m_GetSelectedIndex(), 0);
    EXPECT_TRUE(Shows(Guide(each.cards.front())));
    CloseMenu();
  }
}

TEST_F(ToolScreens, TheCardsLabelsAreOfOneSizeWhicheverHasTheFocus) {
  Profile("feature the_ostrav_version=2");
  for (const char* language : {"de_DE.utf8", "en_US.utf8", "hi_IN.utf8"})
    for (const int enlarged : {0, 1}) {
      Language(language);
      ApplyMenuLanguage();
      vconf_set_int("db/menu/system/accessibility/focuszoom", enlarged);
      OpenMenu();
      for (const char* key : {"", "Right Right Right", "Down"}) {
        Press(key);
        m_ui->Settle();
        std::set<std::string> labels, sizes;
        for (const char* sid : kTools) labels.insert(CUtils::m_GetText(sid));
        for (const Shown& shown : Texts())
          if (!elm_object_widget_check(shown.object) && labels.contains(shown.text)) sizes.insert(SizeOf(shown.object));
        EXPECT_EQ(sizes.size(), 1u) << language << enlarged << key;
      }
      CloseMenu();
    }
}

TEST_F(ToolScreens, WithoutAConfigurationThePictureTestIsLeft) {
  fs::remove(SystemPath(set_paths::kMenuItems));
  OpenMenu();
  EXPECT_EQ(Cards(), TextsOf({kPicture}));
}

TEST_F(ToolScreens, EachCardIsRecordedMarkedAndLaunched) {
  const struct {
    const char *source, *app, *kpi, *mark;
  } cases[] = {
      {"video-test", "com.tornelo.video-test", "Video Test", "VIDEO_TEST_SELECTED"},
      {"picture-test", "org.varno.picture-test", "Picture Test", "PICTURE_TEST_SELECTED"},
      {"sound-test", "org.varno.sound-test", "Sound Test", "SOUND_TEST_SELECTED"},
      {"com.tornelo.tv.hdmi-troubleshooting", "com.tornelo.tv.hdmi-troubleshooting", "HDMI Troubleshooting",
       "TROUBLESHOOTING_TEST_SELECTED"},
      {"SignalInfo", "com.tornelo.tv.broadcastingmenu", "Signal Information", "SIGNAL_INFO_SELECTED"},
      {"org.varno.homedeck-connection-test", "org.varno.homedeck-connection-test", "Homedeck Connection Test",
       "HOMEDECK_CONNECTION_TEST_SELECTED"},
      {"HomedeckReset", "org.varno.homedeck-reset", "Reset Homedeck", ""},
      {"org.varno.mled-installation-test", "org.varno.mled-installation-test", "MLED Installation Test", ""},
      {"Self-Diagnosis", "com.tornelo.video-test", "Video Test", "VIDEO_TEST_SELECTED"},
  };
  Profile("feature the_ostrav_version=1");
  for (const auto& each : cases) {
    SCOPED_TRACE(each.source);
    EXPECT_TRUE(CSelfDiagnosis::m_IsLaunchSource(each.source));
    OpenMenu(each.source);
    vconf_set_str(QUVA::kEngineScenarioKey, "");
    const size_t before = StoredEvents().size();
    Press("Return");
    EXPECT_TRUE(ToastSays("TV_SID_VEXILO_COULD_NOT_DO_IT")) << "it is not installed";
    Press("XF86Back");
    Install(each.app);
    vconf_set_str(QUVA::kEngineScenarioKey, "");
    Press("Return");
    EXPECT_EQ(Launched(), each.app);
    Press("Return");
    EXPECT_EQ(Launched(), "") << "while it is coming";
    EXPECT_THAT(StoredEvents().substr(before), HasSubstr("select_item=" + std::string(each.kpi) + ";"));
    const CText scenario(vconf_get_str(QUVA::kEngineScenarioKey));
    EXPECT_EQ(std::string(scenario.get()), *each.mark ? R"({"id" : ")" + std::string(each.mark) + "\"}" : "");
    EXPECT_EQ(StackSize(), 1u) << "no toast";
    fs::remove(SystemPath(set_paths::kDesktopEntries + ("/" + std::string(each.app)) + ".desktop"));
    CloseMenu();
  }
  for (const char* source : {"", "menu", "Sound-Test", "homedeckreset"})
    EXPECT_FALSE(CSelfDiagnosis::m_IsLaunchSource(source)) << source;
}

TEST_F(ToolScreens, WhatCannotBeChosenSaysWhy) {
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  vconf_set_int(QUVA::kConsentKey, 0);
  const auto said = [](const std::string& text) { return std::ranges::count(g_said, text) > 0; };
  OpenMenu("HomedeckReset");
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_TOOL_NEEDS_TERMS")) << "below the cards";
  EXPECT_TRUE(
      Soon([&] { return said("focus: Reset Home Deck, not available, First accept the terms of Home Deck."); }));
  CloseMenu();

  vconf_set_bool(QUVA::kToolsLockedKey, 1);
  Install("org.varno.sound-test");
  Install("org.varno.picture-test");
  OpenMenu("sound-test");
  Press("Return Return");  // the second changes nothing
  EXPECT_TRUE(ToastSays("TV_SID_VEXILO_TOOL_LOCKED"));
  EXPECT_EQ(std::tuple(Launched(), InLog("launch process called 2"), InLog("scenario tracker called")),
            std::tuple("", 2, 0));
  EXPECT_EQ(StoredEvents(), "") << "nothing was started";
  Press("XF86Back");
  EXPECT_EQ(std::tuple(StackSize(), InLog("hide 4 toast called ")), std::tuple(1u, 1));
  EXPECT_TRUE(FocusBecomes("(no text)"));
  Press("Return");
  EXPECT_TRUE(Soon([] { return StackSize() == 1; }));
  EXPECT_EQ(InLog("Auto TimeOut"), 1);
  Press("Left Return");
  EXPECT_EQ(Launched(), "org.varno.picture-test") << "which nobody can lock";
  EXPECT_TRUE(Soon([&] { return said("focus: " + CUtils::m_GetText(kPicture) + ", " + Guide(kPicture)); }));
}

TEST_F(ToolScreens, WhatTheMachineLacksIsSaidUnlessTheToolIsLocked) {
  constexpr std::pair<const char*, const char*> kReasons[] = {{"sound", "TV_SID_VEXILO_TOOL_NO_SOUND"},
                                                              {"connectors", "TV_SID_VEXILO_TOOL_NO_CONNECTOR"},
                                                              {"signal", "TV_SID_VEXILO_TOOL_NO_SIGNAL"},
                                                              {"video", "TV_SID_VEXILO_TOOL_NO_DECODER"}};
  Open();
  for (const auto& [lacks, reason] : kReasons) {
    SCOPED_TRACE(lacks);
    WriteFile(set_paths::kMenuItems,
              R"({"sound-test": {"providers": {"s": "libchecker_settings.so"},
                  "visible": {"visible-checker": "s", "key": "db/none", "type": "bool", "value": "0"},
                  "enable": {"enable-checker": "s", "key": ")" +
                  std::string(lacks) + R"( unless db/vexilo/tools_locked", "type": "bool", "value": "1"}}})");
    auto& parser = *QUVA::MenuItemParser::GetInstance();
    parser.ParseJson(set_paths::kMenuItems);
    parser.GetCheckerFnPtrs();
    for (const bool isLocked : {true, false}) {
      vconf_set_bool(QUVA::kToolsLockedKey, isLocked);
      OpenMenu("sound-test");
      EXPECT_TRUE(ShowsSid(isLocked ? "TV_SID_VEXILO_TOOL_LOCKED" : reason));
      CloseMenu();
    }
  }
}

// How the grid moves is its own; here it is what is shown of it and logged.
TEST_F(ToolScreens, KeysAndWheelLeadToTheCardsOfTheLanguagesDirection) {
  const struct {
    bool mirrored;
    const char *keys, *card, *log;
  } cases[] = {
      {false, "Right Right Right Down", kReset, "New Row[1] , New Col[2]"},
      {true, "Left Left Right", kPicture, "RTL Detected.. Changed Keyname[Left]"},
  };
  Open();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.keys);
    elm_config_mirrored_set(each.mirrored);
    OpenMenu();
    Press(each.keys);
    EXPECT_TRUE(Shows(Guide(each.card)));
    EXPECT_EQ(InLog(each.log), 1);
    CloseMenu();
  }
  elm_config_mirrored_set(false);
  OpenMenu();
  const int moves = InLog("New Row[");
  m_ui->Wheel(m_ui->Focused(), 3);  // one turn leads to the last row
  Pass();
  EXPECT_TRUE(Shows(Guide(kSignal)));
  EXPECT_EQ(std::tuple(InLog("Wheel event detected.. Keyname[Down]"), InLog("New Row[") - moves), std::tuple(3, 1));
}

TEST_F(ToolScreens, GuideMessagesSpeakOfTheKindOfDevice) {
  constexpr char kPlainVideo[] = "TV_SID_CARE_USE_VIDEO_TEST_EXPERIENCE_PROBLEM_VIDEO_QUALITY";
  constexpr char kPlainPicture[] = "TV_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_PICTURE";
  constexpr char kPlainPanel[] = "TV_SID_MLED_CAOCT_NON_MICRO_LED";
  const struct {
    const char *profile, *picture, *panel, *video;
  } cases[] = {{"", kPlainPicture, kPlainPanel, kPlainVideo},
               {"feature product.device_sid=NOT_READY; feature the_ostrav_version=1", kPlainPicture,
                "TV_SID_CARE_MIX_CACOCT_TEST_CHECK_ASSEMBLY_STATUS", kPlainVideo},
               {"feature product.device_sid=REP.DEVICE.SCREEN",
                "REP.DEVICE.SCREEN_SID_SUPPORT_CCDEC_USE_TEST_EXPERIENCE_PICTURE", kPlainPanel,
                "PJT_SID_CARE_USE_VIDEO_TEST_EXPERIENCE_PROBLEM_VIDEO_QUALITY"},
               {"feature product.device_sid=rep.device.tv", "PJT_SID_SUPPORT_USE_TEST_EXPERIENCE_TV_PICTURE",
                kPlainPanel, "PJT_SID_CARE_USE_VIDEO_TEST_EXPERIENCE_PROBLEM_VIDEO_QUALITY"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.profile);
    Profile(each.profile);
    for (const auto& [label, sid] : {std::pair(kPicture, each.picture), {kPanel, each.panel}, {kVideo, each.video}})
      EXPECT_EQ(Guide(label), CUtils::m_GetText(sid));
  }
  EXPECT_EQ(Guide("TV_SID_NONE") + CSelfDiagnosis::getIconPath("TV_SID_NONE"), "");
}

TEST_F(ToolScreens, TheApplicationMayEndWhenPausedOnlyWhileTheyShow) {
  Open();
  OpenHome();
  CHomeScreen::Instance()->m_HideHomeScreen();
  OpenMenu();
  EXPECT_TRUE(Utils().m_GetExitOnPause());
  EXPECT_EQ(QUVA::CGetData::GetInstance()->m_GetCurrentScreen(), QUVA::SCREEN_SELF_DIAGNOSIS);
  vconf_set_int("db/menu/system/accessibility/highcontrast", 1);
  EXPECT_TRUE(Soon([] { return Utils().m_GetHighContrast() == 1; }));
  Press("XF86Back");
  EXPECT_FALSE(Utils().m_GetExitOnPause());
  EXPECT_TRUE(FocusBecomes("start"));
}

// ---- the error report

constexpr char kCollecting[] = "TV_SID_VEXILO_REPORT_COLLECTING";

class ReportScreens : public ToolScreens {
 protected:
  ReportScreens() {
    for (const char* folder : {set_paths::kReportTriggers, set_paths::kReportResults})
      fs::create_directories(SystemPath(folder));
  }

  void OpenReport() {
    Open();
    OpenHome();
    CHomeScreen::Instance()->m_HideHomeScreen();
    CErrorReport::Instance()->m_CreateErrorReport();
    ASSERT_TRUE(FocusBecomes("Screen"));
    Pass();
  }
  static fs::path TriggerOf(const std::string& category) {
    return SystemPath(set_paths::kReportTriggers) + "/" + category + "-QUVAKOV.log";
  }
  /// Does what the log collector does of a request, once it is there: tells of it, and takes it away.
  bool Collect(const std::string& category, const std::string& what) {
    if (!Soon([&] { return fs::exists(TriggerOf(category)); })) return false;
    const std::string trigger = TriggerOf(category).filename();
    const std::string result = set_paths::kReportResults + ("/" + trigger);
    WriteFile(result + "#", R"({"id":")" + category + R"(1","trigger":")" + trigger + R"(",)" + what + "}\n");
    fs::rename(SystemPath(result + "#"), SystemPath(result));
    return fs::remove(TriggerOf(category));
  }
  /// Ticks, sends, and leaves the screen that confirms it.
  void SendAndClose(const std::string& ticks) {
    Press(ticks + " Down Down Down Return");
    ASSERT_TRUE(FocusBecomes("close"));
    Press("Return");
    ASSERT_TRUE(Soon([] { return StackSize() == 1; }));
  }
  static std::string NoReport(const std::string& names) {
    return CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_NO_REPORT", names);
  }
  void FocusOn(const std::string& box) {
    for (const Shown& shown : Texts())
      if (shown.text == box && elm_object_widget_check(shown.object)) elm_object_focus_set(shown.object, EINA_TRUE);
    ASSERT_EQ(Focus(), box);
  }

  std::optional<HeldDaemonPlace> m_daemon{std::in_place};
};

TEST_F(ReportScreens, WhatIsTickedIsSpokenAndCanBeSent) {
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  OpenReport();
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_CHOOSE_PROBLEM"));
  Press("Down Down Down");
  EXPECT_EQ(Focus(), "cancel") << "nothing is ticked, so nothing can be sent";
  Press("Left");
  EXPECT_EQ(Focus(), "cancel");
  for (const char* box : {"Broadcast signal", "Remote control", "Other"}) {
    for (const bool ticked : {true, false}) {
      SCOPED_TRACE(testing::Message() << box << ticked);
      FocusOn(box);
      g_said.clear();
      Press("Return");
      EXPECT_THAT(g_said, testing::Contains(ticked ? "Checked" : "Not checked"));
      EXPECT_EQ(ShowsSid("TV_SID_VEXILO_CHOOSE_PROBLEM"), !ticked);
      Press("Down");
      EXPECT_EQ(Focus(), ticked ? "send" : "cancel");
      FocusOn(box);
      EXPECT_TRUE(Soon([&] {
        return std::ranges::count(g_said, "focus: " + (box + std::string(ticked ? ", Checked" : ", Not checked"))) > 0;
      }));
    }
  }
  vconf_set_int("db/menu/system/accessibility/highcontrast", 1);
  EXPECT_TRUE(Soon([] { return InLog("HighContrast change in Error Report callback isHighContrast: 1") > 0; }));
  Press("Down Return");
  EXPECT_TRUE(FocusBecomes("start"));
  EXPECT_EQ(InLog("Send Button Pressed "), 1) << "the line of both buttons";
  EXPECT_FALSE(fs::exists(TriggerOf("SCREEN")));
}

TEST_F(ReportScreens, ASentReportIsConfirmedInItsPlaceWithItsName) {
  OpenReport();
  Press("Down Down Right Right Return Up Up Left Left Return Right Return Down Down Down");
  ASSERT_EQ(Focus(), "send");
  Press("Return");
  ASSERT_TRUE(FocusBecomes("close"));
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_CBMAY_ERROR_REPORTING_COMPLETED"));
  EXPECT_TRUE(ShowsSid(kCollecting));
  EXPECT_EQ(StackSize(), 2u);
  EXPECT_TRUE(Collect("SCREEN", R"("report":"1-SCREEN.tar.zst")"));
  EXPECT_TRUE(Soon([&] { return Shows("1-SCREEN.tar.zst"); }));
  EXPECT_TRUE(ShowsSid(kCollecting)) << "for the others";
  EXPECT_TRUE(Collect("SOUND", R"("problem":"no space left")"));
  EXPECT_TRUE(Collect("OTHER", R"("report":"2-OTHER.tar.zst")"));
  EXPECT_TRUE(Soon([&] { return Shows("1-SCREEN.tar.zst\n2-OTHER.tar.zst"); }));
  EXPECT_TRUE(Soon([&] { return Shows(NoReport("Sound")); }));
  EXPECT_TRUE(Shows(CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_REPORT_SAVED", set_paths::kReportsDir)));
  EXPECT_FALSE(ShowsSid(kCollecting));
  EXPECT_THAT(Log(), HasSubstr("SOUND-QUVAKOV.log: no space left"));
  EXPECT_EQ(InLog("end for KOV send "), 1);
  Press("XF86Back");
  EXPECT_TRUE(FocusBecomes("start")) << "past the report's screen";
  EXPECT_EQ(StackSize(), 1u) << "what failed has been told";
}

TEST_F(ReportScreens, WhereNothingCollectsTheRecordsThatIsSaidBeforeAndAfter) {
  m_daemon.reset();
  OpenReport();
  const std::string notice = CUtils::m_GetText(QUVA::kNoCollectorText);
  EXPECT_TRUE(Soon([&] { return Shows(notice); }));
  Press("Return Down Down Down Return");
  ASSERT_TRUE(FocusBecomes("close"));
  EXPECT_TRUE(Shows(notice));
  for (const char* sid : {"TV_SID_VEXILO_CBMAY_ERROR_REPORTING_COMPLETED", kCollecting}) EXPECT_FALSE(ShowsSid(sid));
  EXPECT_TRUE(Collect("SCREEN", R"("report":"1-SCREEN.tar.zst")")) << "one that was started meanwhile";
  EXPECT_TRUE(Soon([&] { return Shows("1-SCREEN.tar.zst"); }));
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_CBMAY_ERROR_REPORTING_COMPLETED"));
}

TEST_F(ReportScreens, AFailureThatComesLaterIsToldOnHome) {
  OpenReport();
  SendAndClose("Return Right Return");
  ASSERT_TRUE(FocusBecomes("start"));
  Press("Return");  // a scan, above which no toast goes
  ASSERT_TRUE(Soon([] { return Utils().m_GetKeyBlock(); }));
  for (const char* category : {"SCREEN", "SOUND"}) EXPECT_TRUE(Collect(category, R"("problem":"no space left")"));
  EXPECT_TRUE(Soon([] { return ErrorReportSender::Instance().GetFailures().size() == 2; }));
  QUVA::CStartDC::Instance()->m_CleanObjects();
  CHomeScreen::Instance()->m_ShowHomeScreenPostReturn();
  EXPECT_TRUE(Shows(NoReport("Screen, Sound")));
  EXPECT_EQ(StackSize(), 2u);
  ASSERT_TRUE(FocusBecomes("start"));
  Press("Down");
  const std::string there = Focus();
  EXPECT_NE(there, "start");
  Press("XF86Back");
  EXPECT_EQ(std::tuple(StackSize(), ErrorReportSender::Instance().GetFailures().size()), std::tuple(1u, 0u));
  EXPECT_TRUE(FocusBecomes(there)) << "where the viewer had gone";

  // One that fails while the next is being sent is not forgotten for it.
  CHomeScreen::Instance()->m_HideHomeScreen();
  CErrorReport::Instance()->m_CreateErrorReport();
  ASSERT_TRUE(FocusBecomes("Screen"));
  SendAndClose("Return");
  CHomeScreen::Instance()->m_HideHomeScreen();
  CErrorReport::Instance()->m_CreateErrorReport();
  ASSERT_TRUE(FocusBecomes("Screen"));
  EXPECT_TRUE(Collect("SCREEN", R"("problem":"no space left")"));
  EXPECT_TRUE(Soon([] { return !ErrorReportSender::Instance().GetFailures().empty(); }));
  Press("Right Return Down Down Down Return");
  ASSERT_TRUE(FocusBecomes("close"));
  EXPECT_TRUE(Collect("SOUND", R"("report":"3-SOUND.tar.zst")"));
  EXPECT_TRUE(Soon([&] { return Shows("3-SOUND.tar.zst"); }));
  Press("Return");
  EXPECT_TRUE(Soon([&] { return Shows(NoReport("Screen")); }));
}

TEST_F(ReportScreens, WhatIsHandedOverIsAskedForBeforeTheEnd) {
  ErrorReportSender& sender = ErrorReportSender::Instance();
  for (const int row : {8, 0}) sender.Toggle(row);
  sender.HandOver();
  CErrorReport::Instance()->m_FinishSending();
  EXPECT_TRUE(fs::exists(TriggerOf("SCREEN")) && fs::exists(TriggerOf("OTHER")));
}

}  // namespace
