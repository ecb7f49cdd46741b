// The scan and the list of issues, worked with keys.

#include <atomic>
#include <tuple>

#include "QUVA_DiagManager.h"
#include "QUVA_DiagResultManager.h"
#include "request_files.h"
#include "support/held_daemon_place.h"
#include "support/process.h"
#include "support/remaining_rows.h"
#include "support/test_bus.h"
#include "trevlin/trevlin_database.h"
#include "ui/screen_fixture.h"

namespace {

using namespace std::string_literals;
using QUVA::CHomeScreen;
using QUVA::CStartDC;
using QUVA::CStartDCIssues;
using QUVA::CUtils;
using QUVA::MapToDBTable;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// ---- the scan

constexpr const char* kCategories[] = {"TV_SID_CARE_DIAGNOSE_POWER_ON_OFF",
                                       "TV_SID_CARE_DIAGNOSE_PICTURE_QUALITY",
                                       "TV_SID_CARE_DIAGNOSE_SOUND_QUALITY",
                                       "TV_SID_CARE_DIAGNOSE_EXTERNAL_DEVICE_CONNECTION",
                                       "TV_SID_CARE_DIAGNOSE_NETWORK_CONNECTION",
                                       "",
                                       "TV_SID_CARE_DIAGNOSE_BROADCAST_SIGNAL_CHANNEL_STATUS",
                                       "TV_SID_CARE_FREE_UP_MEMORY_BY_CLOSING_UNUSED_BACKGROUND_APPS",
                                       "TV_SID_CARE_DIAGNOSE_STORAGE_AND_MEMORY",
                                       "TV_SID_CARE_FREE_UP_MEMORY_BY_CLEARING_CACHED_MEMORY"};

TEST_F(Screens, TheScanShowsTheCategoriesOfTheSet) {
  const std::vector<int> all[] = {{0},       {0, 1},    {0, 1, 2}, {1, 2, 3}, {2, 3, 4},
                                  {3, 4, 5}, {4, 5, 6}, {5, 6, 7}, {6, 7, 8}, {7, 8, 9}};
  const std::vector<int> withoutTuner[] = {{0},       {0, 1},    {0, 1, 2}, {1, 2, 3}, {2, 3, 4},
                                           {3, 4, 5}, {4, 5, 7}, {4, 5, 7}, {5, 7, 8}, {7, 8, 9}};
  const struct {
    const char* profile;
    const char* remote;
    const std::vector<int>* steps;
  } cases[] = {
      {"set num_of_tuner=1", "TV_SID_CARE_DIAGNOSE_TV_REMOTE", all},
      {"set num_of_tuner=0; feature product.device_sid=REP.DEVICE.TV", "TV_SID_CARE_DIAGNOSE_TV_REMOTE", withoutTuner},
      {"feature product.device_sid=NOT_READY", "TV_SID_CARE_DIAGNOSE_TV_REMOTE", withoutTuner},
      {"set num_of_tuner=2; feature product.device_sid=REP.DEVICE.SCREEN",
       "REP.DEVICE.SCREEN_SID_CARE_CCDEC_DIAGNOSE_REMOTE", all},
      {"feature product.device_sid=REP.DEVICE.PROJECTOR", "PJT_SID_CARE_DIAGNOSE_TV_REMOTE", withoutTuner}};
  Open();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.profile);
    Profile(each.profile);
    CStartDC::Instance()->m_StartDC();
    for (int step = 0; step < 10; ++step) {
      SCOPED_TRACE(step);
      std::vector<std::string> expected;
      for (const int row : each.steps[step]) {
        expected.push_back(CUtils::m_GetText(*kCategories[row] ? kCategories[row] : each.remote));
        expected.push_back(CUtils::m_GetText(row == each.steps[step].back() ? "TV_SID_CARE_PROCESSING" : "SID_DONE"));
      }
      // The loop does not run meanwhile, so the scan itself changes nothing.
      CStartDC::Instance()->m_AddInDCItemGenList(step);
      std::vector<std::string> shown;
      for (const Shown& text : Texts())
        if (elm_object_widget_check(text.object)) shown.push_back(text.text);
      ASSERT_GE(shown.size(), expected.size());
      EXPECT_EQ(std::vector(shown.end() - static_cast<long>(expected.size()), shown.end()), expected);
    }
    CStartDC::Instance()->m_CleanObjects();
  }
}

