// The application's SQLite layer, on the files of a set root.

#include "QUVA_DBManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <string>
#include <vector>

#include "base/sqlite_handle.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

namespace fs = std::filesystem;
using QUVA::DB_INFERENCE;
using QUVA::DB_REMAINING;
using QUVA::DB_SOLUTION;
using QUVA::DB_TEST;
using QUVA::EDBName;
using QUVA::TCDBManager;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Values = std::list<std::string>;

const std::string kRemaining = SystemPath(set_paths::kRemainingDb);
const std::string kInference = SystemPath(set_paths::kInferenceDb);

struct Known {
  EDBName db;
  const char* path;
  const char* table;
  const char* columns;
};
constexpr Known kKnown[] = {
    {DB_INFERENCE, "/home/owner/share/Trevlin/DB/inference.db", "inferenceTBL",
     "(registerTime TEXT, lastUpdatedTime TEXT, issueCode TEXT, TR INTEGER, solutionCode INTEGER)"},
    {DB_SOLUTION, "/home/owner/share/Trevlin/DB/solution.db", "solutionTBL",
     "(registerTime TEXT, issueCode TEXT, solutionCode TEXT, type TEXT, isApply INTEFER)"},
    {DB_REMAINING, "/opt/usr/home/owner/share/remaining.db", "remainingTBL",
     "(idx TEXT, issue_code TEXT, is_fix TEXT, last_time TEXT, sol_type TEXT, sid_issue TEXT, sid_sol TEXT, "
     "sid_button1 TEXT, sid_button2 TEXT, action TEXT, toast1 TEST, toast2 TEXT, source TEXT, view_authority TEXT)"},
    {DB_TEST, "/opt/usr/home/owner/share/test.db", "testTBL",
     "(registerTime TEXT, lastUpdatedTime TEXT, issueCode TEXT, TR INTEGER, solutionCode INTEGER)"},
};
constexpr int kWrongNames[] = {4, -1};

SqliteDb OpenPlainly(const std::string& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  return SqliteDb(db);
}

