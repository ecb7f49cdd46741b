// The diagnosis engine: its databases, and how it answers subscriptions.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <set>
#include <thread>

#include "base/sqlite_handle.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/trevlin_database.h"
#include "trevlin_engine.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using trevlin::Database;

const std::string kInference = SystemPath(set_paths::kInferenceDb);
const std::string kSolution = SystemPath(set_paths::kSolutionDb);

SqliteDb OpenPlainly(const std::string& path) {
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  return SqliteDb(db);
}

int Execute(const std::string& path, const std::string& sql) {
  return sqlite3_exec(OpenPlainly(path).get(), sql.c_str(), nullptr, nullptr, nullptr);
}

/// The rows of a query, their columns joined by "|".
std::vector<std::string> Rows(const std::string& path, const char* sql) {
  const SqliteDb db = OpenPlainly(path);
  const SqliteStatement statement = PrepareStatement(db.get(), sql);
  std::vector<std::string> rows;
  while (statement && sqlite3_step(statement.get()) == SQLITE_ROW) {
    std::string& row = rows.emplace_back();
    for (int i = 0; i < sqlite3_column_count(statement.get()); ++i)
      row.append(i ? "|" : "").append(ColumnText(statement.get(), i));
  }
  return rows;
}

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

int Record(int code, int type, const std::string& time) {
  return Database(Database::Access::kReadWrite).AddTransition({.time = time, .issueCode = code, .type = type});
}

/// A database with more pages than a truncated one keeps.
void MakeLargeDatabase() {
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(Execute(kInference,
                    "INSERT INTO inferenceTBL WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT "
                    "5000) SELECT '', '2024-01-01T00:00:00', i, 1, 0 FROM n"),
            SQLITE_OK);
}

/// Another process that has a database locked until it is told to let go, or for a time.
class OtherProcess {
 public:
  explicit OtherProcess(const std::string& path, std::chrono::milliseconds holdFor = 1h) {
    EXPECT_EQ(pipe(m_ready), 0);
    EXPECT_EQ(pipe(m_end), 0);
    m_pid = fork();
    if (m_pid == 0) Hold(path, holdFor);
    char byte = 0;
    EXPECT_EQ(read(m_ready[0], &byte, 1), 1);
  }
  ~OtherProcess() { LetGo(); }

  void LetGo() {
    if (m_pid <= 0) return;
    EXPECT_EQ(write(m_end[1], "x", 1), 1);
    waitpid(m_pid, nullptr, 0);
    m_pid = 0;
  }

 private:
  [[noreturn]] void Hold(const std::string& path, std::chrono::milliseconds holdFor) {
    sqlite3* db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK ||
        sqlite3_exec(db, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) != SQLITE_OK)
      _exit(1);
    if (write(m_ready[1], "x", 1) != 1) _exit(1);
    if (holdFor < 1h) {
      std::this_thread::sleep_for(holdFor);
      sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    }
    char byte = 0;
    _exit(read(m_end[0], &byte, 1) == 1 ? 0 : 1);
  }

  int m_ready[2];
  int m_end[2];
  pid_t m_pid = 0;
};

