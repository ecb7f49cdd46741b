// A scan as a person meets it: a set with real faults, the installed application in a real window, worked by keys; and
// what it leaves behind, up to the next start.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

#include <regex>

#include "support/remaining_rows.h"
#include "support/set_with_screen.h"
#include "vconf.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kStorageFull = 10040002;  // on demand, as the next
constexpr int kBatteryLow = 10070001;
constexpr int kOffTimer = 20080001;
constexpr int kAutoPowerOff = 20080002;
constexpr int kTerms = 20090004;

constexpr char kOffTimerKey[] = "db/menu/system/time/off_timer";
constexpr char kAutoPowerOffKey[] = "db/menu/system/power/auto_power_off";
constexpr char kCacheFile[] = "/opt/usr/apps/com.tornelo.webbrowser/cache/pages";
constexpr char kLeft[] = "SELECT issueCode * 10 + isApply FROM solutionTBL ORDER BY rowid";

std::string Text(const char* key) {
  return CText(vconf_get_str(key)).get();
}

/// What `events.jsonl` has, in order: item, status, number of issues.
std::vector<std::string> Events() {
  const std::string text = ReadFile(set_paths::kEventLog);
  const std::regex event("select_item=([^;]*);status=([^;]*);issue_count=([^;]*);");
  std::vector<std::string> events;
  for (std::sregex_iterator at(text.begin(), text.end(), event), end; at != end; ++at)
    events.push_back((*at)[1].str() + ", " + (*at)[2].str() + ", " + (*at)[3].str());
  return events;
}

class Scan : public testing::Test {
 protected:
  void SetUp() override {
    const std::string problem = LeaveTheMachine();
    ASSERT_EQ(problem, "");
    // A user-data partition on which a browser that keeps everything leaves less than the set needs.
    ASSERT_EQ(mount("none", SystemPath("/opt").c_str(), "tmpfs", 0, "size=340m"), 0) << strerror(errno);
    InstallSet();
    DecideAutoPowerOffByItsKey();
    FillStorage();
    Battery(10);
    vconf_set_int(kOffTimerKey, 30);
    vconf_set_bool(kAutoPowerOffKey, true);
    vconf_set_int("db/menu/home_deck/homedatacontrol/defaultdisclaimeragree", 0);
    vconf_set_bool("db/vexilo/db_reset", true);
    vconf_set_int("db/trevlin/recheck_delay", 1);
    m_daemon = StartDaemon();
    m_screen.emplace();
  }

