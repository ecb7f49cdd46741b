// The command line tool, as a process; and the desktop entries that it launches in a whole set.

#include <json/reader.h>

#include <random>
#include <regex>

#include "SettingsKeys.h"
#include "base/daemon_lock.h"
#include "kpi_logger.h"
#include "support/files.h"
#include "support/process.h"
#include "support/remaining_rows.h"
#include "support/usage_events.h"
#include "trevlin_engine.h"
#include "vconf.h"

namespace {

using testing::StartsWith;
using Words = std::vector<std::string>;

Words Ctl(Words words) {
  words.insert(words.begin(), VEXILOCTL);
  return words;
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

/// The objects that it printed, one a line.
std::vector<Json::Value> Objects(const ProcessResult& result) {
  std::vector<Json::Value> objects;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream text(line);
    text >> objects.emplace_back();
  }
  return objects;
}

std::string Parsed(const std::string& text) {
  return Objects({.out = text + "\n"})[0].toStyledString();
}

void Write(const char* path, const std::string& content) {
  WriteHostFile(SystemPath(path), content);
}

constexpr char kMap[] =
    "<map><sm cnt='2'><solution issue_code='17' sid_issue='SID_STORAGE'/>"
    "<solution issue_code='18' sid_issue='SID_UNTRANSLATED'/></sm></map>";

/// A map with the issues 17 and 18, and a catalogue with the title of the first.
void MakeTitles() {
  Write(set_paths::kSolutionMap, kMap);
  const std::string folder = SystemPath(set_paths::kLocaleDir) + std::string("/de/LC_MESSAGES");
  WriteHostFile(folder + "/texts.po",
                "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n"
                "msgid \"SID_STORAGE\"\nmsgstr \"Speicher fast voll – prüfen\"\n");
  ASSERT_EQ(RunProcess({"msgfmt", "-o", folder + "/com.tornelo.TVVexilo.mo", folder + "/texts.po"}).exitCode, 0);
  ASSERT_EQ(vconf_set_str("db/menu_widget/language", "de_DE.utf8"), 0);
}

TEST(Vexiloctl, WrongUsageIsToldWithAHintAndChangesNothing) {
  const struct {
    Words words;
    const char *message, *helpOf;
  } cases[] = {
      {{}, "no group and command", ""},
      {{"setting"}, "needs a command", "setting "},
      {{"setting", "get"}, "needs KEY", "setting get "},
      {{"setting", "get", "a/../b"}, "a/../b", "setting get "},
      {{"setting", "get", "a", "--jsno"}, "unknown option \"--jsno\"", ""},
      {{"setting", "set", "a", "float", "1"}, "TYPE \"float\"", "setting set "},
      {{"setting", "set", "a", "int", "2147483648"}, "it is not of type int", "setting set "},
      {{"engine", "rules"}, "\"engine rules\" needs check or list", "engine "},
      {{"engine", "facts", "setting:a b"}, "NAME \"setting:a b\": ", "engine facts "},
      {{"engine", "record", "0", "true"}, "CODE \"0\"", "engine record "},
      {{"engine", "record", "5", "true", "2023-02-29T00:00:00"}, "TIME", "engine record "},
  };
  for (const auto& [words, message, helpOf] : cases) {
    const ProcessResult result = RunCtl(words);
    EXPECT_EQ(result.exitCode, 2) << message;
    EXPECT_EQ(result.out, "");
    const std::string hint = std::string("Try 'vexiloctl ") + helpOf + "--help'.";
    EXPECT_THAT(result.err, AllOf(HasSubstr(message), HasSubstr(hint)));
  }
  EXPECT_FALSE(fs::exists(SystemPath(set_paths::kSettingsDir) + "/a"));
  EXPECT_FALSE(fs::exists(SystemPath(set_paths::kInferenceDb)));
}

TEST(Vexiloctl, SettingsAreStoredReadAndWatched) {
  // What it says on standard error comes to its output: that it watches.
  ChildProcess watch({"sh", "-c", R"(exec "$0" setting watch db/a memory/b db/a 2>&1)", VEXILOCTL});
  EXPECT_EQ(watch.ReadLine(), "vexiloctl: watching");
  Output({"setting", "set", "memory/b", "string", "two\nlines"});
  EXPECT_EQ(watch.ReadLine(), "memory/b = two?lines");
  Output({"setting", "set", "db/a", "double", "0.1"});
  EXPECT_EQ(watch.ReadLine(), "db/a = 0.1");
  watch.Signal(SIGTERM);
  const ProcessResult ended = watch.Wait();
  EXPECT_EQ(ended.exitCode, 0);
  EXPECT_EQ(ended.out, "");

  EXPECT_EQ(Output({"setting", "get", "memory/b"}), "two\nlines\n");
  EXPECT_EQ(Output({"setting", "get", "db/a"}), "0.1\n");
  Output({"setting", "set", "db/a", "string", "--", "--json"});
  EXPECT_EQ(Output({"setting", "get", "db/a"}), "--json\n");
  const ProcessResult unset = RunCtl({"setting", "get", "db/none"});
  EXPECT_EQ(unset.exitCode, 1);
  EXPECT_THAT(unset.err, HasSubstr("db/none"));
}

TEST(Vexiloctl, TransitionsAndSolutionsAreListedOldestFirst) {
  MakeTitles();
  EXPECT_EQ(Output({"engine", "list", "--json"}), "");
  Output({"engine", "record", "17", "true", "2024-03-08T00:00:00"});
  Output({"engine", "record", "9", "false", "2024-03-07T09:05:00"});
  Output({"engine", "record", "17", "false"});
  EXPECT_THAT(Output({"engine", "list"}),
              StartsWith("TIME                 CODE  TRUE   TITLE\n"
                         "2024-03-07T09:05:00  9     false  -\n"
                         "2024-03-08T00:00:00  17    true   Speicher fast voll – prüfen\n"));
  EXPECT_EQ(Output({"engine", "list", "9", "--json"}),
            R"({"issue_code":9,"register_time":"2024-03-07T09:05:00","solution_code":0,)"
            R"("time":"2024-03-07T09:05:00","title":"","true":false})"
            "\n");
  ASSERT_EQ(CreateAPIInstance(), 0);
  ASSERT_EQ(SetSolutionDB({18, 1001, 5, 1, "2024-03-09T00:00:00"}), TREVLIN_OK);
  EXPECT_EQ(Output({"engine", "solutions"}),
            "TIME                 CODE  SOLUTION  TYPE  APPLIED  TITLE\n"
            "2024-03-09T00:00:00  18    1001      5     yes      SID_UNTRANSLATED\n");
}

TEST(Vexiloctl, OfMoreRowsThanAnyEngineHasTheNewestAreListed) {
  MakeTitles();
  Output({"engine", "record", "17", "true", "2024-03-08T00:00:00"});
  StoreRemaining({17});
  const std::string rows = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 30000) ";
  Execute(OpenDatabase(set_paths::kInferenceDb).get(),
          rows + "INSERT INTO inferenceTBL SELECT '', printf('2024-04-01T%08d', i), i, 1, 0 FROM n");
  Execute(OpenDatabase(set_paths::kRemainingDb).get(), rows + "INSERT INTO remainingTBL(issue_code) SELECT i FROM n");
  const ProcessResult history = RunCtl({"engine", "list"}), remaining = RunCtl({"remaining", "list"});
  EXPECT_EQ(Count(history.out, "\n"), 20001);
  EXPECT_THAT(history.out, AllOf(HasSubstr("\n2024-04-01T00010001 "), HasSubstr("\n2024-04-01T00030000 ")));
  EXPECT_EQ(history.err, "vexiloctl: " + std::string(set_paths::kInferenceDb) +
                             ": the newest 20000 rows are looked at, older ones are not\n");
  EXPECT_EQ(Count(remaining.out, "\n"), 501);
  EXPECT_EQ(remaining.err,
            "vexiloctl: " + std::string(set_paths::kRemainingDb) + ": the first 500 rows are listed, there are more\n");
}

