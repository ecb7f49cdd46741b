#pragma once
/// @file
/// The application's window and screens on a canvas in memory, in a set that the test describes.

#include <gtest/gtest.h>
#include <libintl.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CErrorReport.h"
#include "CErrorReportSuccess.h"
#include "CHomeScreen.h"
#include "CLoadingScreen.h"
#include "CMainView.h"
#include "CManageStorage.h"
#include "CSelfDiagnosis.h"
#include "CStartDC.h"
#include "CStartDCIssues.h"
#include "CUtils.h"
#include "SettingsKeys.h"
#include "app_framework.h"
#include "appfw/launcher.h"
#include "connection.h"
#include "flux_resources.h"
#include "settings/menu_language.h"
#include "support/files.h"
#include "ui/ui_harness.h"
#include "vconf.h"

// What would end the process, speak, or depend on this machine's network is taken over; the engine takes subscriptions
// and never answers, the tests do.
inline std::vector<std::string> g_said;  ///< "focus: " before what has it, "" where all speech is ended
inline int g_loopEnds = 0;               ///< how often the application left its main loop
inline int g_applicationExits = 0;
inline bool g_network = false;    ///< whether the set has a gateway
inline bool g_noThreads = false;  ///< whether jobs find no thread

/// A step of a solution, for StoreRemaining().
inline std::string Step(const std::string& type, const std::string& value = "") {
  return "<sol_val param_type='" + type + "' param_value='" + value + "'/>";
}
/// Installs the parser plug-in and a map of these issues with the steps of their solutions, makes the issues true, and
/// stores them as remaining, as a scan in an earlier run did.
void StoreRemaining(const std::map<std::string, std::string>& issues);

/// What a viewer can press, by a short name.
struct ScreenName {
  const char* name;
  const char* sid;
};
inline constexpr ScreenName kScreenNames[] = {{"start", "TV_SID_CARE_START_VEXILO"},
                                              {"remaining", "TV_SID_CARE_MIX_REMAINING_ISSUES"},
                                              {"storage", "TV_SID_DEVICE_MANAGE_STORAGE"},
                                              {"diagnosis", "SID_SELF_DIAGNOSIS"},
                                              {"support", "TV_SID_REQUEST_SUPPORT_KR_17"},
                                              {"report", "TV_SID_VEXILO_CBMAY_ERROR_REPORT"},
                                              {"done", "SID_DONE"},
                                              {"send", "COM_SID_SEND"},
                                              {"cancel", "SID_CANCEL"},
                                              {"close", "COM_SID_CLOSE"}};

class Screens : public testing::Test {
 protected:
  struct Shown {
    std::string text;
    UiHarness::Geometry at;
    Evas_Object* object;
  };

  ~Screens() override {
    if (HasFailure()) std::cerr << Log();
    if (!m_ui) return;
    CleanAll();
    Pass();  // what waits for the loop to be idle holds memory
    EXPECT_TRUE(JobsEnd());
  }

  /// Takes all screens away.
  static void CleanAll() {
    QUVA::CLoadingScreen::Instance()->m_CleanObjects();
    QUVA::CHomeScreen::Instance()->m_CleanObjects();
    QUVA::CStartDC::Instance()->m_CleanObjects();
    QUVA::CStartDCIssues::Instance()->m_CleanObjects();
    QUVA::CManageStorage::Instance()->m_CleanObjects();
    QUVA::CSelfDiagnosis::Instance()->m_CleanObjects();
    QUVA::CErrorReport::Instance()->m_CleanObjects();
    QUVA::CErrorReportSuccess::Instance()->m_CleanObjects();
    while (StackSize() > 0) Utils().m_DropFromReturnStack();
  }

  /// Of both kinds, with more things than are listed and some that stay.
  static QUVA::SolutionPlan LongPlan() {
    using enum QUVA::PlannedKind;
    const QUVA::PlannedThing logs{kHoard, "journals", "TV_SID_VEXILO_SYSTEM_LOGS", 900 << 20},
        files{kHoard, "package_archives", "TV_SID_VEXILO_INSTALL_FILES", 1 << 20},
        crashes{kHoard, "core_dumps", "TV_SID_VEXILO_CRASH_RECORDS", 1 << 20};
    return {.things = {{kApp, "org.player", "Player", 1000 << 20}, logs, files}, .kept = {files, crashes, logs}};
  }

