// The binding to the diagnosis engine: subscriptions and their callbacks, the parser plug-in, the self-diagnosis pages.

#include "QUVA_DiagManager.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "CHomeScreen.h"
#include "CStartDC.h"
#include "QUVA_DiagResultManager.h"
#include "QUVA_ParserPlugin.h"
#include "QUVA_Storage.h"
#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using QUVA::CHomeScreen;
using QUVA::CStartDC;
using QUVA::MapToDBTable;
using QUVA::QUVA_DiagManager;
using QUVA::QUVA_DiagResultManager;
using QUVA::TCInformationStorage;
using QUVA::TSCurrentQUVAMap;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kTime[] = "2024-03-07T09:05:00";
const std::string kPlugin = SystemPath("/usr/lib/libquva_parser.so");
const std::string kResult = SystemPath("/tmp/qsyslink/inference_result");

std::string Text(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string Log() {
  return Text(SystemPath(set_paths::kLogFile));
}

size_t CountInLog(const std::string& text) {
  const std::string log = Log();
  size_t count = 0;
  for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
  return count;
}

bool Until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

std::string Operation() {
  const CText text(vconf_get_str("system/trevlin/STOperation"));
  return text ? text.get() : "";
}

std::string Id(const char* id) {
  return std::string("{\"id\" : \"") + id + "\"}";
}

bool OperationBecomes(const char* id) {
  return Until([id] { return Operation() == Id(id); });
}

std::vector<std::string> Codes(const std::vector<MapToDBTable>& rows) {
  std::vector<std::string> codes;
  for (const MapToDBTable& row : rows) codes.push_back(row.issue_code);
  return codes;
}

void WriteMap(const std::string& text) {
  std::ofstream(SystemPath(set_paths::kSolutionMap)) << text;
}

std::string Element(const std::string& code, const std::string& parameters = "") {
  return "<solution issue_code='" + code + "' sol_code='7' sol_type='2' view_authority='USER'>" + parameters +
         "</solution>";
}

std::string Parameter(const std::string& type, const std::string& value) {
  return "<sol_val param_type='" + type + "' param_value='" + value + "'/>";
}

std::string Map(const std::string& elements) {
  return "<map><sminfo version='3'/><sm cnt='9'>" + elements + "</sm></map>";
}

void BecomesTrue(int code, const std::string& time = kTime) {
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  ASSERT_EQ(database.AddTransition({.time = time, .issueCode = code, .type = DT_TRANSITION_TYPE_TRUE}), TREVLIN_OK);
}

std::vector<_DTSolDBRecord> RecordedSolutions() {
  std::vector<_DTSolDBRecord> records;
  trevlin::Database(trevlin::Database::Access::kReadOnly).AllSolutions(records);
  return records;
}

/// With the engine, the plug-in, a map of two issues that are true, and an earlier list of remaining problems.
class DiagManager : public testing::Test {
 protected:
  DiagManager() {
    fs::copy_file(PARSER_PLUGIN, kPlugin);
    CreateAPIInstance();
    WriteMap(Map(Element("17") + Element("18")));
    BecomesTrue(17);
    BecomesTrue(18);
  }

  static QUVA_DiagManager& Manager() { return *QUVA_DiagManager::GetInstance(); }

  static void StoreProblems() {
    auto& results = *QUVA_DiagResultManager::GetInstance();
    Manager();  // reads the map
    results.GetInferenceResult();
    results.SaveRemainingProblems();
    results.CleanDiagResult();
  }
};

// ---- subscriptions

// Resolution asks the storage for the map, so whoever holds the storage holds up a callback, but for its own thread.
TEST_F(DiagManager, ADiagnosisIsAnsweredOnAnotherThread) {
  Manager();
  {
    const std::lock_guard lock(QUVA::m_QUVAmutex);
    Manager().StartAutoDiagnosis();
    EXPECT_TRUE(OperationBecomes("CreateErrorList"));
    EXPECT_FALSE(CStartDC::Instance()->m_IsResultReceived());
  }
  EXPECT_TRUE(Until([] { return CStartDC::Instance()->m_IsResultReceived(); }));
  EXPECT_THAT(Codes(CStartDC::Instance()->m_GetRows()), ElementsAre("17", "18"));
}

TEST_F(DiagManager, EverySubscriptionIsAnsweredOnce) {
  constexpr size_t kTimes = 5;
  StoreProblems();
  {
    const std::lock_guard lock(QUVA::m_QUVAmutex);  // so that all are pending at once
    for (size_t i = 0; i < kTimes; ++i) Manager().StartAutoDiagnosis();
    Manager().RemainingProblem();
  }
  // The engine answers in order, so the last one tells that all are there.
  EXPECT_TRUE(Until([] { return CHomeScreen::Instance()->m_IsRemainingDataArrived(); }));
  EXPECT_EQ(CountInLog("CreateErrorList end.."), kTimes);
  EXPECT_EQ(CountInLog("] RemainingCallbackFunc"), 1u);
  EXPECT_EQ(CountInLog("] QGuideCallbackFunc"), 0u);
  EXPECT_THAT(Codes(CHomeScreen::Instance()->m_GetDCIssues()), ElementsAre("17", "18"));
}

TEST_F(DiagManager, TheQuickDiagnosisWritesTheResultFileOnly) {
  Manager().StartQGuideDiagnosis();
  EXPECT_TRUE(Until([] { return Text(kResult) == "17\n18\n"; }));
  EXPECT_FALSE(CStartDC::Instance()->m_IsResultReceived());
  EXPECT_EQ(Operation(), "");
}

// The result manager is held up in a list operation of its own, so that each callback stops before it.
TEST_F(DiagManager, TheEngineIsToldEveryStep) {
  StoreProblems();
  const auto holdResults = [] {
    fs::remove(kResult);
    std::thread thread([] { QUVA_DiagResultManager::GetInstance()->CreateQGuideErrList(); });
    EXPECT_TRUE(Until([] { return fs::exists(kResult); }));
    return thread;
  };
  {
    std::unique_lock lock(QUVA::m_QUVAmutex);
    std::thread results = holdResults();
    Manager().StartAutoDiagnosis();
    EXPECT_TRUE(OperationBecomes("SolutionCallback"));
    Manager().RemainingProblem();
    EXPECT_EQ(Operation(), Id("InferenceRemaining"));
    lock.unlock();
    results.join();
    EXPECT_TRUE(OperationBecomes("CompareRemaining"));
  }
  EXPECT_TRUE(Until([] { return CHomeScreen::Instance()->m_IsRemainingDataArrived(); }));
  {
    std::unique_lock lock(QUVA::m_QUVAmutex);
    std::thread results = holdResults();
    Manager().RemainingProblem();
    EXPECT_TRUE(OperationBecomes("RemainingCallback"));
    lock.unlock();
    results.join();
    EXPECT_TRUE(OperationBecomes("CompareRemaining"));
  }
  {
    const std::lock_guard lock(QUVA::m_QUVAmutex);
    Manager().StartAutoDiagnosis();
    EXPECT_TRUE(OperationBecomes("CreateErrorList"));
  }
  // Lets the last callback end.
  EXPECT_TRUE(Until([] { return CountInLog("CreateErrorList end..") == 2; }));
}

TEST_F(DiagManager, ManyDiagnosesAndTheScreensAtOnce) {
  constexpr int kThreads = 3;
  constexpr int kEach = 10;
  StoreProblems();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread)
    threads.emplace_back([] {
      for (int i = 0; i < kEach; ++i) {
        Manager().StartAutoDiagnosis();
        Manager().RemainingProblem();
        CHomeScreen::Instance()->m_GetDCIssues();
        CStartDC::Instance()->m_GetRows();
      }
    });
  auto& results = *QUVA_DiagResultManager::GetInstance();
  constexpr size_t kAnswers = 2 * kThreads * kEach;
  const auto done = [] { return CountInLog("m_DiagResCallback triggered.. ") == kAnswers; };
  EXPECT_TRUE(Until([&] {
    EXPECT_EQ(results.LoadRemainingProblems(), 1);
    std::vector<MapToDBTable> rows;
    results.GetRemainingTable(rows);
    EXPECT_THAT(Codes(rows), testing::AnyOf(IsEmpty(), ElementsAre("17", "18")));
    return done();
  }));
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(Until(done));
  EXPECT_EQ(CountInLog("m_DiagResCallback triggered.. Size = 2\n"), kAnswers);
  EXPECT_EQ(results.LoadRemainingProblems(), 1);
}