/// Runs `check` in a process that permissions hold for.
void Unprivileged(const std::function<void()>& check) {
  const pid_t child = fork();
  if (child == 0) {
    if (geteuid() == 0 && setuid(65534) != 0) _exit(2);
    check();
    _exit(testing::Test::HasFailure());
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

size_t LogLinesAboutInference(const std::string& reason) {
  const std::string text = set_paths::kInferenceDb + (": " + reason);
  std::ifstream log(SystemPath(set_paths::kLogFile));
  size_t count = 0;
  for (std::string line; std::getline(log, line);) count += line.find(text) != std::string::npos;
  return count;
}

TEST(TrevlinTime, OnlyRealTimesOfTheOneShapeAreTimes) {
  EXPECT_TRUE(trevlin::IsTime(trevlin::CurrentTime()));
  for (const char* good : {"2024-03-07T09:05:00", "2024-02-29T23:59:59", "2000-02-29T00:00:00", "9999-12-31T00:00:00"})
    EXPECT_TRUE(trevlin::IsTime(good)) << good;
  for (const char* bad :
       {"", "2024-03-07", "2024-03-07 09:05:00", "2024-3-07T09:05:00", "2024-03-07T09:05:00Z", "2024-03-07T9:05:00",
        "2023-02-29T00:00:00", "1900-02-29T00:00:00", "2024-04-31T00:00:00", "2024-00-10T00:00:00",
        "2024-13-10T00:00:00", "2024-01-00T00:00:00", "2024-01-01T24:00:00", "2024-01-01T00:60:00",
        "2024-01-01T00:00:60", "+024-01-01T00:00:00", "2024-01-01T 0:00:00", "2024-01-01T00:00:-1"})
    EXPECT_FALSE(trevlin::IsTime(bad)) << bad;
}

TEST(TrevlinDatabase, TransitionsAreOfTheIssueAndTypeNewestFirst) {
  for (const char* time : {"2024-03-07T09:05:00", "2024-03-09T00:00:00", "2023-12-31T23:59:59"})
    ASSERT_EQ(Record(17, 1, time), TREVLIN_OK);
  ASSERT_EQ(Record(17, 0, "2024-03-08T00:00:00"), TREVLIN_OK);
  ASSERT_EQ(Record(170, 1, "2025-01-01T00:00:00"), TREVLIN_OK);
  for (const auto access : {Database::Access::kReadOnly, Database::Access::kReadWrite}) {
    Database database(access);
    std::vector<_DTInfDBRecord> found(3);
    ASSERT_EQ(database.Transitions(17, 1, found), TREVLIN_OK);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].lastUpdateTime, "2024-03-09T00:00:00");
    EXPECT_EQ(found[1].lastUpdateTime, "2024-03-07T09:05:00");
    EXPECT_EQ(found[2].lastUpdateTime, "2023-12-31T23:59:59");
    EXPECT_EQ(found[0].issueCode, 17);
    EXPECT_EQ(found[0].transitionType, 1);
    EXPECT_EQ(found[0].status, 0);
    EXPECT_EQ(found[0].detail, "");
    EXPECT_EQ(database.Transitions(1, 1, found), TREVLIN_NO_MATCH);
    EXPECT_TRUE(found.empty());
    EXPECT_EQ(database.Transitions(-17, 0, found), TREVLIN_NO_MATCH);
  }
}

TEST(TrevlinDatabase, TheNewestSolutionIsTheLastOfEqualTimes) {
  Database database(Database::Access::kReadWrite);
  for (const auto& [solution, time] : {std::pair(1, "2024-03-07T09:05:00"), std::pair(2, "2024-03-09T00:00:00"),
                                       std::pair(3, "2024-03-09T00:00:00"), std::pair(4, "2024-03-08T00:00:00")})
    ASSERT_EQ(database.AddSolution({17, solution, 5, solution % 2, time}), TREVLIN_OK);
  _DTSolDBRecord found;
  ASSERT_EQ(database.NewestSolution(17, found), TREVLIN_OK);
  EXPECT_EQ(found.solutionCode, 3);
  EXPECT_EQ(found.type, 5);
  EXPECT_EQ(found.isApply, 1);
  EXPECT_EQ(database.NewestSolution(18, found), TREVLIN_NO_MATCH);
  EXPECT_EQ(found.solutionCode, 3);
  std::vector<_DTSolDBRecord> all;
  ASSERT_EQ(database.AllSolutions(all), TREVLIN_OK);
  EXPECT_EQ(std::vector({all[0].solutionCode, all[1].solutionCode, all[2].solutionCode, all[3].solutionCode}),
            std::vector({1, 4, 2, 3}));
}

