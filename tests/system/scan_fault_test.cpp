// The scan in surroundings that are broken, one thing at a time: the installed application in a real window. Nothing
// may crash or hang, be said that is not so, or be lost that was stored.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/ptrace.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "support/remaining_rows.h"
#include "support/set_with_screen.h"
#include "trevlin_tables.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kEarlier = 20090001;  // of the last scan
constexpr int kOffTimer = 20080001;
constexpr int kAutoPowerOff = 20080002;
constexpr int kDemoMode = 20100001;
constexpr char kScanAtOnce[] = "launch_mech=StartVexilo";
constexpr char kListIsOpen[] = "Start Vexilo Issue screen...";

class ScanFault : public testing::Test {
 protected:
  void SetUp() override {
    const std::string problem = LeaveTheMachine();
    ASSERT_EQ(problem, "");
    InstallSet();
    vconf_set_int("db/menu/system/time/off_timer", 30);
    vconf_set_bool("db/menu/system/power/auto_power_off", true);
    vconf_set_bool("db/menu/system/demo_mode", true);
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

// ---- broken before the start

SqliteDb LockHistory() {
  SqliteDb db = OpenDatabase(set_paths::kInferenceDb);
  Execute(db.get(), "BEGIN EXCLUSIVE");
  return db;
}

void ForbidWritingRemaining() {
  const std::string file = SystemPath(set_paths::kRemainingDb);
  EXPECT_EQ(mount(file.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(mount(nullptr, file.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
}

void RemovePluginAndDamageRemaining() {
  fs::remove(SystemPath(set_paths::kParserPlugin));
  std::ofstream(SystemPath(set_paths::kRemainingDb)) << std::string(5000, 'x');
}

struct Fault {
  const char* name;
  bool hasTaskManager;
  void (*breakIt)();
  std::vector<const char*> logLines;
  int issues;               ///< that are found
  std::vector<int> stored;  ///< afterwards
};

void PrintTo(const Fault& fault, std::ostream* out) {
  *out << fault.name;
}

const Fault kFaults[] = {
    {"TaskManagerIsDeadAndRemainingIsReadOnly",
     false,
     ForbidWritingRemaining,
     {"Deep Clean Process unable to complete in 10 seconds.. so returning failure...",
      "attempt to write a readonly database"},
     3,
     {kEarlier}},
    {"PluginIsMissingAndRemainingIsDamaged",
     true,
     RemovePluginAndDamageRemaining,
     {"dlopen error: ", "file is not a database"},
     0,
     {}},
};

class ScanWithFault : public ScanFault, public testing::WithParamInterface<Fault> {};

TEST_P(ScanWithFault, ReachesTheListAndLosesNothing) {
  const Fault& fault = GetParam();
  fault.breakIt();
  const auto daemon = fault.hasTaskManager ? StartDaemon() : nullptr;
  RunningApp app(kScanAtOnce);
  ASSERT_TRUE(app.Says(kListIsOpen));
  EXPECT_TRUE(app.HasSaid("m_DiagResCallback triggered.. Size = " + std::to_string(fault.issues)));
  for (const char* line : fault.logLines) EXPECT_TRUE(app.HasSaid(line)) << line;
  EXPECT_THAT(RemainingCodes(), testing::ElementsAreArray(fault.stored));
  app.Settle();
  m_screen->Press({"Return"});  // the popup of the first issue, or Done
  if (fault.issues > 0) {
    ASSERT_TRUE(app.Says("create popup"));
    m_screen->Minimize();
  }
  EXPECT_EQ(app.End().exitCode, 0) << app.Log();
}

INSTANTIATE_TEST_SUITE_P(, ScanWithFault, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

// ---- ended while it scans

// An end at once: nobody waits for what the application is at.
void Pause(const Screen& screen, const RunningApp&) {
  screen.Minimize();
}
void Terminate(const Screen&, const RunningApp& app) {
  app.Process().Signal(SIGTERM);
}
void Kill(const Screen&, const RunningApp& app) {
  app.Process().Signal(SIGKILL);
}

TEST_F(ScanFault, ScanThatIsEndedAtAnyMomentEndsAtOnceAndKeepsWhatWasStored) {
  constexpr char kWaits[] = "Waiting for another 1 second";  // for the task manager, which is not there
  const struct {
    const char* moment;
    void (*end)(const Screen&, const RunningApp&);
    int signal;  ///< that it dies of
  } endings[] = {{"Start Vexilo...", Pause, 0},
                 {"SaveRemainingProblems", Kill, SIGKILL},
                 {"Counter = 5", Terminate, 0},
                 {kWaits, Pause, 0},
                 {kWaits, Terminate, 0}};
  vconf_set_bool("db/vexilo/db_reset", false);
  for (const auto& [moment, end, signal] : endings) {
    RunningApp app(kScanAtOnce);
    ASSERT_TRUE(app.Says(moment));
    end(*m_screen, app);
    const ProcessResult result = app.End(2s);
    EXPECT_FALSE(result.timedOut) << moment;
    EXPECT_EQ(result.signal, signal) << moment;
    EXPECT_EQ(result.exitCode, signal ? -1 : 0) << moment;
    EXPECT_THAT(RemainingCodes(),
                testing::AnyOf(ElementsAre(kEarlier), ElementsAre(kOffTimer, kAutoPowerOff, kDemoMode)))
        << moment;
    ExpectSoundDatabase();
  }
  EXPECT_THAT(RemainingCodes(), ElementsAre(kOffTimer, kAutoPowerOff, kDemoMode));
}

// ---- an engine that does not answer

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

TEST_F(ScanFault, EngineThatAnswersAfterTheListIsOpenAndThenFindsItsHistoryLocked) {
  const auto daemon = StartDaemon();
  RunningApp app;
  ASSERT_TRUE(app.IsHome());
  app.Settle();
  {
    const HeldThread engine(app.Thread("trevlin"));
    m_screen->Press({"Left", "Return"});  // the remaining issues have the focus
    ASSERT_TRUE(app.Says("Start Vexilo..."));
    ASSERT_TRUE(app.Says("Navigating to Issues screen with ResultRecvd = 0"));
    ASSERT_TRUE(app.Says(kListIsOpen));
    EXPECT_EQ(app.Count("m_DiagResCallback triggered"), 1) << "but that of the start";
    EXPECT_THAT(RemainingCodes(), ElementsAre(kEarlier));
  }
  EXPECT_TRUE(app.Says("m_DiagResCallback triggered.. Size = 3"));
  EXPECT_TRUE(app.Says("CreateErrorList end.."));
  EXPECT_THAT(RemainingCodes(), ElementsAre(kOffTimer, kAutoPowerOff, kDemoMode));
  m_screen->Press({"Escape"});
  EXPECT_TRUE(app.Says("Home screen called after return"));
  EXPECT_EQ(app.Count(kListIsOpen), 1);
  app.Settle();

  const SqliteDb held = LockHistory();
  m_screen->Press({"Left", "Return"});
  ASSERT_TRUE(app.Says(kListIsOpen, 2));
  EXPECT_EQ(app.Count("m_DiagResCallback triggered.. Size = 3"), 2) << "what it finds is told though not recorded";
  EXPECT_TRUE(app.HasSaid("database is locked"));
  EXPECT_THAT(RemainingCodes(), ElementsAre(kOffTimer, kAutoPowerOff, kDemoMode));
  app.Settle();
  m_screen->Press({"Escape"});
  EXPECT_TRUE(app.Says("Home screen called after return", 2));
  m_screen->Press({"Escape"});
  EXPECT_EQ(app.End().exitCode, 0) << app.Log();
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

TEST_F(ScanFault, ThousandIssues) {
  std::ofstream(SystemPath(set_paths::kSolutionMap)) << ManySolutions();
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