void Execute(const std::string& path, const std::string& sql) {
  EXPECT_EQ(sqlite3_exec(OpenPlainly(path).get(), sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
}

/// The first column of every row; "NULL" for none.
std::vector<std::string> Rows(const std::string& path, const std::string& sql) {
  const SqliteDb db = OpenPlainly(path);
  const SqliteStatement statement = PrepareStatement(db.get(), sql);
  EXPECT_TRUE(statement) << sql;
  std::vector<std::string> rows;
  while (statement && sqlite3_step(statement.get()) == SQLITE_ROW) {
    const bool null = sqlite3_column_type(statement.get(), 0) == SQLITE_NULL;
    rows.emplace_back(null ? "NULL" : ColumnText(statement.get(), 0));
  }
  return rows;
}

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> FilesOfRoot() {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(std::string(SystemRoot())))
    if (entry.is_regular_file() && entry.path() != SystemPath(set_paths::kLogFile)) files.push_back(entry.path());
  return files;
}

bool IsOpenHere(const std::string& path) {
  for (const auto& fd : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (fs::read_symlink(fd.path(), ignored) == path) return true;
  }
  return false;
}

TCDBManager& Manager() {
  return *TCDBManager::GetInstance();
}

/// A row of the remaining table: the code, and a text for each other column.
Values Row(const std::string& code) {
  return {"1", code, "0", "time", "type", "issue", "sol", "b1", "b2", "act", "t1", "t2", "src", "last-" + code};
}

std::vector<std::string> Column(EDBName db, const std::string& column, int expectedResult = 1) {
  std::vector<std::string> values;
  EXPECT_EQ(Manager().GetDB(db, column, values), expectedResult);
  return values;
}

TEST(DbManager, TheFirstOpenMakesFileAndTableAndLaterOnesNothing) {
  for (const Known& known : kKnown) {
    SCOPED_TRACE(known.table);
    const std::string path = SystemPath(known.path);
    ASSERT_FALSE(fs::exists(path));
    EXPECT_EQ(Manager().OpenDB(known.db), 1);
    EXPECT_EQ(Manager().CloseDB(), 1);
    EXPECT_THAT(Rows(path, "SELECT sql FROM sqlite_master"),
                ElementsAre(std::string("CREATE TABLE ") + known.table + known.columns));
    const std::string before = Bytes(path);
    EXPECT_EQ(Manager().OpenDB(known.db), 1);
    EXPECT_EQ(Manager().CloseDB(), 1);
    EXPECT_EQ(Bytes(path), before);
    EXPECT_FALSE(IsOpenHere(path));
  }
}

TEST(DbManager, ATableThatIsMissingInAFileIsMadeBesideTheOthers) {
  Execute(kRemaining, "CREATE TABLE other(a); INSERT INTO other VALUES('kept')");
  Manager().OpenDB(DB_REMAINING);
  EXPECT_EQ(Manager().SetDB("remainingTBL", Row("1")), 1);
  Manager().CloseDB();
  EXPECT_THAT(Rows(kRemaining, "SELECT a FROM other"), ElementsAre("kept"));
  EXPECT_THAT(Rows(kRemaining, "SELECT issue_code FROM remainingTBL"), ElementsAre("1"));
}

TEST(DbManager, SetDbBuildsTheStatementFromTheValuesAsTheyAre) {
  const struct {
    const char* name;
    Values values;
    const char* stored;  // the third value of the row that is there, or null when the statement fails
    const char* table = "testTBL";
  } cases[] = {
      {"a row", {"a", "b", "code", "1", "2"}, "code"},
      {"a value that equals the last one", {"a", "2", "code", "1", "2"}, nullptr},
      {"the value before the last equals it", {"a", "b", "code", "2", "2"}, nullptr},
      {"equal values before the last one", {"a", "a", "code", "a", "2"}, "code"},
      {"a name of a column", {"a", "b", "issueCode", "1", "2"}, "issueCode"},
      {"empty texts", {"", "", "", "", "2"}, ""},
      {"a single quote", {"a", "b", "it's", "1", "2"}, "it's"},
      {"a double quote", {"a", "b", "say \"no\"", "1", "2"}, nullptr},
      {"a doubled double quote", {"a", "b", "say \"\"no\"\"", "1", "2"}, "say \"no\""},
      {"a comma, a bracket, a semicolon", {"a", "b", "),(;--", "1", "2"}, "),(;--"},
      {"too few", {"1", "E01", "0"}, nullptr},
      {"too many", {"a", "b", "code", "1", "2", "3"}, nullptr},
      {"none", {}, nullptr},
      {"of another table", {"a", "b", "code", "1", "2"}, nullptr, "remainingTBL"},
  };
  const std::string path = SystemPath(set_paths::kTestDb);
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    Manager().OpenDB(DB_TEST);
    Manager().FlushDB(DB_TEST);
    EXPECT_EQ(Manager().SetDB(each.table, each.values), each.stored ? 1 : 0);
    Manager().CloseDB();
    const auto rows = Rows(path, "SELECT issueCode FROM testTBL");
    if (each.stored)
      EXPECT_THAT(rows, ElementsAre(each.stored));
    else
      EXPECT_THAT(rows, IsEmpty());
  }
}

int RefuseDoubleQuotedTexts(sqlite3* db, const char**, const void*) {
  return sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
}

TEST(DbManager, DoubleQuotedTextsAreTakenWhateverTheLibrarysDefaultIs) {
  const auto entry = reinterpret_cast<void (*)()>(RefuseDoubleQuotedTexts);
  ASSERT_EQ(sqlite3_auto_extension(entry), SQLITE_OK);
  const SqliteDb plain = OpenPlainly(SystemPath(set_paths::kTestDb));
  ASSERT_FALSE(PrepareStatement(plain.get(), "SELECT \"text\"")) << "the default is not off";
  Manager().OpenDB(DB_REMAINING);
  EXPECT_EQ(Manager().SetDB("remainingTBL", Row("17")), 1);
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), ElementsAre("17"));
  Manager().CloseDB();
  sqlite3_cancel_auto_extension(entry);
}

TEST(DbManager, GetDbAppendsOneTextForEachRowInTableOrder) {
  Manager().OpenDB(DB_INFERENCE);
  std::vector<std::string> values = {"own"};
  EXPECT_EQ(Manager().GetDB(DB_INFERENCE, QUVA::Column::issueCode, values), 1);
  EXPECT_THAT(values, ElementsAre("own"));
  Execute(kInference,
          "INSERT INTO inferenceTBL VALUES('r1', '', '30', 1, 7), ('r2', 'two', '10', 0, NULL), "
          "('r3', NULL, '20', -5, 1.5), ('r4', x'41', '20', 4294967299, 'text')");
  EXPECT_THAT(Column(DB_INFERENCE, "registerTime"), ElementsAre("r1", "r2", "r3", "r4"));
  EXPECT_THAT(Column(DB_INFERENCE, "lastUpdatedTime"), ElementsAre("", "two", "", ""));
  EXPECT_THAT(Column(DB_INFERENCE, "issueCode"), ElementsAre("30", "10", "20", "20"));
  EXPECT_THAT(Column(DB_INFERENCE, "TR"), ElementsAre("1", "0", "-5", "3"));
  EXPECT_THAT(Column(DB_INFERENCE, "solutionCode"), ElementsAre("7", "", "", "text"));
  EXPECT_THAT(Column(DB_INFERENCE, "TR, issueCode"), ElementsAre("130", "010", "-520", "320"));
  EXPECT_THAT(Column(DB_INFERENCE, "statusCode", 0), IsEmpty()) << "no such column";
  EXPECT_EQ(Manager().GetDB(DB_INFERENCE, "issueCode", values), 1);
  EXPECT_THAT(values, ElementsAre("own", "30", "10", "20", "20"));
}

