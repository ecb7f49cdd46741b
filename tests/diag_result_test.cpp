// Resolution of what the engine inferred, the remaining problems, and the result lists, on the engine's own databases.

#include "CHomeScreen.h"
#include "CStartDC.h"
#include "CUtils.h"
#include "QUVA_DiagResultManager.h"
#include "QUVA_Storage.h"
#include "support/databases.h"
#include "support/diagnosis.h"
#include "support/files.h"
#include "support/fork.h"
#include "support/usage_events.h"

namespace {

using QUVA::CHomeScreen;
using QUVA::CStartDC;
using QUVA::CUtils;
using QUVA::MapToDBTable;
using QUVA::QUVA_DiagResultManager;
using QUVA::QUVA_Solution;
using QUVA::TCInformationStorage;

constexpr char kResult[] = "/tmp/qsyslink/inference_result";
constexpr char kBackgroundResult[] = "/opt/usr/home/owner/content/Documents/inference_result";

QUVA_DiagResultManager& Manager() {
  return *QUVA_DiagResultManager::GetInstance();
}

std::vector<MapToDBTable> Table() {
  std::vector<MapToDBTable> rows;
  Manager().GetRemainingTable(rows);
  return rows;
}

auto Fields(const MapToDBTable& row) {
  return std::tie(row.index, row.issue_code, row.is_fix, row.last_time, row.sol_type, row.sol_name, row.sid_issue,
                  row.sid_sol, row.sid_button1, row.sid_button2, row.action, row.toast1, row.toast2, row.source,
                  row.view_authority);
}

std::string QUVA_Solution::*const kTexts[] = {
    &QUVA_Solution::sol_code, &QUVA_Solution::sol_type,    &QUVA_Solution::sol_name,    &QUVA_Solution::sid_issue,
    &QUVA_Solution::sid_sol,  &QUVA_Solution::sid_button1, &QUVA_Solution::sid_button2, &QUVA_Solution::reboot,
    &QUVA_Solution::action,   &QUVA_Solution::toast1,      &QUVA_Solution::toast2};

/// A solution for viewers, with a text of its own in every field.
QUVA_Solution Solution(const std::string& code, const std::string& source = "", const std::string& view = "USER") {
  QUVA_Solution solution;
  char letter = 'a';
  for (const auto text : kTexts) solution.*text = letter++ + code;
  solution.issue_code = code;
  solution.source = source;
  solution.view_authority = view;
  return solution;
}

MapToDBTable RowOf(const QUVA_Solution& s) {
  return {1,          s.issue_code, 0,         kNoon,         s.sol_type,
          s.sol_name, s.sid_issue,  s.sid_sol, s.sid_button1, s.sid_button2,
          s.action,   s.toast1,     s.toast2,  s.source,      s.view_authority};
}

void UseMap(const std::vector<QUVA_Solution>& solutions) {
  TCInformationStorage::Instance()->SetSolutionInformation(static_cast<unsigned int>(solutions.size()), solutions);
}

/// Makes the issues of the solutions true, and them the map.
void Happen(const std::vector<QUVA_Solution>& solutions) {
  UseMap(solutions);
  for (const QUVA_Solution& solution : solutions) Becomes(true, std::stoi(solution.issue_code));
}

void Show(int source, int channel = 2) {
  vconf_set_int("memory/tv/source", source);
  vconf_set_int("memory/tv/channel_type", channel);
}

/// With the engine, while a digital channel is showing.
class DiagResult : public testing::Test {
 protected:
  DiagResult() {
    CStartDC::Instance();  // they listen from their beginning
    CHomeScreen::Instance();
    CreateAPIInstance();
    Show(0);
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
      {"false later", {{kTrue, kNoon}, {kFalse, kLate}}, nullptr},
      {"false before", {{kFalse, kEarly}, {kTrue, kNoon}}, kNoon},
      {"false at the same time", {{kTrue, kNoon}, {kFalse, kNoon}}, kNoon},
      {"the newest of each counts", {{kTrue, kLate}, {kFalse, kNoon}, {kTrue, kEarly}, {kFalse, kEarly}}, kLate},
      {"solution applied later", {{kTrue, kNoon}, {kApplied, kLate}}, nullptr},
      {"solution declined later", {{kTrue, kNoon}, {kDeclined, kLate}}, kNoon},
      {"solution applied, then declined", {{kTrue, kEarly}, {kApplied, kNoon}, {kDeclined, kLate}}, kEarly},
      {"true again after the solution", {{kTrue, kEarly}, {kApplied, kNoon}, {kTrue, kLate}}, kLate},
  };
  std::vector<QUVA_Solution> solutions;
  std::vector<std::string> expected;
  int code = 1000;
  for (const auto& each : cases) {
    solutions.push_back(Solution(std::to_string(++code)));
    if (each.found) expected.push_back(std::string(each.name) + " " + each.found);
    for (const Event& event : each.events) {
      trevlin::Database database(trevlin::Database::Access::kReadWrite);
      if (event.kind == kTrue || event.kind == kFalse)
        Becomes(event.kind == kTrue, code, event.time);
      else
        ASSERT_EQ(database.AddSolution({code, 1, 5, event.kind == kApplied, event.time}), TREVLIN_OK);
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

TEST_F(Resolution, RowsAreInTheOrderOfTheMapAndRepeatAsItDoes) {
  std::vector<QUVA_Solution> map = {Solution("30"), Solution("10", "HDMI", "SERVICE"), Solution("30"), Solution("20"),
                                    Solution("40")};
  map[2].sid_issue = "second";
  map[3].is_fg_bg = "bg";
  map[4].is_fg_bg = "BG";
  Happen(map);
  EXPECT_EQ(Manager().GetInferenceResult(), 4);
  map.erase(map.begin() + 3);
  const auto rows = Table();
  ASSERT_EQ(rows.size(), 4u);
  for (size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(Fields(rows[i]), Fields(RowOf(map[i]))) << i;
  EXPECT_EQ(Manager().GetInferenceResult(), 4);
  EXPECT_EQ(Table().size(), 8u) << "appended";
  Manager().CleanDiagResult();
  EXPECT_THAT(Table(), IsEmpty());
}

TEST(ResolutionOfSources, AppliesToWhatIsShowing) {
  EXPECT_FALSE(Manager().CheckSourceType("DTV") || Manager().CheckSourceType("HDMI")) << "not known yet";
  const std::set<int> hdmi = {13, 14, 15, 16, 38, 39};
  const std::set<int> digital = {2, 4, 7};
  for (const int source : {-1, 0, 1, 12, 13, 14, 15, 16, 17, 37, 38, 39, 40, 46, 47})
    for (const int channel : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8}) {
      SCOPED_TRACE("source " + std::to_string(source) + " channel " + std::to_string(channel));
      Show(source, channel);
      EXPECT_EQ(Manager().CheckSourceType("DTV"), source == 0 && digital.count(channel) == 1);
      EXPECT_EQ(Manager().CheckSourceType("HDMI"), hdmi.count(source) == 1);
      for (const char* other : {"", "ATV", "dtv", "HDMI1"}) EXPECT_TRUE(Manager().CheckSourceType(other)) << other;
    }
}

// ---- remaining problems

class Remaining : public DiagResult {
 protected:
  /// Stores a row that viewers may see, found at noon.
  static void Store(const std::string& code, const char* source = "", const char* index = "1") {
    Manager().LoadRemainingProblems();  // makes the table
    Manager().CleanDiagResult();
    const std::unique_ptr<char, CRelease<&sqlite3_free>> insert(sqlite3_mprintf(
        "INSERT INTO remainingTBL(idx, issue_code, last_time, source, view_authority) VALUES(%Q, %Q, %Q, %Q, 'USER')",
        index, code.c_str(), kNoon, source));
    Execute(OpenDatabase(set_paths::kRemainingDb).get(), insert.get());
  }

  static std::vector<std::string> StoredCodes() {
    return Texts(set_paths::kRemainingDb, "SELECT issue_code FROM remainingTBL");
  }

  static std::vector<std::string> CodesOfHome() {
    Manager().CompareRemaining();
    EXPECT_TRUE(CHomeScreen::Instance()->m_IsRemainingDataArrived());
    return Codes(CHomeScreen::Instance()->m_GetDCIssues());
  }
};

TEST_F(Remaining, SavingKeepsTheOrderAndOnlyWhatIsShown) {
  auto unlucky = Solution("8");
  unlucky.sid_button2 = "USER";  // the statement ends at the first value that equals the view authority
  Happen({Solution("5"), Solution("4", "", "SERVICE"), Solution("3", "DTV"), Solution("2", "HDMI"),
          Solution("1", "anything"), Solution("6", "", ""), Solution("7", "", "user"), unlucky});
  ASSERT_EQ(Manager().GetInferenceResult(), 8);
  Manager().SaveRemainingProblems();
  EXPECT_THAT(StoredCodes(), ElementsAre("5", "3", "1"));
  EXPECT_THAT(Log(), ContainsInOrder(std::vector<std::string>{
                         " E ", R"(statement that failed : INSERT INTO remainingTBL VALUES ("1","8",)",
                         "issue 8, row 4 of 4, is not kept"}));
  EXPECT_EQ(Table().size(), 8u) << "the table keeps what is hidden";
  Show(14);
  Manager().SaveRemainingProblems();
  EXPECT_THAT(StoredCodes(), ElementsAre("5", "2", "1")) << "replaced, for the source that is showing now";
}

TEST_F(Remaining, EveryFieldButTheNameComesBack) {
  auto quoted = Solution("2");
  for (const auto text : kTexts) quoted.*text = "a \"quote\" of " + quoted.*text;
  quoted.sid_sol = "\"";
  auto odd = Solution("3");
  odd.sid_issue = "it's; DROP TABLE remainingTBL--";
  odd.sid_sol = "%s %n \n line two \xc3\xa4";
  odd.sid_button1 = "sid_issue";
  odd.sid_button2 = "";
  std::vector<QUVA_Solution> map = {Solution("1"), quoted, odd};
  Happen(map);
  ASSERT_EQ(Manager().GetInferenceResult(), 3);
  Manager().SaveRemainingProblems();
  EXPECT_THAT(Log(), HasSubstr("holds a double quote: [a \"quote\" of d2]"));
  EXPECT_EQ(Manager().LoadRemainingProblems(), 1);
  const auto rows = Table();
  ASSERT_EQ(rows.size(), 3u);
  for (size_t i = 0; i < rows.size(); ++i) {
    map[i].sol_name = "";
    EXPECT_EQ(Fields(rows[i]), Fields(RowOf(map[i]))) << i;
  }
}

TEST_F(Remaining, AnIndexIsPossibleUpToTheNumberOfRows) {
  const struct {
    std::vector<const char*> indexes;
    int result;
    size_t loaded;
  } cases[] = {
      {{}, 0, 0}, {{"0"}, 1, 1}, {{"2"}, 0, 0}, {{"2", "2"}, 1, 2}, {{"1", "1", "-1"}, 0, 2}, {{"text", ""}, 1, 2},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.indexes));
    Manager().ClearRemainingProblems();
    for (const char* index : each.indexes) Store("1", "", index);
    EXPECT_EQ(Manager().LoadRemainingProblems(), each.result);
    EXPECT_EQ(Table().size(), each.loaded);
  }
}

TEST_F(Remaining, OfATableThatNoScanLeftIsReadWhatIsSensible) {
  ExpectEndsWell(Fork([] {
    Store("1");
    Execute(OpenDatabase(set_paths::kRemainingDb).get(),
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 40) INSERT INTO remainingTBL(idx, "
            "issue_code, sid_issue) SELECT '1', i, hex(zeroblob(2000000)) FROM n;"
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 300000) INSERT INTO remainingTBL(idx,"
            " issue_code, last_time, sid_issue, source, view_authority) SELECT i, 19990000 + i % 10000, "
            "'2024-03-07T09:05:00', 'SID_ISSUE', '', 'USER' FROM n");
  }));
  for (int code = 19990000; code < 19990200; ++code) Becomes(false, code, kLate);
  const auto peak = [] {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return used.ru_maxrss;
  };
  const long before = peak();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Manager().LoadRemainingProblems(), 1);
  EXPECT_EQ(Table().size(), 460U) << "of the first 500 rows those of a sensible size";
  EXPECT_LT(std::chrono::steady_clock::now() - start, 300ms);
  EXPECT_LT(peak() - before, 30000) << "KiB";
  EXPECT_THAT(Log(), HasSubstr("remainingTBL: 40 rows with texts of more than 4096 bytes are left out\n"));
  EXPECT_THAT(Log(), HasSubstr("remainingTBL: it has more than 500 rows, the others are left out\n"));
}

TEST_F(Remaining, OnDemandIssuesThatHaveClearedAreDeleted) {
  const struct {
    const char* code;
    const char* falseTime;  // of the newest transition to false, null for none; the row's time is kNoon
    bool kept;
  } cases[] = {
      {"9999999", kLate, true},   {"10000000", kLate, false},  {"10000005", kLate, false}, {"10000006", kNoon, true},
      {"10000007", kEarly, true}, {"10000008", nullptr, true}, {"19999999", kLate, false}, {"20000000", kLate, true},
  };
  std::vector<std::string> kept;
  for (const auto& each : cases) {
    Store(each.code);
    if (each.falseTime) Becomes(false, std::stoi(each.code), each.falseTime);
    if (each.kept) kept.push_back(each.code);
  }
  Store("4304967301");  // 10000005 in 32 bits
  kept.push_back("4304967301");
  Manager().GetInferenceResult_Remaining();
  EXPECT_EQ(StoredCodes(), kept);

  Becomes(false, 10000006, kLate);
  fs::remove(SystemPath(set_paths::kInferenceDb));
  fs::create_directory(SystemPath(set_paths::kInferenceDb));
  Manager().GetInferenceResult_Remaining();
  EXPECT_EQ(StoredCodes(), kept) << "the engine fails";
  EXPECT_THAT(Log(), HasSubstr("issue 10000006: its DT_TRANSITION_TYPE_FALSE cannot be read"));
}

TEST_F(Remaining, DeletingTakesAllRowsOfOneCodeWhateverItsText) {
  const std::string clever = "10000005' OR '1'='1";
  for (const std::string& code : {std::string("17"), clever, std::string("170"), std::string("17")}) Store(code);
  EXPECT_TRUE(Manager().DeleteRemainingDBColumn("17"));
  EXPECT_THAT(StoredCodes(), ElementsAre(clever, "170"));
  Becomes(false, 10000005, kLate);
  Manager().GetInferenceResult_Remaining();
  EXPECT_THAT(StoredCodes(), ElementsAre("170"));
}

TEST_F(Remaining, ALockedDatabaseIsLeftAsItIs) {
  Store("1");
  {
    const SqliteDb other = OpenDatabase(set_paths::kRemainingDb);
    Execute(other.get(), "BEGIN EXCLUSIVE");
    EXPECT_EQ(Manager().LoadRemainingProblems(), 0);
    EXPECT_THAT(Table(), IsEmpty());
    EXPECT_FALSE(Manager().DeleteRemainingDBColumn("1"));
  }
  EXPECT_THAT(StoredCodes(), ElementsAre("1"));
  // One that goes in time is waited for.
  SqliteDb soon = OpenDatabase(set_paths::kRemainingDb);
  Execute(soon.get(), "BEGIN EXCLUSIVE");
  const std::jthread release([&soon] {
    std::this_thread::sleep_for(100ms);
    soon.reset();
  });
  EXPECT_EQ(Manager().LoadRemainingProblems(), 1);
}

TEST_F(Remaining, WhatAReaderKeepsFromBeingStoredIsStoredWhenHeHasGone) {
  Store("1");
  Happen({Solution("2"), Solution("3")});
  ASSERT_EQ(Manager().GetInferenceResult(), 2);
  {
    const SqliteDb reader = OpenDatabase(set_paths::kRemainingDb);
    Execute(reader.get(), "BEGIN; SELECT * FROM remainingTBL");
    EXPECT_EQ(Manager().SaveRemainingProblems(), 0);
    Manager().DeleteRemainingDBColumn("2");
    EXPECT_EQ(Manager().LoadRemainingProblems(), 1);
    ASSERT_EQ(Table().size(), 1u);
    EXPECT_EQ(Table()[0].issue_code + " " + Table()[0].sid_issue, "3 " + Solution("3").sid_issue);
    EXPECT_THAT(StoredCodes(), ElementsAre("1"));
  }
  EXPECT_TRUE(Until([] { return StoredCodes() == std::vector<std::string>{"3"}; }));
}

TEST_F(Remaining, ADamagedDatabaseIsSetAsideWithWhatCanBeRead) {
  const auto damage = [](const std::function<void(std::string&)>& change) {
    std::string bytes = ReadFile(set_paths::kRemainingDb);
    change(bytes);
    WriteFile(set_paths::kRemainingDb, bytes);
  };
  Store("1");
  damage([](std::string& bytes) { bytes.replace(0, 100, 100, 'x'); });
  EXPECT_EQ(Manager().LoadRemainingProblems(), 0);
  std::vector<QUVA_Solution> many;
  for (int code = 1; code <= 100; ++code) many.push_back(Solution(std::to_string(code)));
  Happen(many);
  ASSERT_EQ(Manager().GetInferenceResult(), 100);
  ASSERT_EQ(Manager().SaveRemainingProblems(), 1) << "in the new one";
  damage([](std::string& bytes) { bytes.replace(bytes.size() - 4096, 4096, 4096, 'x'); });
  EXPECT_EQ(Manager().LoadRemainingProblems(), 1);
  EXPECT_THAT(Table().size(), testing::AllOf(testing::Ge(30u), testing::Lt(100u)));
  EXPECT_EQ(StoredCodes().size(), Table().size());
  EXPECT_EQ(Count(Log(), "remaining.db: was damaged ("), 2) << Log();
  int isToBeTold = 0;
  EXPECT_TRUE(vconf_get_bool(set_names::kDatabaseRenewedKey, &isToBeTold) == 0 && isToBeTold);
}

TEST_F(Remaining, RowsThatCannotAllBeStoredLeaveThoseOfTheLastScan) {
  Store("99");
  std::vector<QUVA_Solution> many;
  for (int code = 1; code <= 20; ++code) many.push_back(Solution(std::to_string(code)));
  for (QUVA_Solution& each : many) each.sid_sol = std::string(3000, 'x');
  Happen(many);
  ASSERT_EQ(Manager().GetInferenceResult(), 20);
  signal(SIGXFSZ, SIG_IGN);
  const rlimit full{fs::file_size(SystemPath(set_paths::kRemainingDb)) + (16 << 10), RLIM_INFINITY},
      all{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  Manager().SaveRemainingProblems();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &all), 0);
  EXPECT_THAT(StoredCodes(), ElementsAre("99"));
}