TEST(TrevlinDatabase, RowsThatMakeNoSenseAreRefusedAndNothingIsMade) {
  Database database(Database::Access::kReadWrite);
  const trevlin::Transition good{"", "2024-03-07T09:05:00", 17, 1, 0};
  for (int field = 0; field < 4; ++field) {
    trevlin::Transition bad = good;
    if (field == 0) bad.issueCode = 0;
    if (field == 1) bad.type = 2;
    if (field == 2) bad.time = "yesterday";
    if (field == 3) bad.registerTime = "yesterday";
    EXPECT_EQ(database.AddTransition(bad), TREVLIN_ERROR_INVALID) << field;
  }
  EXPECT_EQ(database.AddSolution({0, 1, 5, 1, "2024-03-07T09:05:00"}), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(database.AddSolution({17, 1, 5, 1, ""}), TREVLIN_ERROR_INVALID);
  EXPECT_FALSE(fs::exists(kInference) || fs::exists(kSolution));
}

TEST(TrevlinDatabase, ReadWriteMakesTheTablesOthersReadAndReadOnlyMakesNothing) {
  std::vector<_DTInfDBRecord> found;
  _DTSolDBRecord solution;
  Database reader(Database::Access::kReadOnly);
  EXPECT_EQ(reader.Transitions(17, 1, found), TREVLIN_NO_MATCH);
  EXPECT_EQ(reader.NewestSolution(17, solution), TREVLIN_NO_MATCH);
  EXPECT_TRUE(fs::is_empty(fs::path(kInference).parent_path()));

  WriteBytes(kInference, "");
  EXPECT_EQ(reader.Transitions(17, 1, found), TREVLIN_NO_MATCH);
  EXPECT_EQ(fs::file_size(kInference), 0u);

  Database database(Database::Access::kReadWrite);
  EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_NO_MATCH);
  EXPECT_EQ(database.NewestSolution(17, solution), TREVLIN_NO_MATCH);
  const char* schema = "SELECT sql FROM sqlite_master WHERE type = 'table'";
  EXPECT_EQ(Rows(kInference, schema),
            std::vector<std::string>{"CREATE TABLE inferenceTBL(registerTime TEXT, lastUpdatedTime TEXT, issueCode "
                                     "TEXT, TR INTEGER, solutionCode INTEGER)"});
  EXPECT_EQ(Rows(kSolution, schema),
            std::vector<std::string>{"CREATE TABLE solutionTBL(registerTime TEXT, issueCode TEXT, solutionCode TEXT, "
                                     "type TEXT, isApply INTEFER)"});
}

TEST(TrevlinDatabase, RowsHoldTheValuesAndTheFirstRegisterTime) {
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(Record(18, 1, "2024-03-07T10:00:00"), TREVLIN_OK);
  ASSERT_EQ(Record(17, 0, "2024-03-08T00:00:00"), TREVLIN_OK);
  EXPECT_EQ(Rows(kInference, "SELECT *, typeof(issueCode), typeof(TR) FROM inferenceTBL"),
            (std::vector<std::string>{"2024-03-07T09:05:00|2024-03-07T09:05:00|17|1|0|text|integer",
                                      "2024-03-07T10:00:00|2024-03-07T10:00:00|18|1|0|text|integer",
                                      "2024-03-07T09:05:00|2024-03-08T00:00:00|17|0|0|text|integer"}));
}

TEST(TrevlinDatabase, QueriesOfADiagnosisAreAnsweredFromTheIndexAlone) {
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(Database(Database::Access::kReadWrite).AddSolution({17, 1, 5, 1, "2024-03-07T09:05:00"}), TREVLIN_OK);
  for (const auto& [path, sql, index] :
       {std::tuple(kInference, trevlin::kSelectTransitions, "USING COVERING INDEX inferenceIDX"),
        std::tuple(kSolution, trevlin::kSelectNewestSolution, "USING INDEX solutionIDX")}) {
    const auto plan = Rows(path, (std::string("EXPLAIN QUERY PLAN ") + sql).c_str());
    ASSERT_EQ(plan.size(), 1u) << "a second step would be a sort";
    EXPECT_NE(plan[0].find(index), std::string::npos) << plan[0];
  }
}

struct Broken {
  const char* name;
  const char* reason;
  void (*make)();
};