TEST(DbManager, GetDbReadsNothingOfATableThatIsMissing) {
  Manager().OpenDB(DB_REMAINING);
  EXPECT_EQ(Manager().SetDB("remainingTBL", Row("1")), 1);
  EXPECT_THAT(Column(DB_TEST, "issueCode"), IsEmpty()) << "the name only chooses the table of what is open";
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), ElementsAre("1"));
  Execute(kRemaining, "DROP TABLE remainingTBL");
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), IsEmpty());
}

TEST(DbManager, TheFirstToastsColumnTurnsNumbersIntoNumbers) {
  const struct {
    const char* text;
    const char* read;
  } cases[] = {{"SID_DONE", "SID_DONE"}, {"NULL", "NULL"}, {"", ""},      {"12", "12"}, {"007", "7"},
               {"1e3", "1000"},          {"1.5", ""},      {"7up", "7up"}};
  std::vector<std::string> expected;
  Manager().OpenDB(DB_REMAINING);
  for (const auto& each : cases) {
    Values row = Row("1");
    *std::next(row.begin(), 10) = each.text;
    *std::next(row.begin(), 11) = each.text;
    ASSERT_EQ(Manager().SetDB("remainingTBL", row), 1) << each.text;
    expected.push_back(each.read);
  }
  EXPECT_EQ(Column(DB_REMAINING, QUVA::Column::toast1), expected);
  EXPECT_THAT(Column(DB_REMAINING, QUVA::Column::toast2),
              ElementsAre("SID_DONE", "NULL", "", "12", "007", "1e3", "1.5", "7up"));
}

TEST(DbManager, DeleteDbDeletesTheRowsOfOneCodeOfTheRemainingTable) {
  Manager().OpenDB(DB_REMAINING);
  for (const char* code : {"17", "170", "17", "1"}) ASSERT_EQ(Manager().SetDB("remainingTBL", Row(code)), 1);
  EXPECT_EQ(Manager().DeleteDB("99"), 1);
  EXPECT_EQ(Manager().DeleteDB("17"), 1);
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), ElementsAre("170", "1"));
  EXPECT_EQ(Manager().DeleteDB("it's"), 0);
  Manager().OpenDB(DB_TEST);
  EXPECT_EQ(Manager().DeleteDB("1"), 0) << "it has no remaining table";
  Manager().CloseDB();
  EXPECT_THAT(Rows(kRemaining, "SELECT issue_code FROM remainingTBL"), ElementsAre("170", "1"));
  std::ifstream log(SystemPath(set_paths::kLogFile));
  EXPECT_THAT(std::string(std::istreambuf_iterator<char>(log), {}),
              HasSubstr("ERROR: DELETE FROM remainingTBL WHERE issue_code='it's' column delete is fail!!"));
}

TEST(DbManager, FlushDbEmptiesTheTableOfTheOpenDatabase) {
  Manager().OpenDB(DB_REMAINING);
  EXPECT_EQ(Manager().FlushDB(DB_REMAINING), 1) << "empty already";
  for (const char* code : {"17", "18"}) ASSERT_EQ(Manager().SetDB("remainingTBL", Row(code)), 1);
  EXPECT_EQ(Manager().FlushDB(DB_TEST), 0) << "not in this database";
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), ElementsAre("17", "18"));
  EXPECT_EQ(Manager().FlushDB(DB_REMAINING), 1);
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), IsEmpty());
}