/// Does what the task manager does of a deep clean: takes the request away. True when there was one.
bool TakeDeepClean() {
  return fs::remove(SystemPath(tager::TriggerPath(tager::kDeepClean)));
}

TEST_F(Screens, AWholeScanEndsInTheListOfWhatWasFound) {
  Profile("feature product.partner.string_id=0");
  Open(kMoving);
  OpenHome();
  ASSERT_TRUE(FocusBecomes("start"));
  Press("Return");
  EXPECT_FALSE(ShowsSid("TV_SID_CARE_START_VEXILO"));
  std::vector<std::string> percents{""};
  int cleans = 0;
  const auto watch = [&] {
    for (const Shown& shown : Texts())
      if (shown.text.ends_with("%") && elm_object_widget_check(shown.object) && percents.back() != shown.text)
        percents.push_back(shown.text);
    cleans += TakeDeepClean();
    return StackSize() == 2;
  };
  const auto contrastIs = [&](int on) {
    vconf_set_int("db/menu/system/accessibility/highcontrast", on);
    const std::string motion = on ? "Motion/vexilo_highcontrast_" : "Motion/vexilo_";
    return Soon([&] {
      return (StackSize() == 1 && watch()) ||
             Picture().starts_with(motion + (StackSize() == 2 ? "good/" : "progress/"));
    });
  };
  EXPECT_TRUE(Soon([&] { return watch() || std::atoi(percents.back().c_str()) >= 20; }));
  EXPECT_THAT(Picture(), StartsWith("Motion/vexilo_progress/"));
  EXPECT_TRUE(contrastIs(1));
  for (const char* key : {"XF86Back", "Escape", "Return", "Up"}) Press(key);
  EXPECT_EQ(std::tuple(StackSize(), g_loopEnds, InLog("Start Vexilo Button Pressed")), std::tuple(1u, 0, 1))
      << "home is hidden and hears no key";
  EXPECT_TRUE(Soon([&] { return watch() || (percents.back() == "100%" && !ShowsSid("TV_SID_CARE_PROCESSING")); }));
  EXPECT_TRUE(contrastIs(0)) << "while it waits";
  EXPECT_TRUE(contrastIs(1));
  std::thread([] { CStartDC::Instance()->m_DiagResCallback(Rows(2)); }).join();
  EXPECT_TRUE(Soon(watch));
  // A busy machine may draw the first frames late; what it shows is always one of these.
  std::vector<std::string> frames{"", "0%"};
  for (int frame = 1; frame <= 60; ++frame) frames.push_back(std::to_string(frame * 100 / 60) + "%");
  EXPECT_THAT(percents, testing::AllOf(testing::SizeIs(testing::Gt(40u)), testing::IsSubsetOf(frames)));
  EXPECT_EQ(percents.back(), "100%");
  EXPECT_EQ(std::tuple(cleans, InLog("CleanAll.txt) Created Successfully")), std::tuple(1, 1));
  EXPECT_TRUE(fs::exists(SystemPath(tager::TriggerPath(tager::kMemoryBoost))));
  EXPECT_FALSE(Utils().m_GetKeyBlock());
  EXPECT_TRUE(FocusBecomes("list"));
  EXPECT_THAT(Picture(), StartsWith("Motion/vexilo_highcontrast_good/"));
  EXPECT_TRUE(contrastIs(0));
  Press("Down Down Return");
  EXPECT_TRUE(FocusBecomes("start"));
  EXPECT_EQ(CHomeScreen::Instance()->m_GetDCIssues().size(), 2u);
  EXPECT_EQ(Named()[1].text, "remaining");
}