TEST(Vexiloctl, RunsOfTheEngineAndItsRulesAreShown) {
  MakeTitles();
  EXPECT_EQ(RunCtl({"engine", "run"}).err, "vexiloctl: /usr/share/trevlin/rules.json: No such file or directory\n");
  const std::string rule =
      R"({"code": 17, "group": "storage", "when": {"fact": "setting:db/a", "is": ">", "value": 1}})";
  Write(set_paths::kRules, "{\"version\": 1, \"rules\": [" + rule + ",\n" + rule + "]}");
  const ProcessResult check = RunCtl({"engine", "rules", "check"});
  EXPECT_EQ(check.exitCode, 1);
  EXPECT_EQ(check.out, "/usr/share/trevlin/rules.json:2:10: code 17 has a rule already\n");
  EXPECT_EQ(check.err, "vexiloctl: /usr/share/trevlin/rules.json: good rules: 1, mistakes: 1\n");
  for (const Words& command : {Words{"engine", "run"}, {"engine", "rules", "list"}}) {
    const ProcessResult mistaken = RunCtl(command);
    EXPECT_EQ(mistaken.exitCode, 1) << command.back();
    EXPECT_THAT(mistaken.err, HasSubstr("rules.json:2:10: code 17 has a rule already\n")) << command.back();
  }

  Write(set_paths::kRules, "{\"version\": 1, \"rules\": [" + rule + R"(,
    {"code": 19, "group": "storage", "when": {"fact": "setting:db/none", "is": ">", "value": 1}}]})");
  EXPECT_THAT(RunCtl({"engine", "rules", "check"}).err, HasSubstr("note: issue 19 has no solution in "));
  EXPECT_EQ(RunCtl({"engine", "rules", "check"}).exitCode, 0);
  EXPECT_EQ(Output({"engine", "rules", "list"}),
            "CODE  GROUP    ON DEMAND  TITLE                        WHEN\n"
            "17    storage  no         Speicher fast voll – prüfen  setting:db/a > 1\n"
            "19    storage  no         -                            setting:db/none > 1\n");

  const std::tuple<const char*, const char*, const char*> runs[] = {
      {"2", "CODE  NOW        TITLE\n17    true, new  Speicher fast voll – prüfen\n", "1 true, 1 changed\n"},
      {"3", "CODE  NOW   TITLE\n17    true  Speicher fast voll – prüfen\n", "1 true, 0 changed\n"},
      {"1", "CODE  NOW      TITLE\n17    cleared  Speicher fast voll – prüfen\n", "0 true, 1 changed\n"}};
  for (const auto& [value, table, counts] : runs) {
    Output({"setting", "set", "db/a", "int", value});
    EXPECT_THAT(Output({"engine", "run"}),
                AllOf(HasSubstr(table), HasSubstr(std::string(" 1 of 2 rules were decided: ") + counts)));
  }
  const auto told = Objects(RunCtl({"engine", "run", "--json"}));
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0]["issues"].toStyledString(),
            Parsed(R"([{"code": 17, "title": "Speicher fast voll – prüfen", "true": false, "changed": false}])"));
  EXPECT_EQ(told[0]["undecided"].toStyledString(), Parsed("[19]"));
  Output({"engine", "record", "19", "true"});
  EXPECT_THAT(Output({"engine", "run"}), HasSubstr("19    true, not decided now  -\n"));
  EXPECT_EQ(Objects(RunCtl({"engine", "run", "--json"}))[0]["there"].toStyledString(),
            Parsed(R"([{"code": 19, "title": ""}])"));
  Output({"setting", "set", "db/a", "int", "2"});
  EXPECT_EQ(Output({"engine", "facts", "setting:db/a"}),
            "FACT          VALUE  MEANING\nsetting:db/a  2      a settings key\n");
}