TEST_F(DiagManager, TheExitFlagEndsTheProcess) {
  EXPECT_EXIT(Manager().SetExitFlag(7), testing::ExitedWithCode(7), "");
}

// ---- self diagnosis

TEST_F(DiagManager, TheSignalPageDependsOnTheSource) {
  const std::set<int> hdmi = {13, 14, 15, 16, 38, 39, 46, 47};
  const auto page = [](const char* item) { return Manager().StartSelfDiagnosis(std::string(item).data()); };
  EXPECT_EQ(QUVA::GetCurrentSourceInfo(), -1);
  EXPECT_EQ(page("SignalInfo"), "signal-information") << "the source is not known";
  for (const int source : {0, 1, 12, 13, 14, 15, 16, 17, 37, 38, 39, 40, 45, 46, 47, 48, -1}) {
    vconf_set_int("memory/tv/source", source);
    EXPECT_EQ(QUVA::GetCurrentSourceInfo(), source);
    EXPECT_EQ(page("SignalInfo"), hdmi.count(source) ? "hdmi-information" : "signal-information") << source;
  }
  for (const char* unknown : {"signalinfo", "SignalInfo ", "networksetting", ""}) {
    EXPECT_EQ(page(unknown), "") << unknown;
    EXPECT_THAT(Log(), HasSubstr(std::string("Unknown Value : ") + unknown + "\n"));
  }
}

