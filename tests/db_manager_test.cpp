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
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

const std::string kRemaining = SystemPath(set_paths::kRemainingDb);
const std::string kTest = SystemPath(set_paths::kTestDb);

QUVA::TCDBManager& Manager() {
  return *QUVA::TCDBManager::GetInstance();
}

SqliteDb OpenPlainly(const std::string& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  return SqliteDb(db);
}

/// The first column of every row.
Texts Rows(const std::string& path, const std::string& sql) {
  const SqliteDb db = OpenPlainly(path);
  const SqliteStatement statement = PrepareStatement(db.get(), sql);
  EXPECT_TRUE(statement) << sql;
  Texts rows;
  while (statement && sqlite3_step(statement.get()) == SQLITE_ROW) rows.emplace_back(ColumnText(statement.get(), 0));
  return rows;
}

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool IsOpenHere(const std::string& path) {
  std::error_code ignored;
  for (const auto& fd : fs::directory_iterator("/proc/self/fd"))
    if (fs::read_symlink(fd.path(), ignored) == path) return true;
  return false;
}

/// Stores a row of the remaining table in the open database.
int Store(const std::string& code, const std::string& toast = "toast") {
  return Manager().SetDB(
      "remainingTBL", {"1", code, "0", "time", "type", "issue", "sol", "b1", "b2", "act", toast, toast, "src", "USER"});
}

Texts Column(EDBName db, const std::string& column, int expectedResult = 1) {
  Texts values = {"own"};
  EXPECT_EQ(Manager().GetDB(db, column, values), expectedResult);
  EXPECT_EQ(values.at(0), "own") << "values are appended";
  values.erase(values.begin());
  return values;
}

TEST(DbManager, TheFirstOpenMakesFileAndTableAndLaterOnesNothing) {
  const struct {
    EDBName db;
    const char* path;
    const char* sql;
  } cases[] = {
      {DB_INFERENCE, "/home/owner/share/Trevlin/DB/inference.db",
       "CREATE TABLE inferenceTBL(registerTime TEXT, lastUpdatedTime TEXT, issueCode TEXT, TR INTEGER, "
       "solutionCode INTEGER)"},
      {DB_SOLUTION, "/home/owner/share/Trevlin/DB/solution.db",
       "CREATE TABLE solutionTBL(registerTime TEXT, issueCode TEXT, solutionCode TEXT, type TEXT, isApply INTEFER)"},
      {DB_REMAINING, "/opt/usr/home/owner/share/remaining.db",
       "CREATE TABLE remainingTBL(idx TEXT, issue_code TEXT, is_fix TEXT, last_time TEXT, sol_type TEXT, "
       "sid_issue TEXT, sid_sol TEXT, sid_button1 TEXT, sid_button2 TEXT, action TEXT, toast1 TEST, toast2 TEXT, "
       "source TEXT, view_authority TEXT)"},
      {DB_TEST, "/opt/usr/home/owner/share/test.db",
       "CREATE TABLE testTBL(registerTime TEXT, lastUpdatedTime TEXT, issueCode TEXT, TR INTEGER, "
       "solutionCode INTEGER)"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.path);
    const std::string path = SystemPath(each.path);
    ASSERT_FALSE(fs::exists(path));
    std::string before;
    for (int time = 0; time < 2; ++time) {
      EXPECT_EQ(Manager().OpenDB(each.db), 1);
      EXPECT_EQ(Manager().CloseDB(), 1);
      EXPECT_THAT(Rows(path, "SELECT sql FROM sqlite_master"), ElementsAre(each.sql));
      if (time == 0) before = Bytes(path);
    }
    EXPECT_EQ(Bytes(path), before);
    EXPECT_FALSE(IsOpenHere(path));
  }
}

