// The whole slice as processes: databases and a solution map on the disk, the shipped program, what it leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include "base/sqlite_handle.h"
#include "set_paths.h"
#include "support/process.h"
#include "support/remaining_rows.h"
#include "system_path.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kMap[] = R"(<map><sminfo version="3"/><sm cnt="5"/>
  <solution issue_code="1001" sid_issue="A" view_authority="USER"/>
  <solution issue_code="2040" sid_issue="B" source="HDMI"/>
  <solution issue_code="555" is_fg_bg="bg"/>
  <solution issue_code="17" sid_issue="C" view_authority="SERVICE"/>
  <solution issue_code="10000005" sid_issue="D" view_authority="USER"/>
</map>)";

std::string Content(const char* path) {
  if (!fs::is_regular_file(SystemPath(path))) return "";
  std::ifstream file(SystemPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const char* path, const std::string& content) {
  std::ofstream(SystemPath(path), std::ios::binary) << content;
}

bool Exists(const char* path) {
  return fs::exists(fs::symlink_status(SystemPath(path)));
}

void Record(int code, int type, const char* time) {
  trevlin::Database engine(trevlin::Database::Access::kReadWrite);
  trevlin::Transition transition;
  transition.time = time;
  transition.issueCode = code;
  transition.type = type;
  ASSERT_EQ(engine.AddTransition(transition), TREVLIN_OK) << engine.LastError();
}

const ProcessOptions kToStderr = {
    .env = {{"VEXILO_LOG_TARGET", "stderr"}, {"DBUS_SESSION_BUS_ADDRESS", ""}, {"ELM_ENGINE", "buffer"}}};

bool HappensSoon(const std::function<bool()>& condition) {
  for (int i = 0; i < 1000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

class Slice : public testing::Test {
 protected:
  void SetUp() override {
    fs::copy_file(PARSER_PLUGIN, SystemPath(set_paths::kParserPlugin));
    WriteFile(set_paths::kSolutionMap, kMap);
    for (const int code : {17, 555, 1001, 2040}) Record(code, 1, "2024-03-07T09:05:00");
    Record(10000005, 1, "2024-03-07T09:05:00");
    Record(10000005, 0, "2024-03-07T10:00:00");
  }

  // Runs the quick diagnosis, which ends with 0 whatever it meets.
  std::string Diagnose(std::vector<std::string> before = {}) {
    before.insert(before.end(), {VEXILO_APP, "qguide"});
    const ProcessResult result = RunProcess(before, kToStderr);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.err;
  }
};

TEST_F(Slice, QGuideWritesTheCodesInTheOrderOfTheMap) {
  const std::string log = Diagnose();
  EXPECT_EQ(Content(set_paths::kQGuideResult), "1001\n2040\n17\n");
  EXPECT_THAT(log, HasSubstr("CAppMain.cpp: RunHeadless("));
  EXPECT_THAT(log, AllOf(HasSubstr("for qguide only"), HasSubstr("SM_VERSION [3]"), HasSubstr("m_table Size is 3")));
  EXPECT_FALSE(Exists(set_paths::kRemainingDb));
  EXPECT_FALSE(Exists(set_paths::kEventLog));
}

TEST_F(Slice, QGuideEmptiesTheFileOfAnEarlierRunWhenNothingIsFound) {
  WriteFile(set_paths::kQGuideResult, "1001\n2040\n17\n99\n");
  fs::remove(SystemPath(set_paths::kInferenceDb));
  EXPECT_THAT(Diagnose(), HasSubstr("GetInferenceResult Failed"));
  EXPECT_TRUE(Exists(set_paths::kQGuideResult));
  EXPECT_EQ(Content(set_paths::kQGuideResult), "");
}

TEST_F(Slice, PlantedLinkIsRefusedAndItsTargetUntouched) {
  WriteFile("/opt/precious", "mine");
  fs::create_symlink(SystemPath("/opt/precious"), SystemPath(set_paths::kQGuideResult));
  EXPECT_THAT(Diagnose(), HasSubstr("symbolic link is detected"));
  EXPECT_EQ(Content("/opt/precious"), "mine");
  EXPECT_TRUE(fs::is_symlink(SystemPath(set_paths::kQGuideResult)));
}

// Each breaks one thing; the run says so, ends well and leaves the rest alone.
struct Fault {
  const char* name;
  std::function<void()> breakIt;
  const char* logLine;
  const char* result;               ///< what the result file holds; null: there is none
  const char* untouched = nullptr;  ///< a file that is as the fault left it
};

void PrintTo(const Fault& fault, std::ostream* out) {
  *out << fault.name;
}

void Truncate(const char* path) {
  fs::resize_file(SystemPath(path), fs::file_size(SystemPath(path)) / 2 + 100);
}

const Fault kFaults[] = {
    {"NoResultFolder", [] { fs::remove_all(SystemPath("/tmp/qsyslink")); },
     "Unable to open file /tmp/qsyslink/inference_result 2", nullptr},
    {"ResultIsAFolder", [] { fs::create_directory(SystemPath(set_paths::kQGuideResult)); },
     "Unable to open file /tmp/qsyslink/inference_result 21", nullptr},
    {"ResultIsAPipe", [] { mkfifo(SystemPath(set_paths::kQGuideResult).c_str(), 0600); },
     "Unable to open file /tmp/qsyslink/inference_result 22", nullptr},
    {"MapIsAPipe",
     [] {
       fs::remove(SystemPath(set_paths::kSolutionMap));
       mkfifo(SystemPath(set_paths::kSolutionMap).c_str(), 0600);
     },
     "cannot read /usr/share/vexilo/solutionmap.xml: not a regular file", ""},
    {"NoMap", [] { fs::remove(SystemPath(set_paths::kSolutionMap)); },
     "cannot read /usr/share/vexilo/solutionmap.xml: No such file or directory", ""},
    {"MapIsAFolder",
     [] {
       fs::remove(SystemPath(set_paths::kSolutionMap));
       fs::create_directory(SystemPath(set_paths::kSolutionMap));
     },
     "cannot read /usr/share/vexilo/solutionmap.xml: Is a directory", ""},
    {"MalformedMap", [] { WriteFile(set_paths::kSolutionMap, "<map>\n<solution issue_code=\"17\"/>\n<sm cnt=1/>"); },
     "Error while parsing xml: not well-formed (invalid token), line: 3, col: 8", "", set_paths::kSolutionMap},
    {"EmptyMap", [] { WriteFile(set_paths::kSolutionMap, ""); }, "Solution Map  : 0", ""},
    {"ParameterBeforeAnySolution",
     [] { WriteFile(set_paths::kSolutionMap, "<map><sol_val param_type=\"a\"/><solution issue_code=\"17\"/></map>"); },
     "a sol_val tag stands before any solution tag", "", set_paths::kSolutionMap},
    {"NoPlugin", [] { fs::remove(SystemPath(set_paths::kParserPlugin)); }, "dlopen error: ", ""},
    {"PluginIsNoLibrary", [] { WriteFile(set_paths::kParserPlugin, "#!/bin/sh\n"); }, "dlopen error: ", ""},
    {"NoDatabaseFolder", [] { fs::remove_all(SystemPath("/home/owner/share/Trevlin")); },
     "/home/owner/share/Trevlin/DB/inference.db: cannot be opened", ""},
    {"TruncatedDatabase", [] { Truncate(set_paths::kInferenceDb); }, "database disk image is malformed", "",
     set_paths::kInferenceDb},
    {"NotADatabase", [] { WriteFile(set_paths::kInferenceDb, std::string(5000, 'x')); }, "file is not a database", "",
     set_paths::kInferenceDb},
    {"SolutionsNotADatabase", [] { WriteFile(set_paths::kSolutionDb, std::string(5000, 'x')); },
     "/home/owner/share/Trevlin/DB/solution.db", "1001\n2040\n17\n", set_paths::kSolutionDb},
    {"LinkedDatabase",
     [] {
       fs::rename(SystemPath(set_paths::kInferenceDb), SystemPath("/opt/elsewhere.db"));
       fs::create_symlink(SystemPath("/opt/elsewhere.db"), SystemPath(set_paths::kInferenceDb));
     },
     "inference.db: cannot be opened: it is a symbolic link", "", "/opt/elsewhere.db"},
};

class SliceFault : public Slice, public testing::WithParamInterface<Fault> {};

TEST_P(SliceFault, IsSaidAndHarmsNothingElse) {
  const Fault& fault = GetParam();
  fault.breakIt();
  const std::string before = fault.untouched ? Content(fault.untouched) : "";
  EXPECT_THAT(Diagnose(), HasSubstr(fault.logLine));
  EXPECT_EQ(fault.untouched ? Content(fault.untouched) : "", before);
  EXPECT_EQ(fs::is_regular_file(SystemPath(set_paths::kQGuideResult)), fault.result != nullptr);
  EXPECT_EQ(Content(set_paths::kQGuideResult), fault.result ? fault.result : "");
}

INSTANTIATE_TEST_SUITE_P(, SliceFault, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

TEST_F(Slice, LockedDatabaseIsNotWaitedForLong) {
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(SystemPath(set_paths::kInferenceDb).c_str(), &raw), SQLITE_OK);
  const SqliteDb db(raw);
  ASSERT_EQ(sqlite3_exec(raw, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(Diagnose(), HasSubstr("database is locked"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(Content(set_paths::kQGuideResult), "");
}

// Root may write everywhere, so the program runs without that privilege.
std::vector<std::string> WithoutPrivilege() {
  if (geteuid() != 0) return {};
  return {"setpriv", "--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-all"};
}

TEST_F(Slice, ReadOnlyFoldersAreSaidAndLeftAsTheyAre) {
  WriteFile(set_paths::kSolutionDb, "");
  fs::remove(SystemPath(set_paths::kSolutionDb));
  const std::string database = Content(set_paths::kInferenceDb);
  for (const char* folder : {"/tmp/qsyslink", "/home/owner/share/Trevlin/DB"})
    ASSERT_EQ(chmod(SystemPath(folder).c_str(), 0555), 0);
  ASSERT_EQ(chmod(SystemPath(set_paths::kInferenceDb).c_str(), 0444), 0);
  const std::string log = Diagnose(WithoutPrivilege());
  EXPECT_THAT(log, HasSubstr("Unable to open file /tmp/qsyslink/inference_result 13"));
  EXPECT_FALSE(Exists(set_paths::kQGuideResult));
  EXPECT_FALSE(Exists(set_paths::kSolutionDb));
  EXPECT_EQ(Content(set_paths::kInferenceDb), database);

  ASSERT_EQ(chmod(SystemPath("/tmp/qsyslink").c_str(), 0755), 0);
  Diagnose(WithoutPrivilege());
  EXPECT_EQ(Content(set_paths::kQGuideResult), "1001\n2040\n17\n");
  EXPECT_EQ(Content(set_paths::kInferenceDb), database);
}

TEST_F(Slice, BackgroundRequestWritesToTheDocuments) {
  const ProcessResult result = RunProcess({VEXILO_APP, "launch_mech=bg_inference"}, kToStderr);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(Content(set_paths::kQGuideBackgroundResult), "1001\n2040\n17\n");
  EXPECT_FALSE(Exists(set_paths::kQGuideResult));
  EXPECT_THAT(result.err, AllOf(HasSubstr("when QUVA is to be called in background "), HasSubstr("terminate called")));
}

// ---- the interactive process

int LaunchPoint() {
  int value = -1;
  return vconf_get_int("memory/quva/launch_point", &value) == 0 ? value : -1;
}

TEST_F(Slice, RequestsReachTheRunningInstance) {
  // One session bus for all that the shell starts. The first start is up once it has recorded its launch point.
  const std::string app = VEXILO_APP;
  const std::string recorded = SystemPath(set_paths::kVolatileSettingsDir) + "/memory%2Fquva%2Flaunch_point";
  ChildProcess session({"dbus-run-session", "--", "sh", "-c",
                        app + " launch_mech=HotelMenu & first=$!\n" + "until [ -e " + recorded +
                            " ]; do sleep 0.02; done\n" + app + " launch_mech=menu; echo second $?\n" + app +
                            " launch_mech=bg_inference; echo third $?\n" + "wait $first; echo first $?\n"},
                       {.env = {{"VEXILO_LOG_TARGET", "file"}, {"ELM_ENGINE", "buffer"}}});
  EXPECT_EQ(session.ReadLine(), "second 0");
  EXPECT_EQ(session.ReadLine(), "third 0");
  EXPECT_EQ(session.ReadLine(), "first 0");
  EXPECT_EQ(LaunchPoint(), 3);
  EXPECT_EQ(Content(set_paths::kQGuideBackgroundResult), "1001\n2040\n17\n");
}

TEST_F(Slice, FirstLaunchRecordsTheLaunchPointAndTerminates) {
  ChildProcess app({VEXILO_APP, "launch_mech=HotelMenu"}, kToStderr);
  EXPECT_TRUE(HappensSoon([] { return LaunchPoint() == 3; }));
  EXPECT_TRUE(HappensSoon([] { return Exists(set_paths::kRemainingDb); }));
  app.Signal(SIGTERM);
  const ProcessResult result = app.Wait();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("launch_mech is HotelMenu"), HasSubstr("terminate called")));
}

TEST_F(Slice, StartDeletesOnDemandIssuesThatHaveCleared) {
  StoreRemaining({1001, 10000005, 20000000});
  ChildProcess app({VEXILO_APP}, kToStderr);
  EXPECT_TRUE(HappensSoon([] { return RemainingCodes().size() == 2; }));
  app.Signal(SIGTERM);
  EXPECT_EQ(app.Wait().exitCode, 0);
}

TEST_F(Slice, FirstLaunchClearsTheRemainingProblemsOnlyWhenAsked) {
  StoreRemaining({1001});
  for (const bool reset : {false, true}) {
    ASSERT_EQ(vconf_set_bool("db/vexilo/db_reset", reset), 0);
    ASSERT_EQ(vconf_set_str("system/trevlin/STOperation", "-"), 0);
    ChildProcess app({VEXILO_APP}, kToStderr);
    // The last thing that a start writes: what it found, or that there is nothing.
    const std::string last = reset ? R"({"id" : "NoRemaining"})" : R"({"id" : "CompareRemaining"})";
    EXPECT_TRUE(HappensSoon([&last] { return CText(vconf_get_str("system/trevlin/STOperation")).get() == last; }));
    EXPECT_EQ(RemainingCodes().size(), reset ? 0u : 1u);
    app.Signal(SIGTERM);
    EXPECT_EQ(app.Wait().exitCode, 0);
  }
}

}  // namespace
