// The storage manager, its popup of details and the deletion of applications, worked with keys.

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <optional>

#include "CDeleteApps.h"
#include "CManageStorage.h"
#include "CViewDetails.h"
#include "support/task_manager.h"
#include "ui/screen_fixture.h"

namespace {

using namespace std::chrono_literals;
using QUVA::CDeleteApps;
using QUVA::CGetData;
using QUVA::CManageStorage;
using QUVA::CUtils;
using QUVA::CViewDetails;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

CManageStorage& Storage() {
  return *CManageStorage::Instance();
}

fs::path FolderOf(const std::string& id) {
  return SystemPath(set_paths::kPackagesDir) + "/" + id;
}

/// The package "The ID" with a program of so many bytes, and some data.
void Plant(const std::string& id, size_t bytes, const std::string& more = "") {
  WriteHostFile(FolderOf(id) / "manifest.json", R"({"package_id": ")" + id + R"(", "app_id": ")" + id +
                                                    R"(", "title": "The )" + id + "\"" + more + "}");
  WriteHostFile(FolderOf(id) / "program", std::string(bytes, 'x'));
  WriteHostFile(FolderOf(id) / "data/file", "data");
  fs::create_directories(FolderOf(id) / "icons");
  fs::copy_file(VEXILO_BINARY_DIR "/res/icons/home_storage.svg.png", FolderOf(id) / "icons/icon.png",
                fs::copy_options::skip_existing);
}

bool IsInTager(const std::string& name) {
  return fs::exists(SystemPath(set_paths::kTager) + "/" + name);
}

/// While it lives, the service is busy with the removal of another application.
class Occupied {
 public:
  Occupied() {
    Plant("other", 1000);
    const auto hold = [](const char*, was_notify_event_e event, int, int, void* self) {
      if (event == WAS_EVENT_MULTI_UNINSTALL_COMPLETE) static_cast<Occupied*>(self)->Hold();
    };
    EXPECT_EQ(was_force_uninstall_webapp("other", hold, this), 0);
  }
  ~Occupied() {
    m_release.set_value();
    m_gone.get_future().wait();
  }

 private:
  void Hold() {
    m_release.get_future().wait();
    m_gone.set_value();
  }

  std::promise<void> m_release, m_gone;
};

class StorageScreens : public Screens {
 protected:
  StorageScreens() {
    vconf_set_int(QUVA::kConsentKey, 1);
    Answer("3000|200");
  }

  /// What the task manager says of data and cache; nothing for "".
  void Answer(const std::string& sizes) {
    m_taskManager.reset();
    if (!sizes.empty()) m_taskManager.emplace(1ms, sizes);
  }

  void OpenStorage(const char* first = "list") {
    if (!m_ui) Open();
    if (StackSize() == 0) OpenHome();
    QUVA::CHomeScreen::Instance()->m_HideHomeScreen();
    Storage().m_CreateManageStorageScreen();
    ASSERT_TRUE(Idles());
    ASSERT_TRUE(FocusBecomes(first));
    Pass();
  }
  /// Selects the first row and goes to "View details".
  void SelectFirst() { Press("Return Left"); }
  void OpenDetails() {
    SelectFirst();
    Press("Return");
    ASSERT_TRUE(FocusBecomes("close"));
    ASSERT_TRUE(Soon([] { return InLog("update value called ") > 0; }));
    Pass();
  }
  bool Idles() {
    return Soon([] { return !Utils().m_GetKeyBlock(); });
  }
  bool ShowsPart(const std::string& part) const {
    return std::ranges::any_of(Texts(), [&](const Shown& each) { return each.text.find(part) != std::string::npos; });
  }
  /// The titles of the rows that are seen, from top to bottom.
  std::vector<std::string> Rows() const {
    std::vector<Shown> rows;
    for (const Shown& each : Texts())
      if (each.text.starts_with("The ")) rows.push_back(each);
    std::ranges::sort(rows, {}, [](const Shown& each) { return each.at.y; });
    std::vector<std::string> titles;
    for (const Shown& each : rows) titles.push_back(each.text.substr(4));
    return titles;
  }

  /// Where the legend's "Used" lies, in pixels.
  int LegendTop() const {
    const std::string used = CUtils::m_GetText("COM_SID_USED_KR_ING");
    for (const Shown& each : Texts())
      if (each.text == used && !elm_object_widget_check(each.object)) return each.at.y;
    return -1;
  }

