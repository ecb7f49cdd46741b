// The usage events. The facts of the device are read once, so every case of them has a test of its own.

#include "QUVA_KPISender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/statvfs.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "set_paths.h"
#include "system_path.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using QUVA::QUVA_KPISender;
using testing::HasSubstr;
using testing::StartsWith;

QUVA_KPISender& Sender() {
  return *QUVA_KPISender::GetInstance();
}

void Write(const char* path, const std::string& text) {
  std::ofstream(SystemPath(path)) << text;
}

/// What the description has for a key. The user time may be any byte, so the keys around it are looked for as a whole.
std::string Field(const std::string& key) {
  const std::string text = Sender().m_getVexiloDescription();
  const size_t start = text.find((key == "chip_id" ? "{" : ";") + key + "=");
  if (start == std::string::npos) return "(missing)";
  const size_t from = start + key.size() + 2;
  const size_t to = key == "user_time" ? text.find(";select_item=", from) : text.find_first_of(";}", from);
  return text.substr(from, to - from);
}

std::vector<Json::Value> StoredEvents() {
  std::ifstream file(SystemPath(set_paths::kEventLog));
  std::vector<Json::Value> events;
  for (std::string line; std::getline(file, line);) std::istringstream(line) >> events.emplace_back();
  return events;
}

/// The value of one field of the description, given a file of the root ("" for none) or the set's profile.
struct Fact {
  const char* name;
  const char* path;
  const char* text;
  const char* field;
  const char* value;
};
void PrintTo(const Fact& fact, std::ostream* out) {
  *out << fact.name;
}

class KpiFact : public testing::TestWithParam<Fact> {};

TEST_P(KpiFact, IsReadFromTheSet) {
  const Fact& fact = GetParam();
  if (*fact.path) Write(fact.path, fact.text);
  EXPECT_EQ(Field(fact.field), fact.value);
}