TEST_F(DiagManager, NetworkSettingIsLaunched) {
  const std::string mark = SystemPath("/tmp/launched");
  std::ofstream(SystemPath("/usr/share/applications/org.varno.NetworkSetting-Varno.desktop"))
      << "[Desktop Entry]\nType=Application\nName=Network\nExec=touch " + mark + "\n";
  EXPECT_EQ(Manager().StartSelfDiagnosis(std::string("NetworkSetting").data()), "");
  EXPECT_TRUE(Until([&] { return fs::exists(mark); }));
}

// ---- the plug-in is missing or another

struct WrongPlugin {
  const char* name;
  void (*make)();
  const char* logged;
};
void PrintTo(const WrongPlugin& plugin, std::ostream* out) {
  *out << plugin.name;
}

class PluginFault : public testing::TestWithParam<WrongPlugin> {};

TEST_P(PluginFault, IsLoggedAndTolerated) {
  GetParam().make();
  CreateAPIInstance();
  WriteMap(Map(Element("17")));
  BecomesTrue(17);
  QUVA_DiagManager& manager = *QUVA_DiagManager::GetInstance();
  EXPECT_THAT(Log(), HasSubstr(GetParam().logged));
  EXPECT_EQ(manager.m_pGetApplySolution(), nullptr);
  EXPECT_EQ(manager.m_pGetSaveResult(), nullptr);
  EXPECT_EQ(manager.StartSelfDiagnosis(std::string("NetworkSetting").data()), "");
  EXPECT_EQ(manager.StartSelfDiagnosis(std::string("SignalInfo").data()), "signal-information");
  manager.StartAutoDiagnosis();
  EXPECT_TRUE(Until([] { return CStartDC::Instance()->m_IsResultReceived(); }));
  EXPECT_THAT(CStartDC::Instance()->m_GetRows(), IsEmpty());
}

constexpr WrongPlugin kWrongPlugins[] = {
    {"Missing", [] {}, "dlopen error: "},
    {"NoLibrary", [] { std::ofstream(kPlugin) << "not a library"; }, "dlopen error: "},
    {"OfOtherEntries",
     [] {
       Dl_info library{};
       ASSERT_NE(dladdr(reinterpret_cast<void*>(&sqlite3_open), &library), 0);
       fs::copy_file(library.dli_fname, kPlugin);
     },
     "dlsym failed for parse Solution Map: "},
};
INSTANTIATE_TEST_SUITE_P(Of, PluginFault, testing::ValuesIn(kWrongPlugins),
                         [](const auto& each) { return std::string(each.param.name); });