  std::optional<TaskManagerStandIn> m_taskManager;
};

TEST_F(StorageScreens, TheLargestComeFirstAndKeysSelect) {
  Plant("small", 1000);
  Plant("large", 900000);
  Plant("kept", 400000, R"(, "locked": true)");
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  OpenStorage();
  EXPECT_THAT(Rows(), ElementsAre("large", "kept", "small"));
  EXPECT_TRUE(ShowsPart(" · Locked"));
  EXPECT_TRUE(ShowsPart("Apps: 3 · "));
  EXPECT_THAT(g_said, testing::Contains(AllOf(HasSubstr("Manage storage, Used "), HasSubstr("Available "),
                                              HasSubstr("%), Apps: 3"))));
  Press("Left");
  EXPECT_EQ(Focus(), "list") << "nothing can be done with nothing";
  g_said.clear();
  Press("Return Down Down Return");
  EXPECT_TRUE(ShowsPart("2 selected · "));
  EXPECT_THAT(g_said, testing::Contains("Checked"));
  EXPECT_THAT(g_said, testing::Contains(AllOf(HasSubstr("focus: The small, "), HasSubstr("check box, Not checked"))));
  Press("Up Up Return");
  EXPECT_TRUE(ShowsPart("1 selected · "));
  EXPECT_EQ(Storage().m_GetSelectedIndex(), 0);
  Press("Left Down Down Return");
  EXPECT_EQ(Focus(), "list") << "the buttons have nothing to do any more";
  EXPECT_TRUE(ShowsPart("Apps: 3 · "));
  Press("XF86Back");
  EXPECT_EQ(StackSize(), 1u);
}

TEST_F(StorageScreens, AnEmptyListSaysWhyAndCanBeLeft) {
  for (const int consent : {1, 0}) {
    vconf_set_int(QUVA::kConsentKey, consent);
    if (consent == 0) Plant("a", 1000);
    OpenStorage("close");
    EXPECT_EQ(ShowsPart(CUtils::m_GetText("TV_SID_VEXILO_APPS_AFTER_TERMS")), consent == 0);
    Press("Return");
    EXPECT_EQ(StackSize(), 1u);
  }
}

TEST_F(StorageScreens, FocusAndSelectionOutliveARefresh) {
  for (const char* id : {"a", "b", "c"}) Plant(id, id == std::string("a") ? 300000 : 1000);
  OpenStorage();
  Press("Return Down Down");
  Plant("c", 900000);
  Storage().m_ShowLoadingAndApplist();
  ASSERT_TRUE(Idles());
  ASSERT_TRUE(FocusBecomes("list"));
  Pass();
  EXPECT_THAT(Rows(), ElementsAre("c", "a", "b"));
  EXPECT_TRUE(ShowsPart("1 selected"));
  Press("Return");
  EXPECT_EQ(Storage().m_GetSelectedIndex(), 0) << "the focus went along with its application";
  fs::remove_all(FolderOf("c"));
  Storage().m_ShowLoadingAndApplist();
  ASSERT_TRUE(Idles());
  ASSERT_TRUE(FocusBecomes("list"));
  Pass();
  EXPECT_THAT(Rows(), ElementsAre("a", "b"));
  EXPECT_TRUE(ShowsPart("1 selected"));
}

