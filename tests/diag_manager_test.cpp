// The binding to the diagnosis engine: subscriptions and their callbacks, the parser plug-in, the self-diagnosis pages.

#include "QUVA_DiagManager.h"

#include <dlfcn.h>
#include <sqlite3.h>

#include "CHomeScreen.h"
#include "CStartDC.h"
#include "QUVA_DiagResultManager.h"
#include "QUVA_ParserPlugin.h"
#include "QUVA_Storage.h"
#include "support/diagnosis.h"
#include "support/files.h"
#include "support/held_daemon_place.h"

namespace {

std::mutex g_toldMutex;
std::vector<std::string> g_told;  // every operation that the engine was told, in order

}  // namespace

extern "C" int vconf_set_str(const char* key, const char* value) {
  if (key == std::string("system/trevlin/STOperation")) {
    const std::lock_guard lock(g_toldMutex);
    g_told.emplace_back(value);
  }
  return reinterpret_cast<decltype(&vconf_set_str)>(dlsym(RTLD_NEXT, "vconf_set_str"))(key, value);
}

namespace {

using QUVA::CHomeScreen;
using QUVA::CStartDC;
using QUVA::MapToDBTable;
using QUVA::QUVA_DiagManager;
using QUVA::QUVA_DiagResultManager;
using QUVA::TCInformationStorage;
using QUVA::TSCurrentQUVAMap;

const std::string kPlugin = SystemPath("/usr/lib/libquva_parser.so");
const std::string kKeys = std::string(set_paths::kSettingsDir) + "/db%2Ftest%2F";  // the files of keys

std::vector<std::string> Told() {
  const std::lock_guard lock(g_toldMutex);
  return g_told;
}

std::string Element(const std::string& code, const std::string& parameters = "") {
  return "<solution issue_code='" + code + "' sol_code='7' sol_type='2' view_authority='USER'>" + parameters +
         "</solution>";
}

std::string Parameter(const std::string& type, const std::string& value) {
  return "<sol_val param_type='" + type + "' param_value='" + value + "'/>";
}

void WriteMap(const std::string& elements) {
  WriteFile(set_paths::kSolutionMap, "<map><sminfo version='3'/><sm cnt='9'>" + elements + "</sm></map>");
}

int Number(const char* key) {
  int value = 0;
  vconf_get_int(key, &value);
  return value;
}

QUVA_DiagManager& Manager() {
  return *QUVA_DiagManager::GetInstance();
}

QUVA_DiagResultManager& Results() {
  return *QUVA_DiagResultManager::GetInstance();
}

/// With the engine, the plug-in, a map of two issues that are true, and an earlier list of remaining problems.
class DiagManager : public testing::Test {
 protected:
  DiagManager() {
    fs::copy_file(PARSER_PLUGIN, kPlugin);
    CStartDC::Instance();  // they listen from their beginning
    CHomeScreen::Instance();
    CreateAPIInstance();
    WriteMap(Element("17") + Element("18"));
    for (const int code : {17, 18}) Becomes(true, code);
    Manager();  // reads the map
    Results().GetInferenceResult();
    Results().SaveRemainingProblems();
    Results().CleanDiagResult();
  }
};

// ---- subscriptions

// Resolution asks the storage for the map, so whoever holds the storage holds up a callback, but for its own thread.
TEST_F(DiagManager, EverySubscriptionIsAnsweredOnceOnAnotherThread) {
  constexpr int kTimes = 5;
  {
    const std::lock_guard lock(QUVA::m_QUVAmutex);
    for (int i = 0; i < kTimes; ++i) Manager().StartAutoDiagnosis();
    EXPECT_TRUE(Until([] { return Operation() == OperationOf("CreateErrorList"); }));
    EXPECT_FALSE(CStartDC::Instance()->m_IsResultReceived());
    Manager().RemainingProblem();
  }
  // The engine answers in order, so the last one tells that all are there.
  EXPECT_TRUE(Until([] { return CHomeScreen::Instance()->m_IsRemainingDataArrived(); }));
  EXPECT_EQ(Count(Log(), "CreateErrorList end.."), kTimes);
  // "InferenceRemaining" is told when it is asked for, among the answers to the others.
  std::vector<std::string> told = Told();
  std::erase(told, OperationOf("InferenceRemaining"));
  ASSERT_EQ(told.size(), 2u * kTimes + 2);
  EXPECT_EQ(told[0] + told[1], OperationOf("SolutionCallback") + OperationOf("CreateErrorList"));
  EXPECT_EQ(told[2 * kTimes] + told.back(), OperationOf("RemainingCallback") + OperationOf("CompareRemaining"));
  EXPECT_EQ(Count(Log(), "] RemainingCallbackFunc"), 1);
  EXPECT_EQ(Count(Log(), "] QGuideCallbackFunc"), 0);
  EXPECT_THAT(Codes(CStartDC::Instance()->m_GetRows()), ElementsAre("17", "18"));
  EXPECT_THAT(Codes(CHomeScreen::Instance()->m_GetDCIssues()), ElementsAre("17", "18"));
}

TEST_F(DiagManager, ManyDiagnosesAndTheScreensAtOnce) {
  constexpr int kThreads = 3;
  constexpr int kEach = 10;
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
  constexpr int kAnswers = 2 * kThreads * kEach;
  const auto done = [] { return Count(Log(), "m_DiagResCallback triggered.. ") == kAnswers; };
  EXPECT_TRUE(Until([&] {
    EXPECT_EQ(Results().LoadRemainingProblems(), 1);
    std::vector<MapToDBTable> rows;
    Results().GetRemainingTable(rows);
    EXPECT_THAT(Codes(rows), testing::AnyOf(IsEmpty(), ElementsAre("17", "18")));
    return done();
  }));
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(Until(done));
  EXPECT_EQ(Count(Log(), "m_DiagResCallback triggered.. Size = 2\n"), kAnswers);
  EXPECT_EQ(Results().LoadRemainingProblems(), 1);
}

TEST(DiagManagerFault, EachEntryThatThePluginLacksIsNamed) {
  fs::copy_file(PROBE_PARSER, kPlugin);
  Manager();
  for (const char* entry :
       {"RequestApplySolution", "PlanSolution", "ApplyAgreedSolution", "SaveResultToSolutionDB", "ProcessLaunchApp"})
    EXPECT_EQ(Count(Log(), std::string("undefined symbol: ") + entry), 1) << entry;
}

TEST(DiagManagerFault, APluginOfOtherEntriesIsLoggedAndTolerated) {
  Dl_info library{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&sqlite3_open), &library), 0);
  fs::copy_file(library.dli_fname, kPlugin);
  CStartDC::Instance();
  CreateAPIInstance();
  WriteMap(Element("17"));
  Becomes(true, 17);
  Manager().StartAutoDiagnosis();
  EXPECT_THAT(Log(), HasSubstr("dlsym failed for parse Solution Map: "));
  EXPECT_EQ(Manager().m_pGetApplySolution(), nullptr);
  EXPECT_EQ(Manager().m_pGetSaveResult(), nullptr);
  EXPECT_EQ(Manager().StartSelfDiagnosis("NetworkSetting"), "");
  EXPECT_TRUE(Until([] { return CStartDC::Instance()->m_IsResultReceived(); }));
  EXPECT_THAT(CStartDC::Instance()->m_GetRows(), IsEmpty());
}