TEST(DbManager, AWrongNameFailsAndMakesNothing) {
  const auto before = FilesOfRoot();
  for (const int number : kWrongNames) {
    SCOPED_TRACE(number);
    const auto wrong = static_cast<EDBName>(number);
    EXPECT_EQ(Manager().OpenDB(wrong), 1);
    EXPECT_EQ(Manager().FlushDB(wrong), 0);
    EXPECT_THAT(Column(wrong, "idx"), IsEmpty());
    EXPECT_EQ(Manager().SetDB("remainingTBL", Row("1")), 0);
    Manager().CloseDB();
    std::ifstream log(SystemPath(set_paths::kLogFile));
    const std::string lines(std::istreambuf_iterator<char>(log), {});
    EXPECT_THAT(lines, HasSubstr("ERROR: db path is wrong!! : " + std::to_string(number)));
    EXPECT_THAT(lines, HasSubstr("ERROR: db option is wrong!!"));
  }
  EXPECT_EQ(FilesOfRoot(), before);
}

void ExpectEverythingFails() {
  EXPECT_EQ(Manager().OpenDB(DB_REMAINING), 1);
  EXPECT_EQ(Manager().SetDB("remainingTBL", Row("1")), 0);
  EXPECT_EQ(Manager().DeleteDB("1"), 0);
  EXPECT_EQ(Manager().FlushDB(DB_REMAINING), 0);
  EXPECT_THAT(Column(DB_REMAINING, "idx"), IsEmpty());
  Manager().CloseDB();
}

TEST(DbManager, WhatCannotBeOpenedFailsLaterAndIsNotTouched) {
  const auto openFailures = [] {
    std::ifstream log(SystemPath(set_paths::kLogFile));
    const std::string lines(std::istreambuf_iterator<char>(log), {});
    return lines.find("ERROR: /opt/usr/home/owner/share/remaining.db open is fail!! ( ") != std::string::npos;
  };
  const fs::path folder = fs::path(kRemaining).parent_path();
  std::ofstream(kRemaining) << std::string(5000, 'x');
  ExpectEverythingFails();
  EXPECT_EQ(Bytes(kRemaining), std::string(5000, 'x')) << "not a database";
  EXPECT_FALSE(openFailures());

  fs::remove(kRemaining);
  fs::create_directory(kRemaining);
  ExpectEverythingFails();
  EXPECT_TRUE(fs::is_empty(kRemaining));
  EXPECT_TRUE(openFailures());

  fs::remove_all(folder);
  ExpectEverythingFails();
  EXPECT_FALSE(fs::exists(folder));
}

TEST(DbManager, AfterAFailedOpenTheFormerDatabaseIsNotWorkedOn) {
  Manager().OpenDB(DB_REMAINING);
  ASSERT_EQ(Manager().SetDB("remainingTBL", Row("1")), 1);
  fs::create_directory(SystemPath(set_paths::kTestDb));
  Manager().OpenDB(DB_TEST);
  EXPECT_EQ(Manager().FlushDB(DB_REMAINING), 0);
  EXPECT_EQ(Manager().DeleteDB("1"), 0);
  Manager().CloseDB();
  EXPECT_THAT(Rows(kRemaining, "SELECT issue_code FROM remainingTBL"), ElementsAre("1"));
}

TEST(DbManager, ADatabaseThatIsLockedFailsAtOnceAndStaysAsItIs) {
  Manager().OpenDB(DB_REMAINING);
  ASSERT_EQ(Manager().SetDB("remainingTBL", Row("1")), 1);
  Manager().CloseDB();
  {
    const SqliteDb other = OpenPlainly(kRemaining);
    ASSERT_EQ(sqlite3_exec(other.get(), "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    ExpectEverythingFails();
  }
  EXPECT_THAT(Rows(kRemaining, "SELECT issue_code FROM remainingTBL"), ElementsAre("1"));
}

TEST(DbManager, ASecondOpenTakesTheNextDatabaseAndLeavesNoHandle) {
  Manager().OpenDB(DB_REMAINING);
  Manager().OpenDB(DB_REMAINING);
  Manager().OpenDB(DB_TEST);
  EXPECT_FALSE(IsOpenHere(kRemaining));
  EXPECT_EQ(Manager().SetDB("remainingTBL", Row("1")), 0);
  EXPECT_EQ(Manager().SetDB("testTBL", {"a", "b", "c", "1", "2"}), 1);
  EXPECT_EQ(Manager().CloseDB(), 1);
  EXPECT_FALSE(IsOpenHere(SystemPath(set_paths::kTestDb)));
  EXPECT_EQ(Manager().SetDB("testTBL", {"a", "b", "c", "1", "3"}), 0) << "closed";
  EXPECT_THAT(Rows(SystemPath(set_paths::kTestDb), "SELECT solutionCode FROM testTBL"), ElementsAre("2"));
}

}  // namespace
