// The command line tool, as a process.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "kpi_logger.h"
#include "set_paths.h"
#include "support/process.h"
#include "system_path.h"
#include "trevlin_engine.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Words = std::vector<std::string>;

Words Ctl(const Words& words) {
  const char* path = std::getenv("VEXILOCTL");
#ifdef VEXILOCTL
  if (!path) path = VEXILOCTL;
#endif
  Words argv{path ? path : "vexiloctl"};
  argv.insert(argv.end(), words.begin(), words.end());
  return argv;
}

ProcessResult RunCtl(const Words& words, const ProcessOptions& options = {}) {
  return RunProcess(Ctl(words), options);
}

/// The output of a run that must go well.
std::string Output(const Words& words) {
  const ProcessResult result = RunCtl(words);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  return result.out;
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

void Write(const char* path, const std::string& content) {
  std::ofstream(SystemPath(path), std::ios::binary) << content;
}

std::string Bytes(const char* path) {
  std::ifstream file(SystemPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Execute(const char* path, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(SystemPath(path).c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
}

constexpr char kMap[] =
    "<map><sm cnt='2'><solution issue_code='17' sid_issue='SID_STORAGE'/>"
    "<solution issue_code='18' sid_issue='SID_UNTRANSLATED'/></sm></map>";

/// A map with the issues 17 and 18, and a catalogue with the title of the first.
void MakeTitles() {
  Write(set_paths::kSolutionMap, kMap);
  const std::string folder = SystemPath(set_paths::kLocaleDir) + std::string("/de/LC_MESSAGES");
  fs::create_directories(folder);
  std::ofstream(folder + "/texts.po") << "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n"
                                         "msgid \"SID_STORAGE\"\nmsgstr \"Speicher fast voll – prüfen\"\n";
  ASSERT_EQ(RunProcess({"msgfmt", "-o", folder + "/com.tornelo.TVVexilo.mo", folder + "/texts.po"}).exitCode, 0);
  ASSERT_EQ(vconf_set_str("db/menu_widget/language", "de_DE.utf8"), 0);
}

TEST(Vexiloctl, WrongUsageIsToldWithAHintAndChangesNothing) {
  struct {
    Words words;
    const char* message;
    const char* hint;
  } const cases[] = {
      {{}, "no group and command", "'vexiloctl --help'"},
      {{"nothing"}, "unknown group \"nothing\"", "'vexiloctl --help'"},
      {{"setting"}, "needs a command", "'vexiloctl setting --help'"},
      {{"setting", "drop"}, "unknown command \"drop\"", "'vexiloctl setting --help'"},
      {{"setting", "get"}, "needs KEY", "'vexiloctl setting get --help'"},
      {{"setting", "get", "a", "b"}, "does not take \"b\"", "'vexiloctl setting get --help'"},
      {{"setting", "get", "a/../b"}, "a/../b", "'vexiloctl setting get --help'"},
      {{"setting", "get", "a", "--json"}, "--json", "'vexiloctl setting get --help'"},
      {{"setting", "get", "a", "--jsno"}, "unknown option \"--jsno\"", "'vexiloctl --help'"},
      {{"setting", "set", "a", "int"}, "needs KEY TYPE VALUE", "'vexiloctl setting set --help'"},
      {{"setting", "set", "a", "float", "1"}, "TYPE \"float\"", "'vexiloctl setting set --help'"},
      {{"setting", "set", "a", "int", "1x"}, "VALUE \"1x\": it is no int", "'vexiloctl setting set --help'"},
      {{"setting", "set", "a", "int", "2147483648"}, "it is no int", "'vexiloctl setting set --help'"},
      {{"setting", "set", "a", "bool", "1"}, "it is no bool", "'vexiloctl setting set --help'"},
      {{"setting", "set", "a", "string", std::string(65537, 'x')}, "65536", "'vexiloctl setting set --help'"},
      {{"setting", "watch"}, "needs KEY", "'vexiloctl setting watch --help'"},
      {{"engine", "list", "x"}, "CODE \"x\"", "'vexiloctl engine list --help'"},
      {{"engine", "record", "0", "true"}, "CODE \"0\"", "'vexiloctl engine record --help'"},
      {{"engine", "record", "-5", "true"}, "CODE \"-5\"", "'vexiloctl engine record --help'"},
      {{"engine", "record", "2147483648", "true"}, "CODE", "'vexiloctl engine record --help'"},
      {{"engine", "record", "5", "maybe"}, "maybe", "'vexiloctl engine record --help'"},
      {{"engine", "record", "5", "true", "2023-02-29T00:00:00"}, "TIME", "'vexiloctl engine record --help'"},
      {{"events", "all"}, "does not take \"all\"", "'vexiloctl events --help'"},
  };
  for (const auto& each : cases) {
    const ProcessResult result = RunCtl(each.words);
    SCOPED_TRACE(each.message);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(Has(result.err, each.message)) << result.err;
    EXPECT_TRUE(Has(result.err, each.hint)) << result.err;
  }
  EXPECT_FALSE(fs::exists(SystemPath(set_paths::kSettingsDir) + std::string("/a")));
  EXPECT_FALSE(fs::exists(SystemPath(set_paths::kInferenceDb)));
}

TEST(Vexiloctl, EveryCommandHasHelp) {
  const Words commands[] = {{"setting", "get"},
                            {"setting", "set"},
                            {"setting", "watch"},
                            {"engine", "list"},
                            {"engine", "record"},
                            {"engine", "solutions"},
                            {"remaining", "list"},
                            {"events"},
                            {"result"},
                            {"apps", "list"},
                            {"apps", "size"},
                            {"apps", "clear-cache"},
                            {"apps", "clear-data"},
                            {"apps", "uninstall"},
                            {"storage"},
                            {"launch"},
                            {"reports", "list"},
                            {"reports", "show"},
                            {"reports", "remove"}};
  const std::string all = Output({"--help"});
  for (const Words& command : commands) {
    const std::string name = command.size() > 1 ? command[0] + " " + command[1] : command[0];
    EXPECT_TRUE(Has(all, "  " + name + " ")) << all;
    Words words = command;
    words.push_back("--help");
    const std::string help = Output(words);
    EXPECT_TRUE(Has(help, "Usage: vexiloctl " + name)) << help;
    EXPECT_TRUE(Has(help, "Example: vexiloctl " + name)) << help;
    EXPECT_TRUE(Has(Output({command[0], "--help"}), help)) << name;
  }
}

TEST(Vexiloctl, SettingsAreStoredReadAndWatched) {
  ChildProcess watch(Ctl({"setting", "watch", "db/a", "memory/b", "db/a"}));
  // Set until the watch is there: it is told of the next change then.
  std::optional<std::string> line;
  for (int i = 0; i < 100 && !line; ++i) {
    Output({"setting", "set", "db/a", "int", std::to_string(-i)});
    line = watch.ReadLine(100ms);
  }
  ASSERT_TRUE(line.has_value());
  EXPECT_EQ(line->rfind("db/a = ", 0), 0u) << *line;
  Output({"setting", "set", "memory/b", "string", "two\nlines"});
  EXPECT_EQ(watch.ReadLine(), "memory/b = two?lines");
  Output({"setting", "set", "db/a", "double", "0.1"});
  EXPECT_EQ(watch.ReadLine(), "db/a = 0.1");
  watch.Signal(SIGTERM);
  const ProcessResult ended = watch.Wait();
  EXPECT_EQ(ended.exitCode, 0) << ended.err;
  EXPECT_EQ(ended.out, "");

  EXPECT_EQ(Output({"setting", "get", "memory/b"}), "two\nlines\n");
  EXPECT_EQ(Output({"setting", "get", "db/a"}), "0.1\n");
  Output({"setting", "set", "db/a", "bool", "false"});
  EXPECT_EQ(Output({"setting", "get", "db/a"}), "false\n");
  Output({"setting", "set", "db/a", "string", "--", "--json"});
  EXPECT_EQ(Output({"setting", "get", "db/a"}), "--json\n");
  const ProcessResult unset = RunCtl({"setting", "get", "db/none"});
  EXPECT_EQ(unset.exitCode, 1);
  EXPECT_TRUE(Has(unset.err, "db/none")) << unset.err;
}

TEST(Vexiloctl, TransitionsAndSolutionsAreListedOldestFirst) {
  MakeTitles();
  EXPECT_EQ(Output({"engine", "list", "--json"}), "");
  Output({"engine", "record", "17", "true", "2024-03-08T00:00:00"});
  Output({"engine", "record", "9", "false", "2024-03-07T09:05:00"});
  Output({"engine", "record", "17", "false"});
  const std::string list = Output({"engine", "list"});
  EXPECT_TRUE(Has(list,
                  "TIME                 CODE  TRUE   TITLE\n"
                  "2024-03-07T09:05:00  9     false  -\n"
                  "2024-03-08T00:00:00  17    true   Speicher fast voll – prüfen\n"))
      << list;
  EXPECT_EQ(Output({"engine", "list", "9", "--json"}),
            "{\"issue_code\":9,\"register_time\":\"2024-03-07T09:05:00\",\"solution_code\":0,"
            "\"time\":\"2024-03-07T09:05:00\",\"title\":\"\",\"true\":false}\n");
  ASSERT_EQ(CreateAPIInstance(), 0);
  ASSERT_EQ(SetSolutionDB({18, 1001, 5, 1, "2024-03-09T00:00:00"}), TREVLIN_OK);
  EXPECT_EQ(Output({"engine", "solutions"}),
            "TIME                 CODE  SOLUTION  TYPE  APPLIED  TITLE\n"
            "2024-03-09T00:00:00  18    1001      5     yes      SID_UNTRANSLATED\n");
}

TEST(Vexiloctl, RunsOfTheEngineAndItsRulesAreShown) {
  MakeTitles();
  EXPECT_EQ(RunCtl({"engine", "run"}).err, "vexiloctl: /usr/share/trevlin/rules.json: No such file or directory\n");
  fs::create_directories(fs::path(SystemPath(set_paths::kRules)).parent_path());
  const std::string rule =
      R"({"code": 17, "group": "storage", "when": {"fact": "setting:db/a", "is": ">", "value": 1}})";
  Write(set_paths::kRules, "{\"version\": 1, \"rules\": [" + rule + ",\n" + rule + "]}");
  EXPECT_EQ(Output({"engine", "rules", "list"}),
            "CODE  GROUP    ON DEMAND  TITLE                        WHEN\n"
            "17    storage  no         Speicher fast voll – prüfen  setting:db/a > 1\n");
  const ProcessResult check = RunCtl({"engine", "rules", "check"});
  EXPECT_EQ(check.exitCode, 1);
  EXPECT_EQ(check.out, "/usr/share/trevlin/rules.json:2:10: code 17 has a rule already\n");
  EXPECT_EQ(check.err, "vexiloctl: /usr/share/trevlin/rules.json: good rules: 1, mistakes: 1\n");
  EXPECT_EQ(RunCtl({"engine", "rules", "check", "--json"}).out,
            "{\"column\":10,\"file\":\"/usr/share/trevlin/rules.json\",\"line\":2,"
            "\"reason\":\"code 17 has a rule already\"}\n");

  Output({"setting", "set", "db/a", "int", "2"});
  const std::string run = Output({"engine", "run"});
  EXPECT_TRUE(Has(run, "CODE  NOW   TITLE\n17    true  Speicher fast voll – prüfen\n")) << run;
  EXPECT_TRUE(Has(run, " 1 of 1 rules were decided: 1 true, 1 changed\n")) << run;
  EXPECT_TRUE(Has(Output({"engine", "list", "17"}), "  17    true  Speicher"));
  EXPECT_TRUE(Has(Output({"engine", "run", "--json"}), "{\"changes\":[],\"collectors\":[],\"microseconds\":"));
  EXPECT_EQ(Output({"engine", "facts", "setting:db/a"}),
            "FACT          VALUE  MEANING\nsetting:db/a  2      a settings key\n");
  EXPECT_EQ(RunCtl({"engine", "facts", "none"}).err, "vexiloctl: unknown fact \"none\"\n");
  EXPECT_EQ(RunCtl({"engine", "rules"}).exitCode, 2);
}

TEST(Vexiloctl, RemainingProblemsAreListed) {
  MakeTitles();
  EXPECT_EQ(Output({"remaining", "list", "--json"}), "");
  Execute(set_paths::kRemainingDb,
          "CREATE TABLE remainingTBL(idx TEXT, issue_code TEXT, is_fix TEXT, last_time TEXT, sol_type TEXT, sid_issue "
          "TEXT, sid_sol TEXT, sid_button1 TEXT, sid_button2 TEXT, action TEXT, toast1 TEST, toast2 TEXT, source TEXT, "
          "view_authority TEXT); INSERT INTO remainingTBL VALUES('1','17','0','2024-03-07T09:05:00','2','SID_STORAGE',"
          "'','','','1','','','DTV','USER'),('1','18','0','bad'||char(27)||'[2J','2','','','','','','','','','');");
  EXPECT_EQ(Output({"remaining", "list"}),
            "TIME                 CODE  FIXED  SOURCE  FOR   TITLE\n"
            "2024-03-07T09:05:00  17    no     DTV     USER  Speicher fast voll – prüfen\n"
            "bad?[2J              18    no     -       -     -\n");
  const std::string json = Output({"remaining", "list", "--json"});
  EXPECT_EQ(std::count(json.begin(), json.end(), '\n'), 2);
  EXPECT_TRUE(Has(json, "\"issue_code\":\"17\"")) << json;
}

TEST(Vexiloctl, EventsAreListedAndATornLastLineIsNotYetOne) {
  EXPECT_EQ(Output({"events", "--json"}), "");
  ASSERT_EQ(KPILogFramework::CLogger::GetInstance()->AddEventLogSync(
                "23_vexilo", "VEXILO", "EV003",
                "{chip_id=NULL;user_time=;;select_item=DeviceState;status=Good;issue_count=NULL;remain_count=NULL}"),
            1);
  const std::string stored = Bytes(set_paths::kEventLog);
  Write(set_paths::kEventLog, stored + "{\"time\":\"20");
  EXPECT_EQ(Output({"events", "--json"}), stored);
  const std::string list = Output({"events"});
  EXPECT_TRUE(Has(list, "VEXILO  EV003     DeviceState  Good    -\n")) << list;
  Write(set_paths::kEventLog, "{\"time\":\"20\n" + stored);
  const ProcessResult result = RunCtl({"events", "--json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, stored);
  EXPECT_TRUE(Has(result.err, "line 1 ")) << result.err;
}

TEST(Vexiloctl, TheNewestResultIsShownWithTitles) {
  MakeTitles();
  const ProcessResult none = RunCtl({"result"});
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_TRUE(Has(none.err, set_paths::kQGuideResult)) << none.err;
  Write(set_paths::kQGuideBackgroundResult, "5\n");
  fs::last_write_time(SystemPath(set_paths::kQGuideBackgroundResult), fs::file_time_type::clock::now() - 1h);
  Write(set_paths::kQGuideResult, "17\n99\n");
  EXPECT_EQ(Output({"result"}),
            "/tmp/qsyslink/inference_result\n  17  Speicher fast voll – prüfen\n  99  (no text)\n"
            "/opt/usr/home/owner/content/Documents/inference_result  (older)\n");
  const std::string json = Output({"result", "--json"});
  EXPECT_EQ(std::count(json.begin(), json.end(), '\n'), 2);
  Write(set_paths::kSolutionMap, "<map><solution");
  const ProcessResult noMap = RunCtl({"result"});
  EXPECT_EQ(noMap.exitCode, 0);
  EXPECT_TRUE(Has(noMap.out, "  17  (no text)\n")) << noMap.out;
}

TEST(Vexiloctl, WhatCannotBeReadFailsWithNameAndReasonAndStaysAsItIs) {
  Write(set_paths::kSolutionMap, kMap);
  struct {
    const char* path;
    Words words;
  } const cases[] = {{set_paths::kInferenceDb, {"engine", "list"}},
                     {set_paths::kInferenceDb, {"engine", "record", "17", "true"}},
                     {set_paths::kSolutionDb, {"engine", "solutions"}},
                     {set_paths::kRemainingDb, {"remaining", "list"}},
                     {set_paths::kEventLog, {"events"}},
                     {set_paths::kQGuideResult, {"result"}}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.words[0]);
    const auto expectFailure = [&](const char* reason) {
      const ProcessResult result = RunCtl(each.words);
      EXPECT_EQ(result.exitCode, 1);
      EXPECT_EQ(result.out, "");
      EXPECT_TRUE(Has(result.err, std::string("vexiloctl: ") + each.path)) << result.err;
      EXPECT_TRUE(Has(result.err, reason)) << result.err;
    };
    const std::string garbage(3000, 'x');
    if (fs::path(each.path).extension() == ".db") {
      Write(each.path, garbage);
      expectFailure("file is not a database");
      EXPECT_EQ(Bytes(each.path), garbage);
      fs::remove(SystemPath(each.path));
    }
    Write("/target", garbage);
    fs::create_symlink(SystemPath("/target"), SystemPath(each.path));
    expectFailure("symbolic link");
    EXPECT_EQ(Bytes("/target"), garbage);
    fs::remove(SystemPath(each.path));
    ASSERT_EQ(mkfifo(SystemPath(each.path).c_str(), 0600), 0);
    expectFailure("not a regular file");
    fs::remove(SystemPath(each.path));
  }
}

TEST(Vexiloctl, OutputThatNobodyTakesIsNoFailureAndAFullDiskIs) {
  Write(set_paths::kSolutionMap, kMap);
  const std::string tool = Ctl({})[0];
  const auto shell = [&](const std::string& command) { return RunProcess({"sh", "-c", command}); };
  const ProcessResult full = RunCtl({"--help"}, {.output = "/dev/full"});
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_TRUE(Has(full.err, "standard output: No space left on device")) << full.err;
  // More than a pipe holds, so that the tool is still writing when its reader goes.
  std::string events;
  for (int i = 0; i < 5000; ++i)
    events += "{\"time\":\"2024-03-07T09:05:00Z\",\"event\":\"E\",\"category\":\"C\",\"description\":\"\"}\n";
  Write(set_paths::kEventLog, events);
  const ProcessResult head = shell("( '" + tool + "' events --json; echo $? >&2 ) | head -n 1");
  EXPECT_EQ(head.out, events.substr(0, events.find('\n') + 1));
  EXPECT_EQ(head.err, "0\n");
  const ProcessResult watch = shell("( '" + tool + "' setting watch a; echo $? >&2 ) | true");
  EXPECT_EQ(watch.err, "vexiloctl: watching\n0\n");
  const ProcessResult closed = shell("'" + tool + "' engine record 17 true >&-; '" + tool + "' engine list >&-");
  EXPECT_EQ(closed.exitCode, 1);
  EXPECT_TRUE(Has(closed.err, "standard output")) << closed.err;
  EXPECT_TRUE(Has(Output({"engine", "list", "--json"}), "\"issue_code\":17"));
}

}  // namespace
