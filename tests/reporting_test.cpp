// What is reported: the usage events, and the error report's requests to the log collector. The facts of the device are
// read once, so every case of them has a test of its own.

#include <json/json.h>
#include <sys/statvfs.h>

#include "CErrorReport.h"
#include "CUtils.h"
#include "ErrorReportSender.h"
#include "QUVA_KPISender.h"
#include "ReportTrigger.h"
#include "support/files.h"
#include "support/usage_events.h"
#include "vconf.h"

namespace {

using QUVA::CErrorReport;
using QUVA::CUtils;
using QUVA::ErrorReportSender;
using QUVA::QUVA_KPISender;

QUVA_KPISender& Sender() {
  return *QUVA_KPISender::GetInstance();
}

/// What the description has for a key. The user time may be any byte.
std::string Field(const std::string& key) {
  const std::string text = Sender().m_getVexiloDescription();
  const size_t start = text.find((key == "chip_id" ? "{" : ";") + key + "=");
  if (start == std::string::npos) return "(missing)";
  const size_t from = start + key.size() + 2;
  const size_t to = key == "user_time" ? text.find(";select_item=", from) : text.find_first_of(";}", from);
  return text.substr(from, to - from);
}

std::vector<Json::Value> ParsedEvents() {
  std::istringstream file(StoredEvents());
  std::vector<Json::Value> events;
  for (std::string line; std::getline(file, line);) std::istringstream(line) >> events.emplace_back();
  return events;
}

TEST(KpiSender, FactsOfTheDeviceAreReadOnce) {
  constexpr char kChip[] = "/proc/sdp_chipid_val";
  WriteFile(kChip, "0x1 0xabcdef01 0xDEADBEEF 0x0\n");
  WriteFile(set_paths::kSetProfile, "[set]\nserial_number=0VX5A1K0001X\nmodel_name=AB55X100\n");
  // A release image is one with the debug mark, too.
  for (const char* mark : {"/etc/release", "/etc/debug"}) WriteFile(mark, "");
  vconf_set_str("memory/sp-kpi/platform", "VX-5");
  for (int look = 0; look < 2; ++look) {
    EXPECT_EQ(Field("chip_id"), "00000001_ABCDEF01_DEADBEEF_00000000");
    EXPECT_EQ(Field("sn") + " " + Field("series"), "0VX5A1K0001X AB5");
    EXPECT_EQ(Field("img_type") + " " + Field("platform"), "release VX-5");
    WriteFile(kChip, "0x9 0x9 0x9 0x9\n");
    Sender().SendVexiloKPI("Sound Test");
  }
}

TEST(KpiSender, FactsThatAreNotWholeAreTakenAsFarAsTheyGo) {
  WriteFile("/proc/sdp_chipid_val", "0x12");
  WriteFile(set_paths::kSetProfile, "[set]\nmodel_name=\n");
  WriteFile("/etc/debug", "");
  EXPECT_EQ(Field("chip_id"), "00000012_00000000_00000000_00000000");
  EXPECT_EQ(Field("series") + " " + Field("img_type"), "NULL debug");
}

TEST(KpiSender, StorageIsThatOfTheUserPartitionInMebibytes) {
  const std::string remain = Field("remain_storage");
  struct statvfs info {};
  ASSERT_EQ(statvfs(SystemPath("/opt").c_str(), &info), 0);
  const auto mebibytes = [&info](unsigned long blocks) { return blocks * (info.f_frsize / 1024) / 1024; };
  EXPECT_EQ(Field("total_storage"), std::to_string(mebibytes(info.f_blocks)));
  // Others write to the partition meanwhile, by far less than this.
  EXPECT_NEAR(std::stod(remain), static_cast<double>(mebibytes(info.f_bavail)), 512);
}

TEST(KpiSender, AnEventIsStoredAsFourTextsAndARefusedOneOnlyLogged) {
  fs::create_directory(SystemPath(set_paths::kEventLog));
  Sender().SendVexiloKPI("Picture Test");
  EXPECT_THAT(Log(), HasSubstr("ERROR: could not send event log!! [-"));
  fs::remove(SystemPath(set_paths::kEventLog));

  Sender().SendVexiloKPI("Manage Storage");
  const auto events = ParsedEvents();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0]["service"].asString(), "23_vexilo");
  EXPECT_EQ(events[0]["event"].asString(), "VEXILO");
  EXPECT_EQ(events[0]["category"].asString(), "EV003");
  EXPECT_THAT(events[0]["description"].asString(), HasSubstr(";select_item=Manage Storage;"));
  EXPECT_EQ(Sender().m_getVexiloDescription(),
            "{chip_id=NULL;sn=NULL;series=NULL;platform=NULL;img_type=perf;user_time=" + Field("user_time") +
                ";select_item=Manage Storage;status=NULL;issue_count=NULL;issue_clear=NULL;total_storage=" +
                Field("total_storage") + ";remain_storage=" + Field("remain_storage") + ";remain_count=NULL}");
}