TEST_F(Remaining, TheHomeScreenGetsTheRowsOfTheSourceThatHaveNotCleared) {
  Store("10000001");
  for (const auto& [code, source] : {std::pair("2", "HDMI"), {"3", "DTV"}, {"5", "anything"}}) Store(code, source);
  Becomes(false, 10000001, kLate);
  EXPECT_THAT(CodesOfHome(), ElementsAre("3", "5"));
  EXPECT_EQ(Operation(), OperationOf("CompareRemaining"));
  EXPECT_THAT(StoredCodes(), ElementsAre("2", "3", "5"));
  Show(13);
  EXPECT_THAT(CodesOfHome(), ElementsAre("2", "5"));
  Store("6", "", "9");
  EXPECT_THAT(CodesOfHome(), IsEmpty()) << "an index that is not possible";
}

// ---- the list for the screen

class ErrorList : public Remaining {
 protected:
  ErrorList() {
    vconf_set_bool("db/vexilo/db_reset", true);
    Store("99");
  }

  static bool DbReset() {
    int value = -1;
    EXPECT_EQ(vconf_get_bool("db/vexilo/db_reset", &value), 0);
    return value != 0;
  }
};

TEST_F(ErrorList, WhatIsShownIsHandedOverAndStored) {
  Happen({Solution("3"), Solution("2", "HDMI"), Solution("1", "DTV"), Solution("4", "", "SERVICE")});
  EXPECT_EQ(Manager().CreateErrorList(), 1);
  const auto rows = CStartDC::Instance()->m_GetRows();
  ASSERT_THAT(Codes(rows), ElementsAre("3", "1"));
  EXPECT_EQ(Fields(rows[1]), Fields(RowOf(Solution("1", "DTV"))));
  EXPECT_TRUE(CStartDC::Instance()->m_IsResultReceived());
  EXPECT_THAT(StoredCodes(), ElementsAre("3", "1")) << "the rows of the former scan are gone";
  EXPECT_FALSE(DbReset());
  EXPECT_EQ(Operation(), OperationOf("CreateErrorList"));
  EXPECT_THAT(StoredEvents(), HasSubstr("select_item=CreateErrorList;status=NULL;issue_count=4;"));
  Manager().CreateErrorList();
  EXPECT_THAT(Codes(Table()), ElementsAre("3", "2", "1", "4")) << "cleaned before each list";

  Happen({Solution("1", "HDMI")});
  EXPECT_EQ(Manager().CreateErrorList(), 1) << "what is all hidden still counts as found";
  EXPECT_THAT(CStartDC::Instance()->m_GetRows(), IsEmpty());
  EXPECT_THAT(StoredCodes(), IsEmpty());
}

