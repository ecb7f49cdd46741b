// Which items of the self-diagnosis menu are shown and can be chosen.

#include "QUVA_MenuItemParser.h"
#include "support/captured_machine.h"
#include "support/files.h"
#include "trevlin/abilities.h"
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
    for (const char* library : {PROBE_CHECKER, SYSINFO_CHECKER, SETTINGS_CHECKER, MACHINE_CHECKER})
      fs::copy(library, folder);
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

constexpr const char* kAbilities[] = {"sound", "connectors", "tuners", "signal", "video"};

// The session's sound server is of this process, the rest of the machine.
TEST_F(MenuItems, AMachineHasWhatItsFilesTell) {
  for (const char* variable : {"PULSE_SERVER", "PULSE_RUNTIME_PATH", "GST_PLUGIN_PATH"}) unsetenv(variable);
  setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
  const Files screens = With(Sys("class/drm/card0-HDMI-A-1/status=connected class/drm/card0-DP-1/status=disconnected "
                                 "class/drm/card0-Writeback-1/status=unknown"),
                             {{"/sys/class/drm/card0-HDMI-A-1/edid", ""}});
  const struct {
    const char* what;
    Files files;
    const char* counts;
  } cases[] = {
      {"nothing", {{"/proc/asound/cards", "--- no soundcards ---\n"}}, "0 0 0 0 0"},
      {"a card", {{"/proc/asound/cards", " 0 [PCH            ]: HDA-Intel - HDA Intel PCH\n    HDA\n"}}, "1 0 0 0 0"},
      {"a server", {{"/run/user/7/pulse/native", ""}}, "1 0 0 0 0"},
      {"screens", screens, "0 2 0 1 0"},
      {"tuners", {{"/dev/dvb/adapter0/frontend0", ""}, {"/dev/dvb/adapter1/frontend0", ""}}, "0 0 2 2 0"},
      {"no decoder", {{"/usr/lib/x86_64-linux-gnu/gstreamer-1.0/libgstcoreelements.so", ""}}, "0 0 0 0 0"},
      {"decoders",
       {{"/usr/lib/aarch64-linux-gnu/gstreamer-1.0/libgstlibav.so", ""}, {"/usr/lib64/gstreamer-1.0/libgstvpx.so", ""}},
       "0 0 0 0 2"},
  };
  for (const auto& each : cases) {
    const CapturedMachine machine(each.files);
    std::string counts;
    for (const char* ability : kAbilities)
      counts += (counts.empty() ? "" : " ") + std::to_string(*trevlin::CountAbility(machine.Get(), ability));
    EXPECT_EQ(counts, each.counts) << each.what;
  }
}

TEST_F(MenuItems, TheMachinesCheckerAnswersAtOnceAndUnlessLocked) {
  using Clock = std::chrono::steady_clock;
  const std::string lock = " unless db/a/lock";
  for (const char* ability : kAbilities) {
    const int count = *trevlin::CountAbility({}, ability);
    vconf_set_bool("db/a/lock", 0);
    Reconfigure(Item("sct", "libchecker_machine.so", ability + lock, "bool", "1") + "," +
                Item("video-test", "libchecker_machine.so", ability, "integer", std::to_string(count)) + "," +
                Item("sound-test", "libchecker_machine.so", ability + lock, "bool", "0"));
    Clock::duration shortest = 1h;
    for (int i = 0; i < 5; ++i) {
      const auto start = Clock::now();
      EXPECT_EQ(Enabled("sct"), count > 0) << ability;
      shortest = std::min(shortest, Clock::now() - start);
    }
    EXPECT_LT(shortest, 2ms) << ability << ": it is asked on the main thread";
    EXPECT_EQ(Visible("video-test"), 1) << ability;
    vconf_set_bool("db/a/lock", 1);
    EXPECT_EQ(Enabled("sct"), 0) << ability;
    EXPECT_EQ(Enabled("sound-test"), 1) << ability << ": it counts as none";
    EXPECT_EQ(Enabled("video-test"), 1) << ability << " has no lock";
  }
  Reconfigure(Item("sct", "libchecker_machine.so", "wings", "bool", "0"));
  EXPECT_EQ(Enabled("sct"), 0);
  EXPECT_THAT(Log(), HasSubstr("wings: the machine is not asked for this"));
}

TEST_F(MenuItems, TheShippedConfigurationFitsTheSetAndTheMachine) {
  fs::copy(VEXILO_SOURCE_DIR "/platform/set/menuitems.json", SystemPath(set_paths::kMenuItems));
  fs::copy(VEXILO_SOURCE_DIR "/platform/set/set.conf", SystemPath(set_paths::kSetProfile));
  const auto answers = [] {
    std::string text;
    for (const char* item : kItems) text += !Visible(item) ? '-' : Enabled(item) ? 'e' : 'v';
    return text;
  };
  const auto has = [](const char* ability) { return *trevlin::CountAbility({}, ability) > 0 ? "e"s : "v"s; };
  const std::string tools = has("video") + has("sound") + has("connectors") + "e" + has("signal");
  EXPECT_EQ(answers(), tools + "v-");
  vconf_set_int("db/menu/home_deck/homedatacontrol/defaultdisclaimeragree", 1);
  EXPECT_EQ(answers(), tools + "e-");
  vconf_set_bool("db/vexilo/tools_locked", 1);
  EXPECT_EQ(answers(), "vvvvve-");
  WriteFile(set_paths::kSetProfile, "[feature]\nproduct.product_type=4\nno_sound=1\nthe_ostrav_version=2\n");
  EXPECT_EQ(answers(), "v-v---v");
}

}  // namespace