TEST_F(Screens, AScanMayBeCleanedUpAtAnyMomentAndStartedAgain) {
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  Open();
  const auto percent = [&] {
    int shown = 0;
    for (const Shown& each : Texts())
      if (each.text.ends_with("%")) shown = std::max(shown, std::atoi(each.text.c_str()));
    return shown;
  };
  for (const int moment : {0, 1, 20}) {
    CStartDC::Instance()->m_StartDC();
    EXPECT_TRUE(Soon([&] { return percent() >= moment; }));
    CStartDC::Instance()->m_ClearStartDCScreen();
    EXPECT_FALSE(Utils().m_GetKeyBlock());
  }
  EXPECT_TRUE(JobsEnd());
  EXPECT_FALSE(Utils().m_GetKeyBlock()) << "not blocked by a worker that comes late";
  EXPECT_EQ(std::tuple(StackSize(), InLog("End_Function for progress circle called")), std::tuple(0u, 0));
  EXPECT_THAT(Log(), testing::Not(HasSubstr("CleanAll.txt")));
  CStartDC::Instance()->m_StartDC();
  EXPECT_TRUE(Soon([&] { return percent() > 0; }));
  evas_object_del(Utils().m_pGetRootLayout());  // the widgets go first
  Press("XF86Back");
  Soon([] { return false; }, 1);  // it goes on unseen
  EXPECT_TRUE(Utils().m_GetKeyBlock());
  CStartDC::Instance()->m_CleanObjects();
}

// ---- the list of issues

CStartDCIssues& List() {
  return *CStartDCIssues::Instance();
}

TEST_F(Screens, DatesAreInTheOrderOfTheSet) {
  struct {
    const char* time;
    const char* parts[3];  ///< by region: the order of Korea, of most others, of America
  } const cases[] = {{"2024-03-07T09:05:00", {"2024/03/07", "07/03/2024", "03/07/2024"}},
                     {"1970-01-01T00:00:01", {"", "", ""}},
                     {"", {"", "", ""}},
                     {"2024-03", {"", "", ""}},
                     {"no time at all, and far too long for a date", {"", "", ""}}};
  std::vector<MapToDBTable> rows;
  for (const auto& each : cases) rows.push_back(Row("1", each.time));
  Open();
  OpenList(rows);
  for (const auto& [region, order] : {std::pair("16", 0), {"4", 1}, {"1", 2}}) {
    Profile("set region_kind="s + region);
    for (int i = 0; i < static_cast<int>(std::size(cases)); ++i)
      EXPECT_EQ(List().m_item_label_get(i, "SubText1"), cases[i].parts[order]) << region << " " << cases[i].time;
  }
  for (const auto& [index, part] : {std::pair(-1, "MainText"), {5, "SubText1"}, {0, "other"}})
    EXPECT_EQ(List().m_item_label_get(index, part), "");
}

TEST_F(Screens, ThePopupSpeaksOfTheKindOfDeviceAndCanBeClosedWhereItsTextsAreMissing) {
  constexpr char kOffTimer[] = "TV_SID_USING_OFF_TIMER", kScreen[] = "feature product.device_sid=REP.DEVICE.SCREEN";
  const struct {
    const char *profile, *sid, *shown;
  } cases[] = {{"", kOffTimer, kOffTimer},
               {"feature product.device_sid=REP.DEVICE.PROJECTOR", kOffTimer, "PJT_SID_USING_OFF_TIMER"},
               {kScreen, kOffTimer, "REP.DEVICE.SCREEN_SID_CCDEC_USING_OFF_TIMER"},
               {kScreen, "TV_SID_CARE_CAMAR_WHEN_APO_WILL_OFF_DO_WANT_CONTINUE_APO",
                "REP.DEVICE.SCREEN_SID_CCDEC_CARE_CAMAR_WHEN_APO_WILL_OFF_DO_WANT_CONTINUE_APO"},
               {kScreen, "TV_SID_VEXILO_BATTERY_EMPTY_MSG", "TV_SID_VEXILO_BATTERY_EMPTY_MSG"},
               {"", "", nullptr}};
  Open();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.sid);
    Profile(each.profile);
    MapToDBTable row = Row("1");
    row.sid_sol = each.sid;
    if (!each.shown) row.sid_button1 = "", row.sid_button2 = "NULL";
    OpenList({row});
    ASSERT_TRUE(FocusBecomes("list"));
    Press("Return");
    EXPECT_TRUE(!each.shown || ShowsSid(each.shown));
    for (const Shown& text : Texts()) EXPECT_THAT(text.text, testing::Not(HasSubstr("Content-Type")));
    EXPECT_EQ(StackSize(), 2u);
    EXPECT_EQ(Focus(), each.shown ? CUtils::m_GetText("TV_SID_VEXILO_OPEN_SETTINGS") : "close");
    Press("Right");
    EXPECT_EQ(Focus(), "close");
    Press(each.shown ? "XF86Back" : "Return");
    EXPECT_EQ(StackSize(), 1u);
    EXPECT_TRUE(FocusBecomes("list"));
    Drop(&List());
  }
}

