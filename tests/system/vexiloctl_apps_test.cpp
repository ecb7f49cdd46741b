// The command line tool on applications, storage, launching and reports, as a process; and the set's desktop entries.

#include <gtest/gtest.h>
#include <json/reader.h>
#include <sys/file.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

#include "SettingsKeys.h"
#include "set_paths.h"
#include "support/process.h"
#include "system_path.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Words = std::vector<std::string>;

fs::path InRoot(const std::string& path) {
  return SystemPath(path);
}

std::string Bytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Write(const fs::path& path, const std::string& content) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

Words Ctl(Words words) {
  words.insert(words.begin(), VEXILOCTL);
  return words;
}

ProcessResult RunCtl(const Words& words) {
  return RunProcess(Ctl(words));
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
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

void MakePackage(const std::string& id, const std::string& title, const std::string& more = "") {
  const fs::path folder = InRoot(set_paths::kPackagesDir) / id;
  Write(folder / "manifest.json",
        "{\"package_id\":\"" + id + "\",\"app_id\":\"app." + id + "\",\"title\":\"" + title + "\"" + more + "}");
  Write(folder / "data/d", std::string(40000, 'd'));
  Write(folder / "cache/c", std::string(80000, 'c'));
  Write(InRoot(set_paths::kWebCacheDir) / ("app." + id) / "w", std::string(20000, 'w'));
}

void MakePackages() {
  MakePackage("one", "One");
  MakePackage("web", "WebBrowser");
  MakePackage("kept", "Kept", ",\"locked\":true");
  MakePackage("own", "Own", ",\"removable\":false");
}

bool IsThere(const std::string& id) {
  return fs::exists(InRoot(set_paths::kPackagesDir) / id);
}

TEST(VexiloctlApps, TheListIsTheViewersAndAllIsEverything) {
  MakePackages();
  const auto ids = [](const Words& words) {
    std::set<std::string> found;
    for (const Json::Value& each : Objects(RunCtl(words))) found.insert(each["package_id"].asString());
    return found;
  };
  EXPECT_EQ(ids({"apps", "list", "--json"}), (std::set<std::string>{"web"}));
  EXPECT_TRUE(Has(RunCtl({"apps", "list"}).out, "3 more are not for the viewer now"));
  ASSERT_EQ(vconf_set_int(QUVA::kConsentKey, 1), 0);
  EXPECT_EQ(ids({"apps", "list", "--json"}), (std::set<std::string>{"one", "web", "kept"}));
  EXPECT_EQ(ids({"apps", "list", "--json", "--all"}), (std::set<std::string>{"one", "web", "kept", "own"}));
  EXPECT_EQ(ids({"apps", "size", "app.own", "own", "--json"}), (std::set<std::string>{"own"}));
}

TEST(VexiloctlApps, SizesAreThoseOfTheFileSystem) {
  MakePackages();
  const auto sized = Objects(RunCtl({"apps", "size", "one", "--json"}));
  ASSERT_EQ(sized.size(), 1u);
  const auto du = [](const fs::path& path) { return std::stoll(RunProcess({"du", "-s", "-B1", path.string()}).out); };
  const fs::path folder = InRoot(set_paths::kPackagesDir) / "one";
  const long long web = du(InRoot(set_paths::kWebCacheDir) / "app.one");
  EXPECT_EQ(sized[0]["data_bytes"].asInt64(), du(folder / "data"));
  EXPECT_EQ(sized[0]["cache_bytes"].asInt64(), du(folder / "cache") + web);
  EXPECT_EQ(sized[0]["total_bytes"].asInt64(), du(folder) + web);
  const auto storage = Objects(RunCtl({"storage", "--json"}));
  ASSERT_EQ(storage.size(), 1u);
  EXPECT_EQ(storage[0]["total_bytes"].asInt64(), static_cast<Json::Int64>(fs::space(InRoot("/opt")).capacity));
  EXPECT_EQ(storage[0]["applications"].size(), 4u);
}

TEST(VexiloctlApps, ClearingEmptiesWhatItSaysAndNoMore) {
  MakePackages();
  const fs::path folder = InRoot(set_paths::kPackagesDir) / "one";
  const auto cleared = Objects(RunCtl({"apps", "clear-cache", "app.one", "--json"}));
  ASSERT_EQ(cleared.size(), 1u);
  EXPECT_EQ(cleared[0]["by"], "vexiloctl");
  EXPECT_GE(cleared[0]["freed_bytes"].asInt64(), 100000);
  EXPECT_TRUE(fs::is_empty(folder / "cache"));
  EXPECT_TRUE(fs::is_empty(InRoot(set_paths::kWebCacheDir) / "app.one"));
  EXPECT_FALSE(fs::is_empty(folder / "data"));
  EXPECT_EQ(RunCtl({"apps", "clear-data", "one"}).exitCode, 2) << "without --yes";
  EXPECT_EQ(RunCtl({"apps", "clear-data", "one", "--yes"}).exitCode, 0);
  EXPECT_TRUE(fs::is_empty(folder / "data"));
  EXPECT_FALSE(fs::is_empty(InRoot(set_paths::kPackagesDir) / "web/data"));

  MakePackage("9Ur5IzDKqV", "YouTube");
  Write(InRoot(set_paths::kPackagesDir) / "9Ur5IzDKqV/manifest.json",
        "{\"package_id\":\"9Ur5IzDKqV\",\"app_id\":\"9Ur5IzDKqV\",\"title\":\"YouTube\"}");
  const ProcessResult kept = RunCtl({"apps", "clear-data", "9Ur5IzDKqV", "web", "--json", "--yes"});
  EXPECT_EQ(kept.exitCode, 1);
  EXPECT_TRUE(Has(kept.err, "9Ur5IzDKqV: its data has to stay")) << kept.err;
  EXPECT_FALSE(fs::is_empty(InRoot(set_paths::kPackagesDir) / "9Ur5IzDKqV/data"));
  EXPECT_TRUE(fs::is_empty(InRoot(set_paths::kPackagesDir) / "web/data"));  // the others are done all the same
}

TEST(VexiloctlApps, ARunningTaskManagerIsAskedForEachApplicationInTurn) {
  MakePackages();
  const fs::path lockPath = InRoot(set_paths::kHostRun) / "setd.lock";
  Write(lockPath, "1\n");
  const FdHandle lock(open(lockPath.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  ChildProcess ctl(Ctl({"apps", "clear-cache", "one", "web", "--json"}));
  const fs::path request = InRoot(set_paths::kTagerRequests) / "clearAppCache";
  for (const std::string id : {"one", "web"}) {
    for (int i = 0; i < 1000 && !fs::exists(request); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(Bytes(InRoot(set_paths::kTager) / "clearAppCache"), id + "|app." + id + "\n");
    fs::remove(InRoot(set_paths::kPackagesDir) / id / "cache/c");
    fs::remove(request);
  }
  const ProcessResult result = ctl.Wait();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  ASSERT_EQ(Objects(result).size(), 2u);
  EXPECT_EQ(Objects(result)[1]["by"], "task manager");
  EXPECT_TRUE(fs::exists(InRoot(set_paths::kWebCacheDir) / "app.one/w"));  // the tool itself touches nothing
}

TEST(VexiloctlApps, UninstallRemovesAllOrRefusesWithAReason) {
  MakePackages();
  struct {
    Words words;
    int exitCode;
    const char* message;
  } const refusals[] = {
      {{"one"}, 2, "--yes"},
      {{"one", "kept", "--yes"}, 1, "app.kept (Kept) has to stay: it is locked"},
      {{"one", "own", "--yes"}, 1, "app.own (Own) has to stay: it belongs to the set"},
      {{"one", "../one", "--yes"}, 1, "\"../one\": no such package"},
      {{"one", "--all"}, 2, "does not take --all"},
      {{}, 2, "needs APP"},
  };
  for (const auto& each : refusals) {
    SCOPED_TRACE(each.message);
    Words words{"apps", "uninstall"};
    words.insert(words.end(), each.words.begin(), each.words.end());
    const ProcessResult result = RunCtl(words);
    EXPECT_EQ(result.exitCode, each.exitCode);
    EXPECT_TRUE(Has(result.err, each.message)) << result.err;
    EXPECT_TRUE(IsThere("one"));
  }
  const ProcessResult removed = RunCtl({"apps", "uninstall", "one", "app.web", "one", "--yes"});
  EXPECT_EQ(removed.exitCode, 0) << removed.err;
  EXPECT_TRUE(Has(removed.err, "removing One\n")) << removed.err;
  const size_t plan = removed.out.find("WILL GO");
  const size_t outcome = removed.out.find("FREED");
  EXPECT_TRUE(plan < outcome && outcome < removed.out.find("/opt: ")) << removed.out;
  EXPECT_FALSE(IsThere("one") || IsThere("web") || fs::exists(InRoot(set_paths::kWebCacheDir) / "app.one"));
  EXPECT_TRUE(IsThere("kept") && IsThere("own"));
}

TEST(VexiloctlReports, AreListedShownAndRemoved) {
  EXPECT_EQ(RunCtl({"reports", "list", "--json"}).out, "");
  const fs::path folder = InRoot(set_paths::kReportsDir);
  const fs::path files = InRoot("/files");
  Write(files / "vexilo.log", "a line\n");
  Write(files / "meta.json", "{\"category\":\"SOUND\",\"set\":{\"region\":1}}");
  fs::create_directories(folder);
  ASSERT_EQ(
      RunProcess({"tar", "-czf", folder / "20240307T090500Z-SOUND.tar.gz", "-C", files, "vexilo.log", "meta.json"})
          .exitCode,
      0);
  Write(folder / "broken.tar.zst", "no archive");
  Write(folder / "half.tar.gz#abc123", "");
  fs::create_symlink(files / "vexilo.log", folder / "link.tar.gz");
  EXPECT_EQ(Objects(RunCtl({"reports", "list", "--json"})).size(), 2u);

  const auto shown = Objects(RunCtl({"reports", "show", "20240307T090500Z-SOUND", "--json"}));
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0]["meta"]["set"]["region"], 1);
  EXPECT_EQ(shown[0]["files"][0]["name"], "vexilo.log");
  EXPECT_EQ(shown[0]["files"][0]["bytes"], 7);
  const std::string text = RunCtl({"reports", "show", "20240307T090500Z-SOUND.tar.gz"}).out;
  EXPECT_TRUE(Has(text, "category    SOUND\nset.region  1\n")) << text;
  for (const char* name : {"broken", "link", "../files", "half.tar.gz#abc123"}) {
    EXPECT_EQ(RunCtl({"reports", "show", name}).exitCode, 1) << name;
    EXPECT_EQ(RunCtl({"reports", "remove", "20240307T090500Z-SOUND", "nothing"}).exitCode, 1);
  }
  EXPECT_EQ(RunCtl({"reports", "remove", "20240307T090500Z-SOUND", "broken"}).exitCode, 0);
  EXPECT_EQ(Objects(RunCtl({"reports", "list", "--json"})).size(), 0u);
}

// ---- launching, in a whole set

constexpr const char* kLaunched[] = {
    "org.varno.picture-test",
    "com.tornelo.video-test",
    "org.varno.sound-test",
    "org.varno.homedeck-reset",
    "org.varno.homedeck-connection-test",
    "org.varno.mled-installation-test",
    "com.tornelo.tv.hdmi-troubleshooting",
    "com.tornelo.tv.broadcastingmenu",
    "org.varno.menu",
    "org.varno.wizard",
    "org.varno.ep-hotel-factory",
};

std::set<std::string> EveryId() {
  std::set<std::string> ids(std::begin(kLaunched), std::end(kLaunched));
  const std::string map = Bytes(VEXILO_SOURCE_DIR "/platform/set/solutionmap.xml");
  const std::string mark = "param_type=\"launch\" param_value=\"";
  for (size_t at = 0; (at = map.find(mark, at)) != std::string::npos;) {
    at += mark.size();
    ids.insert(map.substr(at, map.find_first_of(" \"", at) - at));
  }
  return ids;
}

/// Waits for the text in the file.
bool Comes(const fs::path& file, const std::string& text) {
  for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(10ms))
    if (Has(Bytes(file), text)) return true;
  return false;
}

class DesktopEntries : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* part : {"platform", "src"}) {
      const ProcessResult installed =
          RunProcess({"cmake", "-P", VEXILO_BINARY_DIR + std::string("/") + part + "/cmake_install.cmake"},
                     {.env = {{"DESTDIR", InRoot("").string()}}, .timeout = 50s});
      ASSERT_EQ(installed.exitCode, 0) << installed.err;
    }
  }
  static ProcessResult Launch(Words words, std::map<std::string, std::string> env) {
    words.insert(words.begin(), {InRoot("/usr/bin/vexiloctl").string(), "launch"});
    return RunProcess(words, {.env = std::move(env)});
  }
};

