// The scan in surroundings that are broken: the installed application in a real window. Nothing may crash or hang, be
// said that is not so, or be lost that was stored. A scan takes its time, so one meets several faults.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/ptrace.h>

#include <thread>

#include "support/remaining_rows.h"
#include "support/set_with_screen.h"
#include "trevlin_tables.h"
#include "vconf.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr int kEarlier = 20090001;  // of the last scan
constexpr int kOffTimer = 20080001;
constexpr int kAutoPowerOff = 20080002;
constexpr int kTerms = 20090004;
constexpr char kScanAtOnce[] = "launch_mech=StartVexilo";
constexpr char kListIsOpen[] = "Start Vexilo Issue screen...";

class ScanFault : public testing::Test {
 protected:
  void SetUp() override {
    const std::string problem = LeaveTheMachine();
    ASSERT_EQ(problem, "");
    InstallSet();
    DecideAutoPowerOffByItsKey();
    vconf_set_int("db/menu/system/time/off_timer", 30);
    vconf_set_bool("db/menu/system/power/auto_power_off", true);
    vconf_set_int("db/menu/home_deck/homedatacontrol/defaultdisclaimeragree", 0);
    StoreRemaining({kEarlier});
    m_screen.emplace();
  }

  static void ExpectSoundDatabase() {
    const SqliteDb db = OpenDatabase(set_paths::kRemainingDb, SQLITE_OPEN_READWRITE);
    const SqliteStatement check = PrepareStatement(db.get(), "PRAGMA integrity_check");
    ASSERT_TRUE(check && sqlite3_step(check.get()) == SQLITE_ROW) << sqlite3_errmsg(db.get());
    EXPECT_EQ(ColumnText(check.get(), 0), "ok");
  }

  std::optional<Screen> m_screen;
};

// ---- an engine that does not answer, and much else

/// Holds one thread of a process while it lives, as a debugger does.
class HeldThread {
 public:
  explicit HeldThread(pid_t thread) : m_thread(thread) {
    EXPECT_EQ(ptrace(PTRACE_SEIZE, thread, nullptr, nullptr), 0) << strerror(errno);
    EXPECT_EQ(ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr), 0) << strerror(errno);
    EXPECT_EQ(waitpid(thread, nullptr, __WALL), thread);
  }
  ~HeldThread() { ptrace(PTRACE_DETACH, m_thread, nullptr, nullptr); }
  HeldThread(const HeldThread&) = delete;
  HeldThread& operator=(const HeldThread&) = delete;

 private:
  const pid_t m_thread;
};

