// Which items of the self-diagnosis menu are shown and can be chosen.

#include "QUVA_MenuItemParser.h"
#include "support/files.h"
#include "vconf.h"

namespace {

[[maybe_unused]] const int kLogsAll = setenv("VEXILO_LOG_LEVEL", "debug", 1);  // before the first line

using QUVA::MenuItemParser;

constexpr const char* kItems[] = {"video-test",         "sound-test",     "hdmi-troubleshooting",  "sct",
                                  "signal-information", "homedeck_reset", "mled-installation-test"};

constexpr char kProbe[] = "libprobe_checker.so";

class MenuItems : public testing::Test {
 protected:
  MenuItems() {
    const std::string folder = SystemPath(set_paths::kCheckerDir);
    fs::create_directories(folder);
    for (const char* library : {PROBE_CHECKER, SYSINFO_CHECKER, SETTINGS_CHECKER}) fs::copy(library, folder);
  }

  static void Configure(const std::string& text) { WriteFile(set_paths::kMenuItems, text); }

  static void Reconfigure(const std::string& items) {
    Configure("{" + items + "}");
    MenuItemParser::GetInstance()->ParseJson(set_paths::kMenuItems);
    MenuItemParser::GetInstance()->GetCheckerFnPtrs();
  }

  /// An item with both questions alike, answered by a library.
  static std::string Item(const std::string& name, const std::string& library, const std::string& key,
                          const std::string& type, const std::string& value) {
    const std::string rest =
        R"(-checker": "p", "key": ")" + key + R"(", "type": ")" + type + R"(", "value": ")" + value + R"("})";
    return "\"" + name + R"(": {"enable": {"enable)" + rest + R"(, "visible": {"visible)" + rest +
           R"(, "providers": {"p": ")" + library + R"("}})";
  }

  static int Enabled(const std::string& item) { return MenuItemParser::GetInstance()->GetEnableCheck(item); }
  static int Visible(const std::string& item) { return MenuItemParser::GetInstance()->GetVisibleCheck(item); }
};

TEST_F(MenuItems, AskTheCheckerAndHarmNoOtherItem) {
  const struct {
    const char* library;
    const char* type;
    const char* value;
    int enabled;
    int visible;
    const char* log;
  } kCases[] = {
      {kProbe, "integer", "7", 7, 0, "Couldn't find check_visibility_int: "},
      {kProbe, "integer", "seven", 0, 0, "Key : video-test has the value \"seven\", which is no integer"},
      {kProbe, "bool", "1", 0, 5, "Couldn't find check_enable_bool: "},
      {kProbe, "bool", "0", 0, 6, "Returning visible : 6"},
      {kProbe, "string", "value", 3005, 0, "Couldn't find check_visibility_string: "},
      {kProbe, "double", "2.5", 250, 0, "Couldn't find check_visibility_double: "},
      {kProbe, "date", "1", 0, 0, "\"date\", the type for key \"key\", is none of"},
      {"libnone.so", "integer", "1", 0, 0, "Couldn't open  : /usr/share/menu/providers/libnone.so : "},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(std::string(each.type) + " " + each.value);
    Reconfigure(Item("video-test", each.library, "key", each.type, each.value) + "," +
                Item("sct", kProbe, "key", "integer", "42"));
    EXPECT_EQ(Enabled("video-test"), each.enabled);
    EXPECT_EQ(Visible("video-test"), each.visible);
    EXPECT_EQ(Enabled("sct"), 42);
    EXPECT_THAT(Log(), HasSubstr(each.log));
  }
}

