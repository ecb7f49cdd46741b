// The whole slice as processes: databases and a solution map on the disk, the shipped program, what it leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "c_handle.h"
#include "set_names.h"
#include "support/files.h"
#include "support/process.h"
#include "support/remaining_rows.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr char kMap[] = R"(<map><sminfo version="3"/><sm cnt="5"/>
  <solution issue_code="1001" sid_issue="A" view_authority="USER"/>
  <solution issue_code="2040" sid_issue="B" source="HDMI"/>
  <solution issue_code="555" is_fg_bg="bg"/>
  <solution issue_code="17" sid_issue="C" view_authority="SERVICE"/>
  <solution issue_code="10000005" sid_issue="D" view_authority="USER"/>
</map>)";
constexpr char kFound[] = "1001\n2040\n17\n";

const fs::path kResult = SystemPath(set_paths::kQGuideResult);
const fs::path kInference = SystemPath(set_paths::kInferenceDb);
const fs::path kSolutions = SystemPath(set_paths::kSolutionDb);
const fs::path kMapFile = SystemPath(set_paths::kSolutionMap);
const fs::path kPlugin = SystemPath(set_paths::kParserPlugin);

const ProcessOptions kToStderr = {
    .env = {{"VEXILO_LOG_TARGET", "stderr"}, {"DBUS_SESSION_BUS_ADDRESS", ""}, {"ELM_ENGINE", "buffer"}}};

class Slice : public testing::Test {
 protected:
  void SetUp() override {
    fs::copy_file(PARSER_PLUGIN, kPlugin);
    WriteHostFile(kMapFile, kMap);
    for (const int code : {17, 555, 1001, 2040, 10000005}) Record(code, 1, "2024-03-07T09:05:00");
    Record(10000005, 0, "2024-03-07T10:00:00");
  }

  static void Record(int code, int type, const char* time) {
    trevlin::Database engine(trevlin::Database::Access::kReadWrite);
    trevlin::Transition transition;
    transition.time = time;
    transition.issueCode = code;
    transition.type = type;
    ASSERT_EQ(engine.AddTransition(transition), TREVLIN_OK) << engine.LastError();
  }

  // Runs the quick diagnosis, which ends with 0 whatever it meets.
  static std::string Diagnose(std::vector<std::string> before = {}) {
    before.insert(before.end(), {VEXILO_APP, "qguide"});
    const ProcessResult result = RunProcess(before, kToStderr);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.err;
  }
};

TEST_F(Slice, ASetThatWasNotExaminedIsNotCalledWell) {
  WriteFile(set_paths::kRules, "[");
  EXPECT_THAT(Diagnose(), HasSubstr("the rules of the diagnosis cannot be used"));
  EXPECT_FALSE(fs::exists(kResult));
}

TEST_F(Slice, CodesAreWrittenInTheOrderOfTheMapToWhereTheRequestWantsThem) {
  WriteHostFile(kResult, "what was there before, which is longer");
  EXPECT_THAT(Diagnose(),
              AllOf(HasSubstr("for qguide only"), HasSubstr("SM_VERSION [3]"), HasSubstr("m_table Size is 3")));
  EXPECT_EQ(ReadHostFile(kResult), kFound);
  fs::remove(kResult);
  const ProcessResult result = RunProcess({VEXILO_APP, "launch_mech=bg_inference"}, kToStderr);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(ReadHostFile(SystemPath(set_paths::kQGuideBackgroundResult)), kFound);
  EXPECT_FALSE(fs::exists(kResult));
  EXPECT_EQ(CText(vconf_get_str(set_names::kForegroundAppKey)), nullptr) << "it has no screen to be in front with";
  EXPECT_THAT(result.err, AllOf(HasSubstr("when QUVA is to be called in background "), HasSubstr("terminate called")));
  for (const char* other : {set_paths::kRemainingDb, set_paths::kEventLog})
    EXPECT_FALSE(fs::exists(SystemPath(other))) << other;
}

// Each breaks one thing; the run says so, ends well and leaves the rest alone.
struct Fault {
  const char* name;
  std::function<void()> breakIt;
  const char* logLine;
  const char* result;       ///< what the result file holds; null: there is none
  fs::path untouched = {};  ///< a file that is as the fault left it
};

void PrintTo(const Fault& fault, std::ostream* out) {
  *out << fault.name;
}