  struct OpenScreen {
    const char* name;
    std::function<void()> open;
    double frameHeight = 0, frameBottom = 0;  // units, of those that have a frame at the lower edge
    bool moves = false;
  };
  /// Most screens; the list with so many issues.
  static std::vector<OpenScreen> AllScreens(int issues = 30) {
    return {{"home", [] { OpenHome(); }, 36, 11},
            {"list", [issues] { OpenList(Rows(issues)); }, 17, 7},
            {"popup", [] { OpenList(Rows(1)), QUVA::CStartDCIssues::Instance()->m_CreateIssueDetailsPopUp(0); }},
            {"question",
             [] {
               OpenList(Rows(1));
               QUVA::CStartDCIssues::Instance()->m_CreateQuestionPopUp(0, LongPlan());
             }},
            {"empty list", [] { OpenList({}); }},
            {"cards", [] { QUVA::CSelfDiagnosis::Instance()->m_CreateSelfDiagnosis(true); }},
            {"report", [] { QUVA::CErrorReport::Instance()->m_CreateErrorReport(); }},
            {"report sent", [] { QUVA::CErrorReportSuccess::Instance()->m_CreateSuccessErrorReport(); }},
            {"scan", [] { QUVA::CStartDC::Instance()->m_StartDC(); }, 46, 19, true}};
  }

  static QUVA::CUtils& Utils() { return QUVA::CUtils::Instance(); }

  // ---- the set

  /// The profile: "set local_set=KOR; feature product.chipset=OSCARP".
  static void Profile(const std::string& entries) {
    std::ostringstream text;
    std::istringstream each(entries);
    for (std::string entry; std::getline(each >> std::ws, entry, ';');) {
      const size_t blank = entry.find(' ');
      text << "[" << entry.substr(0, blank) << "]\n" << entry.substr(blank + 1) << "\n";
    }
    WriteFile(set_paths::kSetProfile, text.str());
  }
  /// An entry for an application that can be launched.
  static void Install(const std::string& app, const std::string& more = "") {
    WriteFile((set_paths::kDesktopEntries + ("/" + app) + ".desktop").c_str(),
              "[Desktop Entry]\nType=Application\nName=x\nExec=true\n" + more);
  }
  /// The application that was launched since the last call; "" for none.
  static std::string Launched() {
    const CText app(vconf_get_str(app_framework::kForegroundAppKey));
    vconf_set_str(app_framework::kForegroundAppKey, "");
    return app ? app.get() : "";
  }
  void SwitchVoiceGuide(bool on) {
    vconf_set_int("db/menu/system/accessibility/voiceguide", on);
    EXPECT_TRUE(Soon([on] { return elm_config_access_get() == on; }));
    Pass();
  }
  static void Language(const char* locale) { vconf_set_str(QUVA::kMenuLanguageKey, locale); }
  static int InLog(const std::string& text) { return Count(Log(), text); }

  enum Pictures { kStill, kMoving };
  enum Begin { kAtLoading, kAfterLoading };
  /// Opens the window by `open`, in this size. Without the moving pictures nothing is drawn once a screen stands.
  void OpenWindow(const char* size, Pictures pictures, const std::function<void()>& open) {
    const fs::path resources = SystemPath(set_paths::kResourceDir);
    fs::create_directories(resources);
    const auto link = [&](const fs::path& folder) {
      for (const auto& entry : fs::directory_iterator(folder))
        fs::create_symlink(entry.path(), resources / entry.path().filename());
    };
    link(VEXILO_SOURCE_DIR "/res/icons");
    if (pictures == kMoving) link(VEXILO_BINARY_DIR "/res/frames");
    fs::create_directories(fs::path(SystemPath(set_paths::kLocaleDir)).parent_path());
    fs::create_symlink(VEXILO_BINARY_DIR "/res/locale", SystemPath(set_paths::kLocaleDir));
    ApplyMenuLanguage();
    bindtextdomain(QUVA::kApplicationId, SystemPath(set_paths::kLocaleDir).c_str());
    bind_textdomain_codeset(QUVA::kApplicationId, "UTF-8");
    setenv("VEXILO_WINDOW", size, 1);
    m_ui = std::make_unique<UiHarness>([&open] {
      open();
      return Utils().m_pGetAppWindow();
    });
  }
  void Open(Pictures pictures = kStill, Begin begin = kAfterLoading) {
    OpenWindow("960x540", pictures, [] { QUVA::CMainView::Instance().initUI(nullptr); });
    ASSERT_TRUE(Soon([] { return InLog("Start the Loading") == 1; }));
    if (begin == kAfterLoading) QUVA::CLoadingScreen::Instance()->m_CleanObjects();
  }