const Broken kBroken[] = {
    {"text", "cannot be read: file is not a database", [] { WriteBytes(kInference, std::string(5000, 'x')); }},
    {"three bytes", "cannot be read: file is not a database", [] { WriteBytes(kInference, "abc"); }},
    {"truncated within the header", "cannot be read: database disk image is malformed",
     [] {
       MakeLargeDatabase();
       fs::resize_file(kInference, 60);
     }},
    {"truncated within a page", "cannot be read: database disk image is malformed",
     [] {
       MakeLargeDatabase();
       fs::resize_file(kInference, 9000);
     }},
    {"truncated between pages", "cannot be read: database disk image is malformed",
     [] {
       MakeLargeDatabase();
       fs::resize_file(kInference, 8192);
     }},
    {"another schema", "cannot be read: no such column",
     [] { ASSERT_EQ(Execute(kInference, "CREATE TABLE inferenceTBL(issueCode TEXT, TR TEXT)"), SQLITE_OK); }},
    {"folder", "cannot be opened: it is not a regular file", [] { fs::create_directory(kInference); }},
    {"pipe", "cannot be opened: it is not a regular file", [] { ASSERT_EQ(mkfifo(kInference.c_str(), 0600), 0); }},
    {"link to a database", "cannot be opened: it is a symbolic link",
     [] {
       MakeLargeDatabase();
       fs::rename(kInference, kInference + ".target");
       fs::create_symlink(kInference + ".target", kInference);
     }},
    {"missing folder", "cannot be opened: unable to open database file (No such file or directory)",
     [] { fs::rename(fs::path(kInference).parent_path(), SystemPath("/home/owner/share/Trevlin/moved")); }},
};

class TrevlinBroken : public testing::TestWithParam<size_t> {};

TEST_P(TrevlinBroken, IsAnErrorWithOneLogLineAndStaysAsItIs) {
  setenv("VEXILO_LOG_TARGET", "file", 1);
  const Broken& broken = kBroken[GetParam()];
  SCOPED_TRACE(broken.name);
  broken.make();
  const bool isFile = fs::is_regular_file(kInference);
  const std::string before = isFile ? Bytes(kInference) : "";
  size_t lines = 0;
  for (const auto access : {Database::Access::kReadOnly, Database::Access::kReadWrite}) {
    Database database(access);
    std::vector<_DTInfDBRecord> found(1);
    database.BeginRead();
    for (int i = 0; i < 50; ++i) ASSERT_EQ(database.Transitions(17, 1, found), TREVLIN_ERROR_DATABASE);
    database.EndRead();
    EXPECT_TRUE(found.empty());
    EXPECT_NE(database.LastError().find(set_paths::kInferenceDb), std::string::npos) << database.LastError();
    EXPECT_NE(database.LastError().find(broken.reason), std::string::npos) << database.LastError();
    EXPECT_NE(database.AddTransition({"", "2024-03-07T09:05:00", 17, 1, 0}), TREVLIN_OK);
    EXPECT_EQ(LogLinesAboutInference(broken.reason), lines += 1);
  }
  if (isFile) {
    EXPECT_EQ(Bytes(kInference), before);
  }
}

INSTANTIATE_TEST_SUITE_P(All, TrevlinBroken, testing::Range<size_t>(0, std::size(kBroken)));

TEST(TrevlinDatabase, AFileThatIsReplacedOrRepairedIsReadAnew) {
  Database database(Database::Access::kReadWrite);
  std::vector<_DTInfDBRecord> found;
  WriteBytes(kInference, "not a database at all");
  EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_ERROR_DATABASE);
  fs::remove(kInference);
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_OK);
  fs::remove(kInference);
  EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_NO_MATCH);
  EXPECT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_OK);
}

TEST(TrevlinDatabase, ALockedDatabaseIsWaitedForOnceForAllQueries) {
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  std::vector<_DTInfDBRecord> found;
  _DTSolDBRecord solution;
  Database database(Database::Access::kReadWrite);
  OtherProcess other(kInference);
  const auto start = std::chrono::steady_clock::now();
  database.BeginRead();
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(database.Transitions(17, 1, found), TREVLIN_ERROR_DATABASE);
    // The other file going through does not buy another wait.
    ASSERT_EQ(database.NewestSolution(17, solution), TREVLIN_NO_MATCH);
  }
  database.EndRead();
  const auto spent = std::chrono::steady_clock::now() - start;
  EXPECT_GE(spent, 1900ms);
  EXPECT_LE(spent, 5s);
  EXPECT_NE(database.LastError().find("locked"), std::string::npos) << database.LastError();
  other.LetGo();
  EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_OK);
}