/// The codes of the stored remaining problems.
std::vector<std::string> Stored() {
  auto& results = *QUVA::QUVA_DiagResultManager::GetInstance();
  std::vector<MapToDBTable> rows;
  if (results.LoadRemainingProblems()) results.GetRemainingTable(rows);
  std::vector<std::string> codes;
  for (const MapToDBTable& row : rows) codes.push_back(row.issue_code);
  return codes;
}

TEST_F(Screens, AnIssueIsAppliedOrDeclined) {
  const struct {
    const char* action;
    const char* button;
    const char* steps;
    std::pair<const char*, const char*> toasts;
    const char* log;
    const char* toast;  ///< "" for none
    bool goes;
    int recorded;  ///< as applied or not; -1: not at all
  } cases[] = {
      {"1", "Return", "setting", {"Done with %s", "it"}, "User Chose to apply", "Done with it", true, 1},
      {"2", "Right Return", "setting", {"Done with %s", "NULL"}, "User Chose to apply", "Done with %s", true, 1},
      {"1", "Return", "setting", {"NULL", "it"}, "User Chose to apply", "", true, 1},
      {"2", "Return", "setting", {"Done", "NULL"}, "User Chose to cancel", "", false, 0},
      {"1", "Right Return", "setting", {"Done", "NULL"}, "User Chose to cancel", "", false, 0},
      {"1", "Return", "reboot", {"NULL", "NULL"}, "User Chose to apply", "TV_SID_VEXILO_COULD_NOT_DO_IT", false, -1}};
  std::map<std::string, std::string> issues{{"99", Step("memboost")}};
  for (size_t i = 0; i < std::size(cases); ++i) issues[std::to_string(10 + i)] = Step(cases[i].steps, "int db/step 1");
  StoreRemaining(issues);
  Open();
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& each = cases[i];
    const std::string code = std::to_string(10 + i);
    SCOPED_TRACE(code);
    MapToDBTable row = Row(code);
    row.action = each.action;
    std::tie(row.toast1, row.toast2) = each.toasts;
    CHomeScreen::Instance()->m_SetDCIssues({row, Row("99")});
    std::string source = "menu";
    Utils().m_pSetLaunchFrom(source.data());
    Utils().m_SetMultitaskingStatus(true);
    OpenList({row, Row("99")});
    ASSERT_TRUE(FocusBecomes("list"));
    Press("Return");
    Press(each.button);
    EXPECT_THAT(Log(), HasSubstr(each.log + " solution for solution code["s + code));
    const std::string toast = CUtils::m_GetText(each.toast);
    EXPECT_TRUE(!*each.toast || Soon([&] { return Shows(toast); })) << toast;
    EXPECT_TRUE(JobsEnd());
    Pass();
    EXPECT_TRUE(*each.toast || StackSize() == 1);
    EXPECT_EQ(List().m_item_label_get(1, "MainText").empty(), each.goes);
    EXPECT_EQ(CHomeScreen::Instance()->m_GetDCIssues().size(), each.goes ? 1u : 2u);
    EXPECT_EQ(std::ranges::count(Stored(), code), each.goes ? 0 : 1);
    EXPECT_EQ(Utils().m_pGetLaunchFrom(), nullptr);
    EXPECT_EQ(Utils().m_GetMultitaskingStatus(), each.recorded != 0);
    std::vector<_DTSolDBRecord> records;
    trevlin::Database(trevlin::Database::Access::kReadOnly).AllSolutions(records);
    std::erase_if(records, [&](const _DTSolDBRecord& record) { return std::to_string(record.issueCode) != code; });
    EXPECT_EQ(records.empty() ? -1 : records[0].isApply, each.recorded);
    Press("XF86Back");
    EXPECT_EQ(StackSize(), 1u);
    EXPECT_TRUE(FocusBecomes("list"));
    Drop(&List());
  }
}