TEST(DbManager, SetDbBuildsTheStatementFromTheValuesAsTheyAre) {
  const struct {
    std::list<std::string> values;
    const char* stored;  // the third value of the row that is there, or null when the statement fails
  } cases[] = {
      {{"a", "b", "code", "1", "2"}, "code"},
      {{"a", "2", "code", "1", "2"}, nullptr},  // equals the last value
      {{"a", "b", "code", "2", "2"}, nullptr},
      {{"a", "a", "issueCode", "a", "2"}, "issueCode"},
      {{"", "", "", "", "2"}, ""},
      {{"a", "b", "it's ),(;--", "1", "2"}, "it's ),(;--"},
      {{"a", "b", "say \"no\"", "1", "2"}, nullptr},
      {{"a", "b", "say \"\"no\"\"", "1", "2"}, "say \"no\""},
      {{"1", "E01", "0"}, nullptr},  // too few
      {{"a", "b", "code", "1", "2", "3"}, nullptr},
      {{}, nullptr},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.values));
    Manager().OpenDB(DB_TEST);
    Manager().FlushDB(DB_TEST);
    EXPECT_EQ(Manager().SetDB("testTBL", each.values), each.stored ? 1 : 0);
    Manager().CloseDB();
    EXPECT_EQ(Rows(kTest, "SELECT issueCode FROM testTBL"), each.stored ? Texts{each.stored} : Texts());
  }
}

int RefuseDoubleQuotedTexts(sqlite3* db, const char**, const void*) {
  return sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
}

TEST(DbManager, DoubleQuotedTextsAreTakenWhateverTheLibrarysDefaultIs) {
  const auto entry = reinterpret_cast<void (*)()>(RefuseDoubleQuotedTexts);
  ASSERT_EQ(sqlite3_auto_extension(entry), SQLITE_OK);
  const SqliteDb plain = OpenPlainly(kTest);
  ASSERT_FALSE(PrepareStatement(plain.get(), "SELECT \"text\"")) << "the default is not off";
  Manager().OpenDB(DB_REMAINING);
  EXPECT_EQ(Store("17"), 1);
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), ElementsAre("17"));
  Manager().CloseDB();
  sqlite3_cancel_auto_extension(entry);
}

TEST(DbManager, GetDbAppendsOneTextForEachRowInTableOrder) {
  Manager().OpenDB(DB_INFERENCE);
  EXPECT_THAT(Column(DB_INFERENCE, QUVA::Column::issueCode), IsEmpty());
  const SqliteDb db = OpenPlainly(SystemPath(set_paths::kInferenceDb));
  const char sql[] =
      "INSERT INTO inferenceTBL VALUES('r1', '', '30', 1, 7), ('r2', 'two', '10', 0, NULL), "
      "('r3', NULL, '20', -5, 1.5), ('r4', x'41', '20', 4294967299, 'text')";
  ASSERT_EQ(sqlite3_exec(db.get(), sql, nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_THAT(Column(DB_INFERENCE, "registerTime"), ElementsAre("r1", "r2", "r3", "r4"));
  EXPECT_THAT(Column(DB_INFERENCE, "lastUpdatedTime"), ElementsAre("", "two", "", ""));
  EXPECT_THAT(Column(DB_INFERENCE, "issueCode"), ElementsAre("30", "10", "20", "20"));
  EXPECT_THAT(Column(DB_INFERENCE, "TR"), ElementsAre("1", "0", "-5", "3")) << "32 bits";
  EXPECT_THAT(Column(DB_INFERENCE, "solutionCode"), ElementsAre("7", "", "", "text"));
  EXPECT_THAT(Column(DB_INFERENCE, "TR, issueCode"), ElementsAre("130", "010", "-520", "320"));
  EXPECT_THAT(Column(DB_INFERENCE, "statusCode", 0), IsEmpty()) << "no such column";
  EXPECT_THAT(Column(DB_TEST, "issueCode"), IsEmpty()) << "no such table in what is open";
}

TEST(DbManager, TheFirstToastsColumnTurnsNumbersIntoNumbers) {
  const Texts stored = {"SID_DONE", "NULL", "", "12", "007", "1e3", "1.5", "7up"};
  Manager().OpenDB(DB_REMAINING);
  for (const std::string& text : stored) ASSERT_EQ(Store("1", text), 1) << text;
  EXPECT_THAT(Column(DB_REMAINING, QUVA::Column::toast1),
              ElementsAre("SID_DONE", "NULL", "", "12", "7", "1000", "", "7up"));
  EXPECT_THAT(Column(DB_REMAINING, QUVA::Column::toast2), ElementsAreArray(stored));
}

TEST(DbManager, DeletingWorksOnTheOpenDatabase) {
  Manager().OpenDB(DB_REMAINING);
  for (const char* code : {"17", "170", "17", "1"}) ASSERT_EQ(Store(code), 1);
  EXPECT_EQ(Manager().DeleteDB("99"), 1) << "no row";
  EXPECT_EQ(Manager().DeleteDB("17"), 1);
  EXPECT_EQ(Manager().DeleteDB("it's"), 0);
  EXPECT_THAT(Bytes(SystemPath(set_paths::kLogFile)),
              HasSubstr("ERROR: DELETE FROM remainingTBL WHERE issue_code='it's' column delete is fail!!"));
  EXPECT_EQ(Manager().FlushDB(DB_TEST), 0) << "not in this database";
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), ElementsAre("170", "1"));
  EXPECT_EQ(Manager().FlushDB(DB_REMAINING), 1);
  EXPECT_THAT(Column(DB_REMAINING, "issue_code"), IsEmpty());
}