// ---- self diagnosis

TEST_F(DiagManager, TheSignalPageDependsOnTheSource) {
  EXPECT_EQ(Manager().StartSelfDiagnosis("SignalInfo"), "signal-information") << "the source is not known";
  for (const int source : {0, 12, 17, 37, 40, 45, 48, -1}) {
    vconf_set_int("memory/tv/source", source);
    EXPECT_EQ(Manager().StartSelfDiagnosis("SignalInfo"), "signal-information") << source;
  }
  for (const int source : {13, 14, 15, 16, 38, 39, 46, 47}) {
    vconf_set_int("memory/tv/source", source);
    EXPECT_EQ(Manager().StartSelfDiagnosis("SignalInfo"), "hdmi-information") << source;
  }
  EXPECT_EQ(Manager().StartSelfDiagnosis("signalinfo"), "");
  EXPECT_THAT(Log(), HasSubstr("Unknown Value : signalinfo\n"));
}

TEST_F(DiagManager, NetworkSettingIsLaunched) {
  WriteFile("/usr/share/applications/org.varno.NetworkSetting-Varno.desktop",
            "[Desktop Entry]\nType=Application\nName=Network\nExec=touch " + SystemPath("/tmp/launched") + "\n");
  EXPECT_EQ(Manager().StartSelfDiagnosis("NetworkSetting"), "");
  EXPECT_TRUE(Until([] { return Exists("/tmp/launched"); }));
}

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

  /// Issue, solution, type and whether it was applied.
  using Record = std::tuple<int, int, int, int>;
  static std::vector<Record> Records(std::string* newestTime = nullptr) {
    std::vector<_DTSolDBRecord> stored;
    trevlin::Database(trevlin::Database::Access::kReadOnly).AllSolutions(stored);
    std::vector<Record> records;
    for (const _DTSolDBRecord& each : stored) {
      records.emplace_back(each.issueCode, each.solutionCode, each.type, each.isApply);
      if (newestTime) *newestTime = each.registerTime;
    }
    return records;
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
  WriteMap(Element("17"));
  ASSERT_EQ(Parse(), 0);
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"missing", [] {}},
      {"malformed", [] { WriteMap(Element("99") + "</other>"); }},
      {"a parameter first", [] { WriteMap(Parameter("launch", "a") + Element("99")); }},
      {"a folder", [&] { fs::create_directory(path); }},
      {"a pipe", [&] { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
  };
  for (const auto& [name, make] : cases) {
    SCOPED_TRACE(name);
    fs::remove(path);
    make();
    const int before = Count(Log(), set_paths::kSolutionMap);
    EXPECT_EQ(Parse(), -1);
    EXPECT_GT(Count(Log(), set_paths::kSolutionMap), before) << "the log names the file";
    TSCurrentQUVAMap map;
    TCInformationStorage::Instance()->GetQUVAMapInformation(map);
    EXPECT_EQ(std::pair(map.version, map.count), std::pair(3u, 9u));
    ASSERT_EQ(map.solutions.size(), 1u);
    EXPECT_EQ(map.solutions[0].issue_code, "17");
  }
}