// Applying a deep clean takes as long as the task manager does, and may fail after it.
TEST_F(Screens, WhatTakesLongIsHandledWhereverTheViewerIsMeanwhile) {
  const HeldDaemonPlace daemon;
  StoreRemaining({{"1", Step("deepclean")}, {"2", Step("deepclean") + Step("reboot")}, {"3", Step("memboost")}});
  Open();
  CHomeScreen::Instance()->m_SetDCIssues({Row("1"), Row("2")});
  OpenHome();
  ASSERT_TRUE(FocusBecomes("remaining"));
  Press("Return");
  ASSERT_TRUE(FocusBecomes("list"));
  Press("Down Return Return");  // the second row, which will fail
  EXPECT_EQ(StackSize(), 2u);
  Press("Return");  // it is being handled
  EXPECT_EQ(StackSize(), 2u);
  Press("Up Return");  // the popup of the first row
  ASSERT_EQ(StackSize(), 3u);
  ASSERT_TRUE(Soon(TakeDeepClean));
  EXPECT_TRUE(Soon([] { return StackSize() == 4; })) << "a short message above the popup";
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_COULD_NOT_DO_IT"));
  EXPECT_TRUE(Soon([] { return StackSize() == 3; })) << "it times out, the popup stays";
  EXPECT_TRUE(ShowsSid("TV_SID_USING_OFF_TIMER"));
  Press("Return XF86Back");  // applies it and leaves the list
  ASSERT_TRUE(FocusBecomes("remaining"));
  const auto remaining = [&](int count) {
    return Shows(
        CStringUtil::CombinateStrings(CUtils::m_GetText("TV_SID_CARE_MIX_REMAINING_ISSUES"), std::to_string(count)));
  };
  EXPECT_TRUE(remaining(2));
  ASSERT_TRUE(Soon(TakeDeepClean));
  EXPECT_TRUE(Soon([&] { return remaining(1); }, 5)) << "solved while home was showing";
  Press("Return");
  ASSERT_TRUE(FocusBecomes("list"));
  EXPECT_EQ(List().m_item_label_get(1, "MainText"), "");
  Press("XF86Back");
}

