// Flatpaks as packages: found, measured, cleared, ended, drawn and removed, with real installations that are filled
// from a repository made by hand, and real sandboxes.

#include <grp.h>
#include <sys/prctl.h>

#include <regex>

#include "c_handle.h"
#include "cleaning/hoards.h"
#include "packages/package_store.h"
#include "packages/processes.h"
#include "packages/removal.h"
#include "pkgmgr_client.h"
#include "set_care.h"
#include "set_names.h"
#include "setd/deep_clean.h"
#include "setd/memory.h"
#include "support/files.h"
#include "support/fork.h"
#include "support/process.h"
#include "support/test_bus.h"
#include "vconf.h"
#include "was_api.h"

namespace {

using namespace packages;

const fs::path kHome = SystemPath("/opt/usr/home/owner"), kData = SystemPath(set_paths::kFlatpakDataDir);
const fs::path kUser = SystemPath(set_paths::kFlatpakUserDir), kSystem = SystemPath(set_paths::kFlatpakSystemDir);
const fs::path kWork = SystemPath("/tmp/work"), kOutside = SystemPath("/home/owner/outside");
const std::string kOne = "org.test.One";
constexpr char kEntry[] = "[Desktop Entry]\nType=Application\nExec=run\nName=Entry\nName[de]=Eintrag\n";
const setd::StopFlag kGoesOn{false};

std::string g_bus;  // of the test's own: an install asks for parental controls there

/// Every installation is filled as if it were the user's own, which takes no administrator.
ProcessOptions Environment(const fs::path& installation) {
  return {.env = {{"FLATPAK_USER_DIR", installation},
                  {"FLATPAK_SYSTEM_DIR", kWork / "none"},
                  {"FLATPAK_CONFIG_DIR", kWork / "etc"},
                  {"DBUS_SYSTEM_BUS_ADDRESS", g_bus},
                  {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
                  {"HOME", kHome},
                  {"XDG_DATA_HOME", kHome / ".local/share"},
                  {"XDG_RUNTIME_DIR", SystemPath("/run")}}};
}

std::string Tool(const std::vector<std::string>& argv, const fs::path& installation = kUser) {
  const ProcessResult result = RunProcess(argv, Environment(installation));
  EXPECT_EQ(result.exitCode, 0) << argv[0] << " " << argv[1] << ": " << result.err;
  return result.out;
}

bool g_mounts = false;  // whether this process may mount; its mounts are its own

class Flatpaks : public testing::Test {
 protected:
  Flatpaks() {
    g_bus = m_bus.Address();
    if (geteuid() == 0)
      g_mounts = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    fs::create_directories(SystemPath("/usr/lib"));
    fs::create_symlink(HELPER, SystemPath(set_paths::kFlatpakHelper));
    WriteHostFile(kOutside / "file");
    MakeRuntime();
    for (const fs::path& installation : {kUser, kSystem}) AddRemote(installation);
    fs::permissions(kSystem, fs::perms(0755));
  }
  void TearDown() override { EXPECT_EQ(ReadHostFile(kOutside / "file"), "content"); }

  /// The shell and what it needs of this machine.
  static void MakeRuntime() {
    const fs::path usr = kWork / "runtime/usr";
    const std::string needed = RunProcess({"ldd", "/bin/sh", "/bin/sleep"}).out;
    const std::regex library("/\\S*\\.so\\S*");
    for (std::sregex_iterator each(needed.begin(), needed.end(), library), end; each != end; ++each)
      for (const char* folder : {"lib", "lib64"}) Copy(each->str(), usr / folder);
    for (const char* program : {"/bin/sh", "/bin/sleep"}) Copy(program, usr / "bin");
    fs::create_directories(kWork / "runtime/files");
    WriteHostFile(kWork / "runtime/metadata", "[Runtime]\nname=org.test.Base\nruntime=" + RuntimeRef() + "\n");
    Tool({"flatpak", "build-export", "--runtime", kWork / "repo", kWork / "runtime", "1"});
  }
  static std::string RuntimeRef() {
    static const std::string arch = Tool({"flatpak", "--default-arch"});
    return "org.test.Base/" + arch.substr(0, arch.find('\n')) + "/1";
  }
  static void Copy(const fs::path& file, const fs::path& folder) {
    fs::create_directories(folder);
    fs::copy_file(fs::canonical(file), folder / file.filename(), fs::copy_options::overwrite_existing);
  }

  TestBus m_bus;
  using Files = std::vector<std::pair<std::string, std::string>>;
  static void Export(const std::string& id, const std::string& branch, const Files& files = {}) {
    const fs::path app = kWork / id;
    WriteHostFile(app / "metadata", "[Application]\nname=" + id + "\nruntime=" + RuntimeRef() + "\ncommand=run\n");
    WriteHostFile(app / "files/bin/run", "#!/bin/sh\necho started\nsleep 1000\n");
    fs::permissions(app / "files/bin/run", fs::perms(0755));
    WriteHostFile(app / "files/program", std::string(300000, 'p'));
    WriteHostFile(app / "export/share/applications" / (id + ".desktop"), kEntry);
    for (const auto& [file, content] : files) WriteHostFile(app / file, content);
    Tool({"flatpak", "build-export", kWork / "repo", app, branch});
  }
  static void AddRemote(const fs::path& installation) {
    Tool({"flatpak", "--user", "remote-add", "--no-gpg-verify", "test", "file://" + (kWork / "repo").string()},
         installation);
  }
  static void Install(const fs::path& installation, const std::string& id, const std::string& branch = "stable") {
    Tool({"flatpak", "--user", "install", "-y", "--noninteractive", "test", id + "//" + branch}, installation);
  }
  /// As an install leaves it, made by hand: for what only looks at files.
  static fs::path Deploy(const fs::path& installation, const std::string& id, const Files& files = {}) {
    const fs::path app = installation / "app" / id, folder = app / "x86_64/stable/1";
    WriteHostFile(folder / "export/share/applications" / (id + ".desktop"), kEntry);
    for (const auto& [file, content] : files) WriteHostFile(folder / file, content);
    fs::create_directory_symlink("1", app / "x86_64/stable/active");
    fs::create_directory_symlink("x86_64/stable", app / "current");
    return folder;
  }
  static void PlantData(const std::string& id = kOne) {
    const std::string bytes(50000, 'x');
    for (const char* file : {"data/a", "config/b", ".local/c", "cache/d", "cache/tmp/e"})
      WriteHostFile(kData / id / file, bytes);
  }
  /// Runs it in its sandbox.
  static std::unique_ptr<ChildProcess> Start(const std::string& id = kOne) {
    auto process =
        std::make_unique<ChildProcess>(std::vector<std::string>{"flatpak", "run", "--user", id}, Environment(kUser));
    EXPECT_EQ(process->ReadLine(), "started") << process->Errors();
    return process;
  }
  static bool HasEnded(ChildProcess& process) { return !process.Wait(std::chrono::seconds(5)).timedOut; }
};

std::string RefsOf(const fs::path& installation, const std::string& id) {
  std::string found;
  std::istringstream refs(Tool({"ostree", "refs", "--repo=" + (installation / "repo").string()}));
  for (std::string ref; std::getline(refs, ref);)
    if (ref.find("/" + id + "/") != ref.npos) found += ref + " ";
  return found;
}

/// Whether anything is left of the application in the installation.
bool IsWhollyGone(const fs::path& installation, const std::string& id) {
  const fs::path removed = installation / ".removed";
  return !fs::exists(installation / "app" / id) && RefsOf(installation, id).empty() &&
         !fs::is_symlink(installation / "exports/share/applications" / (id + ".desktop")) &&
         (!fs::exists(removed) || fs::is_empty(removed));
}

TEST_F(Flatpaks, AreListedOnceWithTheTitleInTheMenuLanguage) {
  const auto description = [](const std::string& names) {
    return "<?xml version=\"1.0\"?><!-- x --><component type=\"desktop\"><id>x</id>" + names +
           "<developer><name xml:lang=\"de\">Maker</name></developer><description><p/></description></component>";
  };
  const std::string both =
      "<name>Plain</name><name xml:lang=\"de-DE\">Ger&amp;man</name><name xml:lang=\"de\">Other</name>";
  struct App {
    std::string id, file, text, german, english;
  };
  const App apps[] = {
      {"org.test.A", "files/share/metainfo/org.test.A.metainfo.xml", description(both), "Ger&man", "Plain"},
      {"org.test.B", "files/share/appdata/org.test.B.appdata.xml", description("<name>Plain</name>"), "Eintrag",
       "Plain"},
      {"org.test.C", "files/share/metainfo/org.test.C.metainfo.xml", "<component><nam", "Eintrag", "Entry"},
      {"org.test.D", "export/share/applications/org.test.D.desktop",
       "[Desktop Entry]\nType=Application\nName=\nExec=run\n", "org.test.D", "org.test.D"},
      {"org.test.E", "files/share/metainfo/org.test.E.metainfo.xml",
       description("<name>" + std::string(300, 't') + "</name>"), "Eintrag", "Entry"},
      {"org.test.System", "files/x", "", "Eintrag", "Entry"}};
  for (const auto& app : apps) Deploy(app.id == "org.test.System" ? kSystem : kUser, app.id, {{app.file, app.text}});
  Deploy(kSystem, "org.test.A");
  fs::rename(kSystem, SystemPath("/more"));
  WriteHostFile(SystemPath("/etc/flatpak/installations.d/more.conf"), "[Installation \"more\"]\nPath=/more\n");
  fs::create_directories(kUser / "app/org.test.Remains/x86_64/stable");
  fs::create_directory_symlink(kOutside, kUser / "app/org.test.Link");
  fs::create_directories(kOutside / "active");
  fs::create_directories(kUser / "app/org.test.Away");
  fs::create_directory_symlink(kOutside, kUser / "app/org.test.Away/current");
  WriteHostFile(SystemPath("/opt/usr/apps/folder/manifest.json"),
                R"({"package_id": "folder", "app_id": "org.test.E", "title": "Folder"})");
  const auto expectTitles = [&](auto title) {
    std::map<std::string, std::string> listed, expected{{"folder", "Folder"}};
    for (const Package& one : List()) listed.emplace(one.packageId, one.title);
    for (const auto& app : apps)
      if (app.id != "org.test.E") expected.emplace(app.id, app.*title);
    EXPECT_EQ(listed, expected);
  };
  expectTitles(&App::english);
  ASSERT_EQ(vconf_set_str("db/menu_widget/language", "de_DE.utf8"), 0);
  expectTitles(&App::german);
  EXPECT_EQ(FindByAppId("org.test.A")->installation, set_paths::kFlatpakUserDir);
  EXPECT_EQ(FindByAppId("org.test.E")->packageId, "folder");
  EXPECT_EQ(Count(Log(), "app/org.test.E: is not listed: /opt/usr/apps/folder has its id"), 1);
  WriteFile("/opt/usr/apps/late/manifest.json",
            R"({"package_id": "late", "app_id": "org.test.A", "title": "Later than the Flatpak"})");
  PlantPackage("org.test.B", "Of a Flatpak's name");
  for (const char* id : {"org.test.A", "org.test.B"}) EXPECT_EQ(FindByAppId(id)->source, Source::kFlatpak) << id;
  EXPECT_EQ(Count(Log(), "apps/late: manifest.json: \"app_id\" org.test.A is that of the Flatpak org.test.A\n"), 1);
  EXPECT_EQ(Count(Log(), "\n"), 3) << Log();
}

TEST_F(Flatpaks, AreMeasuredAndLockedForWhoIsNoAdministrator) {
  if (geteuid() != 0) GTEST_SKIP() << "becoming another user takes root";
  Export(kOne, "stable");
  Install(kSystem, kOne);
  PlantData();
  const Package one = *FindByAppId(kOne);
  const fs::path program = kSystem / "app" / kOne;
  EXPECT_EQ(MeasureWhole(one).bytes, DiskUsage(program) + DiskUsage(kData / kOne));
  EXPECT_EQ(MeasureCache(one).bytes, DiskUsage(kData / kOne / "cache"));
  EXPECT_EQ(MeasureData(one).bytes, DiskUsage(kData / kOne) - DiskUsage(kData / kOne / "cache"));
  EXPECT_FALSE(one.forAdministrator);
  RunProcess({"chown", "-R", "4711", kHome, SystemPath("/var/lib/vexilo-host")});
  ExpectEndsWell(Fork([&] {
    ASSERT_TRUE(setgroups(0, nullptr) == 0 && setgid(4711) == 0 && setuid(4711) == 0);
    const auto seen = FindByAppId(kOne);
    ASSERT_TRUE(seen && seen->forAdministrator);
    EXPECT_EQ(MeasureWhole(*seen).bytes, DiskUsage(program) + DiskUsage(kData / kOne));
    was_app_info_s* list = nullptr;
    int count = 0;
    ASSERT_EQ(was_get_app_list(WAS_LIST_REMOVABLE, &list, &count), WAS_ERROR_NONE);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(list[0].locked, WAS_LOCKED_FOR_ADMINISTRATOR);
    EXPECT_EQ(ReadFile(list[0].icon_dir + std::string("304x304.png")).substr(1, 3), "PNG");
    static std::atomic<int> refused{0};
    was_force_uninstall_webapp(
        kOne.c_str(),
        [](const char*, was_notify_event_e event, int, int reason, void*) {
          if (event == WAS_EVENT_UNINSTALL_FAILED) refused = reason;
        },
        nullptr);
    EXPECT_TRUE(Until([] { return refused != 0; }));
    EXPECT_EQ(refused, WAS_ERROR_NOT_PERMITTED);
    EXPECT_EQ(Remove(*seen), -EACCES);
    EXPECT_EQ(ClearData(*seen), PKGMGR_R_OK) << "the data are his own";
  }));
  EXPECT_TRUE(fs::exists(program / "current/active/files/program"));
  EXPECT_TRUE(fs::is_empty(kData / kOne));
}

TEST_F(Flatpaks, AreClearedWithNothingElse) {
  if (!g_mounts) GTEST_SKIP() << "mounting and giving files away takes root";
  Export(kOne, "stable");
  Install(kUser, kOne);
  PlantData();
  PlantData("org.test.Other");
  const Package one = *FindByAppId(kOne);
  const fs::path data = kData / kOne;
  EXPECT_EQ(ClearCache(one), PKGMGR_R_OK);
  EXPECT_TRUE(fs::is_empty(data / "cache") && fs::exists(data / "data/a"));
  fs::create_directory_symlink(kOutside, data / "data/link");
  WriteHostFile(data / "foreign/file");
  ASSERT_EQ(chown((data / "foreign").c_str(), 4711, -1), 0);
  fs::create_directories(data / "config/mount");
  ASSERT_EQ(mount(kOutside.c_str(), (data / "config/mount").c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_NE(ClearData(one), PKGMGR_R_OK);
  EXPECT_FALSE(fs::exists(data / "data") || fs::exists(data / "config/b"));
  EXPECT_TRUE(fs::exists(data / "foreign/file"));
  EXPECT_THAT(Remove(one), testing::AnyOf(-EACCES, -EBUSY)) << "all of it, or nothing";
  EXPECT_THAT(Log(), HasSubstr("2 entries of its data are mount points or belong to another user"));
  EXPECT_TRUE(FindByAppId(kOne));
  ASSERT_EQ(umount((data / "config/mount").c_str()), 0);
  ASSERT_EQ(chown((data / "foreign").c_str(), 0, -1), 0);
  EXPECT_EQ(ClearData(one), PKGMGR_R_OK);
  EXPECT_TRUE(fs::is_empty(data));
  fs::rename(data, kWork / "moved");
  fs::create_directory_symlink(kOutside, data);
  EXPECT_NE(ClearData(one), PKGMGR_R_OK) << "not through a link";
  EXPECT_TRUE(fs::exists(kData / "org.test.Other/cache/d"));
}

TEST_F(Flatpaks, AreEndedBeforeTheyAreClearedButNotByCleaningUp) {
  Export(kOne, "stable");
  Install(kUser, kOne);
  auto running = Start();
  PlantData();
  const Package one = *FindByAppId(kOne);
  EXPECT_GE(ProcessesOf({one}).size(), 2u) << "the shell and what it started";
  EXPECT_TRUE(setd::CleanAll(kGoesOn));
  EXPECT_TRUE(setd::BoostMemory(kGoesOn)) << "nobody knows what the viewer looks at";
  EXPECT_FALSE(ProcessesOf({one}).empty());
  // Who was asked looks at the question.
  ASSERT_EQ(set_care::BackgroundApps().size(), 1u);
  EXPECT_GT(set_care::BackgroundApps()[0].bytes, 0);
  EXPECT_TRUE(set_care::EndApps({"org.test.Other"}).empty());
  EXPECT_FALSE(ProcessesOf({one}).empty());
  ASSERT_EQ(set_care::EndApps({kOne}).size(), 1u);
  EXPECT_TRUE(HasEnded(*running));
  running = Start();
  ASSERT_EQ(vconf_set_str(set_names::kForegroundAppKey, kOne.c_str()), 0);
  EXPECT_TRUE(setd::BoostMemory(kGoesOn));
  EXPECT_TRUE(fs::exists(kData / kOne / "cache/d"));
  EXPECT_FALSE(ProcessesOf({one}).empty());
  ASSERT_EQ(vconf_set_str(set_names::kForegroundAppKey, "other"), 0);
  EXPECT_TRUE(setd::BoostMemory(kGoesOn));
  EXPECT_TRUE(HasEnded(*running)) << "it is in the background";
  EXPECT_TRUE(setd::CleanAll(kGoesOn));
  EXPECT_TRUE(fs::is_empty(kData / kOne / "cache"));
  for (const bool data : {false, true}) {
    running = Start();
    EXPECT_EQ(data ? ClearData(one) : ClearCache(one), PKGMGR_R_OK);
    EXPECT_TRUE(HasEnded(*running));
  }
}

TEST_F(Flatpaks, RuntimesThatNoApplicationNeedsGoWhenAskedFor) {
  const auto bytes = [] {
    for (const cleaning::Stock& stock : cleaning::FindHoards())
      if (stock.hoard == cleaning::Hoard::kFlatpakRuntimes) return stock.bytes;
    return int64_t{0};
  };
  const auto isThere = [](const fs::path& installation) { return fs::exists(installation / "runtime/org.test.Base"); };
  Export(kOne, "stable");
  for (const fs::path& installation : {kUser, kSystem}) Install(installation, kOne);
  EXPECT_EQ(bytes(), 0) << "it is needed";
  EXPECT_EQ(cleaning::RemoveHoard(cleaning::Hoard::kFlatpakRuntimes).error, 0);
  EXPECT_TRUE(isThere(kUser));
  for (const fs::path& installation : {kUser, kSystem})
    Tool({"flatpak", "--user", "uninstall", "-y", "--noninteractive", kOne}, installation);
  const int64_t unused = bytes();
  EXPECT_GT(unused, 1 << 20);
  EXPECT_TRUE(isThere(kUser)) << "it was only measured";
  const packages::TreeResult removed = cleaning::RemoveHoard(cleaning::Hoard::kFlatpakRuntimes);
  EXPECT_EQ(removed.error, 0);
  EXPECT_GT(removed.bytes, unused / 2);
  EXPECT_FALSE(isThere(kUser));
  EXPECT_TRUE(isThere(kSystem)) << "other users' applications may need it";
}

TEST_F(Flatpaks, AreRemovedInAllBranchesWithTheirDataAndNothingElse) {
  Export(kOne, "stable");
  Export(kOne, "beta");
  Install(kUser, kOne);
  Install(kUser, kOne, "beta");
  Install(kSystem, kOne);
  PlantData();
  auto running = Start();
  fs::rename(kWork / "repo", kWork / "repo that is not there");  // nothing is fetched
  std::vector<int> told;
  EXPECT_EQ(Remove(*FindByAppId(kOne), [&told](int percent) { told.push_back(percent); }), PKGMGR_R_OK);
  EXPECT_TRUE(HasEnded(*running));
  ASSERT_GT(told.size(), 3u);
  EXPECT_TRUE(told.front() == 0 && told.back() == 100);
  EXPECT_EQ(std::adjacent_find(told.begin(), told.end(), std::greater_equal<>()), told.end()) << "rises";
  EXPECT_TRUE(IsWhollyGone(kUser, kOne));
  EXPECT_NE(RefsOf(kUser, "org.test.Base"), "") << "the runtime stays";
  const auto ofSystem = FindByAppId(kOne);
  ASSERT_TRUE(ofSystem);
  EXPECT_EQ(ofSystem->installation, set_paths::kFlatpakSystemDir);
  EXPECT_TRUE(fs::exists(kData / kOne / "data/a")) << "it is installed elsewhere";
  EXPECT_EQ(Remove(*ofSystem), geteuid() == 0 ? PKGMGR_R_OK : -EACCES);
  EXPECT_EQ(fs::exists(kData / kOne), geteuid() != 0);
  EXPECT_EQ(Remove(*ofSystem), geteuid() == 0 ? static_cast<int>(PKGMGR_R_ENOPKG) : -EACCES);
  EXPECT_TRUE(fs::is_empty(SystemPath(set_paths::kFlatpakRemovals)));
}

/// A look by a program that has just been started.
void Look(uid_t user = geteuid()) {
  ExpectEndsWell(Fork([user] {
    ASSERT_TRUE(user == geteuid() || (setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0));
    List();
  }));
}

/// Kills who removes, and the program that does it for him or not, some time after that has begun. Both have ended
/// afterwards.
void RemoveAndKill(std::chrono::microseconds after, bool both) {
  ASSERT_TRUE(FindByAppId(kOne));
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t remover = Fork([&] { Remove(*FindByAppId(kOne)); });
  const fs::path children = "/proc/" + std::to_string(remover) + "/task/" + std::to_string(remover) + "/children";
  pid_t helper = 0;
  ASSERT_TRUE(Until([&] { return (std::ifstream(children) >> helper) && helper > 0; }));
  std::this_thread::sleep_for(after);
  kill(remover, SIGKILL);
  if (both) kill(helper, SIGKILL);
  for (const pid_t pid : {remover, helper}) waitpid(pid, nullptr, 0);
}

TEST_F(Flatpaks, AreWholeOrGoneAfterARemovalThatWasInterruptedAnywhere) {
  Export(kOne, "stable");
  int gone = 0;
  for (int step = 0; step < 12; ++step) {
    if (!FindByAppId(kOne)) Install(kUser, kOne);
    PlantData();
    ASSERT_NO_FATAL_FAILURE(RemoveAndKill(std::chrono::microseconds(step * 8000), step % 4 != 3));
    Look();
    const bool listed = FindByAppId(kOne).has_value();
    SCOPED_TRACE("step " + std::to_string(step) + ": " + Log());
    EXPECT_EQ(fs::exists(kData / kOne), listed);
    if (listed) {
      EXPECT_THAT(Tool({"flatpak", "--user", "info", "-r", kOne}), HasSubstr("app/" + kOne));
    }
    EXPECT_EQ(IsWhollyGone(kUser, kOne), !listed);
    EXPECT_TRUE(fs::is_empty(SystemPath(set_paths::kFlatpakRemovals)));
    if (!listed) ++gone;
  }
  EXPECT_GT(gone, 0) << "the last ones come to their end";
  EXPECT_THAT(Log(), HasSubstr("undid a removal that was interrupted"));
  EXPECT_THAT(Log(), HasSubstr("finished a removal that was interrupted"));
}

/// In place of the program that does the work.
void ReplaceHelper(const std::string& script) {
  const fs::path helper = SystemPath(set_paths::kFlatpakHelper);
  fs::remove(helper);
  WriteHostFile(helper, "#!/bin/sh\n" + script);
  fs::permissions(helper, fs::perms(0755));
}

void RestoreHelper() {
  fs::remove(SystemPath(set_paths::kFlatpakHelper));
  fs::create_symlink(HELPER, SystemPath(set_paths::kFlatpakHelper));
}

/// A removal that is killed when it has begun. Nobody has the lock afterwards.
void RemoveHalfOf(const Package& package) {
  const std::string app = SystemPath(FolderOf(package));
  ReplaceHelper("rm " + app + "/*/*/active " + app + "/current; kill -9 $PPID\n");
  int status = 0;
  waitpid(Fork([&] { Remove(package); }), &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status) && !fs::exists(app + "/current")) << Log();
  ASSERT_TRUE(Until([] { return LockForRemoval(set_paths::kFlatpakRemovals + ("/" + kOne)).get() >= 0; }));
  RestoreHelper();
}

TEST_F(Flatpaks, KeepTheDataUntilWhoHasBegunARemovalCanFinishIt) {
  if (geteuid() != 0) GTEST_SKIP() << "becoming another user takes root";
  const fs::path mark = SystemPath(set_paths::kFlatpakRemovals) + "/" + kOne, away = kWork / "away";
  Export(kOne, "stable");
  const auto half = [&](const fs::path& installation) {
    Install(installation, kOne);
    PlantData();
    RemoveHalfOf(*FindByAppId(kOne));
  };
  const auto expectFinishes = [&](const fs::path& installation, bool withData) {
    Look();
    EXPECT_EQ(fs::exists(kData / kOne), !withData);
    EXPECT_TRUE(IsWhollyGone(installation, kOne) && !fs::exists(mark)) << Log();
  };
  half(kSystem);
  RunProcess({"chown", "-R", "4711", kHome});
  fs::permissions(mark.parent_path(), fs::perms(0777));
  const std::string log = Log();
  for (int look = 0; look < 2; ++look) Look(4711);
  EXPECT_EQ(Log(), log);
  EXPECT_TRUE(fs::exists(kData / kOne / "data/a") && fs::exists(mark)) << "the administrator's removal";
  expectFinishes(kSystem, true);
  RunProcess({"chown", "-R", "0", kHome});

  half(kUser);
  fs::rename(kUser, away);
  fs::create_directory(kUser);  // the place where its disk is mounted
  Look();
  EXPECT_TRUE(fs::exists(kData / kOne / "data/a") && fs::exists(mark)) << "its disk is not there";
  EXPECT_THAT(Log(), HasSubstr("removals/" + kOne + ": " + set_paths::kFlatpakUserDir + " is not there"));
  fs::remove(kUser);
  fs::rename(away, kUser);
  expectFinishes(kUser, true);

  Install(kSystem, kOne);
  half(kUser);
  fs::rename(kSystem, away);
  expectFinishes(kUser, false);
}

TEST_F(Flatpaks, AreListedWithoutALongWaitForARemovalThatCannotBeFinished) {
  Export(kOne, "stable");
  Install(kUser, kOne);
  RemoveHalfOf(*FindByAppId(kOne));
  const fs::path marks = SystemPath(set_paths::kFlatpakRemovals), runs = kWork / "runs";
  fs::copy(marks / kOne, marks / "org.test.Two", fs::copy_options::recursive);
  ReplaceHelper("echo >> " + runs.string() + "; exec sleep 100\n");
  ExpectEndsWell(Fork([&] {
    ReadPackage(kOne);
    EXPECT_FALSE(fs::exists(runs)) << "only the list";
    const auto start = std::chrono::steady_clock::now();
    for (int look = 0; look < 3; ++look) List();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(Count(ReadHostFile(runs), "\n"), 1);
  }));
  RestoreHelper();
  Look();
  EXPECT_TRUE(IsWhollyGone(kUser, kOne) && fs::is_empty(marks)) << Log();
}

TEST_F(Flatpaks, StayWithAClearReasonWhenTheyCannotBeRemoved) {
  Export(kOne, "stable");
  Install(kUser, kOne);
  PlantData();
  const Package one = *FindByAppId(kOne);
  const auto expectStays = [&](const std::string& reason, int result = PKGMGR_R_ERROR) {
    EXPECT_EQ(Remove(one), result);
    EXPECT_THAT(Log(), HasSubstr("app/" + kOne + " is not removed: " + reason));
    EXPECT_TRUE(FindByAppId(kOne) && fs::exists(kData / kOne / "data/a"));
    EXPECT_TRUE(fs::is_empty(SystemPath(set_paths::kFlatpakRemovals)));
  };
  const fs::path helper = SystemPath(set_paths::kFlatpakHelper);
  fs::rename(helper, kWork / "helper");
  expectStays("/usr/lib/vexilo-flatpak: No such file or directory");
  fs::rename(kWork / "helper", helper);

  const FdHandle changing(open((kUser / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  struct flock whole {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(changing.get(), F_OFD_SETLK, &whole), 0);
  expectStays("another program is changing /opt/usr/home/owner/.local/share/flatpak", -EBUSY);
  whole.l_type = F_UNLCK;
  ASSERT_EQ(fcntl(changing.get(), F_OFD_SETLK, &whole), 0);

  const fs::path mark = SystemPath(set_paths::kFlatpakRemovals) + "/" + kOne;
  fs::create_directories(mark);
  FdHandle other = LockForRemoval(set_paths::kFlatpakRemovals + ("/" + kOne));
  ASSERT_TRUE(other);
  EXPECT_EQ(Remove(one), -EWOULDBLOCK) << "somebody else removes it";
  other.reset();

  Tool({"flatpak", "--user", "uninstall", "-y", "--noninteractive", kOne});
  EXPECT_EQ(Remove(one), PKGMGR_R_ENOPKG);
  EXPECT_THAT(Log(), HasSubstr("is not removed: it is not installed any more"));
  EXPECT_EQ(List().size(), 0u);
  EXPECT_FALSE(fs::exists(mark)) << "a removal that was interrupted before it began";
  EXPECT_TRUE(fs::exists(kData / kOne / "data/a"));
}

TEST_F(Flatpaks, AreRemovedFromAFullDisk) {
  if (!g_mounts) GTEST_SKIP() << "mounting takes root";
  Export(kOne, "stable");
  const fs::path disk = SystemPath("/disk");
  fs::create_directories(disk);
  ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=12m,nr_inodes=3000"), 0);
  for (const char* folder : {"/opt/usr/home", set_paths::kFlatpakRemovals}) {
    fs::create_directories(SystemPath(folder));
    const fs::path on = disk / fs::path(folder).filename();
    fs::create_directories(on);
    ASSERT_EQ(mount(on.c_str(), SystemPath(folder).c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  AddRemote(kUser);
  Tool({"ostree", "config", "--repo=" + (kUser / "repo").string(), "set", "core.min-free-space-size", "1MB"});
  Install(kUser, kOne);
  Install(kSystem, kOne);
  PlantData();
  fs::rename(kData / kOne / "cache/tmp/e", kData / kOne / "cache/e");
  fs::remove(kData / kOne / "cache/tmp");
  std::ofstream(kHome / "filler") << std::string(12 << 20, 'f');
  ASSERT_EQ(fs::space(kHome).available, 0u);
  for (int i = 0; std::ofstream(kHome / std::to_string(i)); ++i) {
  }
  ASSERT_NE(mkdir((kHome / "folder").c_str(), 0700), 0);
  const Package one = *FindByAppId(kOne);
  const auto expectStays = [&](int result, bool withCache) {
    EXPECT_EQ(Remove(one), result) << Log();
    EXPECT_EQ(fs::exists(kData / kOne / "cache/d"), withCache);
    EXPECT_TRUE(FindByAppId(kOne) && fs::exists(kData / kOne / "data/a"));
    EXPECT_FALSE(Exists(set_paths::kFlatpakRemovals + ("/" + kOne)));
  };
  expectStays(-ENOSPC, true);  // the data, and so the cache, are another installation's, too
  fs::rename(kSystem, kWork / "away");
  ASSERT_EQ(chown((kData / kOne / "data/a").c_str(), 4711, -1), 0);
  expectStays(-EACCES, true);
  ASSERT_EQ(chown((kData / kOne / "data/a").c_str(), 0, -1), 0);
  expectStays(-ENOSPC, false);  // the cache makes room for the mark's folder and record only; the library wants more
  EXPECT_EQ(Count(Log(), "removals/" + kOne + ": "), 1) << Log();
  for (int i = 0; i < 50; ++i) fs::rename(kHome / std::to_string(i), kData / kOne / "cache" / std::to_string(i));
  EXPECT_EQ(Remove(one), PKGMGR_R_OK) << Log();
  EXPECT_TRUE(IsWhollyGone(kUser, kOne));
  EXPECT_FALSE(fs::exists(kData / kOne));
}

/// The sides and the colour in the middle of a picture, "304x304 srgba(…)".
std::string Look(const std::string& file) {
  return RunProcess({"convert", SystemPath(file), "-format", "%wx%h ", "-write", "info:", "-alpha", "set", "-gravity",
                     "center", "-crop", "1x1+0+0", "-format", "%[pixel:p{0,0}]", "info:"})
      .out;
}

TEST_F(Flatpaks, HaveAnIconOfTheirOwnOrAPlainOne) {
  const auto svg = [](const char* colour) {
    return std::string(
               "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 8 8\"><rect width=\"8\" height=\"8\" fill=\"") +
           colour + "\"/></svg>";
  };
  const auto png = [](int side, const char* colour) {
    const fs::path file = kWork / "icon.png";
    RunProcess(
        {"convert", "-size", std::to_string(side) + "x" + std::to_string(side), std::string("xc:") + colour, file});
    return ReadHostFile(file);
  };
  std::string huge = png(64, "red");
  huge[16] = huge[20] = 0x01;  // 16 million pixels wide and high
  const std::string icons = "export/share/icons/hicolor/";
  std::string bomb = "<svg xmlns=\"http://www.w3.org/2000/svg\"><g id=\"a\"><rect width=\"9\" height=\"9\"/></g>";
  for (char id = 'b'; id < 'k'; ++id) {
    bomb += std::string("<g id=\"") + id + "\">";
    for (int i = 0; i < 10; ++i) bomb += std::string("<use href=\"#") + static_cast<char>(id - 1) + "\"/>";
    bomb += "</g>";
  }
  bomb += "</svg>";
  const std::string red = "srgba(255,0,0,1)", blue = "srgba(0,0,255,1)", plain = "srgba(58,69,87,1)";
  const struct {
    std::string id, look;
    Files files;
  } apps[] = {{"org.test.Svg",
               blue,
               {{icons + "scalable/apps/org.test.Svg.svg", svg("#00f")},
                {icons + "64x64/apps/org.test.Svg.png", png(64, "red")}}},
              {"org.test.Png",
               red,
               {{icons + "64x64/apps/org.test.Png.png", png(64, "blue")},
                {icons + "256x256/apps/org.test.Png.png", png(256, "red")}}},
              {"org.test.Broken",
               blue,
               {{icons + "scalable/apps/org.test.Broken.svg", "<svg"},
                {icons + "64x64/apps/org.test.Broken.png", png(64, "blue")}}},
              {"org.test.Huge", plain, {{icons + "64x64/apps/org.test.Huge.png", huge}}},
              {"org.test.Bomb", plain, {{icons + "scalable/apps/org.test.Bomb.svg", bomb}}},
              {"org.test.Out", plain, {}},
              {"org.test.None", plain, {}}};
  was_app_info_s* list = nullptr;
  int count = 0;
  const auto expectLooks = [&](const std::string& svgLook) {
    ASSERT_EQ(was_get_app_list(WAS_LIST_REMOVABLE, &list, &count), WAS_ERROR_NONE);
    std::map<std::string, std::string> folders;
    for (int i = 0; i < count; ++i) folders[list[i].app_id] = list[i].icon_dir;
    was_free_app_list(list, count);
    for (const auto& [id, look, files] : apps)
      for (const char* size : {"304x304", "448x448"})
        EXPECT_EQ(Look(folders[id] + size + ".png"), std::string(size) + " " + (id == "org.test.Svg" ? svgLook : look))
            << id;
  };
  for (const auto& [id, look, files] : apps)
    if (id != "org.test.Svg") Deploy(kUser, id, files);
  Export("org.test.Svg", "stable", apps[0].files);
  Install(kUser, "org.test.Svg");
  const fs::path out = kUser / "app/org.test.Out/current/active/export/share/icons/hicolor/64x64/apps";
  WriteHostFile(kOutside / "icon.png", png(64, "red"));
  fs::create_directories(out);
  fs::create_symlink(kOutside / "icon.png", out / "org.test.Out.png");
  expectLooks(blue);
  const fs::path drawn = SystemPath(set_paths::kFlatpakIcons) + "/org.test.Png/304x304.png";
  const auto then = fs::last_write_time(drawn);
  Export("org.test.Svg", "stable", {{icons + "scalable/apps/org.test.Svg.svg", svg("#f00")}});
  Tool({"flatpak", "--user", "update", "-y", "--noninteractive", "org.test.Svg"});
  expectLooks(red);
  EXPECT_EQ(fs::last_write_time(drawn), then) << "only what changed";
  EXPECT_EQ(Remove(*FindByAppId("org.test.Svg")), PKGMGR_R_OK);
  ASSERT_EQ(was_get_app_list(WAS_LIST_REMOVABLE, &list, &count), WAS_ERROR_NONE);
  was_free_app_list(list, count);
  EXPECT_FALSE(Exists(set_paths::kFlatpakIcons + std::string("/org.test.Svg")));
}

}  // namespace