TEST(TrevlinDatabase, AShortLockIsWaitedOut) {
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  OtherProcess other(kInference, 300ms);
  std::vector<_DTInfDBRecord> found;
  EXPECT_EQ(Database(Database::Access::kReadOnly).Transitions(17, 1, found), TREVLIN_OK);
}

TEST(TrevlinDatabase, WhatMayNotBeWrittenCanStillBeRead) {
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(Execute(kInference, "DROP INDEX inferenceIDX"), SQLITE_OK);
  WriteBytes(kSolution, "");
  fs::permissions(kInference, fs::perms(0444));
  fs::permissions(fs::path(kInference).parent_path(), fs::perms(0555));
  const std::string before = Bytes(kInference);
  Unprivileged([] {
    Database database(Database::Access::kReadWrite);
    std::vector<_DTInfDBRecord> found;
    _DTSolDBRecord solution;
    EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_OK);
    EXPECT_EQ(database.NewestSolution(17, solution), TREVLIN_NO_MATCH);
    EXPECT_EQ(database.AddTransition({"", "2024-03-07T09:05:00", 17, 1, 0}), TREVLIN_ERROR_DATABASE);
    EXPECT_NE(database.LastError().find("readonly"), std::string::npos) << database.LastError();
    EXPECT_EQ(database.AddSolution({17, 1, 5, 1, "2024-03-07T09:05:00"}), TREVLIN_ERROR_DATABASE);
  });
  fs::permissions(kInference, fs::perms(0));
  Unprivileged([] {
    Database database(Database::Access::kReadOnly);
    std::vector<_DTInfDBRecord> found;
    EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_ERROR_DATABASE);
    EXPECT_NE(database.LastError().find("Permission denied"), std::string::npos) << database.LastError();
  });
  fs::permissions(fs::path(kInference).parent_path(), fs::perms(0755));
  fs::permissions(kInference, fs::perms(0644));
  EXPECT_EQ(Bytes(kInference), before);
  EXPECT_EQ(fs::file_size(kSolution), 0u);
}