TEST(Vexiloctl, RemainingProblemsAreListed) {
  MakeTitles();
  EXPECT_EQ(Output({"remaining", "list", "--json"}), "");
  StoreRemaining({17, 18});
  Execute(
      OpenDatabase(set_paths::kRemainingDb).get(),
      "UPDATE remainingTBL SET sid_issue = 'SID_STORAGE', source = 'DTV' WHERE issue_code = '17';"
      "UPDATE remainingTBL SET last_time = 'bad' || char(27) || '[2J', view_authority = '' WHERE issue_code = '18'");
  EXPECT_EQ(Output({"remaining", "list"}),
            "TIME                 CODE  FIXED  SOURCE  FOR   TITLE\n"
            "2024-03-07T09:05:00  17    no     DTV     USER  Speicher fast voll – prüfen\n"
            "bad?[2J              18    no     -       -     -\n");
  EXPECT_THAT(Output({"remaining", "list", "--json"}), HasSubstr(R"("issue_code":"17")"));
}

TEST(Vexiloctl, EventsAreListedAndATornLastLineIsNotYetOne) {
  EXPECT_EQ(Output({"events", "--json"}), "");
  ASSERT_EQ(KPILogFramework::CLogger::GetInstance()->AddEventLogSync(
                "23_vexilo", "VEXILO", "EV003",
                "{chip_id=NULL;user_time=;;select_item=DeviceState;status=Good;issue_count=NULL;remain_count=NULL}"),
            1);
  const std::string stored = StoredEvents();
  Write(set_paths::kEventLog, stored + "{\"time\":\"20");
  EXPECT_EQ(Output({"events", "--json"}), stored);
  EXPECT_THAT(Output({"events"}), HasSubstr("VEXILO  EV003     DeviceState  Good    -\n"));
  Write(set_paths::kEventLog, "{\"time\":\"20\n" + stored);
  const ProcessResult result = RunCtl({"events", "--json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, stored);
  EXPECT_THAT(result.err, HasSubstr("line 1 "));
}

TEST(Vexiloctl, TheNewestResultIsShownWithTitles) {
  MakeTitles();
  EXPECT_THAT(RunCtl({"result"}).err, HasSubstr(set_paths::kQGuideResult)) << "there is none";
  Write(set_paths::kQGuideBackgroundResult, "5\n");
  Write(set_paths::kQGuideResult, "17\n99\n");
  for (const auto& [path, second] :
       {std::pair(set_paths::kQGuideBackgroundResult, 1709802299), std::pair(set_paths::kQGuideResult, 1709802300)}) {
    const timespec times[2] = {{second, 0}, {second, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, SystemPath(path).c_str(), times, 0), 0);
  }
  EXPECT_EQ(RunCtl({"result"}, {.env = {{"TZ", "UTC"}}}).out,
            "/tmp/qsyslink/inference_result  2024-03-07T09:05:00\n"
            "  17  Speicher fast voll – prüfen\n  99  (no text)\n"
            "/opt/usr/home/owner/content/Documents/inference_result  2024-03-07T09:04:59  (older)\n");
  EXPECT_EQ(Count(Output({"result", "--json"}), "\n"), 2);
  Write(set_paths::kSolutionMap, "<map><solution");
  EXPECT_THAT(RunCtl({"result"}).out, HasSubstr("  17  (no text)\n"));
}

TEST(Vexiloctl, WhatCannotBeReadFailsWithNameAndReasonAndStaysAsItIs) {
  Write(set_paths::kSolutionMap, kMap);
  const std::string garbage(3000, 'x'), target = SystemPath("/target");
  WriteHostFile(target, garbage);
  const std::pair<const char*, Words> cases[] = {{set_paths::kInferenceDb, {"engine", "list"}},
                                                 {set_paths::kSolutionDb, {"engine", "solutions"}},
                                                 {set_paths::kRemainingDb, {"remaining", "list"}},
                                                 {set_paths::kEventLog, {"events"}},
                                                 {set_paths::kQGuideResult, {"result"}}};
  for (const auto& [path, words] : cases) {
    const std::string file = SystemPath(path);
    const auto expectFailure = [&, path = path, &words = words](const char* reason) {
      const ProcessResult result = RunCtl(words);
      EXPECT_EQ(result.exitCode, 1) << path << ": " << reason;
      EXPECT_EQ(result.out, "");
      EXPECT_THAT(result.err, AllOf(StartsWith(std::string("vexiloctl: ") + path), HasSubstr(reason)));
    };
    if (file.ends_with(".db")) {
      WriteHostFile(file, garbage);
      expectFailure("file is not a database");
      EXPECT_EQ(ReadHostFile(file), garbage);
      fs::remove(file);
    }
    if (path == set_paths::kEventLog) {
      WriteHostFile(file);
      fs::resize_file(file, 8ULL << 40);
      expectFailure("it is larger than 16 MiB");
      fs::remove(file);
    }
    fs::create_symlink(target, file);
    expectFailure("symbolic link");
    EXPECT_EQ(ReadHostFile(target), garbage);
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    expectFailure("not a regular file");
    fs::remove(file);
  }
}

TEST(Vexiloctl, OutputThatNobodyTakesIsNoFailureAndAFullDiskIs) {
  const ProcessResult full = RunCtl({"--help"}, {.output = "/dev/full"});
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_THAT(full.err, HasSubstr("standard output: No space left on device"));
  // More than a pipe holds, so that the tool is still writing when its reader goes.
  std::string events;
  for (int i = 0; i < 5000; ++i)
    events += R"({"time":"2024-03-07T09:05:00Z","event":"E","category":"C","description":""})"
              "\n";
  Write(set_paths::kEventLog, events);
  const ProcessResult head = RunProcess({"sh", "-c", R"(( "$0" events --json; echo $? >&2 ) | head -n 1)", VEXILOCTL});
  EXPECT_EQ(head.out, events.substr(0, events.find('\n') + 1));
  EXPECT_EQ(head.err, "0\n");
}

// ---- applications, storage, launching and reports

using Ids = std::set<std::string>;

const fs::path kPackages = SystemPath(set_paths::kPackagesDir);
const fs::path kWebCache = SystemPath(set_paths::kWebCacheDir);

/// With four packages: a plain one, the web browser, a locked one and one of the set.
class VexiloctlApps : public testing::Test {
 protected:
  VexiloctlApps() {
    PlantPackage("one", "One");
    PlantPackage("web", "WebBrowser");
    PlantPackage("kept", "Kept", R"(, "locked": true)");
    PlantPackage("own", "Own", R"(, "removable": false)");
  }
};

TEST_F(VexiloctlApps, TheListIsTheViewersAndAllIsEverything) {
  const auto ids = [](const Words& words) {
    Ids found;
    for (const Json::Value& each : Objects(RunCtl(words))) found.insert(each["package_id"].asString());
    return found;
  };
  EXPECT_EQ(ids({"apps", "list", "--json"}), Ids{"web"});
  EXPECT_THAT(RunCtl({"apps", "list"}).out, HasSubstr("3 more are not for the viewer now"));
  ASSERT_EQ(vconf_set_int(QUVA::kConsentKey, 1), 0);
  EXPECT_EQ(ids({"apps", "list", "--json"}), (Ids{"one", "web", "kept"}));
  EXPECT_EQ(ids({"apps", "list", "--json", "--all"}), (Ids{"one", "web", "kept", "own"}));
  EXPECT_EQ(ids({"apps", "size", "own.app", "own", "--json"}), Ids{"own"});
}

TEST_F(VexiloctlApps, SizesAreThoseOfTheFileSystem) {
  const auto sized = Objects(RunCtl({"apps", "size", "one", "--json"}));
  ASSERT_EQ(sized.size(), 1u);
  const long long web = DiskUsage(kWebCache / "one.app");
  EXPECT_EQ(sized[0]["data_bytes"].asInt64(), DiskUsage(kPackages / "one/data"));
  EXPECT_EQ(sized[0]["cache_bytes"].asInt64(), DiskUsage(kPackages / "one/cache") + web);
  EXPECT_EQ(sized[0]["total_bytes"].asInt64(), DiskUsage(kPackages / "one") + web);
  const auto storage = Objects(RunCtl({"storage", "--json"}));
  ASSERT_EQ(storage.size(), 1u);
  EXPECT_EQ(storage[0]["total_bytes"].asInt64(), static_cast<Json::Int64>(fs::space(SystemPath("/opt")).capacity));
  EXPECT_EQ(storage[0]["applications"].size(), 4u);
}

TEST_F(VexiloctlApps, ClearingEmptiesWhatItSaysAndNoMore) {
  const auto cleared = Objects(RunCtl({"apps", "clear-cache", "one.app", "--json"}));
  ASSERT_EQ(cleared.size(), 1u);
  EXPECT_EQ(cleared[0]["by"], "vexiloctl");
  EXPECT_GE(cleared[0]["freed_bytes"].asInt64(), 21 * 20000);
  EXPECT_TRUE(fs::is_empty(kPackages / "one/cache"));
  EXPECT_TRUE(fs::is_empty(kWebCache / "one.app"));
  EXPECT_FALSE(fs::is_empty(kPackages / "one/data"));
  EXPECT_EQ(RunCtl({"apps", "clear-data", "one"}).exitCode, 2) << "without --yes";
  EXPECT_FALSE(fs::is_empty(kPackages / "one/data"));

  PlantPackage("9Ur5IzDKqV", "YouTube");
  WriteHostFile(kPackages / "9Ur5IzDKqV/manifest.json",
                R"({"package_id": "9Ur5IzDKqV", "app_id": "9Ur5IzDKqV.YouTube", "title": "YouTube"})");
  const ProcessResult kept = RunCtl({"apps", "clear-data", "9Ur5IzDKqV.YouTube", "one", "--json", "--yes"});
  EXPECT_EQ(kept.exitCode, 1);
  EXPECT_THAT(kept.err, HasSubstr("9Ur5IzDKqV.YouTube: its data has to stay"));
  EXPECT_FALSE(fs::is_empty(kPackages / "9Ur5IzDKqV/data"));
  EXPECT_TRUE(fs::is_empty(kPackages / "one/data")) << "the others are done all the same";
  EXPECT_FALSE(fs::is_empty(kPackages / "web/data"));
}

TEST_F(VexiloctlApps, ARunningTaskManagerIsAskedForEachCacheInTurn) {
  DaemonPlace place;
  std::string problem;
  ASSERT_TRUE(place.Take(problem)) << problem;
  ChildProcess ctl(Ctl({"apps", "clear-cache", "one", "web", "--json"}));
  const fs::path request = SystemPath(set_paths::kTagerRequests) + "/clearAppCache";
  for (const std::string id : {"one", "web"}) {
    EXPECT_TRUE(Until([&] { return fs::exists(request); })) << id;
    EXPECT_EQ(ReadHostFile(SystemPath(set_paths::kTager) + "/clearAppCache"), id + "|" + id + ".app\n");
    fs::remove(request);
  }
  const ProcessResult result = ctl.Wait();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  ASSERT_EQ(Objects(result).size(), 2u);
  EXPECT_EQ(Objects(result)[1]["by"], "task manager");
  EXPECT_TRUE(fs::exists(kWebCache / "one.app/page")) << "the tool itself touches nothing";
}

TEST_F(VexiloctlApps, UninstallRemovesAllOrRefusesWithAReason) {
  const struct {
    Words words;
    int exitCode;
    const char* message;
  } refusals[] = {
      {{"one"}, 2, "--yes"},
      {{"one", "kept", "--yes"}, 1, "kept.app (Kept) has to stay: it is locked"},
      {{"one", "own", "--yes"}, 1, "own.app (Own) has to stay: it belongs to the set"},
      {{"one", "../one", "--yes"}, 1, "\"../one\": no such package"},
  };
  for (const auto& each : refusals) {
    Words words{"apps", "uninstall"};
    words.insert(words.end(), each.words.begin(), each.words.end());
    const ProcessResult result = RunCtl(words);
    EXPECT_EQ(result.exitCode, each.exitCode) << each.message;
    EXPECT_THAT(result.err, HasSubstr(each.message));
    EXPECT_TRUE(fs::exists(kPackages / "one"));
  }
  const ProcessResult removed = RunCtl({"apps", "uninstall", "one", "web.app", "one", "--yes"});
  EXPECT_EQ(removed.exitCode, 0) << removed.err;
  EXPECT_THAT(removed.err, HasSubstr("removing One\n"));
  EXPECT_THAT(removed.out, testing::ContainsRegex("WILL GO.*FREED.*/opt: "));
  for (const fs::path& gone : {kPackages / "one", kPackages / "web", kWebCache / "one.app"})
    EXPECT_FALSE(fs::exists(gone)) << gone;
  for (const char* stays : {"kept", "own"}) EXPECT_TRUE(fs::exists(kPackages / stays)) << stays;
}

TEST(VexiloctlReports, AreListedShownExportedAndRemoved) {
  EXPECT_EQ(RunCtl({"reports", "list", "--json"}).out, "");
  const fs::path folder = SystemPath(set_paths::kReportsDir), files = SystemPath("/files");
  const std::string name = "20240307T090500Z-SOUND";
  WriteHostFile(files / "vexilo.log",
                "<mac-1> <mac-2> <mac-1> <ssid-1> <mac> <mac-> <machine-1> <ip-1 > <secret-4294967296> <mac-01>\n");
  WriteHostFile(files / "meta.json",
                R"({"category":"SOUND","set":{"region":1},"missing":{"kernel.log":"Operation not permitted"}})");
  std::string noise(20000, ' ');
  std::generate(noise.begin(), noise.end(), std::mt19937());
  WriteHostFile(files / "state.txt", noise);
  WriteHostFile(folder / "broken.tar.zst", "no archive");
  WriteHostFile(folder / "half.tar.gz#abc123", "");
  fs::create_symlink(files / "vexilo.log", folder / "link.tar.gz");
  const Words pack{"tar", "-czf", folder / (name + ".tar.gz"), "-C", files, "vexilo.log", "meta.json", "state.txt"};
  ASSERT_EQ(RunProcess(pack).exitCode, 0);
  EXPECT_EQ(Objects(RunCtl({"reports", "list", "--json"})).size(), 2u);
  const auto shown = Objects(RunCtl({"reports", "show", name, "--json"}));
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0]["meta"]["set"]["region"], 1);
  EXPECT_EQ(shown[0]["files"][0]["bytes"], 95);
  for (const char* none : {"broken", "link", "../files", "half.tar.gz#abc123"})
    EXPECT_EQ(RunCtl({"reports", "show", none}).exitCode, 1) << none;

  const fs::path out = SystemPath("/out"), summary = out / "summary.txt";
  fs::create_directory(out);
  const auto exported = Objects(RunCtl({"reports", "export", name, out, "--json"}));
  ASSERT_EQ(exported.size(), 1u);
  EXPECT_EQ(exported[0]["path"], (out / (name + ".tar.gz")).string());
  EXPECT_EQ(fs::status(out / (name + ".tar.gz")).permissions(), fs::perms(0600));
  EXPECT_EQ(RunProcess({"tar", "-C", out, "-xvf", out / (name + ".tar.gz")}).out,
            "summary.txt\nvexilo.log\nmeta.json\nstate.txt\n");
  EXPECT_EQ(ReadHostFile(out / "state.txt"), noise);
  EXPECT_THAT(ReadHostFile(summary),
              ContainsInOrder(Words{"Error report " + name + ".tar.gz\n=====", "category    SOUND\nset.region  1\n",
                                    "95.00B   vexilo.log\n", "kernel.log  Operation not permitted\n",
                                    "<mac-1>; the same", "\n\n  2 hardware addresses\n  1 wireless name\n"}));
  const std::string whole = ReadHostFile(out / (name + ".tar.gz"));
  EXPECT_THAT(RunCtl({"reports", "export", name, out}).err, HasSubstr(name + ".tar.gz: File exists\n"));
  const ProcessResult full =
      RunProcess({"sh", "-c", "ulimit -f 8; exec \"$0\" reports export \"$1\" \"$2\"", VEXILOCTL, name, files});
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_THAT(full.err, HasSubstr(files.string() + "/" + name + ".tar.gz: File too large\n"));
  EXPECT_THAT(RunCtl({"reports", "export", "broken", files}).err, HasSubstr("broken.tar.zst: "));
  EXPECT_EQ(ReadHostFile(out / (name + ".tar.gz")), whole);
  EXPECT_EQ(std::distance(fs::directory_iterator(files), {}), 3) << "nothing half-written";

  EXPECT_EQ(RunCtl({"reports", "remove", name, "nothing"}).exitCode, 1);
  EXPECT_EQ(Objects(RunCtl({"reports", "list", "--json"})).size(), 2u) << "all or none";
  EXPECT_EQ(RunCtl({"reports", "remove", name, "broken"}).exitCode, 0);
  EXPECT_EQ(Objects(RunCtl({"reports", "list", "--json"})).size(), 0u);
}

