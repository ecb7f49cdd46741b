// The diagnosis engine's databases: what is kept, and what becomes of damage, locks and two writers at once.

#include <sys/file.h>
#include <sys/wait.h>

#include <thread>

#include "base/state.h"
#include "database_rescue.h"
#include "set_names.h"
#include "set_paths.h"
#include "support/databases.h"
#include "support/files.h"
#include "trevlin/inference.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

namespace {

using namespace trevlin;

using Access = Database::Access;
using Texts = std::vector<std::string>;

constexpr char kTime[] = "2024-03-07T09:05:00";
const std::string kInference = SystemPath(set_paths::kInferenceDb);
const fs::path kFolder = fs::path(kInference).parent_path();

int Change(const char* path, const std::string& sql) {
  return sqlite3_exec(OpenDatabase(path).get(), sql.c_str(), nullptr, nullptr, nullptr);
}

/// The rows of a query, their columns joined by "|".
Texts Rows(const char* path, const std::string& sql) {
  const SqliteDb db = OpenDatabase(path);
  const SqliteStatement statement = PrepareStatement(db.get(), sql.c_str());
  Texts rows;
  while (statement && sqlite3_step(statement.get()) == SQLITE_ROW) {
    std::string& row = rows.emplace_back();
    for (int i = 0; i < sqlite3_column_count(statement.get()); ++i)
      row.append(i ? "|" : "").append(ColumnText(statement.get(), i));
  }
  return rows;
}

/// The transitions of an issue, "TIME|TYPE", oldest first.
Texts RowsOf(int code) {
  return Rows(set_paths::kInferenceDb, "SELECT lastUpdatedTime, TR FROM inferenceTBL WHERE issueCode = '" +
                                           std::to_string(code) + "' ORDER BY lastUpdatedTime, rowid");
}

int Record(int code, int type, const std::string& time = kTime) {
  return Database(Access::kReadWrite).AddTransition({.time = time, .issueCode = code, .type = type});
}

int RecordTruth(int code, bool isTrue, const std::string& time, size_t keep = 100) {
  std::vector<Transition> added;
  return Database(Access::kReadWrite).RecordTruths({{code, isTrue}}, time, keep, added);
}

/// What a query for issue 17 gives.
int Ask(Database& database) {
  std::vector<_DTInfDBRecord> found(1);
  const int result = database.Transitions(17, 1, found);
  EXPECT_EQ(found.empty(), result != TREVLIN_OK);
  return result;
}

int ExitCodeOf(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(TrevlinTime, OnlyRealTimesOfTheOneShapeAreTimes) {
  EXPECT_TRUE(IsTime(CurrentTime()));
  EXPECT_TRUE(IsTime("2024-02-29T23:59:59"));
  for (const char* bad : {"", "2024-03-07", "2024-03-07 09:05:00", "2024-03-07T09:05:00Z", "2023-02-29T00:00:00",
                          "2024-13-10T00:00:00", "2024-01-01T24:00:00", "2024-01-01T00:60:00", "2024-01-01T00:00:-1"})
    EXPECT_FALSE(IsTime(bad)) << bad;
}

TEST(TrevlinDatabase, RowsAreOfTheIssueAndTypeNewestFirst) {
  for (const char* time : {kTime, "2024-03-09T00:00:00", "2023-12-31T23:59:59"})
    ASSERT_EQ(Record(17, 1, time), TREVLIN_OK);
  ASSERT_EQ(Record(17, 0, "2024-03-08T00:00:00"), TREVLIN_OK);
  ASSERT_EQ(Record(170, 1, "2025-01-01T00:00:00"), TREVLIN_OK);
  Database writer(Access::kReadWrite);
  for (const auto& [solution, time] :
       {std::pair(1, kTime), std::pair(2, "2024-03-09T00:00:00"), std::pair(3, "2024-03-09T00:00:00")})
    ASSERT_EQ(writer.AddSolution({17, solution, 5, solution % 2, time}), TREVLIN_OK);
  // Of another program, whose clock was another.
  Change(set_paths::kSolutionDb, "INSERT INTO solutionTBL VALUES ('2024-03-08T00:00:00', '17', '4', '5', 0)");
  for (const auto access : {Access::kReadOnly, Access::kReadWrite}) {
    Database database(access);
    std::vector<_DTInfDBRecord> found(4);
    ASSERT_EQ(database.Transitions(17, 1, found), TREVLIN_OK);
    Texts times;
    for (const _DTInfDBRecord& each : found) times.push_back(each.lastUpdateTime);
    EXPECT_THAT(times, ElementsAre("2024-03-09T00:00:00", kTime, "2023-12-31T23:59:59"));
    EXPECT_EQ(found[0].issueCode, 17);
    EXPECT_EQ(found[0].transitionType, 1);
    EXPECT_EQ(database.Transitions(1, 1, found), TREVLIN_NO_MATCH);
    EXPECT_TRUE(found.empty());
    _DTSolDBRecord newest;
    ASSERT_EQ(database.NewestSolution(17, newest), TREVLIN_OK);
    EXPECT_EQ(database.NewestSolution(18, newest), TREVLIN_NO_MATCH);
    EXPECT_EQ(newest.solutionCode, 3) << "of equal times the last";
    EXPECT_EQ(newest.type, 5);
    EXPECT_EQ(newest.isApply, 1);
  }
  EXPECT_THAT(Rows(set_paths::kInferenceDb, "SELECT * FROM inferenceTBL WHERE issueCode = '17' AND TR = 0"),
              ElementsAre("2024-03-07T09:05:00|2024-03-08T00:00:00|17|0|0"))
      << "the first register time stays";
  // A second step would be a sort.
  for (const auto& [path, sql, index] :
       {std::tuple(set_paths::kInferenceDb, kSelectTransitions, "USING COVERING INDEX inferenceIDX"),
        std::tuple(set_paths::kSolutionDb, kSelectNewestSolution, "USING INDEX solutionIDX")})
    EXPECT_THAT(Rows(path, std::string("EXPLAIN QUERY PLAN ") + sql), ElementsAre(HasSubstr(index)));
}

TEST(TrevlinDatabase, ReadWriteMakesTheTablesOthersReadAndReadOnlyMakesNothing) {
  _DTSolDBRecord solution;
  Database reader(Access::kReadOnly), writer(Access::kReadWrite);
  EXPECT_EQ(Ask(reader), TREVLIN_NO_MATCH);
  EXPECT_EQ(reader.NewestSolution(17, solution), TREVLIN_NO_MATCH);
  for (const Transition& bad : {Transition{"", kTime, 0, 1, 0}, Transition{"", kTime, 17, 2, 0},
                                Transition{"", "yesterday", 17, 1, 0}, Transition{"yesterday", kTime, 17, 1, 0}})
    EXPECT_EQ(writer.AddTransition(bad), TREVLIN_ERROR_INVALID) << bad.issueCode << bad.type << bad.time;
  EXPECT_EQ(writer.AddSolution({0, 1, 5, 1, kTime}), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(writer.AddSolution({17, 1, 5, 1, ""}), TREVLIN_ERROR_INVALID);
  EXPECT_TRUE(fs::is_empty(kFolder));

  WriteFile(set_paths::kInferenceDb, "");
  EXPECT_EQ(Ask(reader), TREVLIN_NO_MATCH);
  EXPECT_EQ(fs::file_size(kInference), 0u);
  EXPECT_EQ(Ask(writer), TREVLIN_NO_MATCH);
  EXPECT_EQ(writer.NewestSolution(17, solution), TREVLIN_NO_MATCH);
}

/// A database with more pages than are kept of it.
void Truncate(size_t size) {
  ASSERT_EQ(Record(17, 1), TREVLIN_OK);
  ASSERT_EQ(Change(set_paths::kInferenceDb,
                   "INSERT INTO inferenceTBL WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT "
                   "5000) SELECT '', '2024-01-01T00:00:00', i, 1, 0 FROM n"),
            SQLITE_OK);
  fs::resize_file(kInference, size);
}

TEST(TrevlinDatabase, WhatCannotBeUsedIsAnErrorWithOneLogLineAndStaysAsItIs) {
  const struct {
    const char* reason;
    void (*make)();
    bool isDamaged = true;
  } kBroken[] = {
      {"cannot be read: database disk image is malformed", [] { Truncate(9000); }},
      {"cannot be read: no such column",
       [] { Change(set_paths::kInferenceDb, "CREATE TABLE inferenceTBL(issueCode TEXT, TR TEXT)"); }, false},
  };
  for (const auto& broken : kBroken) {
    fs::remove(kInference);
    broken.make();
    const std::string before = ReadFile(set_paths::kInferenceDb),
                      reason = set_paths::kInferenceDb + (": " + std::string(broken.reason));
    int lines = 0;
    for (const auto access : {Access::kReadOnly, Access::kReadWrite}) {
      if (broken.isDamaged && access == Access::kReadWrite) continue;
      Database database(access);
      database.BeginRead();
      for (int i = 0; i < 50; ++i) ASSERT_EQ(Ask(database), TREVLIN_ERROR_DATABASE);
      database.EndRead();
      EXPECT_THAT(database.LastError(), HasSubstr(reason));
      EXPECT_NE(database.AddTransition({"", kTime, 17, 1, 0}), TREVLIN_OK);
      EXPECT_EQ(Count(Log(), reason), ++lines);
    }
    EXPECT_EQ(ReadFile(set_paths::kInferenceDb), before);
  }
}

/// 600 issues that are there, and what the file is then made of.
void Damage(const std::function<void(std::string&)>& change) {
  fs::remove(kInference);
  std::vector<IssueTruth> issues;
  for (int code = 1; code <= 600; ++code) issues.push_back({code, true});
  std::vector<Transition> added;
  ASSERT_EQ(Database(Access::kReadWrite).RecordTruths(issues, kTime, 100, added), TREVLIN_OK);
  std::string bytes = ReadFile(set_paths::kInferenceDb);
  change(bytes);
  WriteFile(set_paths::kInferenceDb, bytes);
}

/// The files beside the database that have this in their names.
Texts Beside(const std::string& part) {
  Texts names;
  for (const auto& each : fs::directory_iterator(kFolder))
    if (each.path().filename().string().find(part) != std::string::npos) names.push_back(each.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(TrevlinDatabase, DamageIsSetAsideWithWhatCanBeReadCarriedOver) {
  const struct {
    const char* name;
    std::function<void(std::string&)> change;
    size_t least, most;  // rows that are left
  } cases[] = {
      {"no database at all", [](std::string& bytes) { bytes = "not a database at all"; }, 0, 0},
      {"header", [](std::string& bytes) { bytes.replace(0, 16, 16, 'x'); }, 0, 0},
      {"cut short", [](std::string& bytes) { bytes.resize(bytes.size() / 2); }, 50, 550},
      {"a page of rows",
       [](std::string& bytes) {
         size_t page = 8192;
         while (bytes[page] != 0x0d) page += 4096;  // a leaf of a table
         bytes.replace(page, 4096, 4096, 'x');
       },
       300, 599},
      {"all but the first pages", [](std::string& bytes) { std::fill(bytes.begin() + 8192, bytes.end(), 'x'); }, 0,
       300},
  };
  int number = 0;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    ASSERT_NO_FATAL_FAILURE(Damage(each.change));
    const std::string damaged = ReadFile(set_paths::kInferenceDb);
    WriteHostFile(kInference + "-journal", "no journal");
    ASSERT_EQ(vconf_set_bool(set_names::kDatabaseRenewedKey, false), 0);
    std::vector<Transition> rows;
    Database reader(Access::kReadOnly);
    if (reader.AllTransitions(rows) == TREVLIN_OK) ADD_FAILURE() << "it can be read after all";
    EXPECT_EQ(ReadFile(set_paths::kInferenceDb), damaged) << "who only reads leaves it alone";
    Database database(Access::kReadWrite);
    // Some damage is only found by who reads all.
    for (int twice = 0; twice < 2; ++twice) {
      std::vector<Transition> added;
      EXPECT_EQ(
          database.RecordTruths({{1, true}, {300, true}, {600, true}, {601, true}}, "2024-06-01T12:00:00", 100, added),
          TREVLIN_OK)
          << database.LastError();
      EXPECT_EQ(database.AllTransitions(rows), TREVLIN_OK);
    }
    const auto carried =
        static_cast<size_t>(std::count_if(rows.begin(), rows.end(), [](const auto& row) { return row.time == kTime; }));
    EXPECT_GE(carried, each.least);
    EXPECT_LE(carried, each.most);
    std::set<int> codes;
    for (const Transition& row : rows)
      EXPECT_TRUE(codes.insert(row.issueCode).second && row.type == 1) << row.issueCode;
    for (const int code : {1, 300, 600, 601}) EXPECT_TRUE(codes.contains(code)) << code;
    const std::string aside = "inference.db.damaged-" + std::to_string(++number) + "-20";
    ASSERT_THAT(Beside(aside), Contains(testing::Not(testing::EndsWith("-journal"))));
    EXPECT_EQ(ReadHostFile(kFolder / Beside(aside).front()).size(), damaged.size());
    EXPECT_THAT(Beside("inference.db-"), IsEmpty()) << "its journals go along";
    EXPECT_THAT(Beside("#"), IsEmpty());
    EXPECT_EQ(Count(Log(), "set aside as " + aside), 1);
    EXPECT_THAT(Log(), testing::ContainsRegex(aside + "[^ ]* and made anew with the [0-9]+ rows"));
    int isToBeTold = 0;
    EXPECT_TRUE(vconf_get_bool(set_names::kDatabaseRenewedKey, &isToBeTold) == 0 && isToBeTold);
  }
  EXPECT_THAT(Beside(".damaged-2-"), IsEmpty()) << "three are kept";
  EXPECT_THAT(Beside(".damaged-3-"), testing::Not(IsEmpty()));
}

TEST(TrevlinDatabase, OfProcessesThatFindDamageOneSetsItAside) {
  ASSERT_NO_FATAL_FAILURE(Damage([](std::string& bytes) { bytes.replace(0, 16, 16, 'x'); }));
  std::vector<pid_t> children;
  for (int i = 1; i <= 4; ++i) {
    children.push_back(fork());
    if (children.back() == 0) _exit(RecordTruth(i, true, kTime));
  }
  for (const pid_t child : children) EXPECT_EQ(ExitCodeOf(child), 0);
  EXPECT_THAT(Rows(set_paths::kInferenceDb, "SELECT count(*) FROM inferenceTBL"), ElementsAre("4"));
  EXPECT_EQ(Beside(".damaged-").size(), 1u);
}

TEST(TrevlinDatabase, WhatIsLockedOrFullOrEmptyIsNotDamaged) {
  std::string report;
  ASSERT_EQ(Record(17, 1), TREVLIN_OK);
  const auto rescue = [&] { return RescueDatabase(set_paths::kInferenceDb, "inferenceTBL", "(a TEXT)", report); };
  EXPECT_EQ(rescue(), DatabaseRescue::kSound);
  {
    const SqliteDb other = OpenDatabase(set_paths::kInferenceDb);
    Execute(other.get(), "BEGIN EXCLUSIVE");
    EXPECT_EQ(rescue(), DatabaseRescue::kFailed);
    EXPECT_THAT(report, HasSubstr("cannot be set aside: database is locked"));
    EXPECT_EQ(rescue(), DatabaseRescue::kFailed);
    EXPECT_EQ(report, "") << "not tried again at once";
  }
  WriteFile(set_paths::kSolutionDb, "");
  EXPECT_EQ(RescueDatabase(set_paths::kSolutionDb, "solutionTBL", "(a TEXT)", report), DatabaseRescue::kSound);
  EXPECT_THAT(Beside(".damaged-"), IsEmpty());
  EXPECT_THAT(RowsOf(17), ElementsAre(std::string(kTime) + "|1"));
}

// What others lock or tidy meanwhile is not in the way, and what a rescue has left that was killed goes.
TEST(TrevlinDatabase, IsRenewedWhileOthersTidyAndHoldTheFolder) {
  ASSERT_EQ(Record(17, 1), TREVLIN_OK);
  const std::string leftover = kInference + "#abc123";
  const FdHandle folder(open(fs::path(kInference).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(folder.get(), LOCK_SH), 0);
  std::atomic<bool> done = false;
  std::thread others([&done] {
    while (!done) TidyState();
  });
  for (int round = 0; round < 10; ++round) {
    WriteFile(set_paths::kInferenceDb, "no database " + std::to_string(round));
    std::string report;
    EXPECT_EQ(RescueDatabase(set_paths::kInferenceDb, "inferenceTBL", "(a TEXT)", report), DatabaseRescue::kRenewed)
        << report;
  }
  done = true;
  others.join();
  WriteHostFile(leftover, "");
  WriteFile(set_paths::kInferenceDb, "no database");
  std::string report;
  RescueDatabase(set_paths::kInferenceDb, "inferenceTBL", "(a TEXT)", report);
  EXPECT_FALSE(fs::exists(leftover));
}

TEST(TrevlinDatabase, AFileThatIsReplacedOrRepairedIsReadAnew) {
  Database database(Access::kReadOnly);
  WriteFile(set_paths::kInferenceDb, "not a database at all");
  EXPECT_EQ(Ask(database), TREVLIN_ERROR_DATABASE);
  const std::string old = kInference + ".old";
  fs::rename(kInference, old);
  ASSERT_EQ(Record(17, 1), TREVLIN_OK);
  EXPECT_EQ(Ask(database), TREVLIN_OK);
  fs::rename(kInference, old);
  ASSERT_EQ(Record(18, 1), TREVLIN_OK);
  EXPECT_EQ(Ask(database), TREVLIN_NO_MATCH);
  fs::rename(old, kInference);
  EXPECT_EQ(Ask(database), TREVLIN_OK);
  fs::remove(kInference);
  EXPECT_EQ(Ask(database), TREVLIN_NO_MATCH);
}

TEST(TrevlinDatabase, ALockIsWaitedForOnceForAllQueries) {
  ASSERT_EQ(Record(17, 1), TREVLIN_OK);
  _DTSolDBRecord solution;
  Database database(Access::kReadWrite);
  SqliteDb other = OpenDatabase(set_paths::kInferenceDb);
  Execute(other.get(), "BEGIN EXCLUSIVE");
  const auto start = std::chrono::steady_clock::now();
  database.BeginRead();
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(Ask(database), TREVLIN_ERROR_DATABASE);
    // The other file going through does not buy another wait.
    ASSERT_EQ(database.NewestSolution(17, solution), TREVLIN_NO_MATCH);
  }
  database.EndRead();
  const auto spent = std::chrono::steady_clock::now() - start;
  EXPECT_GE(spent, 1900ms);
  EXPECT_LE(spent, 20s);
  EXPECT_THAT(database.LastError(), HasSubstr("locked"));
  Execute(other.get(), "COMMIT");
  EXPECT_EQ(Ask(database), TREVLIN_OK);
}

TEST(TrevlinDatabase, OneStateIsHeldAndOwnRowsAreStoredAtOnce) {
  ASSERT_EQ(Record(17, 1), TREVLIN_OK);
  Database database(Access::kReadWrite);
  database.BeginRead();
  const std::string clear = "PRAGMA busy_timeout = 0; DELETE FROM inferenceTBL";
  EXPECT_EQ(Change(set_paths::kInferenceDb, clear), SQLITE_BUSY);
  EXPECT_EQ(database.AddSolution({17, 1, 5, 1, kTime}), TREVLIN_OK);
  EXPECT_THAT(Rows(set_paths::kSolutionDb, "SELECT issueCode FROM solutionTBL"), ElementsAre("17"));
  EXPECT_EQ(Change(set_paths::kSolutionDb, "PRAGMA busy_timeout = 0; DELETE FROM solutionTBL"), SQLITE_BUSY);
  database.EndRead();
  EXPECT_EQ(Change(set_paths::kInferenceDb, clear), SQLITE_OK);
  EXPECT_EQ(Ask(database), TREVLIN_NO_MATCH);
}

TEST(Recording, AddsARowWhereTheTruthIsAnotherAndAlwaysALaterOne) {
  const struct {
    const char* name;
    std::vector<std::pair<int, const char*>> before;
    bool truth;
    std::string added;
  } cases[] = {
      {"no row, true", {}, true, "2024-06-01T12:00:00|1"},
      {"the same", {{1, kTime}}, true, ""},
      {"another", {{1, kTime}}, false, "2024-06-01T12:00:00|0"},
      {"of equal times true", {{1, kTime}, {0, kTime}}, true, ""},
      {"the same second", {{1, "2024-06-01T12:00:00"}}, false, "2024-06-01T12:00:01|0"},
      {"a clock that went back", {{1, "2024-12-31T23:59:59"}}, false, "2025-01-01T00:00:00|0"},
  };
  int code = 1;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    ++code;
    for (const auto& [type, time] : each.before) ASSERT_EQ(Record(code, type, time), TREVLIN_OK);
    Texts expected = RowsOf(code);
    if (!each.added.empty()) expected.push_back(each.added);
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(RecordTruth(code, each.truth, "2024-06-01T12:00:00"), TREVLIN_OK);
    EXPECT_EQ(RowsOf(code), expected);
  }
}

TEST(Recording, KeepsTheNewestRowsOfEachIssueItAddsTo) {
  for (const int code : {17, 18})
    for (int day = 1; day <= 9; ++day)
      ASSERT_EQ(Record(code, day % 2, "2024-03-0" + std::to_string(day) + "T00:00:00"), TREVLIN_OK);
  EXPECT_EQ(RecordTruth(17, false, "2024-06-01T12:00:00", 3), TREVLIN_OK);
  EXPECT_THAT(RowsOf(17), ElementsAre("2024-03-08T00:00:00|0", "2024-03-09T00:00:00|1", "2024-06-01T12:00:00|0"));
  EXPECT_EQ(RowsOf(18).size(), 9u);
}

TEST(Recording, KeepsTheNewestSolutionsOfEachIssue) {
  Database database(Access::kReadWrite);
  ASSERT_EQ(database.AddSolution({18, 7, 5, 1, "2024-01-01T00:00:00"}), TREVLIN_OK);
  for (int i = 0; i < 102; ++i) ASSERT_EQ(database.AddSolution({17, i, 5, 1, kTime}), TREVLIN_OK);
  EXPECT_THAT(
      Rows(set_paths::kSolutionDb, "SELECT min(solutionCode + 0), count(*) FROM solutionTBL GROUP BY issueCode"),
      ElementsAre("2|100", "7|1"));
}

/// As if the machine had run for so long since solutions were applied, and been started anew since where `boot` says
/// so.
void Settle(std::chrono::seconds passed, const std::string& boot = "boot") {
  Change(set_paths::kSolutionDb,
         "UPDATE settlingTBL SET seconds = seconds - " + std::to_string(passed.count()) + ", boot = " + boot);
}

TEST(Recording, SaysWhichSolutionsWereOfNoEffect) {
  const struct {
    const char* name;
    std::chrono::seconds passed;
    int isApply;
    bool returns;  // the issue, after the solution
    int expected;
  } cases[] = {
      {"found and applied long ago", 300s, 1, false, 0},
      {"applied just now", 60s, 1, false, 1},
      {"found anew since", 300s, 1, true, 1},
      {"declined", 300s, 0, false, 0},
  };
  int code = 1;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    Database database(Access::kReadWrite);
    const std::string applied = CurrentTime();
    ASSERT_EQ(RecordTruth(++code, true, CurrentTime(-600s)), TREVLIN_OK);
    ASSERT_EQ(database.AddSolution({code, 1001, 2, each.isApply, applied}), TREVLIN_OK);
    Settle(each.passed);
    if (each.returns) {
      ASSERT_EQ(RecordTruth(code, false, applied), TREVLIN_OK);
      ASSERT_EQ(RecordTruth(code, true, applied), TREVLIN_OK);
    }
    std::vector<Transition> changes;
    Outcome outcome{.issues = {{code, true}}, .remaining = {code}};
    ASSERT_EQ(RecordOutcome(database, outcome, changes), TREVLIN_OK);
    _DTSolDBRecord newest;
    ASSERT_EQ(database.NewestSolution(code, newest), TREVLIN_OK);
    EXPECT_EQ(newest.isApply, each.expected);
    EXPECT_EQ(
        Rows(set_paths::kSolutionDb, "SELECT 1 FROM solutionTBL WHERE issueCode = " + std::to_string(code)).size(),
        each.isApply == each.expected ? 1u : 2u);
  }
}

TEST(Recording, WhatWasAppliedStaysSoWhateverTheClockSaysMeanwhile) {
  const std::string now = "2026-06-01T12:00:00", tenYearsOn = "2036-06-01T12:00:00",
                    tenYearsBack = "2016-06-01T12:00:00";
  Database database(Access::kReadWrite);
  _DTSolDBRecord newest;
  for (const auto& [found, applied, later] :
       {std::tuple{now, now, tenYearsOn}, {tenYearsOn, now, now}, {now, tenYearsOn, now}, {now, tenYearsBack, now}}) {
    SCOPED_TRACE(found + " " + applied + " " + later);
    fs::remove(kInference);
    fs::remove(SystemPath(set_paths::kSolutionDb));
    ASSERT_EQ(RecordTruth(17, true, found), TREVLIN_OK);
    ASSERT_EQ(database.AddSolution({17, 1001, 2, 1, applied}), TREVLIN_OK);
    EXPECT_EQ(database.RecordNoEffect(17, 120s, later), TREVLIN_NO_MATCH) << "it has not had its time";
    ASSERT_EQ(database.NewestSolution(17, newest), TREVLIN_OK);
    EXPECT_EQ(newest.isApply, 1);
    EXPECT_GE(newest.registerTime, found) << "it is of that finding";
    // It clears and comes back, which no time of a solution hides.
    for (const bool truth : {false, true}) ASSERT_EQ(RecordTruth(17, truth, later), TREVLIN_OK);
    std::vector<_DTInfDBRecord> trues;
    ASSERT_EQ(database.Transitions(17, 1, trues), TREVLIN_OK);
    EXPECT_GT(trues.front().lastUpdateTime, newest.registerTime);
  }
}

TEST(Recording, ASolutionHasItsTimeAlsoAfterARestartAndWhenAnotherProgramAppliedIt) {
  Database database(Access::kReadWrite);
  for (const int code : {17, 18}) ASSERT_EQ(RecordTruth(code, true, kTime), TREVLIN_OK);
  ASSERT_EQ(database.AddSolution({17, 1001, 2, 1, kTime}), TREVLIN_OK);
  Change(set_paths::kSolutionDb, "INSERT INTO solutionTBL VALUES ('2024-03-07T09:05:01', '18', '1001', '2', 1)");
  EXPECT_EQ(database.RecordNoEffect(18, 120s, kTime), TREVLIN_NO_MATCH) << "it may have been applied just now";
  Settle(0s, "'another'");
  EXPECT_EQ(database.RecordNoEffect(17, std::chrono::hours(24 * 3650), kTime), TREVLIN_NO_MATCH);
  EXPECT_EQ(database.RecordNoEffect(17, 1s, kTime), TREVLIN_OK) << "the machine has run for longer than that";
  Settle(120s);
  EXPECT_EQ(database.RecordNoEffect(18, 120s, kTime), TREVLIN_OK);
}

TEST(Recording, OfProcessesAtOnceOnlyOneAddsARow) {
  ASSERT_EQ(RecordTruth(17, true, kTime), TREVLIN_OK);
  for (int code = 100; code < 140; ++code) {
    ASSERT_EQ(RecordTruth(code, true, "2024-06-01T12:00:00"), TREVLIN_OK);
    ASSERT_EQ(Database(Access::kReadWrite).AddSolution({code, 1001, 2, 1, "2024-06-01T12:00:01"}), TREVLIN_OK);
  }
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    children.push_back(fork());
    if (children.back() != 0) continue;
    int result = TREVLIN_OK;
    for (int turn = 0; turn < 10 && result == TREVLIN_OK; ++turn) {
      // All children have the same times.
      result = RecordTruth(17, turn % 2 == 1, "2024-06-01T12:00:0" + std::to_string(turn));
      for (int code = 100; code < 140; ++code) result |= RecordTruth(code, true, "2024-06-01T12:00:00");
      Database database(Access::kReadWrite);
      for (int code = 100; code < 140; ++code)
        result |= database.RecordNoEffect(code, 0s, "2024-06-01T12:05:00") & ~TREVLIN_NO_MATCH;
    }
    _exit(result);
  }
  for (const pid_t child : children) EXPECT_EQ(ExitCodeOf(child), 0);
  for (int code = 100; code < 140; ++code) EXPECT_EQ(RowsOf(code).size(), 1u) << code;
  EXPECT_EQ(Rows(set_paths::kSolutionDb, "SELECT issueCode FROM solutionTBL WHERE isApply = 0").size(), 40u);
  char previous = '0';
  for (const std::string& row : RowsOf(17)) EXPECT_NE(row.back(), std::exchange(previous, row.back())) << row;
}

}  // namespace