  static void OpenHome(const char* launchFrom = nullptr) {
    QUVA::CHomeScreen::Instance()->m_CreateHomeScreen(CText(launchFrom ? strdup(launchFrom) : nullptr));
  }
  static void OpenList(const std::vector<QUVA::MapToDBTable>& rows) {
    QUVA::CStartDCIssues::Instance()->m_StartDCIssues(rows);
  }
  /// Takes the topmost screen away as if it had been left.
  static void Drop(auto* screen) {
    screen->m_CleanObjects();
    Utils().m_DropFromReturnStack();
  }
  static QUVA::MapToDBTable Row(const std::string& code, const std::string& time = "2024-03-07T09:05:00") {
    QUVA::MapToDBTable row;
    row.issue_code = code;
    row.last_time = time;
    row.sid_issue = "TV_SID_VEXILO_OFF_TIMER_ON";
    row.sid_sol = "TV_SID_USING_OFF_TIMER";
    row.sid_button1 = "TV_SID_VEXILO_OPEN_SETTINGS";
    row.sid_button2 = "COM_SID_CLOSE";
    row.action = "1";
    row.toast1 = row.toast2 = "NULL";
    return row;
  }
  static std::vector<QUVA::MapToDBTable> Rows(int count) {
    std::vector<QUVA::MapToDBTable> rows;
    for (int i = 1; i <= count; ++i) rows.push_back(Row(std::to_string(i)));
    return rows;
  }

  // ---- the viewer

  /// Presses keys, "Down Down Return", as a window system's events.
  void Press(const std::string& keys) {
    std::istringstream each(keys);
    for (std::string key; each >> key;) {
      for (const int type : {ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_UP}) {
        auto* const event = static_cast<Ecore_Event_Key*>(calloc(1, sizeof(Ecore_Event_Key)));
        event->keyname = event->key = m_keys.insert(key).first->c_str();
        event->timestamp = m_keyTime += 20;  // no key that is held
        ecore_event_add(type, event, nullptr, nullptr);
      }
      Pass();
    }
  }
  /// Turns of the main loop in which it is idle too, for longer than a frame lasts.
  void Pass() {
    int looks = 0;
    m_ui->PumpUntil([&] { return ++looks > 6; });
  }
  bool Soon(const std::function<bool()>& condition, double seconds = 40) { return m_ui->PumpUntil(condition, seconds); }
  bool JobsEnd() {
    return Soon([] { return ecore_thread_active_get() + ecore_thread_pending_get() == 0; });
  }

  std::string Focus() const { return NameOf(m_ui->Focused()); }
  bool FocusBecomes(const std::string& name) {
    const bool became = Soon([&] { return Focus() == name; }, 10);
    EXPECT_TRUE(became) << name << ": the focus is on " << Focus();
    return became;
  }

  /// "start", "list", or the text of what has no name; "(no text)" for a grid of cards, say.
  static std::string NameOf(Evas_Object* widget) {
    if (!widget) return "nothing";
    const char* const text = elm_object_text_get(widget);
    if (!text || !*text) return elm_flux_list_count(widget) > 0 ? "list" : "(no text)";
    for (const ScreenName& each : kScreenNames) {
      const std::string named = QUVA::CUtils::m_GetText(each.sid);
      const size_t end = std::min(named.find('%'), named.find("<<A>>"));
      if (end == std::string::npos ? text == named : std::string(text).starts_with(named.substr(0, end)))
        return each.name;
    }
    return text;
  }