TEST_F(StorageScreens, TheBarHasItsSidesAndFollowsTheSettings) {
  const struct {
    const char *profile, *language, *usedPart;
  } cases[] = {{"set local_set=EUR", "en_US.utf8", "text3"},
               {"set local_set=EUR", "ar_AE.utf8", "text4"},
               {"set local_set=CHI_DTV; feature flash_size=2", "en_US.utf8", nullptr}};
  Plant("a", 1000);
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(each.profile) + each.language);
    Profile(each.profile);
    Language(each.language);
    ApplyMenuLanguage();
    if (!m_ui) Open();
    elm_config_mirrored_set(ua_UI_orientation_get() == 1);
    OpenStorage();
    const int enlarged = Utils().m_GetEnlarge(), top = LegendTop();
    for (const int on : {1, 0, 1}) {
      vconf_set_int("db/menu/system/accessibility/focuszoom", on);
      ASSERT_TRUE(Soon([&] { return Utils().m_GetEnlarge() == on; }));
      vconf_set_int("db/menu/system/accessibility/highcontrast", on);
      ASSERT_TRUE(Soon([&] { return Utils().m_GetHighContrast() == on; }));
      Pass();
      const std::string used = CUtils::convertToString(CUtils::m_ConvertToGB(CGetData::GetInstance()->m_GetUsedSize()));
      bool found = !each.usedPart && Shows(used);
      EachVisible([&](Evas_Object* object) {
        const bool isBar = each.usedPart && elm_object_widget_check(object) && !elm_object_text_get(object);
        const char* text = isBar ? elm_object_part_text_get(object, each.usedPart) : nullptr;
        found = found || (text && text == used);
      });
      EXPECT_TRUE(found);
      EXPECT_TRUE(Soon([&] { return Rows() == std::vector<std::string>{"a"}; }, 5)) << on;
      EXPECT_EQ(Focus(), "list");
      for (const char* sid : {"COM_SID_USED_KR_ING", "TV_SID_AVAILABLE_EMPTY"}) EXPECT_TRUE(ShowsSid(sid));
      EXPECT_EQ(ShowsSid("COM_SID_SYSTEM"), each.usedPart == nullptr);
      if (on == enlarged) {
        EXPECT_EQ(LegendTop(), top) << "made anew it lies where it lay";
      }
    }
    Press("XF86Back");
  }
  Language("en_US.utf8");
}

// ---- details

TEST_F(StorageScreens, DetailsShowWhatThereIsAndClearTheCache) {
  Plant("a", 1000);
  OpenStorage();
  OpenDetails();
  const long total = CGetData::GetInstance()->m_GetTotalSizeOfApp();
  for (const long size : {total, total - 3200, 3000l, 200l}) EXPECT_TRUE(Shows(CUtils::m_ConvertBytes(size))) << size;
  Press("Left");
  EXPECT_TRUE(ShowsPart("Clear data frees 3.12KB."));
  Press("Left");
  EXPECT_TRUE(ShowsPart("Clear cache frees 200.00B "));
  Answer("3000|0");
  Press("Return XF86Back Return");
  EXPECT_EQ(StackSize(), 3u);
  EXPECT_EQ(Focus(), "(no text)") << "no button can be pressed meanwhile";
  ASSERT_TRUE(Idles());
  Pass();
  EXPECT_EQ(Focus(), CUtils::m_GetText("TV_SID_VEXILO_CLEAR_CACHE"));
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_CACHE_CLEARED"));
  EXPECT_TRUE(Shows(CUtils::m_ConvertBytes(total - 200)));
  EXPECT_TRUE(IsInTager("req/clearAppCache") && IsInTager("req/killApp"));
  EXPECT_TRUE(fs::exists(SystemPath(set_paths::kReportTriggers) + "/ClearCache-ClearCache.log"));
  Press("XF86Back");
  EXPECT_TRUE(FocusBecomes("View details"));
  EXPECT_EQ(std::ranges::count(Texts(), CUtils::m_ConvertBytes(total - 200), &Shown::text), 1) << "the row has it, too";
}

TEST_F(StorageScreens, WhatCannotBeClearedLeavesTheTruth) {
  Plant("a", 1000);
  OpenStorage();
  OpenDetails();
  const std::string total = CUtils::m_ConvertBytes(CGetData::GetInstance()->m_GetTotalSizeOfApp());
  fs::permissions(SystemPath(set_paths::kTager), fs::perms::owner_all);
  fs::create_symlink("/elsewhere", SystemPath(set_paths::kTager) + "/clearAppCache");
  Press("Left Left Return");
  ASSERT_TRUE(Idles());
  Pass();
  EXPECT_FALSE(IsInTager("req/killApp"));
  EXPECT_TRUE(Shows(total));
  EXPECT_EQ(Focus(), CUtils::m_GetText("TV_SID_VEXILO_CLEAR_CACHE"));
  EXPECT_FALSE(ShowsSid("TV_SID_VEXILO_CACHE_CLEARED"));
  // It is removed by another, and then nobody answers.
  fs::remove_all(FolderOf("a"));
  fs::remove(SystemPath(set_paths::kTager) + "/clearAppCache");
  Answer("");
  Press("Return");
  ASSERT_TRUE(Idles());
  Pass();
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_APP_GONE"));
  Press("Right Right Return");
  EXPECT_EQ(StackSize(), 2u);
  EXPECT_TRUE(Idles());
  EXPECT_TRUE(FocusBecomes("close")) << "which the list has when it is empty";
}