constexpr char kChip[] = "/proc/sdp_chipid_val";
constexpr char kProfile[] = "/etc/vexilo/set.conf";
constexpr Fact kFacts[] = {
    {"ChipMissing", "", "", "chip_id", "NULL"},
    {"ChipEmpty", kChip, "", "chip_id", "NULL"},
    {"ChipNoNumber", kChip, "chip 0x1\n", "chip_id", "NULL"},
    {"ChipWhole", kChip, "0x1 0xabcdef01 0xDEADBEEF 0x0\n", "chip_id", "00000001_ABCDEF01_DEADBEEF_00000000"},
    {"ChipWithoutLineFeed", kChip, "0x11111111 0x22222222 0x33333333 0x44444444", "chip_id",
     "11111111_22222222_33333333_44444444"},
    {"ChipOneWord", kChip, "0x12\n", "chip_id", "00000012_00000000_00000000_00000000"},
    {"SerialMissing", "", "", "sn", "NULL"},
    {"Serial", kProfile, "[set]\nserial_number=0VX5A1K0001X\n", "sn", "0VX5A1K0001X"},
    {"SeriesMissing", "", "", "series", "NULL"},
    {"SeriesToTheFirstDigit", kProfile, "[set]\nmodel_name=AB55X100\n", "series", "AB5"},
    {"SeriesDigitFirst", kProfile, "[set]\nmodel_name=55AB\n", "series", "5"},
    {"SeriesDigitLast", kProfile, "[set]\nmodel_name=AB-X7\n", "series", "AB-X7"},
    {"SeriesWithoutDigit", kProfile, "[set]\nmodel_name=Vexilo One\n", "series", "Vexilo One"},
    {"SeriesEmpty", kProfile, "[set]\nmodel_name=\n", "series", "NULL"},
    {"ImagePerf", "", "", "img_type", "perf"},
    {"ImageRelease", "/etc/release", "", "img_type", "release"},
    {"ImageDebug", "/etc/debug", "", "img_type", "debug"},
    {"PlatformMissing", "", "", "platform", "NULL"},
    {"ItemMissing", "", "", "select_item", "NULL"},
    {"UserTimeMissing", "", "", "user_time", "NULL"},
};
INSTANTIATE_TEST_SUITE_P(Of, KpiFact, testing::ValuesIn(kFacts),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(KpiSender, AReleaseImageIsOneAlsoWithTheDebugMark) {
  Write("/etc/release", "");
  Write("/etc/debug", "");
  EXPECT_EQ(Field("img_type"), "release");
}

TEST(KpiSender, ThePlatformIsTheSettingsKeysText) {
  vconf_set_str("memory/sp-kpi/platform", "VX-5");
  EXPECT_EQ(Field("platform"), "VX-5");
}

TEST(KpiSender, APlatformThatIsNoTextIsUnknown) {
  vconf_set_int("memory/sp-kpi/platform", 5);
  EXPECT_EQ(Field("platform"), "NULL");
}

TEST(KpiSender, FactsAreReadOnce) {
  EXPECT_EQ(Field("chip_id"), "NULL");
  Write(kChip, "0x1 0x2 0x3 0x4\n");
  Sender().SendVexiloKPI("Sound Test");
  EXPECT_EQ(Field("chip_id"), "NULL");
}

TEST(KpiSender, StorageIsThatOfTheUserPartitionInMebibytes) {
  struct statvfs before {
  }, after{};
  ASSERT_EQ(statvfs(SystemPath("/opt").c_str(), &before), 0);
  const std::string total = Field("total_storage");
  const std::string remain = Field("remain_storage");
  ASSERT_EQ(statvfs(SystemPath("/opt").c_str(), &after), 0);
  const auto mebibytes = [](const struct statvfs& info, unsigned long blocks) {
    return blocks * (info.f_frsize / 1024) / 1024;
  };
  EXPECT_EQ(total, std::to_string(mebibytes(before, before.f_blocks)));
  // Others write to the partition meanwhile, by far less than this.
  const double expected = static_cast<double>(mebibytes(after, after.f_bavail));
  EXPECT_NEAR(std::stod(remain), expected, 512);
  EXPECT_LE(std::stoul(remain), std::stoul(total));
}

TEST(KpiSender, StorageIsUnknownWithoutThePartition) {
  fs::remove_all(SystemPath("/opt"));
  EXPECT_EQ(Field("total_storage"), "NULL");
  EXPECT_EQ(Field("remain_storage"), "NULL");
}

TEST(KpiSender, TheDescriptionHasItsFieldsInOrder) {
  Sender().SendVexiloKPI("Manage Storage");
  EXPECT_EQ(Sender().m_getVexiloDescription(),
            "{chip_id=NULL;sn=NULL;series=NULL;platform=NULL;img_type=perf;user_time=" + Field("user_time") +
                ";select_item=Manage Storage;status=NULL;issue_count=NULL;issue_clear=NULL;total_storage=" +
                Field("total_storage") + ";remain_storage=" + Field("remain_storage") + ";remain_count=NULL}");
}

TEST(KpiSender, StatusAndCountStayForLaterEvents) {
  const auto fields = [] { return Field("select_item") + "|" + Field("status") + "|" + Field("issue_count"); };
  Sender().SendVexiloKPI("Start Vexilo");
  EXPECT_EQ(fields(), "Start Vexilo|NULL|NULL");
  Sender().SendVexiloKPI("DeviceState", "Good");
  EXPECT_EQ(fields(), "DeviceState|Good|NULL");
  Sender().SendVexiloKPI("CreateErrorList", 3);
  EXPECT_EQ(fields(), "CreateErrorList|Good|3");
  Sender().SendVexiloKPI("Self Diagnosis");
  EXPECT_EQ(fields(), "Self Diagnosis|Good|3");
  Sender().SendVexiloKPI("CreateErrorList", -1);
  Sender().SendVexiloKPI("ErrorReport", "Network");
  EXPECT_EQ(fields(), "ErrorReport|Network|-1");
  EXPECT_EQ(StoredEvents().size(), 6u);
}

TEST(KpiSender, TheItemIsStagedWithoutAnEvent) {
  EXPECT_EQ(Sender().m_Get_param_select_type(), "NULL");
  std::string item = "Sound Test";
  Sender().m_pSet_param_select_type(item.data());
  item = "overwritten";
  EXPECT_EQ(Sender().m_Get_param_select_type(), "Sound Test");
  EXPECT_EQ(Field("select_item"), "NULL");
  EXPECT_FALSE(fs::exists(SystemPath(set_paths::kEventLog)));
  Sender().SendVexiloKPI("Video Test");
  EXPECT_EQ(Sender().m_Get_param_select_type(), "Video Test");
}

TEST(KpiSender, TheUserTimeIsOneByteOfTheSecondsSinceTheStart) {
  const auto seconds = [] {
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
  };
  const time_t before = seconds();
  Sender().SendVexiloKPI("Video Test");
  const time_t after = seconds();
  const std::string text = Field("user_time");
  ASSERT_EQ(text.size(), 1u);
  const unsigned char byte = static_cast<unsigned char>(text[0]);
  EXPECT_LE((byte - before) & 0xFF, after - before);
}

TEST(KpiSender, AnEventIsStoredAsFourTexts) {
  Sender().SendVexiloKPI("Picture Test");
  const auto events = StoredEvents();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0]["service"].asString(), "23_vexilo");
  EXPECT_EQ(events[0]["event"].asString(), "VEXILO");
  EXPECT_EQ(events[0]["category"].asString(), "EV003");
  const std::string description = events[0]["description"].asString();
  EXPECT_THAT(description, StartsWith("{chip_id=NULL;"));
  EXPECT_THAT(description, HasSubstr(";select_item=Picture Test;"));
  EXPECT_THAT(description, testing::EndsWith(";remain_count=NULL}"));
}

TEST(KpiSender, AnEventThatIsRefusedIsOnlyLogged) {
  fs::create_directory(SystemPath(set_paths::kEventLog));
  Sender().SendVexiloKPI("Picture Test");
  std::ifstream log(SystemPath(set_paths::kLogFile));
  const std::string lines(std::istreambuf_iterator<char>(log), {});
  EXPECT_THAT(lines, HasSubstr("ERROR: could not send event log!! [-"));
  fs::remove(SystemPath(set_paths::kEventLog));
  Sender().SendVexiloKPI("Sound Test");
  EXPECT_EQ(StoredEvents().size(), 1u);
}

TEST(KpiSender, EventsOfManyThreadsStayWhole) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread)
    threads.emplace_back([thread] {
      const std::string status = std::to_string(thread);
      for (int i = 0; i < 10; ++i) Sender().SendVexiloKPI(("item " + status).c_str(), status.c_str());
    });
  for (std::thread& thread : threads) thread.join();
  const auto events = StoredEvents();
  EXPECT_EQ(events.size(), 40u);
  for (const Json::Value& event : events) {
    const std::string description = event["description"].asString();
    const size_t item = description.find(";select_item=item ");
    ASSERT_NE(item, std::string::npos) << description;
    const std::string thread = description.substr(item + 18, 1);
    EXPECT_THAT(description, HasSubstr("item " + thread + ";status=" + thread + ";"));
  }
}

}  // namespace