TEST_F(MenuItems, AnUnusableConfigurationAnswersNoUntilOneIsThere) {
  EXPECT_EQ(Enabled("SID_PICTURE_TEST"), 1);
  EXPECT_EQ(Enabled("SID_SOUND_TEST"), 1);
  EXPECT_EQ(Visible("SID_SOUND_TEST"), 0);
  const std::string deep(5000, '[');
  for (const std::string& text : {std::string(), std::string("{\"sct\":"), std::string("[1]"), deep}) {
    Configure(text);
    EXPECT_EQ(Visible("sct"), 0) << text.substr(0, 20);
  }
  EXPECT_THAT(Log(), HasSubstr("/usr/share/vexilo/menuitems.json: it is no object"));
  Configure("{" + Item("sct", kProbe, "key", "bool", "1") + "}");
  EXPECT_EQ(Enabled("sct"), 0) << "only the question for visibility reads it again";
  EXPECT_THAT(Log(), HasSubstr("Key : sct not found in EnableChecker Map"));
  EXPECT_EQ(Visible("sct"), 5);
  EXPECT_EQ(Visible("sct"), 5);
}

TEST_F(MenuItems, TheShippedCheckersCompareWithTheSet) {
  WriteFile(set_paths::kSetProfile,
            "[set]\nlocal_set=KOR\nnum_of_tuner=2\nsw_model=VX\n[feature]\nratio=2.5\nyes=true\ncount=3\nword=abc\n");
  vconf_set_int("db/a/int", 3);
  vconf_set_bool("db/a/bool", 1);
  vconf_set_str("db/a/text", "abc");
  vconf_set_dbl("db/a/double", 2.5);
  const std::string feature = "com.tornelo/featureconf/";
  const struct {
    bool settings;
    std::string key;
    const char* type;
    const char* equal;
    const char* other;
  } kEach[] = {
      {true, "db/a/int", "integer", "3", "4"},          {true, "db/a/bool", "bool", "1", "0"},
      {true, "db/a/text", "string", "abc", "ab"},       {true, "db/a/double", "double", "2.5", "2"},
      {false, "local_set", "string", "KOR", "EUR"},     {false, "num_of_tuner", "integer", "2", "1"},
      {false, feature + "ratio", "double", "2.5", "2"}, {false, feature + "none", "integer", "0", "1"},
      {false, feature + "none", "double", "0", "1"},
  };
  for (const auto& each : kEach)
    for (const char* value : {each.equal, each.other}) {
      const char* library = each.settings ? "libchecker_settings.so" : "libchecker_sysinfo.so";
      Reconfigure(Item("sct", library, each.key, each.type, value));
      EXPECT_EQ(Enabled("sct"), value == each.equal) << each.key << " " << each.type << " " << value;
      EXPECT_EQ(Visible("sct"), value == each.equal) << each.key << " " << each.type << " " << value;
    }
  Reconfigure(Item("sct", "libchecker_sysinfo.so", feature + "word", "integer", "0") + "," +
              Item("sound-test", "libchecker_sysinfo.so", "sw_model", "bool", "0") + "," +
              Item("video-test", "libchecker_sysinfo.so", feature + "word", "double", "0"));
  for (const char* item : {"sct", "sound-test", "video-test"}) EXPECT_EQ(Enabled(item), 0) << item;
  EXPECT_THAT(Log(), HasSubstr("com.tornelo/featureconf/word: \"abc\" is no number"));
}

TEST_F(MenuItems, TheShippedConfigurationFitsTheSet) {
  fs::copy(VEXILO_SOURCE_DIR "/platform/set/menuitems.json", SystemPath(set_paths::kMenuItems));
  fs::copy(VEXILO_SOURCE_DIR "/platform/set/set.conf", SystemPath(set_paths::kSetProfile));
  const auto answers = [] {
    std::string text;
    for (const char* item : kItems) text += !Visible(item) ? '-' : Enabled(item) ? 'e' : 'v';
    return text;
  };
  EXPECT_EQ(answers(), "eeeeev-");
  vconf_set_int("db/menu/home_deck/homedatacontrol/defaultdisclaimeragree", 1);
  EXPECT_EQ(answers(), "eeeeee-");
  vconf_set_bool("db/vexilo/tools_locked", 1);
  EXPECT_EQ(answers(), "vvvvve-");
  WriteFile(set_paths::kSetProfile, "[feature]\nproduct.product_type=4\nno_sound=1\nthe_ostrav_version=2\n");
  EXPECT_EQ(answers(), "v-v---v");
}

}  // namespace