TEST_F(StorageScreens, DataIsClearedOnlyAfterAQuestionAndOfSomeNever) {
  Plant("a", 9000);
  OpenStorage();
  OpenDetails();
  Press("Left Return");
  ASSERT_TRUE(FocusBecomes("No"));
  EXPECT_TRUE(ShowsPart("Clear the data of The a?"));
  Press("Return");
  EXPECT_TRUE(FocusBecomes(CUtils::m_GetText("TV_SID_VEXILO_CLEAR_DATA")));
  EXPECT_TRUE(fs::exists(FolderOf("a") / "data/file"));
  Press("Return Right Return");
  ASSERT_TRUE(Idles());
  EXPECT_FALSE(fs::exists(FolderOf("a") / "data/file"));
  EXPECT_EQ(InLog("end fn called for clear app data "), 1);
  EXPECT_TRUE(IsInTager("killApp"));
  Press("XF86Back XF86Back");

  fs::remove_all(FolderOf("a"));
  fs::remove(SystemPath(set_paths::kTager) + "/killApp");
  Plant("9Ur5IzDKqV", 9000);
  OpenStorage();
  OpenDetails();
  Press("Left");
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_DATA_STAYS"));
  Press("Return");
  EXPECT_EQ(StackSize(), 3u) << "there is nothing to ask";
  ASSERT_TRUE(Idles());
  Pass();
  EXPECT_FALSE(ShowsSid("TV_SID_VEXILO_DATA_CLEARED"));
  EXPECT_TRUE(fs::exists(FolderOf("9Ur5IzDKqV") / "data/file"));
  EXPECT_TRUE(IsInTager("killApp"));
}

TEST_F(StorageScreens, WithoutTheTaskManagerNoSizeIsMadeUpAndBackWaitsForTheList) {
  Answer("");
  Plant("a", 9000);
  Open();
  OpenHome();
  QUVA::CHomeScreen::Instance()->m_HideHomeScreen();
  Storage().m_CreateManageStorageScreen();
  Press("XF86Back");
  EXPECT_EQ(std::tuple(StackSize(), InLog("Key blocked..")), std::tuple(2u, 1));
  ASSERT_TRUE(Idles());
  ASSERT_TRUE(FocusBecomes("list"));
  Pass();
  EXPECT_TRUE(ShowsPart("At least "));
  EXPECT_TRUE(ShowsPart(CUtils::m_GetText("TV_SID_VEXILO_SIZES_NOT_KNOWN")));
  EXPECT_EQ(InLog("app_list_handle_terminate_function called... ecore thread to send app list terminating..."), 1);
  OpenDetails();
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_DETAILS_NOT_KNOWN"));
  Press("Left Return");
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_CLEAR_DATA_MSG")) << "without a figure";
  Press("Right Return");
  ASSERT_TRUE(Idles());
  Pass();
  EXPECT_FALSE(fs::exists(FolderOf("a") / "data/file"));
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_DATA_CLEARED")) << "which was done all the same";
}

// ---- deleting

TEST_F(StorageScreens, DeletesWhatWasConfirmedAndTellsWhatCameOfIt) {
  Plant("a", 900000);
  Plant("b", 500000);
  Plant("kept", 300000, R"(, "locked": true)");
  Plant("stays", 100000);
  OpenStorage();
  Press("Return Down Return Down Return Left Down Return");
  ASSERT_TRUE(FocusBecomes("cancel"));
  EXPECT_TRUE(ShowsPart("Delete 2 apps?"));
  EXPECT_TRUE(ShowsPart("The a, The b"));
  EXPECT_TRUE(ShowsPart("This frees 1."));
  EXPECT_TRUE(ShowsPart("The kept is locked."));
  Press("Return");
  EXPECT_TRUE(FocusBecomes("Delete"));
  EXPECT_TRUE(fs::exists(FolderOf("a")));
  std::optional<Occupied> service(std::in_place);
  Press("Return Right Return");
  EXPECT_TRUE(ShowsSid("TV_SID_VEXILO_DELETING"));
  EXPECT_TRUE(Shows("1 of 2"));
  Storage().m_ShowLoadingAndApplist();  // is in nobody's way
  Press("XF86Back Return Left");
  EXPECT_EQ(InLog("Key blocked.."), 1) << "Back stops nothing";
  EXPECT_TRUE(CDeleteApps::Instance()->m_IsRemoving());
  service.reset();
  ASSERT_TRUE(Soon([] { return InLog("app_list_handle fn START-----") == 2; }));
  ASSERT_TRUE(Idles());
  ASSERT_TRUE(FocusBecomes("list"));
  Pass();
  EXPECT_FALSE(fs::exists(FolderOf("a")) || fs::exists(FolderOf("b")));
  EXPECT_THAT(Rows(), ElementsAre("kept", "stays"));
  EXPECT_TRUE(ShowsPart("2 apps were deleted."));
  Press("XF86Back XF86Back");
  EXPECT_EQ(StackSize(), 1u) << "the message, and the screen";
}