TEST_F(Screens, AnIssueWhoseSolutionOpensAnApplicationStaysUntilItIsGone) {
  Install("there");
  Install("missing", "X-Vexilo-StandIn=true\n");
  StoreRemaining({{"1", Step("launch", "there")},
                  {"2", Step("launch", "there")},
                  {"3", Step("launch", "missing")},
                  {"4", Step("setting", "int db/four 4")}});
  Open();
  OpenList({Row("1"), Row("2"), Row("3"), Row("4")});
  ASSERT_TRUE(FocusBecomes("list"));
  const auto lists = [this](int count) {
    return Soon([&] {
      return Shows(CUtils::m_GetText("TV_SID_CARE_OPTIMIZATION_AND_DIAGNOSTICS_ARE_COMPLETE") + " " +
                   CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_ISSUES", std::to_string(count)));
    });
  };
  const auto goes = [](int code) {
    trevlin::Database(trevlin::Database::Access::kReadWrite)
        .AddTransition({.time = "2024-03-07T09:06:00", .issueCode = code, .type = DT_TRANSITION_TYPE_FALSE});
  };
  const std::string opened = CUtils::m_GetText("TV_SID_VEXILO_OPENED");
  for (const auto& [keys, message] : {std::pair("Return Return", "TV_SID_VEXILO_OPENED_MSG"),
                                      {"Down Return Return", "TV_SID_VEXILO_OPENED_MSG"},
                                      {"Down Return Return", "TV_SID_VEXILO_NO_SUCH_APP"}}) {
    Press(keys);
    EXPECT_TRUE(Soon([&, sid = message] { return ShowsSid(sid); })) << message;
    Press("XF86Back");
  }
  for (int row = 0; row < 4; ++row) EXPECT_EQ(List().m_item_label_get(row, "SubText1") == opened, row < 2) << row;
  EXPECT_THAT(RemainingCodes(), ElementsAre(1, 2, 3, 4));
  EXPECT_TRUE(lists(4));
  _DTSolDBRecord record;
  ASSERT_EQ(GetSolutionDB(1, &record), TREVLIN_OK);
  EXPECT_EQ(record.isApply, 0) << "a scan still finds it";
  Press("Down Return");
  goes(1);
  EXPECT_TRUE(lists(3)) << "while the popup of the last one is open";
  Press("Return");
  EXPECT_TRUE(lists(2));
  EXPECT_THAT(RemainingCodes(), ElementsAre(2, 3));
  Press("Up Return");
  goes(2);
  EXPECT_TRUE(lists(1)) << "while its own popup is open";
  Press("Return");
  EXPECT_FALSE(Soon([&] { return ShowsSid("TV_SID_VEXILO_NO_SUCH_APP"); }, 2)) << "it is not another one's";
}

TEST_F(Screens, AServiceThatThisUserMayNotRestartSaysWhichCommandDoes) {
  const TestBus bus;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address(), 1);
  const PlayedService systemd(bus, "org.freedesktop.systemd1", [](GDBusMessage* call) {
    if (g_dbus_message_get_member(call) == std::string_view("RestartUnit"))
      return g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.AccessDenied", "No");
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(
        reply,
        g_variant_new_parsed("([('a.service', '', 'loaded', 'failed', 'failed', '', @o '/a', @u 0, '', @o '/')],)"));
    return reply;
  });
  StoreRemaining({{"1", Step("restart_service", "a.service")}, {"2", Step("reboot")}});
  Open();
  OpenList({Row("1"), Row("2")});
  ASSERT_TRUE(FocusBecomes("list"));
  const std::string advice = CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_RUN_COMMAND", "systemctl restart a.service");
  Press("Return Return");
  EXPECT_TRUE(Soon([&] { return Shows(advice); }));
  Press("Down Return Return");
  EXPECT_TRUE(Soon([&] { return ShowsSid("TV_SID_VEXILO_COULD_NOT_DO_IT") && !Shows(advice); }));
}