TEST(DbManager, ASecondOpenTakesTheNextDatabaseAndLeavesNoHandle) {
  Manager().OpenDB(DB_REMAINING);
  ASSERT_EQ(Store("1"), 1);
  Manager().OpenDB(DB_TEST);
  EXPECT_FALSE(IsOpenHere(kRemaining));
  EXPECT_EQ(Store("2") + Manager().DeleteDB("1") + Manager().FlushDB(DB_REMAINING), 0);
  EXPECT_EQ(Manager().CloseDB(), 1);
  EXPECT_FALSE(IsOpenHere(kTest));
  EXPECT_EQ(Manager().FlushDB(DB_TEST), 0) << "closed";
  fs::remove(kTest);
  fs::create_directory(kTest);
  Manager().OpenDB(DB_REMAINING);
  Manager().OpenDB(DB_TEST);
  EXPECT_EQ(Manager().DeleteDB("1") + Manager().FlushDB(DB_REMAINING), 0) << "not the former one";
  EXPECT_THAT(Rows(kRemaining, "SELECT issue_code FROM remainingTBL"), ElementsAre("1"));
}

// ---- what cannot be used

void ExpectEverythingFails(EDBName db) {
  EXPECT_EQ(Manager().OpenDB(db), 1);
  EXPECT_EQ(Store("1"), 0);
  EXPECT_EQ(Manager().DeleteDB("1"), 0);
  EXPECT_EQ(Manager().FlushDB(db), 0);
  EXPECT_THAT(Column(db, "idx"), IsEmpty());
  Manager().CloseDB();
}

TEST(DbManager, AWrongNameFailsAndMakesNothing) {
  const auto files = [] {
    Texts found;
    for (const auto& entry : fs::recursive_directory_iterator(std::string(SystemRoot()))) found.push_back(entry.path());
    return found;
  };
  Manager().CloseDB();  // makes the log
  const Texts before = files();
  for (const int number : {4, -1}) {
    ExpectEverythingFails(static_cast<EDBName>(number));
    const std::string log = Bytes(SystemPath(set_paths::kLogFile));
    EXPECT_THAT(log, HasSubstr("ERROR: db path is wrong!! : " + std::to_string(number)));
    EXPECT_THAT(log, HasSubstr("ERROR: db option is wrong!!"));
  }
  EXPECT_EQ(files(), before);
}

TEST(DbManager, WhatCannotBeOpenedFailsLaterAndIsNotTouched) {
  const std::string logged = "ERROR: /opt/usr/home/owner/share/remaining.db open is fail!! ( ";
  const fs::path folder = fs::path(kRemaining).parent_path();
  std::ofstream(kRemaining) << std::string(5000, 'x');
  ExpectEverythingFails(DB_REMAINING);
  EXPECT_EQ(Bytes(kRemaining), std::string(5000, 'x')) << "not a database";

  fs::remove(kRemaining);
  fs::create_directory(kRemaining);
  ExpectEverythingFails(DB_REMAINING);
  EXPECT_TRUE(fs::is_empty(kRemaining));
  EXPECT_THAT(Bytes(SystemPath(set_paths::kLogFile)), HasSubstr(logged));

  fs::remove_all(folder);
  ExpectEverythingFails(DB_REMAINING);
  EXPECT_FALSE(fs::exists(folder));
}

TEST(DbManager, ADatabaseThatIsLockedFailsAtOnceAndStaysAsItIs) {
  Manager().OpenDB(DB_REMAINING);
  ASSERT_EQ(Store("1"), 1);
  Manager().CloseDB();
  SqliteDb other = OpenPlainly(kRemaining);
  ASSERT_EQ(sqlite3_exec(other.get(), "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  ExpectEverythingFails(DB_REMAINING);
  other.reset();
  EXPECT_THAT(Rows(kRemaining, "SELECT issue_code FROM remainingTBL"), ElementsAre("1"));
}

}  // namespace