  static void FillStorage() {
    fs::create_directories(fs::path(SystemPath(kCacheFile)).parent_path());
    const FdHandle file(open(SystemPath(kCacheFile).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    struct statvfs space {};
    ASSERT_EQ(fstatvfs(file.get(), &space), 0);
    const auto free = static_cast<off_t>(space.f_bavail * space.f_frsize);
    ASSERT_EQ(posix_fallocate(file.get(), 0, free - (20 << 20)), 0);  // 20 MiB are 6 %
  }

  static void Battery(int percent) {
    const fs::path battery = "/sys/class/power_supply/remote";
    WriteHostFile(battery / "device/input/input9/capabilities/key",
                  "100000000 0 0 0 118000000000 0\n");  // up, down, left, right and OK
    WriteHostFile(battery / "scope", "Device\n");
    WriteHostFile(battery / "capacity", std::to_string(percent) + "\n");
  }

  /// Presses and waits for what the application says to it.
  void Press(RunningApp& app, const std::vector<std::string>& keys, const std::string& answer, int times = 1) {
    app.Settle();
    m_screen->Press(keys);
    ASSERT_TRUE(app.Says(answer, times));
  }

  void ScanAndMend();
  void ComeBack();

  std::unique_ptr<ChildProcess> m_daemon;
  std::optional<Screen> m_screen;
};

void Scan::ScanAndMend() {
  RunningApp app;
  ASSERT_TRUE(app.IsHome());
  EXPECT_EQ(Text("system/trevlin/STScenario"), R"({"id" : "GetRemainingData"})");
  EXPECT_EQ(Text("system/trevlin/STOperation"), R"({"id" : "NoRemaining"})");

  Press(app, {"Return"}, "Start Vexilo...");
  EXPECT_TRUE(fs::exists(SystemPath("/tmp/kov_NDF_reboot/StartVexilo-StartVexilo.log")));
  ASSERT_TRUE(app.Says("m_DiagResCallback triggered.. Size = 5"));
  EXPECT_THAT(RemainingCodes(), ElementsAre(kStorageFull, kBatteryLow, kOffTimer, kAutoPowerOff, kTerms));
  EXPECT_EQ(Text("system/trevlin/STScenario"), R"({"id" : "StartAutoDiagnosis"})");
  EXPECT_EQ(Text("system/trevlin/STOperation"), R"({"id" : "CreateErrorList"})");
  int reset = 1;
  EXPECT_EQ(vconf_get_bool("db/vexilo/db_reset", &reset), 0);
  EXPECT_EQ(reset, 0);

  // The scan itself has emptied the caches; the browser goes on filling its own.
  ASSERT_TRUE(app.Says("Start Vexilo Issue screen..."));
  EXPECT_TRUE(app.HasSaid("Navigating to Issues screen with ResultRecvd = 1"));
  EXPECT_FALSE(fs::exists(SystemPath(kCacheFile)));
  FillStorage();
  ASSERT_TRUE(app.Says(" buf after fn is"));

  Press(app, {"Return"}, "Trying to create popup with index = 0");
  Press(app, {"Return"}, "User Chose to apply solution for solution code[10040002]");
  EXPECT_TRUE(Until([] { return RemainingCodes().size() == 4; }));
  EXPECT_FALSE(fs::exists(SystemPath(kCacheFile)));
  EXPECT_TRUE(app.Says("after its solution issue 10040002 is gone"));

  Press(app, {"Down", "Return"}, "Trying to create popup with index = 1");
  Press(app, {"Return"}, "Toast Msg Evaluated as : Off timer is now off.");
  EXPECT_TRUE(Until([] { return RemainingCodes().size() == 3; }));
  int minutes = -1;
  EXPECT_EQ(vconf_get_int(kOffTimerKey, &minutes), 0);
  EXPECT_EQ(minutes, 0);

  // Of this one the second button applies.
  Press(app, {"Return"}, "Trying to create popup with index = 1", 2);
  Press(app, {"Return"}, "User Chose to cancel solution for solution code[20080002]");
  Press(app, {"Return"}, "Trying to create popup with index = 1", 3);
  Press(app, {"Right", "Return"}, "User Chose to apply solution for solution code[20080002]");
  EXPECT_TRUE(Until([] { return RemainingCodes().size() == 2; }));
  int on = 1;
  EXPECT_EQ(vconf_get_bool(kAutoPowerOffKey, &on), 0);
  EXPECT_EQ(on, 0);
  EXPECT_THAT(Numbers(set_paths::kSolutionDb, kLeft),
              ElementsAre(kStorageFull * 10L + 1, kOffTimer * 10L + 1, kAutoPowerOff * 10L, kAutoPowerOff * 10L + 1));

  // The first Back is the toast's.
  Press(app, {"Escape", "Escape"}, "Home screen called after return");
  EXPECT_THAT(RemainingCodes(), ElementsAre(kBatteryLow, kTerms));
  m_screen->Press({"Escape"});
  EXPECT_EQ(app.End().exitCode, 0) << app.Log();
}

void Scan::ComeBack() {
  RunningApp app;
  ASSERT_TRUE(app.IsHome());
  EXPECT_TRUE(app.HasSaid("m_DiagResCallback triggered.. Size = 1"));
  EXPECT_EQ(Text("system/trevlin/STOperation"), R"({"id" : "CompareRemaining"})");
  EXPECT_THAT(RemainingCodes(), ElementsAre(kTerms));

  Press(app, {"Return"}, "Remaining issues Button Pressed");
  ASSERT_TRUE(app.Says(" buf after fn is"));
  Press(app, {"Return"}, "Trying to create popup with index = 0");
  Press(app, {"Escape", "Escape"}, "Home screen called after return");
  m_screen->Press({"Escape"});
  EXPECT_EQ(app.End().exitCode, 0) << app.Log();
}

TEST_F(Scan, FindsMendsAndRemembers) {
  ASSERT_NO_FATAL_FAILURE(ScanAndMend());
  // Home asks again when it is shown again.
  EXPECT_THAT(Events(), ElementsAre("DeviceState, Normal, NULL", "Start Vexilo, Normal, NULL",
                                    "CreateErrorList, Normal, 5", "DeviceState, Good, 5", "DeviceState, Good, 5"));
  fs::remove(SystemPath(set_paths::kEventLog));
  Battery(90);
  ASSERT_NO_FATAL_FAILURE(ComeBack());
  EXPECT_THAT(Events(), ElementsAre("DeviceState, Good, NULL", "Remaining Issues, Good, NULL",
                                    "DeviceState, Good, NULL", "DeviceState, Good, NULL"));
}

}  // namespace