// Without a daemon: what the viewer agrees to is done by the application itself.
TEST_F(Screens, WhatSomebodyMayMissIsAskedAboutAndTheEngineDecidesWhetherItHelped) {
  constexpr char kMemory[] = "10050001", kStorage[] = "10040001", kAdvice[] = "10080001";
  PlantPackage("org.player", "Player");
  const std::string program = SystemPath("/opt/usr/apps/org.player/run");
  const std::string never = SystemPath("/opt/usr/apps/org.player/never");
  ASSERT_EQ(mkfifo(never.c_str(), 0600), 0);
  WriteHostFile(program,
                "#!/bin/sh\nx=$(head -c 20000000 /dev/zero | tr '\\0' x)\necho ready\nread y <>" + never + "\n");
  fs::permissions(program, fs::perms(0755));
  ChildProcess player({program});
  ASSERT_EQ(player.ReadLine(), "ready") << player.Errors();
  const std::string dump = set_paths::kCoreDumps + "/core.player.1"s;
  WriteFile(dump, std::string(3 << 20, 'x'));
  StoreRemaining({{kMemory, Step("memboost")}, {kStorage, Step("deepclean")}, {kAdvice, ""}});
  Open();
  OpenList({Row(kMemory), Row(kStorage), Row(kAdvice)});
  ASSERT_TRUE(FocusBecomes("list"));
  const auto text = [](const char* sid) { return CUtils::m_GetText(sid); };
  const auto note = [](int row) { return List().m_item_label_get(row, "SubText1"); };

  Press("Return Return");
  ASSERT_TRUE(Soon([&] { return Shows("Player"); }, 10));
  EXPECT_TRUE(FocusBecomes("cancel"));
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_APPS_CLOSE"));
  Press("Return");
  EXPECT_EQ(StackSize(), 1u);
  EXPECT_EQ(kill(player.Pid(), 0), 0);
  EXPECT_NE(note(0), text("TV_SID_VEXILO_WORKING_ON_IT"));
  _DTSolDBRecord record;
  EXPECT_NE(GetSolutionDB(10050001, &record), TREVLIN_OK) << "nothing was decided";

  Press("Return Return");
  ASSERT_TRUE(Soon([&] { return Shows("Player"); }, 10));
  Press("Right Return");
  EXPECT_TRUE(Soon([&] { return note(0) == text("TV_SID_VEXILO_BEING_CHECKED"); }, 10));
  EXPECT_FALSE(player.Wait().timedOut);
  EXPECT_FALSE(fs::exists(SystemPath(tager::TriggerPath(tager::kMemoryBoost)))) << "a daemon would take it some day";
  std::string told;
  EXPECT_TRUE(Soon([&] {
    for (const Shown& shown : Texts())
      if (shown.text.starts_with(CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_CLOSED", "Player"))) told = shown.text;
    return !told.empty();
  }));
  EXPECT_THAT(told, testing::ContainsRegex("(19|2[0-4])\\.[0-9]+MB of memory")) << "no file cache";
  Press("XF86Back");

  Press("Down Return Return");
  ASSERT_TRUE(Soon([&] { return ShowsSid("TV_SID_VEXILO_CRASH_RECORDS"); }, 10));
  EXPECT_TRUE(fs::exists(SystemPath(dump)));
  Press("Right Return");
  EXPECT_TRUE(Soon([&] { return note(1) == text("TV_SID_VEXILO_BEING_CHECKED"); }, 10));
  EXPECT_FALSE(fs::exists(SystemPath(dump)));
  EXPECT_FALSE(fs::exists(SystemPath(tager::TriggerPath(tager::kDeepClean)))) << "nobody would take it";
  EXPECT_TRUE(Soon([&] {
    return std::ranges::any_of(Texts(), [&](const Shown& shown) {
      return shown.text.find(text("TV_SID_VEXILO_CRASH_RECORDS")) != std::string::npos &&
             shown.text.find("→") != std::string::npos;
    });
  }));
  Press("XF86Back");
  Press("Down Return Return");
  EXPECT_TRUE(Soon([&] { return note(2) == text("TV_SID_VEXILO_BEING_CHECKED"); }, 10)) << "nobody saw what he did";
  EXPECT_THAT(RemainingCodes(), ElementsAre(10040001, 10050001, 10080001)) << "not before the engine says so";
  trevlin::Database(trevlin::Database::Access::kReadWrite)
      .AddTransition({.time = "2024-03-07T09:06:00", .issueCode = 10040001, .type = DT_TRANSITION_TYPE_FALSE});
  EXPECT_TRUE(Soon([&] { return note(2).empty(); }, 10));
  EXPECT_THAT(RemainingCodes(), ElementsAre(10050001, 10080001));
  Press("Up Return Right Return");
  EXPECT_TRUE(JobsEnd());
  ASSERT_EQ(GetSolutionDB(10050001, &record), TREVLIN_OK);
  EXPECT_EQ(record.isApply, 1) << "looking at it declines nothing";
  EXPECT_EQ(note(0), text("TV_SID_VEXILO_BEING_CHECKED"));
  record = {.issueCode = 10050001, .solutionCode = 7, .type = 1, .isApply = 0, .registerTime = trevlin::CurrentTime()};
  trevlin::Database(trevlin::Database::Access::kReadWrite).AddSolution(record);
  EXPECT_TRUE(Soon([&] { return note(0) == text("TV_SID_VEXILO_STILL_THERE"); }, 10));
  trevlin::Database(trevlin::Database::Access::kReadWrite)
      .AddTransition({.time = "2024-03-07T09:07:00", .issueCode = 10050001, .type = DT_TRANSITION_TYPE_FALSE});
  EXPECT_TRUE(Soon([&] { return note(1).empty(); }, 10)) << "it passed later";
}

TEST_F(Screens, AnIssueSaysWhatItIsAbout) {
  WriteFile(set_paths::kRules, R"({"version": 1, "rules": [{"code": 10040007, "group": "storage",
    "about": "machine.kind", "when": {"fact": "machine.kind", "is": "absent"}}]})");
  StoreRemaining({{"10040007", ""}, {"10040001", ""}});
  Open();
  OpenList({Row("10040007"), Row("10040001")});
  ASSERT_TRUE(FocusBecomes("list"));
  const auto isTold = [this] {
    return std::ranges::any_of(Texts(), [](const Shown& shown) {
      return shown.text.find(CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_AFFECTED", "\u2066")) != std::string::npos;
    });
  };
  Press("Return");
  EXPECT_TRUE(Soon(isTold, 10));
  Press("XF86Back");
  Press("Down Return");
  EXPECT_FALSE(Soon(isTold, 1)) << "its rule names nothing";
}