const Fault kFaults[] = {
    {"ResultFolderIsAFile",
     [] {
       fs::remove_all(kResult.parent_path());
       WriteHostFile(kResult.parent_path());
     },
     "/tmp/qsyslink: it is no folder", nullptr},
    {"ResultFolderIsOpenToOthers",
     [] {
       fs::remove_all(SystemPath("/tmp"));
       fs::create_directories(kResult.parent_path());
       fs::permissions(SystemPath("/tmp"), fs::perms(0777));
     },
     "/tmp: other users may put anything into it", nullptr},
    {"ResultIsALink",
     [] {
       WriteHostFile(SystemPath("/opt/precious"));
       fs::create_symlink(SystemPath("/opt/precious"), kResult);
     },
     "symbolic link is detected", "content", SystemPath("/opt/precious")},
    {"FolderOfResultIsALink",
     [] {
       WriteHostFile(kResult);
       fs::rename(kResult.parent_path(), SystemPath("/opt/elsewhere"));
       fs::create_symlink(SystemPath("/opt/elsewhere"), kResult.parent_path());
     },
     "\nno result is written to /tmp/qsyslink/inference_result: symbolic link is detected; what stands there, if "
     "anything, is of an earlier diagnosis\n",
     "content", SystemPath("/opt/elsewhere/inference_result")},
    {"ResultHasAnotherName",
     [] {
       WriteHostFile(SystemPath("/opt/precious"));
       fs::create_hard_link(SystemPath("/opt/precious"), kResult);
     },
     "\nno result is written to /tmp/qsyslink/inference_result: Too many links; ", "content"},
    {"ResultIsAFolder", [] { fs::create_directory(kResult); }, "Unable to open file /tmp/qsyslink/inference_result 21",
     nullptr},
    {"MalformedMap", [] { WriteHostFile(kMapFile, "<map>\n<solution issue_code=\"17\"/>\n<sm cnt=1/>"); },
     "Error while parsing xml: not well-formed (invalid token), line: 3, col: 8", "", kMapFile},
    {"MapWithoutSolutions", [] { WriteHostFile(kMapFile, "<map><sm cnt=\"0\"/></map>"); },
     "\nno issue can be told: /usr/share/vexilo/solutionmap.xml has no solutions that can be used\n", "", kMapFile},
    {"MapCutShort",
     [] { WriteHostFile(kMapFile, "<map><sm cnt=\"3\"/><solution issue_code=\"17\"/><solution issue_"); },
     "/usr/share/vexilo/solutionmap.xml: it declares 3 solutions and has 1", "17\n", kMapFile},
    {"NoPlugin", [] { fs::remove(kPlugin); }, "dlopen error: ", ""},
    {"NoDatabaseAndAnEarlierResult",
     [] {
       fs::remove(kInference);
       WriteHostFile(kResult, kFound);
     },
     "GetInferenceResult Failed", ""},
    {"TruncatedDatabase", [] { fs::resize_file(kInference, fs::file_size(kInference) / 2 + 100); },
     "inference.db: was damaged (database disk image is malformed); it is set aside as ", ""},
    {"SolutionsNotADatabase", [] { WriteHostFile(kSolutions, std::string(5000, 'x')); },
     "solution.db: was damaged (file is not a database); it is set aside as ", kFound},
    {"LinkedDatabase",
     [] {
       fs::rename(kInference, SystemPath("/opt/elsewhere.db"));
       fs::create_symlink(SystemPath("/opt/elsewhere.db"), kInference);
     },
     "inference.db: cannot be opened: it is a symbolic link", "", SystemPath("/opt/elsewhere.db")},
};

class SliceFault : public Slice, public testing::WithParamInterface<Fault> {};

TEST_P(SliceFault, IsSaidAndHarmsNothingElse) {
  const Fault& fault = GetParam();
  fault.breakIt();
  const std::string before = ReadHostFile(fault.untouched);
  EXPECT_THAT(Diagnose(), HasSubstr(fault.logLine));
  EXPECT_EQ(ReadHostFile(fault.untouched), before);
  EXPECT_EQ(fs::is_regular_file(kResult), fault.result != nullptr);
  EXPECT_EQ(ReadHostFile(kResult), fault.result ? fault.result : "");
}