TEST(KpiSender, StatusAndCountStayForLaterEvents) {
  const auto fields = [] { return Field("select_item") + "|" + Field("status") + "|" + Field("issue_count"); };
  Sender().m_pSet_param_select_type("Staged");
  EXPECT_EQ(fields(), "NULL|NULL|NULL") << "not before it is sent";
  Sender().SendVexiloKPI("Start Vexilo");
  EXPECT_EQ(fields(), "Start Vexilo|NULL|NULL");
  Sender().SendVexiloKPI("DeviceState", "Good");
  EXPECT_EQ(fields(), "DeviceState|Good|NULL");
  Sender().SendVexiloKPI("CreateErrorList", 3);
  EXPECT_EQ(fields(), "CreateErrorList|Good|3");
  Sender().SendVexiloKPI("Self Diagnosis");
  EXPECT_EQ(fields(), "Self Diagnosis|Good|3");
  EXPECT_EQ(ParsedEvents().size(), 4u);
}

TEST(KpiSender, TheUserTimeIsOneByteOfTheSecondsSinceTheStart) {
  const auto seconds = [] {
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
  };
  EXPECT_EQ(Field("user_time"), "NULL");
  const time_t before = seconds();
  Sender().SendVexiloKPI("Video Test");
  const time_t after = seconds();
  const std::string text = Field("user_time");
  ASSERT_EQ(text.size(), 1u);
  EXPECT_LE((static_cast<unsigned char>(text[0]) - before) & 0xFF, after - before);
}