// It would be back when the application is started again.
TEST_F(Screens, AnIssueThatCannotBeTakenFromTheStoreStaysAndSaysSo) {
  StoreRemaining({{"1", Step("setting", "int db/one 1")}, {"2", Step("setting", "int db/two 2")}});
  Open();
  CHomeScreen::Instance()->m_SetDCIssues({Row("1"), Row("2")});
  OpenList({Row("1"), Row("2")});
  ASSERT_TRUE(FocusBecomes("list"));
  for (const bool isLocked : {true, false}) {
    SqliteDb other = isLocked ? OpenDatabase(set_paths::kRemainingDb) : nullptr;
    if (other) Execute(other.get(), "BEGIN EXCLUSIVE");
    Press("Return Return");
    EXPECT_TRUE(JobsEnd());
    Pass();
    other.reset();
    EXPECT_EQ(ShowsSid("TV_SID_VEXILO_COULD_NOT_DO_IT"), isLocked);
    EXPECT_EQ(List().m_item_label_get(1, "MainText").empty(), !isLocked);
    EXPECT_EQ(CHomeScreen::Instance()->m_GetDCIssues().size(), isLocked ? 2u : 1u);
    EXPECT_THAT(Stored(), isLocked ? testing::SizeIs(2) : testing::SizeIs(1));
    Press("XF86Back");
  }
}

TEST_F(Screens, WithoutTheParserPlugInNothingIsChangedAndApplyingSaysSo) {
  Open();
  OpenList(Rows(1));
  ASSERT_TRUE(FocusBecomes("list"));
  for (const auto& [button, saysSo] : {std::pair("Right Return", false), {"Return", true}}) {
    std::string source = "menu";
    Utils().m_pSetLaunchFrom(source.data());
    Press("Return");
    Press(button);
    Pass();
    EXPECT_EQ(ShowsSid("TV_SID_VEXILO_COULD_NOT_DO_IT"), saysSo);
    EXPECT_EQ(Focus(), "list");
    EXPECT_EQ(Utils().m_pGetLaunchFrom(), nullptr);
  }
  EXPECT_NE(List().m_item_label_get(0, "MainText"), "");
}

TEST_F(Screens, OfALongListOnlyWhatIsSeenIsDrawnAndTheLastOneLeavesAText) {
  setenv("VEXILO_LOG_LEVEL", "debug", 1);  // before the first line
  Open();
  OpenList(Rows(1000));
  ASSERT_TRUE(FocusBecomes("list"));
  EXPECT_GT(InLog(" buf after fn is"), 0);
  EXPECT_LT(InLog(" buf after fn is"), 100) << "only the rows in sight are drawn";
  Press("End Return");
  EXPECT_EQ(StackSize(), 2u);
  Press("XF86Back Down");
  EXPECT_TRUE(FocusBecomes("done"));
  Press("Up");
  EXPECT_TRUE(FocusBecomes("list"));
  for (int i = 0; i < 999; ++i) List().m_RemoveItemFromIndex(0);
  Pass();
  EXPECT_EQ(Focus(), "list");
  for (int i = 0; i < 2; ++i) List().m_RemoveItemFromIndex(0);  // the second time nothing is there
  EXPECT_TRUE(FocusBecomes("done"));
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_ALL_SOLVED"));
}

}  // namespace