INSTANTIATE_TEST_SUITE_P(, SliceFault, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

TEST_F(Slice, TheFolderOfTheResultIsMadeWhereItIsMissing) {
  fs::remove_all(SystemPath("/tmp"));
  Diagnose();
  EXPECT_EQ(ReadHostFile(kResult), kFound);
}

TEST_F(Slice, LockedDatabaseIsNotWaitedForLong) {
  const SqliteDb db = OpenDatabase(set_paths::kInferenceDb);
  Execute(db.get(), "BEGIN EXCLUSIVE");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(Diagnose(), HasSubstr("database is locked"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(ReadHostFile(kResult), "");
}

// Root may write everywhere, so the program runs without that privilege.
std::vector<std::string> WithoutPrivilege() {
  if (geteuid() != 0) return {};
  return {"setpriv", "--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-all"};
}

TEST_F(Slice, ReadOnlyFoldersAreSaidAndLeftAsTheyAre) {
  const std::string database = ReadHostFile(kInference);
  for (const fs::path& folder : {kResult.parent_path(), kInference.parent_path()})
    fs::permissions(folder, fs::perms(0555));
  fs::permissions(kInference, fs::perms(0444));
  EXPECT_THAT(Diagnose(WithoutPrivilege()), HasSubstr("Unable to open file /tmp/qsyslink/inference_result 13"));
  EXPECT_FALSE(fs::exists(kResult));
  EXPECT_FALSE(fs::exists(kSolutions));

  fs::permissions(kResult.parent_path(), fs::perms(0755));
  Diagnose(WithoutPrivilege());
  EXPECT_EQ(ReadHostFile(kResult), kFound);
  EXPECT_EQ(ReadHostFile(kInference), database);
}

// ---- the interactive process

int LaunchPoint() {
  int value = -1;
  return vconf_get_int("memory/quva/launch_point", &value) == 0 ? value : -1;
}

TEST_F(Slice, RequestsReachTheRunningInstance) {
  // One session bus for all that the shell starts. The first start is up once it has recorded its launch point.
  const std::string script = R"(
"$0" launch_mech=HotelMenu & first=$!
until [ -e "$1" ]; do sleep 0.02; done
"$0" launch_mech=menu; echo second $?
"$0" launch_mech=bg_inference; echo third $?
wait $first; echo first $?)";
  const std::string recorded = SystemPath(set_paths::kVolatileSettingsDir) + "/memory%2Fquva%2Flaunch_point";
  ChildProcess session({"dbus-run-session", "--", "sh", "-c", script, VEXILO_APP, recorded},
                       {.env = {{"VEXILO_LOG_TARGET", "file"}, {"ELM_ENGINE", "buffer"}}});
  for (const char* line : {"second 0", "third 0", "first 0"})
    EXPECT_EQ(session.ReadLine(std::chrono::seconds(60)), line);
  EXPECT_EQ(LaunchPoint(), 3);
  EXPECT_EQ(ReadHostFile(SystemPath(set_paths::kQGuideBackgroundResult)), kFound);
}

TEST_F(Slice, FirstLaunchRecordsItsPointAndKeepsOrClearsTheRemainingProblems) {
  StoreRemaining({1001, 10000005});
  for (const bool reset : {false, true}) {
    ASSERT_EQ(vconf_set_bool("db/vexilo/db_reset", reset), 0);
    ASSERT_EQ(vconf_set_str("system/trevlin/STOperation", "-"), 0);
    ChildProcess app({VEXILO_APP, "launch_mech=HotelMenu"}, kToStderr);
    // The last thing that a start writes: what it found, or that there is nothing.
    const std::string last = reset ? R"({"id" : "NoRemaining"})" : R"({"id" : "CompareRemaining"})";
    EXPECT_TRUE(Until([&last] { return CText(vconf_get_str("system/trevlin/STOperation")).get() == last; }));
    const auto left = reset ? std::vector<int>{} : std::vector{1001};
    EXPECT_TRUE(Until([&left] { return RemainingCodes() == left; })) << "an on-demand issue has cleared";
    EXPECT_EQ(LaunchPoint(), 3);
    app.Signal(SIGTERM);
    const ProcessResult result = app.Wait();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, AllOf(HasSubstr("launch_mech is HotelMenu"), HasSubstr("terminate called")));
  }
}

}  // namespace