TEST_F(ParserPlugin, ApplyingDoesEachStepAndRecordsTheSolutionInLocalTime) {
  setenv("TZ", "XST-5:30", 1);
  tzset();
  WriteMap(Element("17", Parameter("setting", "int db/test/int -5") + Parameter("setting", "bool db/test/bool true") +
                             Parameter("setting", "double db/test/double 1.5") +
                             Parameter("setting", "string db/test/string some  text") + Parameter("memboost", "")));
  ASSERT_EQ(Parse(), 0);
  const std::string before = trevlin::CurrentTime();
  EXPECT_EQ(Apply("17"), 0);
  EXPECT_EQ(Number("db/test/int"), -5);
  int yes = 0;
  double real = 0;
  vconf_get_bool("db/test/bool", &yes);
  vconf_get_dbl("db/test/double", &real);
  EXPECT_EQ(std::pair(yes, real), std::pair(1, 1.5));
  EXPECT_STREQ(CText(vconf_get_str("db/test/string")).get(), "some  text");
  EXPECT_TRUE(Exists("/tmp/tager/req/memBoost"));
  std::string time;
  EXPECT_THAT(Records(&time), ElementsAre(Record(17, 7, 2, 1)));
  EXPECT_LE(before, time);
  EXPECT_LE(time, trevlin::CurrentTime());
}