// ---- launching, in a whole set

/// What the application launches, and what the solution map does.
Ids EveryId() {
  std::istringstream own(
      "com.tornelo.tv.broadcastingmenu com.tornelo.tv.hdmi-troubleshooting com.tornelo.video-test "
      "org.varno.ep-hotel-factory org.varno.homedeck-connection-test org.varno.homedeck-reset org.varno.menu "
      "org.varno.mled-installation-test org.varno.picture-test org.varno.sound-test org.varno.wizard");
  Ids ids(std::istream_iterator<std::string>(own), {});
  const size_t owned = ids.size();
  const std::string map = ReadHostFile(VEXILO_SOURCE_DIR "/platform/set/solutionmap.xml");
  const std::regex launch(R"(param_type="launch" param_value="([^ "]+))");
  for (std::sregex_iterator each(map.begin(), map.end(), launch), end; each != end; ++each) ids.insert((*each)[1]);
  EXPECT_GT(ids.size(), owned);
  return ids;
}

class DesktopEntries : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* part : {"platform", "src"}) {
      const ProcessResult installed =
          RunProcess({"cmake", "-P", VEXILO_BINARY_DIR + std::string("/") + part + "/cmake_install.cmake"},
                     {.env = {{"DESTDIR", SystemPath("")}}, .timeout = 50s});
      ASSERT_EQ(installed.exitCode, 0) << installed.err;
    }
  }
  static ProcessResult Launch(Words words, std::map<std::string, std::string> env) {
    words.insert(words.begin(), {SystemPath("/usr/bin/vexiloctl"), "launch"});
    return RunProcess(words, {.env = std::move(env)});
  }
};