TEST_F(DesktopEntries, EveryApplicationThatIsLaunchedHasOneThatWorks) {
  const std::set<std::string> ids = EveryId();
  EXPECT_GT(ids.size(), std::size(kLaunched));
  for (const std::string& id : ids) {
    SCOPED_TRACE(id);
    const ProcessResult result =
        Launch({id, "for=" + id}, {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"ELM_ENGINE", ""}});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    ASSERT_TRUE(Comes(InRoot(set_paths::kLogFile), "  for = " + id));
  }
  const ProcessResult unknown = Launch({"org.varno.unknown"}, {});
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_TRUE(Has(unknown.err, "there is no /usr/share/applications/org.varno.unknown.desktop")) << unknown.err;
  EXPECT_EQ(Launch({"org.varno.menu", "=value"}, {}).exitCode, 2);
}

TEST_F(DesktopEntries, AProgramOfThisMachineComesBeforeTheStandIn) {
  struct {
    Words words;
    const char* program;
  } const cases[] = {
      {{"org.varno.NetworkSetting-Varno"}, "nm-connection-editor"},
      {{"org.varno.menu", "launchby=others", "type=networkstatus"}, "nm-connection-editor"},
      {{"org.varno.menu", "type=timesettings"}, "time-admin"},
      {{"org.varno.menu", "menuitem=tdm"}, "xfce4-settings-manager"},
      {{"org.varno.sound-test", "launchedFrom=com.tornelo.TVVexilo"}, "pavucontrol"},
  };
  const fs::path tools = InRoot("/tools");
  for (const auto& each : cases) {
    SCOPED_TRACE(each.program);
    const fs::path ran = InRoot("/ran");
    fs::remove(ran);
    fs::remove_all(tools);
    Write(tools / each.program, "#!/bin/sh\necho \"arguments: $*.\" >" + ran.string() + "\n");
    fs::permissions(tools / each.program, fs::perms(0755));
    EXPECT_EQ(
        Launch(each.words, {{"DISPLAY", ":none"}, {"PATH", tools.string()}, {"XDG_CURRENT_DESKTOP", ""}}).exitCode, 0);
    ASSERT_TRUE(Comes(ran, "arguments: .")) << Bytes(ran);  // they know nothing of key=value
  }
}

TEST_F(DesktopEntries, TheStandInShowsItselfUntilItIsEnded) {
  ChildProcess shown({InRoot("/usr/bin/vexilo-standin"), "Name", "key=value", "bad=\xff", "noequals"},
                     {.env = {{"ELM_ENGINE", "buffer"}, {"VEXILO_LOG_LEVEL", "debug"}}});
  std::this_thread::sleep_for(1s);  // signals before the screen is there end it, too, only less gently
  shown.Signal(SIGTERM);
  const ProcessResult result = shown.Wait();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_FALSE(Has(Bytes(InRoot(set_paths::kLogFile)), "cannot show \"Name\""));
}

}  // namespace