TEST_F(ErrorList, WhatCannotBeReplacedStaysAndIsStillToBeCleared) {
  Happen({Solution("3")});
  const SqliteDb other = OpenDatabase(set_paths::kRemainingDb);
  for (const char* lock : {"BEGIN IMMEDIATE", "BEGIN; SELECT * FROM remainingTBL"}) {
    SCOPED_TRACE(lock);
    Execute(other.get(), lock);
    EXPECT_EQ(Manager().CreateErrorList(), 1);
    Execute(other.get(), "COMMIT");
    EXPECT_THAT(Codes(CStartDC::Instance()->m_GetRows()), ElementsAre("3"));
    EXPECT_THAT(StoredCodes(), ElementsAre("99"));
    EXPECT_TRUE(DbReset());
  }
  EXPECT_THAT(Log(), HasSubstr("remaining.db: the issues are not saved, those of the last scan stay"));
  EXPECT_THAT(Log(), testing::Not(HasSubstr("Remaining DB is saved")));
}

TEST_F(ErrorList, TheLogOfAListIsAsLongWhateverItsLength) {
  const auto lines = [](int issues) {
    std::vector<QUVA_Solution> map;
    for (int code = 1; code <= issues; ++code) map.push_back(Solution(std::to_string(code)));
    Happen(map);
    const auto before = Count(Log(), "\n");
    Manager().CreateErrorList();
    Manager().CompareRemaining();
    return Count(Log(), "\n") - before;
  };
  lines(1);  // and what is said once
  EXPECT_EQ(lines(20), lines(2));
}