TEST_F(DesktopEntries, EveryApplicationThatIsLaunchedHasOneThatWorks) {
  for (const std::string& id : EveryId()) {
    const ProcessResult result =
        Launch({id, "for=" + id}, {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"ELM_ENGINE", ""}});
    EXPECT_EQ(result.exitCode, 0) << id << ": " << result.err;
    // The stand-in tells what it was asked for, a test tool its name.
    EXPECT_TRUE(Until([&] { return Count(Log(), "  for = " + id) + Count(Log(), "cannot show \"" + id + '"') > 0; }))
        << id;
  }
  const ProcessResult unknown = Launch({"org.varno.unknown"}, {});
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_THAT(unknown.err, HasSubstr("there is no /usr/share/applications/org.varno.unknown.desktop"));
  EXPECT_EQ(Launch({"org.varno.menu", "=value"}, {}).exitCode, 2);
}

TEST_F(DesktopEntries, OnlyPagesOfTheSignalAreTheTestTools) {
  const std::pair<const char*, const char*> pages[] = {
      {"ID=hdmi-information", "cannot show \"com.tornelo.tv.broadcastingmenu\""},
      {"ID=channel-list", "  ID = channel-list"}};
  for (const auto& [page, line] : pages) {
    EXPECT_EQ(Count(Log(), line), 0);
    EXPECT_EQ(Launch({"com.tornelo.tv.broadcastingmenu", page},
                     {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"ELM_ENGINE", ""}})
                  .exitCode,
              0);
    EXPECT_TRUE(Until([&, text = line] { return Count(Log(), text) == 1; })) << page;
  }
}

TEST_F(DesktopEntries, AProgramOfThisMachineComesBeforeTheStandIn) {
  const std::pair<Words, const char*> cases[] = {
      {{"org.varno.NetworkSetting-Varno"}, "nm-connection-editor"},
      {{"org.varno.menu", "launchby=others", "type=networkstatus"}, "nm-connection-editor"},
      {{"org.varno.menu", "type=displaysettings"}, "arandr"},
  };
  const fs::path tools = SystemPath("/tools"), ran = SystemPath("/ran");
  for (const auto& [words, program] : cases) {
    fs::remove(ran);
    fs::remove_all(tools);
    WriteHostFile(tools / program, "#!/bin/sh\necho \"arguments: $*.\" >" + ran.string() + "\n");
    fs::permissions(tools / program, fs::perms(0755));
    EXPECT_EQ(Launch(words, {{"DISPLAY", ":none"}, {"PATH", tools}, {"XDG_CURRENT_DESKTOP", ""}}).exitCode, 0);
    // They know nothing of key=value.
    EXPECT_TRUE(Until([&] { return ReadHostFile(ran) == "arguments: .\n"; })) << program << ": " << ReadHostFile(ran);
  }
}

}  // namespace
