// Resolution of what the engine inferred, the remaining problems, and the result lists, on the engine's own databases.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "CHomeScreen.h"
#include "CStartDC.h"
#include "CUtils.h"
#include "QUVA_DiagResultManager.h"
#include "QUVA_Storage.h"
#include "base/sqlite_handle.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using QUVA::CHomeScreen;
using QUVA::CStartDC;
using QUVA::CUtils;
using QUVA::MapToDBTable;
using QUVA::QUVA_DiagResultManager;
using QUVA::QUVA_Solution;
using QUVA::TCInformationStorage;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kRemaining = SystemPath(set_paths::kRemainingDb);
const std::string kInference = SystemPath(set_paths::kInferenceDb);
const std::string kResult = SystemPath("/tmp/qsyslink/inference_result");
const std::string kBackgroundResult = SystemPath("/opt/usr/home/owner/content/Documents/inference_result");

constexpr char kEarly[] = "2024-03-07T09:05:00";
constexpr char kNoon[] = "2024-03-07T12:00:00";
constexpr char kLate[] = "2024-03-08T00:00:00";
constexpr char kLatest[] = "2024-11-01T00:00:00";

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

SqliteDb OpenPlainly(const std::string& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  return SqliteDb(db);
}

void Execute(const std::string& path, const std::string& sql) {
  const SqliteDb db = OpenPlainly(path);
  EXPECT_EQ(sqlite3_exec(db.get(), sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db.get());
}

QUVA_DiagResultManager& Manager() {
  return *QUVA_DiagResultManager::GetInstance();
}

std::vector<MapToDBTable> Table() {
  std::vector<MapToDBTable> rows;
  Manager().GetRemainingTable(rows);
  return rows;
}

std::vector<std::string> Codes(const std::vector<MapToDBTable>& rows) {
  std::vector<std::string> codes;
  for (const MapToDBTable& row : rows) codes.push_back(row.issue_code);
  return codes;
}

auto Fields(const MapToDBTable& row) {
  return std::tie(row.index, row.issue_code, row.is_fix, row.last_time, row.sol_type, row.sol_name, row.sid_issue,
                  row.sid_sol, row.sid_button1, row.sid_button2, row.action, row.toast1, row.toast2, row.source,
                  row.view_authority);
}

/// A solution for viewers, with a text of its own in every field.
QUVA_Solution Solution(const std::string& code, const std::string& source = "", const std::string& view = "USER") {
  const auto text = [&code](const char* field) { return field + code; };
  QUVA_Solution solution;
  solution.issue_code = code;
  solution.sol_code = text("code");
  solution.sol_type = text("type");
  solution.sol_name = text("name");
  solution.sol_values = {{"unknown", "parameter"}};
  solution.sid_issue = text("issue");
  solution.sid_sol = text("solution");
  solution.sid_button1 = text("first");
  solution.sid_button2 = text("second");
  solution.reboot = text("reboot");
  solution.is_fg_bg = "fg";
  solution.action = text("action");
  solution.toast1 = text("toast");
  solution.toast2 = text("toasts");
  solution.source = source;
  solution.view_authority = view;
  return solution;
}

MapToDBTable RowOf(const QUVA_Solution& solution, const std::string& time) {
  return {.index = 1,
          .issue_code = solution.issue_code,
          .is_fix = 0,
          .last_time = time,
          .sol_type = solution.sol_type,
          .sol_name = solution.sol_name,
          .sid_issue = solution.sid_issue,
          .sid_sol = solution.sid_sol,
          .sid_button1 = solution.sid_button1,
          .sid_button2 = solution.sid_button2,
          .action = solution.action,
          .toast1 = solution.toast1,
          .toast2 = solution.toast2,
          .source = solution.source,
          .view_authority = solution.view_authority};
}

void UseMap(const std::vector<QUVA_Solution>& solutions) {
  TCInformationStorage::Instance()->SetSolutionInformation(static_cast<unsigned int>(solutions.size()), solutions);
}

void BecomesTrue(int code, const std::string& time = kNoon) {
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  ASSERT_EQ(database.AddTransition({.time = time, .issueCode = code, .type = DT_TRANSITION_TYPE_TRUE}), TREVLIN_OK);
}

void BecomesFalse(int code, const std::string& time) {
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  ASSERT_EQ(database.AddTransition({.time = time, .issueCode = code, .type = DT_TRANSITION_TYPE_FALSE}), TREVLIN_OK);
}

void Solved(int code, const std::string& time, int isApply = 1) {
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  ASSERT_EQ(database.AddSolution({code, 1, 5, isApply, time}), TREVLIN_OK);
}

/// Makes the issues of the solutions true, and them the map.
void Happen(const std::vector<QUVA_Solution>& solutions) {
  UseMap(solutions);
  for (const QUVA_Solution& solution : solutions) BecomesTrue(std::stoi(solution.issue_code));
}

void ShowTuner() {
  vconf_set_int("memory/tv/source", 0);
  vconf_set_int("memory/tv/channel_type", 2);
}

std::string Operation() {
  const CText text(vconf_get_str("system/trevlin/STOperation"));
  return text ? text.get() : "";
}

bool DbReset() {
  int value = -1;
  EXPECT_EQ(vconf_get_bool("db/vexilo/db_reset", &value), 0);
  return value != 0;
}

/// The descriptions of the events that were sent.
std::vector<std::string> Events() {
  std::ifstream file(SystemPath(set_paths::kEventLog));
  std::vector<std::string> descriptions;
  for (std::string line; std::getline(file, line);) {
    Json::Value event;
    std::istringstream(line) >> event;
    descriptions.push_back(event["description"].asString());
  }
  return descriptions;
}

class DiagResult : public testing::Test {
 protected:
  DiagResult() {
    CreateAPIInstance();
    ShowTuner();
  }
};

// ---- resolution

using Resolution = DiagResult;

TEST_F(Resolution, AnIssueIsFoundWhileItIsTrueAndNotSolvedSince) {
  enum Kind { kTrue, kFalse, kApplied, kDeclined };
  struct Event {
    Kind kind;
    const char* time;
  };
  const struct {
    const char* name;
    std::vector<Event> events;
    const char* found;  // its time, or null when it is not found
  } cases[] = {
      {"never seen", {}, nullptr},
      {"true", {{kTrue, kNoon}}, kNoon},
      {"only ever false", {{kFalse, kNoon}}, nullptr},
      {"only a solution", {{kDeclined, kNoon}}, nullptr},
      {"false later", {{kTrue, kNoon}, {kFalse, kLate}}, nullptr},
      {"false before", {{kFalse, kEarly}, {kTrue, kNoon}}, kNoon},
      {"false at the same time", {{kTrue, kNoon}, {kFalse, kNoon}}, kNoon},
      {"the newest of each counts",
       {{kTrue, kLate}, {kFalse, kNoon}, {kTrue, kEarly}, {kFalse, kEarly}, {kTrue, kNoon}},
       kLate},
      {"false last of many", {{kFalse, kLatest}, {kTrue, kLate}, {kTrue, kNoon}, {kFalse, kEarly}}, nullptr},
      {"solution applied later", {{kTrue, kNoon}, {kApplied, kLate}}, nullptr},
      {"solution applied before", {{kApplied, kEarly}, {kTrue, kNoon}}, kNoon},
      {"solution applied at the same time", {{kTrue, kNoon}, {kApplied, kNoon}}, nullptr},
      {"solution declined later", {{kTrue, kNoon}, {kDeclined, kLate}}, kNoon},
      {"solution applied, then declined", {{kTrue, kEarly}, {kApplied, kNoon}, {kDeclined, kLate}}, kEarly},
      {"solution declined, then applied", {{kTrue, kEarly}, {kDeclined, kNoon}, {kApplied, kLate}}, nullptr},
      {"true again after the solution", {{kTrue, kEarly}, {kApplied, kNoon}, {kTrue, kLate}}, kLate},
      {"false later, and solved between", {{kTrue, kEarly}, {kApplied, kNoon}, {kFalse, kLate}}, nullptr},
      {"declined later, but false", {{kTrue, kEarly}, {kFalse, kNoon}, {kDeclined, kLate}}, nullptr},
  };
  std::vector<QUVA_Solution> solutions;
  std::vector<std::string> expected;
  int code = 1000;
  for (const auto& each : cases) {
    solutions.push_back(Solution(std::to_string(++code)));
    if (each.found) expected.push_back(std::string(each.name) + " " + each.found);
    for (const Event& event : each.events) {
      if (event.kind == kTrue) BecomesTrue(code, event.time);
      if (event.kind == kFalse) BecomesFalse(code, event.time);
      if (event.kind == kApplied || event.kind == kDeclined) Solved(code, event.time, event.kind == kApplied);
    }
  }
  UseMap(solutions);
  const int count = Manager().GetInferenceResult();
  std::vector<std::string> found;
  for (const MapToDBTable& row : Table())
    found.push_back(cases[std::stoi(row.issue_code) - 1001].name + (" " + row.last_time));
  EXPECT_EQ(found, expected);
  EXPECT_EQ(count, static_cast<int>(expected.size()));
}

TEST_F(Resolution, TheSolutionOfAnotherIssueDoesNotCount) {
  Happen({Solution("17"), Solution("18")});
  Solved(17, kLate);
  EXPECT_EQ(Manager().GetInferenceResult(), 1);
  EXPECT_THAT(Codes(Table()), ElementsAre("18"));
}

TEST_F(Resolution, ARowHasEveryTextOfTheSolution) {
  const QUVA_Solution solution = Solution("2040", "HDMI", "SERVICE");
  Happen({solution});
  ASSERT_EQ(Manager().GetInferenceResult(), 1);
  EXPECT_EQ(Fields(Table()[0]), Fields(RowOf(solution, kNoon)));
}

TEST_F(Resolution, BackgroundIssuesAreLeftOut) {
  std::vector<QUVA_Solution> solutions;
  for (const char* where : {"bg", "BG", "fg", "", "bg "}) {
    solutions.push_back(Solution(std::to_string(1001 + solutions.size())));
    solutions.back().is_fg_bg = where;
  }
  Happen(solutions);
  EXPECT_EQ(Manager().GetInferenceResult(), 4);
  EXPECT_THAT(Codes(Table()), ElementsAre("1002", "1003", "1004", "1005"));
}

TEST_F(Resolution, RowsAreInTheOrderOfTheMapAndRepeatAsItDoes) {
  auto second = Solution("30");
  second.sid_issue = "second";
  UseMap({Solution("30"), Solution("10"), second, Solution("20")});
  for (const int code : {10, 20, 30}) BecomesTrue(code);
  EXPECT_EQ(Manager().GetInferenceResult(), 4);
  const auto rows = Table();
  EXPECT_THAT(Codes(rows), ElementsAre("30", "10", "30", "20"));
  EXPECT_EQ(rows[0].sid_issue, "issue30");
  EXPECT_EQ(rows[2].sid_issue, "second");
}

TEST_F(Resolution, ACodeIsTheNumberThatItBeginsWith) {
  BecomesTrue(17);
  UseMap({Solution(" 17"), Solution("17x"), Solution("x17"), Solution(""), Solution("0x11"), Solution("017")});
  EXPECT_EQ(Manager().GetInferenceResult(), 3);
  EXPECT_THAT(Codes(Table()), ElementsAre(" 17", "17x", "017"));
  Execute(kInference, std::string("INSERT INTO inferenceTBL VALUES('', '") + kNoon + "', '0', 1, 0)");
  Manager().CleanDiagResult();
  EXPECT_EQ(Manager().GetInferenceResult(), 6) << "what is no number is 0";
}

TEST_F(Resolution, ResultsAreAppendedUntilTheTableIsCleaned) {
  UseMap({});
  EXPECT_EQ(Manager().GetInferenceResult(), 0);
  Happen({Solution("1"), Solution("2")});
  EXPECT_EQ(Manager().GetInferenceResult(), 2);
  EXPECT_EQ(Manager().GetInferenceResult(), 2);
  EXPECT_THAT(Codes(Table()), ElementsAre("1", "2", "1", "2"));
  Manager().CleanDiagResult();
  EXPECT_THAT(Table(), IsEmpty());
}

TEST_F(Resolution, AnEngineErrorSkipsTheIssueOrItsSolution) {
  Happen({Solution("1"), Solution("2")});
  const std::string solutionDb = SystemPath(set_paths::kSolutionDb);
  std::ofstream(solutionDb) << std::string(5000, 'x');
  EXPECT_EQ(Manager().GetInferenceResult(), 2) << "solution.db is no database";
  fs::remove(kInference);
  std::ofstream(kInference) << std::string(5000, 'x');
  EXPECT_EQ(Manager().GetInferenceResult(), 0) << "inference.db is no database";
  EXPECT_EQ(Bytes(solutionDb) + Bytes(kInference), std::string(10000, 'x'));
}

TEST(ResolutionWithoutEngine, FindsNothing) {
  UseMap({Solution("1")});
  BecomesTrue(1);
  EXPECT_EQ(Manager().GetInferenceResult(), 0);
}

TEST_F(Resolution, FindErrorCodeDecidesFromTheFirstTransitionAndTheRecord) {
  const struct {
    const char* name;
    std::vector<_DTInfDBRecord> transitions;
    _DTSolDBRecord record;
    bool found;
  } cases[] = {
      {"no transition", {}, {}, false},
      {"no record", {{5, 1, 0, "", kNoon}}, {}, true},
      {"a record of another issue", {{5, 1, 0, "", kNoon}}, {6, 1, 5, 1, kLate}, true},
      {"applied later", {{5, 1, 0, "", kNoon}}, {5, 1, 5, 1, kLate}, false},
      {"applied with any value but 0", {{5, 1, 0, "", kNoon}}, {5, 1, 5, -2, kLate}, false},
      {"declined later", {{5, 1, 0, "", kNoon}}, {5, 1, 5, 0, kLate}, true},
      {"applied before", {{5, 1, 0, "", kNoon}}, {5, 1, 5, 1, kEarly}, true},
      {"only the first transition counts", {{5, 1, 0, "", kEarly}, {5, 1, 0, "", kLatest}}, {5, 1, 5, 1, kNoon}, false},
      {"the record's issue is compared with the transition's", {{9, 1, 0, "", kNoon}}, {9, 1, 5, 1, kLate}, false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    Manager().CleanDiagResult();
    auto solution = Solution("5");
    auto transitions = each.transitions;
    auto record = each.record;
    EXPECT_EQ(Manager().FindErrorCodeInDB(solution, transitions, record), each.found);
    const auto rows = Table();
    ASSERT_EQ(rows.size(), each.found ? 1u : 0u);
    if (!rows.empty()) {
      EXPECT_EQ(Fields(rows[0]), Fields(RowOf(solution, transitions[0].lastUpdateTime)));
    }
  }
}

TEST_F(Resolution, TimesCompareAsBytes) {
  const struct {
    std::string a;
    std::string b;
    bool later;
  } cases[] = {{kLate, kNoon, true}, {kNoon, kLate, false}, {kNoon, kNoon, false},   {"", "", false},
               {"a", "", true},      {"", "a", false},      {"2024", "202", true},   {"202", "2024", false},
               {"9", "10", true},    {"b", "abc", true},    {"\xc3\xa4", "z", true}, {"a", "B", true}};
  for (const auto& each : cases) {
    std::string a = each.a;
    EXPECT_EQ(Manager().CompareTime(a, each.b), each.later) << a << " and " << each.b;
  }
}

TEST_F(Resolution, OnlyUserIssuesAreForViewers) {
  for (const auto& [view, shown] : {std::pair("USER", true),
                                    {"user", false},
                                    {"", false},
                                    {"USERS", false},
                                    {"USE", false},
                                    {" USER", false},
                                    {"SERVICE", false}})
    EXPECT_EQ(Manager().CheckViewType(view), shown) << view;
}

TEST_F(Resolution, SourcesApplyToWhatIsShowing) {
  const std::set<int> hdmi = {13, 14, 15, 16, 38, 39};
  const std::set<int> digital = {2, 4, 7};
  for (const int source : {0, 1, 2, 12, 13, 14, 15, 16, 17, 37, 38, 39, 40, 45, 46, 47, 48, -1})
    for (const int channel : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8}) {
      SCOPED_TRACE("source " + std::to_string(source) + " channel " + std::to_string(channel));
      vconf_set_int("memory/tv/source", source);
      vconf_set_int("memory/tv/channel_type", channel);
      EXPECT_EQ(Manager().CheckSourceType("DTV"), source == 0 && digital.count(channel) == 1);
      EXPECT_EQ(Manager().CheckSourceType("HDMI"), hdmi.count(source) == 1);
      for (const char* other : {"", "ATV", "dtv", "hdmi", "HDMI1", "DTV "})
        EXPECT_TRUE(Manager().CheckSourceType(other)) << other;
    }
}

TEST(ResolutionOfSources, WhatIsShowingMayBeUnknown) {
  EXPECT_FALSE(Manager().CheckSourceType("DTV"));
  EXPECT_FALSE(Manager().CheckSourceType("HDMI"));
  EXPECT_TRUE(Manager().CheckSourceType(""));
  vconf_set_int("memory/tv/source", 14);
  EXPECT_TRUE(Manager().CheckSourceType("HDMI"));
  EXPECT_FALSE(Manager().CheckSourceType("DTV"));
}

TEST_F(Resolution, TheCurrentTimeIsTheLocalOne) {
  setenv("TZ", "Asia/Kolkata", 1);
  tzset();
  const auto at = [](time_t now) {
    struct tm local {};
    localtime_r(&now, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return std::string(text);
  };
  const time_t before = time(nullptr);
  const std::string text = Manager().GetCurrentTime();
  EXPECT_LE(at(before), text);
  EXPECT_LE(text, at(time(nullptr)));
  EXPECT_EQ(text.size(), 19u);
}

TEST_F(Resolution, LinesAreSplitIntoRecords) {
  const struct {
    std::string line;
    std::tuple<int, int, int, std::string, std::string> inference;
    std::tuple<int, int, int, int, std::string> solution;
  } cases[] = {
      {"17,1,3,4 of it,2024-03-07T09:05:00", {17, 1, 3, "4 of it", kEarly}, {17, 1, 3, 4, kEarly}},
      {"17,,x,,", {17, 0, 0, "", ""}, {17, 0, 0, 0, ""}},
      {"17,1", {17, 1, 0, "", ""}, {17, 1, 0, 0, ""}},
      {"", {0, 0, 0, "", ""}, {0, 0, 0, 0, ""}},
      {"1,2,3,4,5,6", {1, 2, 3, "4", "5"}, {1, 2, 3, 4, "5"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.line);
    std::string line = each.line;
    QUVA::QUVA_InferenceDB inference{9, 9, 9, "old", "old"};
    Manager().TokenString(line, inference);
    EXPECT_EQ(std::tie(inference.issue_code, inference.tr_type, inference.status, inference.detail,
                       inference.last_update_time),
              each.inference);
    QUVA::QUVA_SolutionDB solution{9, 9, 9, 9, "old"};
    Manager().TokenString(line, solution);
    EXPECT_EQ(
        std::tie(solution.issue_code, solution.sol_code, solution.type, solution.is_apply, solution.register_time),
        each.solution);
  }
}

// ---- remaining problems

class Remaining : public DiagResult {
 protected:
  /// Stores the rows as they are. The text of `index` is SQL.
  static void Store(const MapToDBTable& row, const std::string& index = "'1'") {
    Manager().LoadRemainingProblems();  // makes the table
    Manager().CleanDiagResult();
    std::string sql = "INSERT INTO remainingTBL VALUES(" + index;
    for (const std::string& text :
         {row.issue_code, std::string("0"), row.last_time, row.sol_type, row.sid_issue, row.sid_sol, row.sid_button1,
          row.sid_button2, row.action, row.toast1, row.toast2, row.source, row.view_authority}) {
      const std::unique_ptr<char, CRelease<&sqlite3_free>> quoted(sqlite3_mprintf(",%Q", text.c_str()));
      sql += quoted.get();
    }
    Execute(kRemaining, sql + ")");
  }
  static void Store(const QUVA_Solution& solution) { Store(RowOf(solution, kNoon)); }

  static std::vector<std::string> StoredCodes() {
    const SqliteDb db = OpenPlainly(kRemaining);
    const SqliteStatement statement = PrepareStatement(db.get(), "SELECT issue_code FROM remainingTBL");
    std::vector<std::string> codes;
    while (statement && sqlite3_step(statement.get()) == SQLITE_ROW) codes.emplace_back(ColumnText(statement.get(), 0));
    return codes;
  }
};

TEST_F(Remaining, SavingKeepsTheOrderAndOnlyWhatIsShown) {
  Happen({Solution("5"), Solution("4", "", "SERVICE"), Solution("3", "DTV"), Solution("2", "HDMI"),
          Solution("1", "anything"), Solution("6", "", ""), Solution("7", "HDMI", "SERVICE")});
  ASSERT_EQ(Manager().GetInferenceResult(), 7);
  Manager().SaveRemainingProblems();
  EXPECT_THAT(StoredCodes(), ElementsAre("5", "3", "1"));
  EXPECT_EQ(Table().size(), 7u) << "the table keeps what is hidden";
  vconf_set_int("memory/tv/source", 14);
  Manager().SaveRemainingProblems();
  EXPECT_THAT(StoredCodes(), ElementsAre("5", "2", "1")) << "replaced, for the source that is showing now";
  Manager().CleanDiagResult();
  Manager().SaveRemainingProblems();
  EXPECT_THAT(StoredCodes(), IsEmpty());
}

TEST_F(Remaining, EveryFieldButTheNameComesBack) {
  auto plain = Solution("1");
  auto quoted = Solution("2");
  for (std::string* text : {&quoted.sol_type, &quoted.sid_issue, &quoted.sid_sol, &quoted.sid_button1,
                            &quoted.sid_button2, &quoted.action, &quoted.toast1, &quoted.toast2, &quoted.source})
    *text = "a \"quote\" of " + *text;
  quoted.sid_sol = "\"";
  auto odd = Solution("3");
  odd.sid_issue = "it's; DROP TABLE remainingTBL--";
  odd.sid_sol = "%s %n \n line two \xc3\xa4";
  odd.sid_button1 = "sid_issue";
  odd.sid_button2 = "";
  Happen({plain, quoted, odd});
  ASSERT_EQ(Manager().GetInferenceResult(), 3);
  Manager().SaveRemainingProblems();
  EXPECT_THAT(Bytes(SystemPath(set_paths::kLogFile)), HasSubstr("a \"quote\" of issue2")) << "told before it is read";
  EXPECT_EQ(Manager().LoadRemainingProblems(), 1);
  const auto rows = Table();
  ASSERT_EQ(rows.size(), 3u);
  size_t i = 0;
  for (QUVA_Solution solution : {plain, quoted, odd}) {
    solution.sol_name = "";
    EXPECT_EQ(Fields(rows[i++]), Fields(RowOf(solution, kNoon))) << solution.issue_code;
  }
}

TEST_F(Remaining, AnIndexIsPossibleUpToTheNumberOfRows) {
  const struct {
    std::vector<const char*> indexes;
    int result;
    size_t loaded;
  } cases[] = {
      {{"'1'"}, 1, 1},
      {{"'0'"}, 1, 1},
      {{"'2'"}, 0, 0},
      {{"'-1'"}, 0, 0},
      {{"'2'", "'2'"}, 1, 2},
      {{"'1'", "'3'", "'1'"}, 1, 3},
      {{"'1'", "'4'", "'1'"}, 0, 1},
      {{"'1'", "'1'", "'-1'"}, 0, 2},
      {{"'text'", "''", "NULL"}, 1, 3},
      {{"'1 of 9'"}, 1, 1},
      {{"'4294967297'"}, 0, 0},
      {{"'99999999999999999999'"}, 0, 0},
      {{}, 0, 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.indexes));
    Manager().ClearRemainingProblems();
    for (const char* index : each.indexes) Store(RowOf(Solution("1"), kNoon), index);
    EXPECT_EQ(Manager().LoadRemainingProblems(), each.result);
    EXPECT_EQ(Table().size(), each.loaded);
  }
}

TEST_F(Remaining, LoadingReplacesTheTable) {
  Happen({Solution("1"), Solution("2")});
  Manager().GetInferenceResult();
  EXPECT_EQ(Manager().LoadRemainingProblems(), 0);
  std::vector<MapToDBTable> rows(1);
  EXPECT_EQ(Manager().GetRemainingTable(rows), 0);
  EXPECT_EQ(rows.size(), 1u);
  Store(Solution("3"));
  EXPECT_EQ(Manager().LoadRemainingProblems(), 1);
  EXPECT_EQ(Manager().GetRemainingTable(rows), 1);
  EXPECT_EQ(Manager().GetRemainingTable(rows), 1);
  EXPECT_THAT(Codes(rows), ElementsAre("", "3", "3")) << "appended";
}

TEST_F(Remaining, OnDemandIssuesThatHaveClearedAreDeleted) {
  const struct {
    const char* code;
    const char* falseTime;  // of the newest transition to false, null for none; the row's time is kNoon
    bool kept;
  } cases[] = {
      {"9999999", kLate, true},   {"10000000", kLate, false}, {"10000005", kLate, false},
      {"10000006", kNoon, true},  {"10000007", kEarly, true}, {"10000008", nullptr, true},
      {"19999999", kLate, false}, {"20000000", kLate, true},  {"17", kLate, true},
  };
  std::vector<std::string> kept;
  for (const auto& each : cases) {
    Store(Solution(each.code));
    if (each.falseTime) BecomesFalse(std::stoi(each.code), each.falseTime);
    BecomesFalse(std::stoi(each.code), "2020-01-01T00:00:00");
    if (each.kept) kept.push_back(each.code);
  }
  Store(Solution("4304967301"));  // 10000005 in 32 bits
  kept.push_back("4304967301");
  Manager().GetInferenceResult_Remaining();
  EXPECT_EQ(StoredCodes(), kept);
}

TEST_F(Remaining, NothingIsDeletedWhenTheEngineFails) {
  Store(Solution("10000005"));
  BecomesFalse(10000005, kLate);
  std::ofstream(kInference) << std::string(5000, 'x');
  Manager().GetInferenceResult_Remaining();
  EXPECT_THAT(StoredCodes(), ElementsAre("10000005"));
}

TEST_F(Remaining, DeletingTakesAllRowsOfOneCodeWhateverItsText) {
  const std::string clever = "10000005' OR '1'='1";
  for (const std::string& code : {std::string("17"), clever, std::string("170"), std::string("17")})
    Store(Solution(code));
  Manager().DeleteRemainingDBColumn("17");
  EXPECT_THAT(StoredCodes(), ElementsAre(clever, "170"));
  BecomesFalse(10000005, kLate);
  Manager().GetInferenceResult_Remaining();
  EXPECT_THAT(StoredCodes(), ElementsAre("170"));
  Manager().DeleteRemainingDBColumn("'");
  EXPECT_THAT(StoredCodes(), ElementsAre("170"));
  Manager().ClearRemainingProblems();
  EXPECT_THAT(StoredCodes(), IsEmpty());
}

TEST_F(Remaining, ALockedDatabaseIsLeftAsItIs) {
  Store(Solution("1"));
  Happen({Solution("2")});
  ASSERT_EQ(Manager().GetInferenceResult(), 1);
  {
    const SqliteDb other = OpenPlainly(kRemaining);
    ASSERT_EQ(sqlite3_exec(other.get(), "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    Manager().SaveRemainingProblems();
    Manager().DeleteRemainingDBColumn("1");
    EXPECT_EQ(Manager().LoadRemainingProblems(), 0);
    EXPECT_THAT(Table(), IsEmpty());
    Manager().CompareRemaining();
  }
  EXPECT_TRUE(CHomeScreen::Instance()->m_IsRemainingDataArrived());
  EXPECT_THAT(CHomeScreen::Instance()->m_GetDCIssues(), IsEmpty());
  EXPECT_THAT(StoredCodes(), ElementsAre("1"));
}

TEST_F(Remaining, TheHomeScreenGetsTheRowsOfTheSourceThatHaveNotCleared) {
  for (const auto& solution : {Solution("10000001"), Solution("2", "HDMI"), Solution("3", "DTV"),
                               Solution("4", "", "SERVICE"), Solution("5", "anything")})
    Store(solution);
  BecomesFalse(10000001, kLate);
  Manager().CompareRemaining();
  EXPECT_THAT(Codes(CHomeScreen::Instance()->m_GetDCIssues()), ElementsAre("3", "4", "5"));
  EXPECT_EQ(CHomeScreen::Instance()->m_GetDCIssues()[0].sid_issue, "issue3");
  EXPECT_EQ(Operation(), "{\"id\" : \"CompareRemaining\"}");
  EXPECT_THAT(StoredCodes(), ElementsAre("2", "3", "4", "5"));
  vconf_set_int("memory/tv/source", 13);
  Manager().CompareRemaining();
  EXPECT_THAT(Codes(CHomeScreen::Instance()->m_GetDCIssues()), ElementsAre("2", "4", "5"));
}

TEST_F(Remaining, TheHomeScreenGetsAnEmptyListWhenNothingCanBeLoaded) {
  CHomeScreen::Instance()->m_SetDCIssues(std::vector<MapToDBTable>(2));
  ASSERT_FALSE(CHomeScreen::Instance()->m_IsRemainingDataArrived());
  Manager().CompareRemaining();
  EXPECT_TRUE(CHomeScreen::Instance()->m_IsRemainingDataArrived());
  EXPECT_THAT(CHomeScreen::Instance()->m_GetDCIssues(), IsEmpty());
  Store(Solution("1"));
  Store(RowOf(Solution("2"), kNoon), "'9'");
  CHomeScreen::Instance()->m_SetDCIssues(std::vector<MapToDBTable>(2));
  Manager().CompareRemaining();
  EXPECT_THAT(CHomeScreen::Instance()->m_GetDCIssues(), IsEmpty()) << "an index is not possible";
}

// ---- the list for the screen

class ErrorList : public Remaining {
 protected:
  ErrorList() { vconf_set_bool("db/vexilo/db_reset", true); }
};

TEST_F(ErrorList, WhatIsShownIsHandedOverAndStored) {
  Store(Solution("99"));
  Happen({Solution("3"), Solution("2", "HDMI"), Solution("1", "DTV"), Solution("4", "", "SERVICE")});
  Manager().CreateErrorList();
  const auto rows = CStartDC::Instance()->m_GetRows();
  ASSERT_THAT(Codes(rows), ElementsAre("3", "1"));
  EXPECT_EQ(Fields(rows[1]), Fields(RowOf(Solution("1", "DTV"), kNoon)));
  EXPECT_TRUE(CStartDC::Instance()->m_IsResultReceived());
  EXPECT_THAT(StoredCodes(), ElementsAre("3", "1")) << "the rows of the former scan are gone";
  EXPECT_THAT(Codes(Table()), ElementsAre("3", "2", "1", "4"));
  EXPECT_FALSE(DbReset());
  EXPECT_EQ(Operation(), "{\"id\" : \"CreateErrorList\"}");
  ASSERT_EQ(Events().size(), 1u);
  EXPECT_THAT(Events()[0], HasSubstr(";select_item=CreateErrorList;"));
  EXPECT_THAT(Events()[0], HasSubstr(";issue_count=4;"));

  Manager().CreateErrorList();
  EXPECT_EQ(Table().size(), 4u) << "cleaned before each list";
}

TEST_F(ErrorList, NothingFoundLeavesEverythingElseAlone) {
  Store(Solution("99"));
  UseMap({Solution("1")});
  CStartDC::Instance()->m_DiagResCallback(std::vector<MapToDBTable>(2));
  Manager().CreateErrorList();
  EXPECT_THAT(CStartDC::Instance()->m_GetRows(), IsEmpty());
  EXPECT_THAT(StoredCodes(), ElementsAre("99"));
  EXPECT_TRUE(DbReset());
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(Operation(), "{\"id\" : \"CreateErrorList\"}");
}

TEST_F(ErrorList, WhatIsAllHiddenStillCountsAsFound) {
  Store(Solution("99"));
  Happen({Solution("1", "HDMI")});
  Manager().CreateErrorList();
  EXPECT_THAT(CStartDC::Instance()->m_GetRows(), IsEmpty());
  EXPECT_TRUE(CStartDC::Instance()->m_IsResultReceived());
  EXPECT_THAT(StoredCodes(), IsEmpty());
  EXPECT_FALSE(DbReset());
  ASSERT_EQ(Events().size(), 1u);
  EXPECT_THAT(Events()[0], HasSubstr(";issue_count=1;"));
}

// ---- the result file

class QGuide : public Remaining {
 protected:
  static void LaunchedFrom(const char* text) {
    static std::string kept;
    kept = text ? text : "";
    CUtils::Instance().m_pSetLaunchFrom(text ? kept.data() : nullptr);
  }
};

TEST_F(QGuide, TheFileHasALineForEachIssueInTheOrderOfTheMap) {
  vconf_set_bool("db/vexilo/db_reset", true);
  Store(Solution("99"));
  UseMap({Solution("1001"), Solution("2040", "HDMI"), Solution("5"), Solution("017", "", "SERVICE")});
  for (const int code : {17, 2040, 1001}) BecomesTrue(code);
  std::ofstream(kResult) << "what was there before, which is longer";
  Manager().CreateQGuideErrList();
  EXPECT_EQ(Bytes(kResult), "1001\n2040\n017\n");
  EXPECT_THAT(StoredCodes(), ElementsAre("99"));
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_TRUE(DbReset());
}

TEST_F(QGuide, RowsOfTheTableAreWrittenToo) {
  Happen({Solution("1"), Solution("2")});
  Manager().GetInferenceResult();
  Manager().CreateQGuideErrList();
  EXPECT_EQ(Bytes(kResult), "1\n2\n1\n2\n");
  UseMap({});
  Manager().CreateQGuideErrList();
  EXPECT_TRUE(fs::exists(kResult));
  EXPECT_EQ(Bytes(kResult), "") << "but not when nothing is found";
}

TEST_F(QGuide, TheLaunchDecidesOnThePath) {
  Happen({Solution("1")});
  for (const char* launch :
       {"bg_inference", "BG_INFERENCE", "bg_inference ", "menu", "", static_cast<const char*>(nullptr)}) {
    SCOPED_TRACE(launch ? launch : "null");
    fs::remove(kResult);
    fs::remove(kBackgroundResult);
    Manager().CleanDiagResult();
    LaunchedFrom(launch);
    Manager().CreateQGuideErrList();
    const bool background = launch && launch == std::string("bg_inference");
    EXPECT_EQ(Bytes(background ? kBackgroundResult : kResult), "1\n");
    EXPECT_FALSE(fs::exists(background ? kResult : kBackgroundResult));
  }
}

TEST_F(QGuide, ALinkIsRefusedAndItsTargetNotTouched) {
  Happen({Solution("1")});
  const std::string target = SystemPath("/opt/usr/home/owner/precious");
  for (const auto& [launch, path, setPath] :
       {std::tuple("menu", kResult, "/tmp/qsyslink/inference_result"),
        {"bg_inference", kBackgroundResult, "/opt/usr/home/owner/content/Documents/inference_result"}}) {
    SCOPED_TRACE(launch);
    LaunchedFrom(launch);
    for (const bool dangling : {false, true}) {
      if (!dangling) std::ofstream(target) << "precious";
      fs::create_symlink(target, path);
      Manager().CreateQGuideErrList();
      EXPECT_THAT(Bytes(SystemPath(set_paths::kLogFile)), HasSubstr("symbolic link is detected\n"));
      testing::internal::CaptureStderr();
      Manager().openQGuideForWrite(setPath);
      EXPECT_EQ(testing::internal::GetCapturedStderr(), "symbolic link is detected\n");
      EXPECT_TRUE(fs::is_symlink(path));
      EXPECT_EQ(Bytes(target), dangling ? "" : "precious");
      EXPECT_EQ(fs::exists(target), !dangling);
      fs::remove(path);
      fs::remove(target);
    }
  }
  EXPECT_THAT(Table(), IsEmpty()) << "nothing was resolved for a file that is not written";
}

TEST_F(QGuide, WhatCannotBeWrittenIsLoggedAndNothingElseHappens) {
  Happen({Solution("1")});
  const auto logged = [](const char* text) {
    return Bytes(SystemPath(set_paths::kLogFile)).find(text) != std::string::npos;
  };
  const fs::path folder = fs::path(kResult).parent_path();
  fs::create_directory(kResult);
  Manager().CreateQGuideErrList();
  EXPECT_TRUE(logged("Unable to open file /tmp/qsyslink/inference_result 21"));
  EXPECT_TRUE(fs::is_empty(kResult));

  fs::remove_all(folder);
  Manager().CreateQGuideErrList();
  EXPECT_TRUE(logged("Unable to open file /tmp/qsyslink/inference_result 2"));
  EXPECT_FALSE(fs::exists(folder));

  std::ofstream(folder) << "not a folder";
  Manager().CreateQGuideErrList();
  EXPECT_TRUE(logged("lstat error /tmp/qsyslink/inference_result 20"));
  EXPECT_EQ(Bytes(folder), "not a folder");
  EXPECT_THAT(Table(), IsEmpty());
}

}  // namespace