// ---- the plug-in's entries

class ParserPlugin : public testing::Test {
 protected:
  ParserPlugin() {
    fs::copy_file(PARSER_PLUGIN, kPlugin);
    CreateAPIInstance();
    m_library = dlopen(kPlugin.c_str(), RTLD_NOW);
    EXPECT_NE(m_library, nullptr) << dlerror();
  }

  int Parse() { return Entry<QUVA::ParseSolutionMapEntry>("ParseSolutionMap")(); }
  int Apply(const char* code) { return Entry<QUVA::ApplySolutionEntry>("RequestApplySolution")(code); }
  int Save(const char* code, const char* result) {
    return Entry<QUVA::SaveResultEntry>("SaveResultToSolutionDB")(code, result);
  }

 private:
  template <typename Function>
  Function Entry(const char* name) {
    const auto entry = reinterpret_cast<Function>(dlsym(m_library, name));
    if (!entry) throw std::runtime_error(dlerror());
    return entry;
  }

  void* m_library = nullptr;
};

TEST_F(ParserPlugin, AMapThatCannotBeUsedLeavesTheStorageAsItIs) {
  const std::string path = SystemPath(set_paths::kSolutionMap);
  WriteMap(Map(Element("17")));
  ASSERT_EQ(Parse(), 0);
  const struct {
    const char* name;
    std::function<void()> make;
  } cases[] = {
      {"missing", [] {}},
      {"malformed", [] { WriteMap("<map><sm cnt='1'/>" + Element("99") + "</mop>"); }},
      {"not xml", [] { WriteMap(std::string(100, '\0')); }},
      {"a parameter first", [] { WriteMap("<map>" + Parameter("launch", "a") + Element("99") + "</map>"); }},
      {"a folder", [&] { fs::create_directory(path); }},
      {"a pipe", [&] { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    fs::remove(path);
    each.make();
    const size_t before = CountInLog(set_paths::kSolutionMap);
    EXPECT_EQ(Parse(), -1);
    EXPECT_GT(CountInLog(set_paths::kSolutionMap), before) << "the log names the file";
    TSCurrentQUVAMap map;
    TCInformationStorage::Instance()->GetQUVAMapInformation(map);
    EXPECT_EQ(map.version, 3u);
    EXPECT_EQ(map.count, 9u);
    ASSERT_EQ(map.solutions.size(), 1u);
    EXPECT_EQ(map.solutions[0].issue_code, "17");
  }
}

TEST_F(ParserPlugin, ApplyingDoesEachStepAndRecordsTheSolution) {
  WriteMap(
      Map(Element("17", Parameter("setting", "int db/test/int -5") + Parameter("setting", "bool db/test/bool true") +
                            Parameter("setting", "double db/test/double 1.5") +
                            Parameter("setting", "string db/test/string some  text") + Parameter("memboost", ""))));
  ASSERT_EQ(Parse(), 0);
  const std::string before = trevlin::CurrentTime();
  EXPECT_EQ(Apply("17"), 0);
  int number = 0;
  int yes = 0;
  double real = 0;
  vconf_get_int("db/test/int", &number);
  vconf_get_bool("db/test/bool", &yes);
  vconf_get_dbl("db/test/double", &real);
  const CText text(vconf_get_str("db/test/string"));
  EXPECT_EQ(std::tuple(number, yes, real), std::tuple(-5, 1, 1.5));
  EXPECT_STREQ(text.get(), "some  text");
  EXPECT_TRUE(fs::exists(SystemPath("/tmp/tager/req/memBoost")));
  const auto records = RecordedSolutions();
  ASSERT_EQ(records.size(), 1u);
  const _DTSolDBRecord& record = records[0];
  EXPECT_EQ(std::tuple(record.issueCode, record.solutionCode, record.type, record.isApply), std::tuple(17, 7, 2, 1));
  EXPECT_LE(before, record.registerTime);
  EXPECT_LE(record.registerTime, trevlin::CurrentTime());
}

TEST_F(ParserPlugin, AFailingStepStopsAndNothingIsRecorded) {
  const std::pair<const char*, const char*> cases[] = {
      {"reboot", ""},
      {"", ""},
      {"Setting", "int db/test/failed 1"},
      {"setting", "int db/test/failed"},
      {"setting", "number db/test/failed 1"},
      {"setting", "int db/test/failed 1.5"},
      {"setting", "int db/test/failed 4294967296"},
      {"setting", "double db/test/failed 1.5x"},
      {"setting", "bool db/test/failed 1"},
      {"setting", "int ../failed 1"},
      {"launch", "org.varno.nothing"},
      {"launch", "org.varno.installed word"},
      {"restart_service", ""},
      {"restart_service", "a.target"},
  };
  std::ofstream(SystemPath("/usr/share/applications/org.varno.installed.desktop"))
      << "[Desktop Entry]\nType=Application\nName=Any\nExec=touch " + SystemPath("/tmp/launched") + "\n";
  for (const auto& [type, value] : cases) {
    SCOPED_TRACE(std::string(type) + " " + value);
    vconf_set_int("db/test/first", 0);
    vconf_set_int("db/test/third", 0);
    WriteMap(Map(Element("17", Parameter("setting", "int db/test/first 1") + Parameter(type, value) +
                                   Parameter("setting", "int db/test/third 1"))));
    ASSERT_EQ(Parse(), 0);
    EXPECT_EQ(Apply("17"), -1);
    int first = 0;
    int third = 1;
    int failed = 0;
    vconf_get_int("db/test/first", &first);
    vconf_get_int("db/test/third", &third);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(third, 0);
    EXPECT_NE(vconf_get_int("db/test/failed", &failed), 0);
    EXPECT_THAT(RecordedSolutions(), IsEmpty());
  }
  EXPECT_FALSE(fs::exists(SystemPath("/tmp/launched")));
}

TEST_F(ParserPlugin, WhatHasNoSolutionOrCannotBeRecordedFails) {
  WriteMap(Map(Element("17") + Element("text")));
  ASSERT_EQ(Parse(), 0);
  for (const char* code : {"", "1", "170", "17 ", "text"}) EXPECT_EQ(Apply(code) + Save(code, "cancel"), -2) << code;
  EXPECT_THAT(RecordedSolutions(), IsEmpty());
  std::ofstream(SystemPath(set_paths::kSolutionDb)) << "no database";
  EXPECT_EQ(Apply("17") + Save("17", "cancel"), -2);
}

TEST_F(ParserPlugin, AnAppliedIssueIsNotFoundAgainUntilItIsTrueAgain) {
  auto& results = *QUVA_DiagResultManager::GetInstance();
  WriteMap(Map(Element("17", Parameter("setting", "int db/test/applied 1")) + Element("18")));
  ASSERT_EQ(Parse(), 0);
  BecomesTrue(17);
  BecomesTrue(18);
  EXPECT_EQ(Save("17", "cancel"), 0);
  int applied = 0;
  EXPECT_NE(vconf_get_int("db/test/applied", &applied), 0) << "recording does nothing";
  EXPECT_EQ(results.GetInferenceResult(), 2);
  EXPECT_EQ(Apply("17"), 0);
  EXPECT_EQ(results.GetInferenceResult(), 1);
  for (const char* result : {"success", "Cancel"}) EXPECT_EQ(Save("18", result), 0);
  EXPECT_EQ(results.GetInferenceResult(), 0);
  BecomesTrue(17, "9999-12-31T23:59:59");
  EXPECT_EQ(results.GetInferenceResult(), 1);
  std::vector<int> records;
  for (const _DTSolDBRecord& record : RecordedSolutions()) records.push_back(record.isApply);
  EXPECT_THAT(records, ElementsAre(0, 1, 1, 1));
}

}  // namespace