TEST_F(StorageScreens, EachFailureIsToldByNameAndReason) {
  for (const char* id : {"foreign", "gone", "good"}) Plant(id, id == std::string("foreign") ? 9000 : 1000);
  Plant("kept", 99000, R"(, "locked": true)");
  ASSERT_EQ(chown((FolderOf("foreign") / "data/file").c_str(), 12345, 12345), 0) << "this test is root's";
  OpenStorage();
  Press("Return Left Down Return");
  ASSERT_TRUE(FocusBecomes("close")) << "a locked one alone is not asked for";
  EXPECT_TRUE(ShowsPart("The kept is locked."));
  Press("Return");
  EXPECT_TRUE(FocusBecomes("Delete"));
  Press("Right Return Down Return Down Return Down Return Left Down");
  fs::remove_all(FolderOf("gone"));
  Press("Return Right Return");
  ASSERT_TRUE(FocusBecomes("close"));
  EXPECT_TRUE(ShowsPart("2 apps could not be deleted."));
  EXPECT_TRUE(ShowsPart("The foreign: " + CUtils::m_GetText("TV_SID_VEXILO_REASON_NOT_PERMITTED")));
  EXPECT_TRUE(ShowsPart("The gone: " + CUtils::m_GetText("TV_SID_VEXILO_REASON_GONE")));
  EXPECT_TRUE(ShowsPart("The good was deleted."));
  EXPECT_TRUE(fs::exists(FolderOf("foreign") / "data/file"));
  ASSERT_TRUE(Idles());
  Press("Return");
  EXPECT_TRUE(FocusBecomes("list"));
  EXPECT_THAT(Rows(), ElementsAre("kept", "foreign"));

  CDeleteApps::Instance()->m_SetPatience(200ms);
  Occupied service;
  Press("Home Down Return Left Down Return Right Return");
  ASSERT_TRUE(FocusBecomes("close"));
  EXPECT_TRUE(ShowsPart("The foreign: " + CUtils::m_GetText("TV_SID_VEXILO_REASON_NO_ANSWER")));
  EXPECT_TRUE(Idles());
}

TEST_F(StorageScreens, TheServicesEventsReachThePopup) {
  Open();
  OpenHome();
  CDeleteApps& apps = *CDeleteApps::Instance();
  QUVA::app_list_struct record;
  record.app_name = "The locked one";
  record.app_id = "x";
  record.selected = record.locked = 1;
  const auto send = [&](int event, int progress = 0) {
    auto service = std::async(std::launch::async, CDeleteApps::uninstall_cb, "x",
                              static_cast<was_notify_event_e>(event), progress, 0, &apps);
    EXPECT_TRUE(Soon([&] { return service.wait_for(0s) == std::future_status::ready; }));
    Pass();
  };
  for (const bool started : {true, false}) {
    apps.m_SetApps({record});
    apps.m_SetStartFlag(started);
    send(120);
    EXPECT_EQ(Shows("The locked one"), !started);
  }
  EXPECT_TRUE(Utils().m_GetKeyBlock());
  send(121, 42);
  EXPECT_TRUE(Shows("42%"));
  const int hidden = InLog("hide bg called");
  Utils().m_ShowDimBackground();
  send(142);
  EXPECT_EQ(InLog("hide bg called"), hidden + 1);
  apps.m_CleanObjects();
  EXPECT_FALSE(Shows("The locked one") || Utils().m_GetKeyBlock());
}

}  // namespace