TEST(TrevlinDatabase, OneStateIsHeldAndOwnRowsAreStoredAtOnce) {
  ASSERT_EQ(Record(17, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  Database database(Database::Access::kReadWrite);
  database.BeginRead();
  const std::string clear = "DELETE FROM inferenceTBL";
  EXPECT_EQ(Execute(kInference, clear), SQLITE_BUSY);
  EXPECT_EQ(database.AddSolution({17, 1, 5, 1, "2024-03-07T09:05:00"}), TREVLIN_OK);
  EXPECT_EQ(Rows(kSolution, "SELECT issueCode FROM solutionTBL"), std::vector<std::string>{"17"});
  EXPECT_EQ(Execute(kSolution, "DELETE FROM solutionTBL"), SQLITE_BUSY);
  database.EndRead();
  EXPECT_EQ(Execute(kInference, clear), SQLITE_OK);
  std::vector<_DTInfDBRecord> found;
  EXPECT_EQ(database.Transitions(17, 1, found), TREVLIN_NO_MATCH);
}

/// What the callbacks saw. A callback is a plain function, so there is one for all.
struct Calls {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<unsigned int> numbers;
  std::set<std::thread::id> threads;
  std::string threadName;

  bool WaitFor(size_t count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 20s, [&] { return numbers.size() >= count; });
  }
};
Calls g_calls;

void Note(unsigned int number, DTSignalData) {
  char name[32] = "";
  pthread_getname_np(pthread_self(), name, sizeof name);
  const std::lock_guard lock(g_calls.mutex);
  g_calls.numbers.push_back(number);
  g_calls.threads.insert(std::this_thread::get_id());
  g_calls.threadName = name;
  g_calls.changed.notify_all();
}

TEST(TrevlinEngine, NothingWorksBeforeItIsMadeAndBadArgumentsNever) {
  std::vector<_DTInfDBRecord> found;
  _DTSolDBRecord solution;
  EXPECT_EQ(GetInferenceDB(17, 1, &found), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(GetSolutionDB(17, &solution), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(SetSolutionDB({17, 1, 5, 1, "2024-03-07T09:05:00"}), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(InferenceSubscribeOnce(1, Note), -1);
  ASSERT_EQ(CreateAPIInstance(), 0);
  ASSERT_EQ(CreateAPIInstance(), 0);
  EXPECT_EQ(InferenceSubscribeOnce(1, nullptr), -1);
  EXPECT_EQ(GetInferenceDB(17, 1, nullptr), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(GetInferenceDB(17, 2, &found), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(GetSolutionDB(17, nullptr), TREVLIN_ERROR_INVALID);
  EXPECT_EQ(GetInferenceDB(17, 1, &found), TREVLIN_NO_MATCH);
  EXPECT_EQ(SetSolutionDB({17, 3, 5, 1, "2024-03-07T09:05:00"}), TREVLIN_OK);
  EXPECT_EQ(GetSolutionDB(17, &solution), TREVLIN_OK);
  EXPECT_EQ(solution.solutionCode, 3);
}

TEST(TrevlinEngine, EverySubscriptionIsAnsweredOnceInOrderOnTheEnginesOneThread) {
  ASSERT_EQ(CreateAPIInstance(), 0);
  constexpr unsigned int kPlain = 40;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (unsigned int n = 0; n < kPlain / 4; ++n) EXPECT_EQ(InferenceSubscribeOnce(10000000, Note), 0);
    });
  for (std::thread& thread : threads) thread.join();
  const auto subscribeAgain = [](unsigned int number, DTSignalData data) {
    EXPECT_EQ(InferenceSubscribeOnce(10000000, Note), 0);
    Note(number, data);
  };
  EXPECT_EQ(InferenceSubscribeOnce(10000000, subscribeAgain), 0);
  ASSERT_TRUE(g_calls.WaitFor(kPlain + 2));
  std::this_thread::sleep_for(50ms);  // for a call too many
  const std::lock_guard lock(g_calls.mutex);
  ASSERT_EQ(g_calls.numbers.size(), kPlain + 2);
  for (unsigned int i = 0; i < kPlain + 2; ++i) EXPECT_EQ(g_calls.numbers[i], i + 1);
  EXPECT_EQ(g_calls.threads.size(), 1u);
  EXPECT_EQ(g_calls.threads.count(std::this_thread::get_id()), 0u);
  EXPECT_EQ(g_calls.threadName, "trevlin");
}

TEST(TrevlinEngine, QueriesAreAnsweredOnManyThreadsDuringACallback) {
  for (int code = 1; code <= 20; ++code) ASSERT_EQ(Record(code, 1, "2024-03-07T09:05:00"), TREVLIN_OK);
  ASSERT_EQ(CreateAPIInstance(), 0);
  const auto askOnManyThreads = [](unsigned int number, DTSignalData data) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([i] {
        std::vector<_DTInfDBRecord> found;
        _DTSolDBRecord solution;
        for (int code = 1; code <= 20; ++code) {
          EXPECT_EQ(GetInferenceDB(code, 1, &found), TREVLIN_OK);
          EXPECT_EQ(found.size(), 1u);
          EXPECT_EQ(SetSolutionDB({code, i, 5, 1, "2024-03-07T09:05:00"}), TREVLIN_OK);
          EXPECT_EQ(GetSolutionDB(code, &solution), TREVLIN_OK);
        }
      });
    for (std::thread& thread : threads) thread.join();
    Note(number, data);
  };
  EXPECT_EQ(InferenceSubscribeOnce(10000000, askOnManyThreads), 0);
  std::vector<_DTInfDBRecord> found;
  for (int code = 1; code <= 20; ++code) EXPECT_EQ(GetInferenceDB(code, 0, &found), TREVLIN_NO_MATCH);
  EXPECT_TRUE(g_calls.WaitFor(1));
}

}  // namespace