  /// Every text that is on the screen; those of lists are known once they are drawn.
  std::vector<Shown> Texts() const {
    std::vector<Shown> found;
    EachVisible([&](Evas_Object* object) {
      std::string text;
      if (const char* own = elm_object_widget_check(object) ? elm_object_text_get(object) : nullptr)
        text = own;
      else if (std::string(evas_object_type_get(object)) == "textblock")
        text = UiHarness::PlainText(object);
      else if (std::string(evas_object_type_get(object)) == "text" && evas_object_text_text_get(object))
        text = evas_object_text_text_get(object);
      if (!text.empty()) found.push_back({text, UiHarness::GeometryOf(object), object});
    });
    return found;
  }
  /// How wide a text of one line is when nothing keeps it from it.
  static int NaturalWidth(Evas_Object* line) {
    const char* font = nullptr;
    int size = 0;
    evas_object_text_font_get(line, &font, &size);
    Evas_Object* const whole = evas_object_text_add(evas_object_evas_get(line));
    evas_object_scale_set(whole, evas_object_scale_get(line));
    evas_object_text_font_set(whole, font, size);
    evas_object_text_text_set(whole, evas_object_text_text_get(line));
    const int width = UiHarness::GeometryOf(whole).width;
    evas_object_del(whole);
    return width;
  }
  /// The size of a text's font, as its style says it.
  static std::string SizeOf(const Evas_Object* block) {
    const std::string style = evas_textblock_style_get(evas_object_textblock_style_get(block));
    const size_t at = style.find("font_size=");
    return style.substr(at, style.find(' ', at) - at);
  }
  /// Whether a text object shows less than its whole text: its last character is nowhere, or it is too narrow.
  static bool IsCut(Evas_Object* block) {
    const std::string type = evas_object_type_get(block);
    if (type == "text") return UiHarness::GeometryOf(block).width < NaturalWidth(block) - 1;
    if (type != "textblock") return false;
    Evas_Textblock_Cursor* const last = evas_object_textblock_cursor_new(block);
    evas_textblock_cursor_paragraph_last(last);
    evas_textblock_cursor_paragraph_char_last(last);
    evas_textblock_cursor_char_prev(last);
    const int line = evas_textblock_cursor_char_geometry_get(last, nullptr, nullptr, nullptr, nullptr);
    evas_textblock_cursor_free(last);
    return line < 0;
  }
  bool Shows(const std::string& text) const {
    return std::ranges::any_of(Texts(), [&](const Shown& each) { return each.text == text; });
  }
  bool ShowsSid(const char* sid) const { return Shows(QUVA::CUtils::m_GetText(sid)); }
  /// The widgets that have a name, by it, in reading order.
  std::vector<Shown> Named() const {
    std::vector<Shown> named;
    for (Shown& each : Texts())
      if (elm_object_widget_check(each.object) && NameOf(each.object) != each.text) {
        each.text = NameOf(each.object);
        named.push_back(each);
      }
    const int direction = elm_config_mirrored_get() ? -1 : 1;
    std::ranges::stable_sort(named, {}, [&](const Shown& each) { return std::pair(each.at.y, each.at.x * direction); });
    return named;
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const Shown& shown : Named()) names.push_back(shown.text);
    return names;
  }
  /// The moving picture's file that is on the screen, from "Motion/" on.
  std::string Picture() const {
    std::string found;
    EachVisible([&](Evas_Object* object) {
      const char* file = nullptr;
      if (std::string(evas_object_type_get(object)) == "image") evas_object_image_file_get(object, &file, nullptr);
      const std::string path = file ? file : "";
      if (const size_t at = path.find("Motion/"); at != std::string::npos) found = path.substr(at);
    });
    return found;
  }

  static size_t StackSize() { return Utils().m_GetReturnStackSize(); }

  std::unique_ptr<UiHarness> m_ui;

  void EachVisible(const std::function<void(Evas_Object*)>& call) const {
    for (Evas_Object* each = evas_object_bottom_get(m_ui->Canvas()); each; each = evas_object_above_get(each))
      if (!evas_object_smart_parent_get(each)) EachVisible(each, call);
  }

 private:
  static void EachVisible(Evas_Object* object, const std::function<void(Evas_Object*)>& call) {
    if (!evas_object_visible_get(object)) return;
    call(object);
    for (Evas_Object* member : UiHarness::MembersOf(object)) EachVisible(member, call);
  }

  std::set<std::string> m_keys;  // events outlive the call
  unsigned int m_keyTime = 0;
};