TEST(KpiSender, EventsOfManyThreadsStayWhole) {
  std::vector<std::thread> threads;
  for (const char* status : {"0", "1", "2", "3"})
    threads.emplace_back([status] {
      for (int i = 0; i < 10; ++i) Sender().SendVexiloKPI(status, status);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ParsedEvents().size(), 40u);
  for (const Json::Value& event : ParsedEvents()) {
    const std::string description = event["description"].asString();
    const std::string item = description.substr(description.find(";select_item=") + 13, 1);
    EXPECT_THAT(description, HasSubstr("=" + item + ";status=" + item + ";"));
  }
}

// ---- the error report

std::vector<std::string> Files(const char* folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(SystemPath(folder))) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(ErrorReport, SendsTheTickedCategoriesInTheOrderOfTheTable) {
  ErrorReportSender& sender = ErrorReportSender::Instance();
  EXPECT_TRUE(sender.Toggle(8));
  EXPECT_TRUE(sender.Toggle(3));
  EXPECT_TRUE(sender.Toggle(0));
  EXPECT_FALSE(sender.Toggle(3));
  sender.HandOver();
  EXPECT_TRUE(sender.Toggle(5)) << "for the next report";
  CErrorReport::m_SendBtnBackendCall(CErrorReport::Instance());
  EXPECT_THAT(StoredEvents(), testing::ContainsRegex("^[^\n]*select_item=ErrorReport;status=SCREEN;[^\n]*\n"
                                                     "[^\n]*select_item=ErrorReport;status=OTHER;[^\n]*\n$"));
  EXPECT_THAT(Files(set_paths::kReportTriggers), ElementsAre("OTHER-QUVAKOV.log", "SCREEN-QUVAKOV.log"));
  EXPECT_THAT(Files(set_paths::kRebootReportTriggers), IsEmpty());
  EXPECT_THAT(Log(), HasSubstr("Send NDF to KOV for : SCREEN-QUVAKOV.log and QUVA KPI : SCREEN\n"));
}

TEST(ErrorReport, SendsNothingWithoutATick) {
  ErrorReportSender& sender = ErrorReportSender::Instance();
  for (const int row : {-1, 9}) EXPECT_FALSE(sender.Toggle(row));
  EXPECT_FALSE(sender.IsAnyTicked());
  sender.Toggle(4);
  EXPECT_TRUE(sender.IsAnyTicked());
  sender.UntickAll();
  sender.HandOver();
  CErrorReport::m_SendBtnBackendCall(CErrorReport::Instance());
  EXPECT_EQ(StoredEvents(), "");
  EXPECT_THAT(Files(set_paths::kReportTriggers), IsEmpty());
}

TEST(ErrorReport, ARequestTouchesAFileInItsFolder) {
  WriteFile("/tmp/kov_NDF/App_1-x.y-2.log", "kept");
  CUtils::Instance().m_RequestNDF("StartVexilo", "StartVexilo", true);
  CUtils::Instance().m_RequestNDF("App_1", "x.y-2", false);
  EXPECT_THAT(Files(set_paths::kRebootReportTriggers), ElementsAre("StartVexilo-StartVexilo.log"));
  EXPECT_EQ(ReadFile("/tmp/kov_NDF/App_1-x.y-2.log"), "kept");
}

TEST(ErrorReport, RefusesNamesThatAShellWouldRead) {
  for (const char* name : {"a b", "$(touch x)", "a;b", "../up", "a/b", "a\nb", "`x`", "*", "ü"}) {
    CUtils::Instance().m_RequestNDF(name, "b", false);
    CUtils::Instance().m_RequestNDF("b", name, true);
  }
  EXPECT_THAT(Files(set_paths::kReportTriggers), IsEmpty());
  EXPECT_THAT(Files(set_paths::kRebootReportTriggers), IsEmpty());
  EXPECT_THAT(Log(), HasSubstr("no report is asked for with the name \"a;b-b.log\""));
  EXPECT_THAT(Log(), testing::Not(HasSubstr("cmd on sending")));
}

TEST(ErrorReport, FollowsNoLinkAndSurvivesAMissingFolder) {
  const fs::path folder = SystemPath("/tmp/kov_NDF"), other = SystemPath("/tmp/other");
  fs::create_directory(other);
  fs::create_symlink(other / "planted", folder / "a-link.log");
  CUtils::Instance().m_RequestNDF("a", "link", false);
  fs::remove_all(folder);
  CUtils::Instance().m_RequestNDF("a", "b", false);
  fs::create_symlink(other, folder);
  CUtils::Instance().m_RequestNDF("a", "c", false);
  EXPECT_THAT(Files("/tmp/other"), IsEmpty());
  EXPECT_THAT(Log(), HasSubstr("no report is asked for with /tmp/kov_NDF/a-b.log: No such file"));
}

constexpr std::chrono::milliseconds kSoon(300), kLong(20000);
const std::string kResults = "/run/vexilo-host/report_results/";
using Steps = std::vector<std::function<void()>>;

/// Asks, has the collector do its steps 150 ms after each other meanwhile, and returns "REPORT|PROBLEM".
std::string AskFor(const std::string& name, const Steps& steps, std::chrono::milliseconds limit,
                   const char* folder = set_paths::kReportTriggers) {
  const QUVA::ReportRequest request = QUVA::LeaveReportTrigger(folder, name);
  const std::jthread collector([&steps] {
    for (const auto& step : steps) {
      std::this_thread::sleep_for(150ms);
      step();
    }
  });
  const QUVA::ReportOutcome outcome = QUVA::AwaitReport(request, limit, {});
  return outcome.report + "|" + outcome.problem;
}

TEST(ErrorReport, TellsWhatBecameOfThisRequestAndNoEarlierOne) {
  /// What the collector does: 't' takes the trigger, 'l' leaves a link, a digit tells that of the texts below.
  const std::string kTold[] = {R"({"id":"1","report":"older.tar.gz"})",
                               R"({"id":"2","report":"earlier.tar.gz"})",
                               R"({"id":"3","report":"own.tar.gz"})",
                               R"({"id":"4","problem":"the disk is full"})",
                               R"({"id":"5","report":"own.tar.gz","problem":"SOUND-A.log stays"})",
                               R"({"id":"6","report":"../../etc/passwd"})",
                               std::string(3000, '[')};
  const struct {
    const char* what;
    const char* steps;
    std::chrono::milliseconds limit;
    const char* outcome;
  } kCases[] = {
      {"told, then taken", "2t", kLong, "own.tar.gz|"},
      {"an earlier one ends late", "12t", kLong, "own.tar.gz|"},
      {"told once more after it was taken", "t2", kLong, "own.tar.gz|"},
      {"failed, and stays", "3", kLong, "|the disk is full"},
      {"made, but stays", "24", kLong, "own.tar.gz|SOUND-A.log stays"},
      {"an earlier one only", "1", kSoon, "still waits: the log collector does not run, or is not done with it"},
      {"no collector", "", kSoon, "still waits: the log collector does not run, or is not done with it"},
      {"taken by somebody else", "t", kLong, "has gone, and nobody tells what became of it"},
      {"no name", "5t", kLong, "|what the log collector told in /run/vexilo-host/report_results is not understood"},
      {"no JSON", "6t", kLong, "is not understood"},
      {"a link", "lt", kLong, "has gone, and nobody tells what became of it"},
  };
  WriteFile("/planted", kTold[2]);
  // Beside each other, as most of it is waiting; each with a name of its own.
  std::vector<std::jthread> asking;
  for (const auto& each : kCases)
    asking.emplace_back([&] {
      const std::string name = "SOUND-" + std::to_string(&each - kCases) + ".log", result = kResults + name;
      WriteFile(result, kTold[0]);
      Steps steps;
      for (const char* step = each.steps; *step; ++step)
        steps.push_back([&kTold, name, result, step = *step] {
          if (step != 'l' && step != 't') return WriteFile(result, kTold[step - '0']);
          fs::remove(SystemPath(step == 't' ? "/tmp/kov_NDF/" + name : result));
          if (step == 'l') fs::create_symlink(SystemPath("/planted"), SystemPath(result));
        });
      EXPECT_THAT(AskFor(name, steps, each.limit), testing::EndsWith(each.outcome)) << each.what;
    });
}

TEST(ErrorReport, WaitsForNothingWhereNothingIsAskedForOrNobodyWaits) {
  EXPECT_EQ(AskFor("SOUND-A.log", {}, kLong, set_paths::kRebootReportTriggers),
            "|/tmp/kov_NDF_reboot/SOUND-A.log is due after a restart of the set");
  EXPECT_EQ(AskFor("SOUND-A.log", {}, kLong, "/tmp/none"), "|/tmp/none/SOUND-A.log: No such file or directory");
  EXPECT_THAT(QUVA::AwaitReport(QUVA::LeaveReportTrigger(set_paths::kReportTriggers, "a;b"), kLong, {}).problem,
              HasSubstr("the name \"a;b\" is not of letters"));
  int looks = 0;
  EXPECT_EQ(QUVA::AwaitReport(QUVA::LeaveReportTrigger(set_paths::kReportTriggers, "SOUND-A.log"), kLong,
                              [&looks] { return ++looks == 3; })
                .problem,
            "cancelled");
}

}  // namespace
