// The application's SQLite layer, on the files of a set root.

#include "QUVA_DBManager.h"

#include <list>

#include "support/databases.h"
#include "support/files.h"

namespace {

using QUVA::DB_INFERENCE;
using QUVA::DB_REMAINING;
using QUVA::DB_SOLUTION;
using QUVA::DB_TEST;
using QUVA::EDBName;

constexpr char kRemaining[] = "/opt/usr/home/owner/share/remaining.db";
constexpr char kTest[] = "/opt/usr/home/owner/share/test.db";

QUVA::TCDBManager& Manager() {
  return *QUVA::TCDBManager::GetInstance();
}

bool IsOpenHere(const std::string& path) {
  std::error_code ignored;
  for (const auto& fd : fs::directory_iterator("/proc/self/fd"))
    if (fs::read_symlink(fd.path(), ignored) == SystemPath(path)) return true;
  return false;
}

/// Stores a row of the remaining table in the open database.
int Store(const std::string& code, const std::string& toast = "toast") {
  return Manager().SetDB(
      "remainingTBL", {"1", code, "0", "time", "type", "issue", "sol", "b1", "b2", "act", toast, toast, "src", "USER"});
}

std::vector<std::string> StoredCodes() {
  return Texts(kRemaining, "SELECT issue_code FROM remainingTBL");
}

std::vector<std::string> Column(EDBName db, const std::string& column, int expectedResult = 1) {
  std::vector<std::string> values = {"own"};
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
      {DB_REMAINING, kRemaining,
       "CREATE TABLE remainingTBL(idx TEXT, issue_code TEXT, is_fix TEXT, last_time TEXT, sol_type TEXT, "
       "sid_issue TEXT, sid_sol TEXT, sid_button1 TEXT, sid_button2 TEXT, action TEXT, toast1 TEST, toast2 TEXT, "
       "source TEXT, view_authority TEXT)"},
      {DB_TEST, kTest,
       "CREATE TABLE testTBL(registerTime TEXT, lastUpdatedTime TEXT, issueCode TEXT, TR INTEGER, "
       "solutionCode INTEGER)"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.path);
    std::string first;
    for (int time = 0; time < 2; ++time) {
      EXPECT_EQ(Manager().OpenDB(each.db), 1);
      EXPECT_EQ(Manager().CloseDB(), 1);
      EXPECT_THAT(Texts(each.path, "SELECT sql FROM sqlite_master"), ElementsAre(each.sql));
      if (time == 0) first = ReadFile(each.path);
    }
    EXPECT_EQ(ReadFile(each.path), first);
    EXPECT_FALSE(IsOpenHere(each.path));
  }
}

TEST(DbManager, SetDbBuildsTheStatementFromTheValuesAsTheyAre) {
  const struct {
    std::list<std::string> values;
    const char* stored;  // the third value of the row that is there, or null when the statement fails
  } cases[] = {
      {{"a", "b", "code", "1", "2"}, "code"},
      {{"a", "2", "code", "1", "2"}, nullptr},  // equals the last value
      {{"a", "b", "it's ),(;--", "1", "2"}, "it's ),(;--"},
      {{"a", "b", "say \"no\"", "1", "2"}, nullptr},
      {{"a", "b", "say \"\"no\"\"", "1", "2"}, "say \"no\""},
      {{}, nullptr},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.values));
    Manager().OpenDB(DB_TEST);
    Manager().FlushDB(DB_TEST);
    EXPECT_EQ(Manager().SetDB("testTBL", each.values), each.stored ? 1 : 0);
    Manager().CloseDB();
    const auto stored = Texts(kTest, "SELECT issueCode FROM testTBL");
    EXPECT_EQ(stored, each.stored ? std::vector<std::string>{each.stored} : std::vector<std::string>());
  }
}

TEST(DbManager, GetDbAppendsOneTextForEachRowInTableOrder) {
  Manager().OpenDB(DB_INFERENCE);
  EXPECT_THAT(Column(DB_INFERENCE, "issueCode"), IsEmpty());
  Execute(OpenDatabase(set_paths::kInferenceDb).get(),
          "INSERT INTO inferenceTBL VALUES('r1', '', '30', 1, 7), ('r2', 'two', '10', 0, NULL), "
          "('r3', NULL, '20', -5, 1.5), ('r4', x'41', '20', 4294967299, 'text')");
  EXPECT_THAT(Column(DB_INFERENCE, "lastUpdatedTime"), ElementsAre("", "two", "", ""));
  EXPECT_THAT(Column(DB_INFERENCE, "issueCode"), ElementsAre("30", "10", "20", "20"));
  EXPECT_THAT(Column(DB_INFERENCE, "TR"), ElementsAre("1", "0", "-5", "3")) << "32 bits";
  EXPECT_THAT(Column(DB_INFERENCE, "solutionCode"), ElementsAre("7", "", "", "text"));
  EXPECT_THAT(Column(DB_INFERENCE, "statusCode", 0), IsEmpty()) << "no such column";
  EXPECT_THAT(Column(DB_TEST, "issueCode"), IsEmpty()) << "no such table in what is open";
}

TEST(DbManager, ChangesAreThereAsAWholeOrNotAtAll) {
  Manager().OpenDB(DB_REMAINING);
  for (const bool ended : {true, false}) {
    EXPECT_FALSE(Manager().IsChanging());
    EXPECT_EQ(Manager().BeginChanges(), 1);
    Manager().FlushDB(DB_REMAINING);
    EXPECT_EQ(Store(ended ? "1" : "2") + Store("one value\""), 1);
    EXPECT_TRUE(Manager().IsChanging()) << "a statement that fails is left out";
    EXPECT_EQ(ended ? Manager().EndChanges() : 1, 1);
  }
  Manager().CloseDB();
  EXPECT_FALSE(Manager().IsChanging());
  EXPECT_THAT(StoredCodes(), ElementsAre("1"));
}

TEST(DbManager, WhatCannotBeOpenedFailsLaterAndIsNotTouched) {
  const std::string path = SystemPath(kRemaining);
  const std::string noDatabase(5000, 'x');
  SqliteDb other;
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"no database", [&] { WriteFile(kRemaining, noDatabase); }},
      {"a link", [&] { fs::create_symlink(SystemPath("/opt/elsewhere.db"), path); }},
      {"locked",
       [&] {
         other = OpenDatabase(kRemaining);
         Execute(other.get(), "CREATE TABLE remainingTBL(idx TEXT); BEGIN EXCLUSIVE");
       }},
      {"no folder", [&] { fs::remove_all(fs::path(path).parent_path()); }},
  };
  for (const auto& [name, make] : cases) {
    SCOPED_TRACE(name);
    fs::remove(path);
    make();
    const std::string before = ReadFile(kRemaining);
    Manager().OpenDB(DB_TEST);
    EXPECT_EQ(Manager().OpenDB(DB_REMAINING), 1);
    EXPECT_EQ(Store("1") + Manager().DeleteDB("1") + Manager().FlushDB(DB_REMAINING), 0);
    EXPECT_THAT(Column(DB_REMAINING, "idx"), IsEmpty());
    Manager().CloseDB();
    EXPECT_EQ(ReadFile(kRemaining), before);
  }
  EXPECT_FALSE(Exists("/opt/elsewhere.db"));
  EXPECT_FALSE(Exists("/opt/usr/home/owner/share"));
  EXPECT_THAT(Log(),
              HasSubstr("ERROR: /opt/usr/home/owner/share/remaining.db open is fail!! ( it is a symbolic link )"));
}

}  // namespace
