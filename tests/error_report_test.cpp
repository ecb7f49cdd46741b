// The error report's way to the log collector: usage events and trigger files.

#include "CErrorReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "CUtils.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

namespace fs = std::filesystem;
using QUVA::CErrorReport;
using QUVA::CUtils;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> Files(const char* folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(SystemPath(folder))) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

/// The item and status of each usage event, in order.
std::vector<std::string> Events() {
  std::ifstream file(SystemPath(set_paths::kEventLog));
  std::vector<std::string> events;
  for (std::string line; std::getline(file, line);) {
    Json::Value event;
    std::istringstream(line) >> event;
    const std::string text = event["description"].asString();
    const size_t from = text.find("select_item=");
    events.push_back(text.substr(from, text.find(";issue_count=") - from));
  }
  return events;
}

std::string Log() {
  std::ifstream log(SystemPath(set_paths::kLogFile));
  return {std::istreambuf_iterator<char>(log), {}};
}

TEST(ErrorReport, SendsTheTickedCategoriesInTheOrderOfTheTable) {
  CErrorReport& report = *CErrorReport::Instance();
  EXPECT_TRUE(report.m_ToggleCategory(8));
  EXPECT_TRUE(report.m_ToggleCategory(3));
  EXPECT_TRUE(report.m_ToggleCategory(0));
  EXPECT_FALSE(report.m_ToggleCategory(3));
  CErrorReport::m_SendBtnBackendCall(&report);
  EXPECT_THAT(Events(), ElementsAre("select_item=ErrorReport;status=SCREEN", "select_item=ErrorReport;status=OTHER"));
  EXPECT_THAT(Files(set_paths::kReportTriggers), ElementsAre("OTHER-QUVAKOV.log", "SCREEN-QUVAKOV.log"));
  EXPECT_THAT(Files(set_paths::kRebootReportTriggers), IsEmpty());
  const std::string log = Log();
  size_t at = 0;
  for (const char* line :
       {"> [m_SendBtnBackendCall:", "size of map is 2",
        "cmd on sending error type for KOV  is touch /tmp/kov_NDF/SCREEN-QUVAKOV.log\n",
        "Send NDF to KOV for : SCREEN-QUVAKOV.log and QUVA KPI : SCREEN\n", "touch /tmp/kov_NDF/OTHER-QUVAKOV.log\n"}) {
    at = log.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << " in " << log;
  }
}

TEST(ErrorReport, SendsNothingWithoutATick) {
  CErrorReport& report = *CErrorReport::Instance();
  for (const int row : {-1, 9}) EXPECT_FALSE(report.m_ToggleCategory(row));
  EXPECT_FALSE(report.m_CheckIfAnyCheckboxIsSelected());
  report.m_ToggleCategory(4);
  EXPECT_TRUE(report.m_CheckIfAnyCheckboxIsSelected());
  report.m_UntickAll();
  CErrorReport::m_SendBtnBackendCall(&report);
  CErrorReport::m_SendBtnBackendCall(nullptr);
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_THAT(Files(set_paths::kReportTriggers), IsEmpty());
  EXPECT_THAT(Log(), HasSubstr("pThis is NULL"));
}

TEST(ErrorReport, ARequestTouchesAFileInItsFolder) {
  const fs::path old = SystemPath("/tmp/kov_NDF/App_1-x.y-2.log");
  std::ofstream(old) << "kept";
  const auto past = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(old, past);
  CUtils::Instance().m_RequestNDF("StartVexilo", "StartVexilo", true);
  CUtils::Instance().m_RequestNDF("App_1", "x.y-2", false);
  EXPECT_THAT(Files(set_paths::kRebootReportTriggers), ElementsAre("StartVexilo-StartVexilo.log"));
  EXPECT_EQ(fs::file_size(SystemPath("/tmp/kov_NDF_reboot/StartVexilo-StartVexilo.log")), 0u);
  EXPECT_GT(fs::last_write_time(old), past + std::chrono::minutes(1));
  EXPECT_EQ(fs::file_size(old), 4u);
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
  EXPECT_THAT(Log(), HasSubstr("no report is asked for with /tmp/kov_NDF/a-link.log: "));
  EXPECT_THAT(Log(), HasSubstr("no report is asked for with /tmp/kov_NDF/a-b.log: No such file"));
  EXPECT_THAT(Log(), HasSubstr("no report is asked for with /tmp/kov_NDF/a-c.log: "));
}

}  // namespace