TEST_F(ParserPlugin, AFailingStepStopsAndNothingIsRecorded) {
  const std::pair<const char*, const char*> cases[] = {
      {"reboot", ""},
      {"setting", "number db/test/failed 1"},
      {"setting", "int db/test/failed 1.5"},
      {"setting", "bool db/test/failed 1"},
      {"setting", "int ../failed 1"},
      {"launch", "org.varno.installed word"},
      {"restart_service", "a.target"},
      {"off_timer", "start"},
      {"wireless", "off"},
  };
  WriteFile("/usr/share/applications/org.varno.installed.desktop",
            "[Desktop Entry]\nType=Application\nName=Any\nExec=touch " + SystemPath("/tmp/launched") + "\n");
  for (const auto& [type, value] : cases) {
    SCOPED_TRACE(std::string(type) + " " + value);
    vconf_set_int("db/test/first", 0);
    WriteMap(Element("17", Parameter("setting", "int db/test/first 1") + Parameter(type, value) +
                               Parameter("setting", "int db/test/third 1")));
    ASSERT_EQ(Parse(), 0);
    EXPECT_EQ(Apply("17"), -1);
    EXPECT_EQ(Number("db/test/first"), 1);
    EXPECT_FALSE(Exists(kKeys + "third") || Exists(kKeys + "failed"));
    EXPECT_THAT(Records(), IsEmpty());
  }
  EXPECT_FALSE(Exists("/tmp/launched"));
}

TEST_F(ParserPlugin, WhatHasNoSolutionOrCannotBeRecordedFails) {
  WriteMap(Element("17") + Element("text"));
  ASSERT_EQ(Parse(), 0);
  for (const char* code : {"", "1", "170", "17 ", "text"}) EXPECT_EQ(Apply(code) + Save(code, "cancel"), -2) << code;
  EXPECT_THAT(Records(), IsEmpty());
  fs::remove(SystemPath(set_paths::kSolutionDb));
  fs::create_directories(SystemPath(set_paths::kSolutionDb));
  EXPECT_EQ(Apply("17") + Save("17", "cancel"), -2);
}

TEST_F(ParserPlugin, AnAppliedIssueIsNotFoundAgainUntilItIsTrueAgain) {
  WriteMap(Element("17", Parameter("setting", "int db/test/applied 1")) + Element("18"));
  ASSERT_EQ(Parse(), 0);
  for (const int code : {17, 18}) Becomes(true, code);
  EXPECT_EQ(Save("17", "cancel"), 0);
  EXPECT_FALSE(Exists(kKeys + "applied")) << "recording does nothing";
  EXPECT_EQ(Results().GetInferenceResult(), 2);
  EXPECT_EQ(Apply("17"), 0);
  EXPECT_EQ(Results().GetInferenceResult(), 1);
  for (const char* result : {"success", "Cancel"}) EXPECT_EQ(Save("18", result), 0);
  EXPECT_EQ(Results().GetInferenceResult(), 0);
  Becomes(true, 17, "9999-12-31T23:59:59");
  EXPECT_EQ(Results().GetInferenceResult(), 1);
  EXPECT_THAT(Records(),
              ElementsAre(Record(17, 7, 2, 0), Record(17, 7, 2, 1), Record(18, 7, 2, 1), Record(18, 7, 2, 1)));
}

// A scan frees storage where there is no daemon that would: what it says to have done is done.
TEST(OptimizedDevice, IsCleanedByTheDaemonOrElseFromHere) {
  const std::string package = SystemPath(set_paths::kPackagesDir) + "/org.example", cached = package + "/cache/file";
  WriteHostFile(package + "/manifest.json", R"({"package_id": "org.example", "app_id": "org.example", "title": "x"})");
  WriteHostFile(cached, "cached");
  // No request can be left, so that none is waited for.
  fs::remove_all(SystemPath(set_paths::kTager));
  WriteFile(set_paths::kTager, "");
  {
    const HeldDaemonPlace daemon;
    Manager().OptimizeDevice();
    EXPECT_TRUE(fs::exists(cached));
  }
  Manager().OptimizeDevice();
  EXPECT_FALSE(fs::exists(cached));
}

}  // namespace