void ForbidWritingRemaining() {
  const std::string file = SystemPath(set_paths::kRemainingDb);
  EXPECT_EQ(mount(file.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(mount(nullptr, file.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
}

// The task manager is dead, the engine answers when the list is open, its history is locked, and what remains cannot be
// written.
TEST_F(ScanFault, WhatIsFoundIsToldHoweverLateAndThoughNothingCanBeRecorded) {
  RunningApp app;
  ASSERT_TRUE(app.IsHome());
  app.Settle();
  ForbidWritingRemaining();
  const SqliteDb held = OpenDatabase(set_paths::kInferenceDb);
  Execute(held.get(), "BEGIN EXCLUSIVE");
  {
    const HeldThread engine(app.Thread("trevlin"));
    m_screen->Press({"Left", "Return"});  // the remaining issues have the focus
    ASSERT_TRUE(app.Says("Start Vexilo..."));
    ASSERT_TRUE(app.Says("Navigating to Issues screen with ResultRecvd = 0"));
    ASSERT_TRUE(app.Says(kListIsOpen));
    EXPECT_TRUE(app.HasSaid("Deep Clean Process unable to complete in 10 seconds.. so returning failure..."));
    EXPECT_EQ(app.Count("m_DiagResCallback triggered"), 1) << "but that of the start";
  }
  EXPECT_TRUE(app.Says("m_DiagResCallback triggered.. Size = 3"));
  EXPECT_TRUE(app.Says("CreateErrorList end.."));
  EXPECT_TRUE(app.HasSaid("database is locked"));
  EXPECT_TRUE(app.HasSaid("attempt to write a readonly database"));
  EXPECT_THAT(RemainingCodes(), ElementsAre(kEarlier));
  m_screen->Press({"Escape"});
  EXPECT_TRUE(app.Says("Home screen called after return"));
  EXPECT_EQ(app.Count(kListIsOpen), 1);
  std::this_thread::sleep_for(2s);  // home looks once a second for what comes late, and says nothing of it
  app.Settle();
  m_screen->Press({"Right", "Return"});
  ASSERT_TRUE(app.Says(kListIsOpen, 2));
  app.Settle();
  m_screen->Press({"Down", "Down", "Return"});
  ASSERT_TRUE(app.Says("Trying to create popup with index = 2"));
  m_screen->Minimize();
  EXPECT_EQ(app.End().exitCode, 0) << app.Log();
}

// ---- ended while it scans

TEST_F(ScanFault, WithoutPluginAndWithDamagedDatabaseItScansAndIsTerminated) {
  fs::remove(SystemPath(set_paths::kParserPlugin));
  WriteFile(set_paths::kRemainingDb, std::string(5000, 'x'));
  RunningApp app(kScanAtOnce);
  ASSERT_TRUE(app.Says("m_DiagResCallback triggered.. Size = 0"));
  ASSERT_TRUE(app.Says("Counter = 5"));
  for (const char* line : {"dlopen error: ", "file is not a database"}) EXPECT_TRUE(app.HasSaid(line)) << line;
  app.Process().Signal(SIGTERM);
  const ProcessResult result = app.End(2s);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST_F(ScanFault, APauseEndsItAtOnceWhileItWaitsForTheTaskManager) {
  vconf_set_bool("db/vexilo/db_reset", false);
  RunningApp app(kScanAtOnce);
  ASSERT_TRUE(app.Says("Waiting for another 1 second"));
  m_screen->Minimize();
  const ProcessResult result = app.End(2s);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(RemainingCodes(), ElementsAre(kOffTimer, kAutoPowerOff, kTerms));
  ExpectSoundDatabase();
}

// ---- a thousand issues

constexpr int kMany = 1000;

std::string ManySolutions() {
  std::string map = "<map><sminfo version=\"1\"/><sm cnt=\"" + std::to_string(kMany) + "\"/>\n";
  for (int i = 0; i < kMany; ++i)
    map += "<solution issue_code=\"" + std::to_string(30000000 + i) + R"(" sid_issue="Issue number )" +
           std::to_string(i) +
           R"(" sol_code="1" sol_type="3" sol_name="n" sid_sol="What to do" sid_button1="SID_DONE" reboot="false"
                sid_button2="COM_SID_CLOSE" is_fg_bg="fg" action="1" toast1="NULL" toast2="NULL" source=""
                view_authority="USER"/>)";
  return map + "</map>\n";
}

constexpr char kManyTransitions[] = R"(
  WITH RECURSIVE issue(code) AS (SELECT 30000000 UNION ALL SELECT code + 1 FROM issue LIMIT 1000)
  INSERT INTO inferenceTBL SELECT '2026-03-07T09:05:00', '2026-03-07T09:05:00', code, 1, 0 FROM issue;)";

// The first scan is killed while it stores them.
TEST_F(ScanFault, ThousandIssues) {
  WriteFile(set_paths::kSolutionMap, ManySolutions());
  fs::remove(SystemPath(set_paths::kRules));
  using namespace trevlin_tables;
  const std::string table = std::string("CREATE TABLE ") + kInference + kInferenceColumns + ";";
  Execute(OpenDatabase(set_paths::kInferenceDb).get(), table + kManyTransitions);
  const auto daemon = StartDaemon();
  {
    RunningApp app(kScanAtOnce);
    ASSERT_TRUE(app.Says("GetInferenceResult Success"));
    app.Process().Signal(SIGKILL);
    app.End();
    ExpectSoundDatabase();
    EXPECT_THAT(RemainingCodes(), testing::AnyOf(ElementsAre(kEarlier), testing::SizeIs(kMany)));
  }
  RunningApp app(kScanAtOnce);
  ASSERT_TRUE(app.Says("Start Vexilo..."));
  // A blocked Back is said by the main loop, and so shows how late that is.
  ChildProcess back = m_screen->Repeat("Escape", 120, 50ms);
  ASSERT_TRUE(app.Says(" buf after fn is"));
  EXPECT_TRUE(app.HasSaid("m_DiagResCallback triggered.. Size = 1000"));
  EXPECT_EQ(RemainingCodes().size(), size_t{kMany});
  const auto blocked = app.TimesOf("Key blocked..");
  ASSERT_GT(blocked.size(), 100u);
  RunningApp::Clock::duration longest{};
  for (size_t i = 1; i < blocked.size(); ++i) longest = std::max(longest, blocked[i] - blocked[i - 1]);
  EXPECT_LT(longest, 1s) << "the main loop goes on meanwhile";
  m_screen->Press({"Down", "Down", "Return"});
  EXPECT_TRUE(app.Says("Trying to create popup with index = 2"));
  m_screen->Press({"Escape", "Escape"});
  EXPECT_EQ(app.End().exitCode, 0);
}

}  // namespace