TEST_F(ErrorList, NothingFoundLeavesEverythingElseAlone) {
  UseMap({Solution("1")});
  CStartDC::Instance()->m_DiagResCallback(std::vector<MapToDBTable>(2));
  EXPECT_EQ(Manager().CreateErrorList(), 0);
  EXPECT_THAT(CStartDC::Instance()->m_GetRows(), IsEmpty());
  EXPECT_THAT(StoredCodes(), ElementsAre("99"));
  EXPECT_TRUE(DbReset());
  EXPECT_EQ(StoredEvents(), "");
}

// ---- the result file

class QGuide : public ErrorList {
 protected:
  static void LaunchedFrom(const char* text) {
    static std::string kept;
    kept = text;
    CUtils::Instance().m_pSetLaunchFrom(kept.data());
  }
};

TEST_F(QGuide, TheFileHasALineForEachIssueInTheOrderOfTheMap) {
  UseMap({Solution("1001"), Solution("2040", "HDMI"), Solution("5"), Solution("017", "", "SERVICE")});
  for (const int code : {17, 2040, 1001}) Becomes(true, code);
  WriteFile(kResult, "what was there before, which is longer");
  EXPECT_EQ(Manager().CreateQGuideErrList(), 1);
  EXPECT_EQ(ReadFile(kResult), "1001\n2040\n017\n");
  EXPECT_THAT(StoredCodes(), ElementsAre("99"));
  EXPECT_TRUE(DbReset());
  EXPECT_EQ(StoredEvents(), "");
  UseMap({});
  EXPECT_EQ(Manager().CreateQGuideErrList(), 1);
  EXPECT_TRUE(Exists(kResult));
  EXPECT_EQ(ReadFile(kResult), "");
}

TEST_F(QGuide, ALinkIsRefusedAndItsTargetNotTouched) {
  Happen({Solution("1")});
  const std::string target = SystemPath("/opt/precious"), dangling = SystemPath("/opt/none");
  WriteFile("/opt/precious", "precious");
  for (const auto& [launch, path] : {std::pair("menu", kResult), {"bg_inference", kBackgroundResult}})
    for (const std::string& to : {target, dangling}) {
      SCOPED_TRACE(launch + (" " + to));
      LaunchedFrom(launch);
      fs::create_symlink(to, SystemPath(path));
      EXPECT_EQ(Manager().CreateQGuideErrList(), 0);
      EXPECT_THAT(Log(), HasSubstr("symbolic link is detected\n"));
      EXPECT_EQ(Manager().openQGuideForWrite(path), 0);
      EXPECT_TRUE(fs::is_symlink(SystemPath(path)));
      fs::remove(SystemPath(path));
    }
  EXPECT_EQ(ReadFile("/opt/precious"), "precious");
  EXPECT_FALSE(Exists("/opt/none"));
  EXPECT_THAT(Table(), IsEmpty()) << "nothing was resolved for a file that is not written";
}

TEST_F(QGuide, WhatCannotBeWrittenIsLoggedAndNothingElseHappens) {
  Happen({Solution("1")});
  const fs::path path = SystemPath(kResult);
  WriteFile("/opt/precious", "precious");
  fs::create_hard_link(SystemPath("/opt/precious"), path);
  EXPECT_EQ(Manager().CreateQGuideErrList(), 0);
  EXPECT_EQ(ReadFile("/opt/precious"), "precious");
  fs::remove_all(path.parent_path());
  EXPECT_EQ(Manager().CreateQGuideErrList(), 0);
  for (const char* reason : {"31", "2"})
    EXPECT_THAT(Log(), HasSubstr("Unable to open file /tmp/qsyslink/inference_result " + std::string(reason) + "\n"));
  EXPECT_THAT(Table(), IsEmpty());
}

TEST_F(QGuide, AFileThatCannotBeWrittenWholeIsRemoved) {
  Happen({Solution("1001"), Solution("2040")});
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit small = {7, limit.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(Manager().CreateQGuideErrList(), 0);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_EQ(Table().size(), 2u);
  EXPECT_FALSE(Exists(kResult));
}

}  // namespace
