// Packages: walking folders that may hold anything, the package folders and manifests, the package manager, and the
// web-application service with its list and removals.

#include <condition_variable>

#include "c_handle.h"
#include "packages/package_store.h"
#include "packages/removal.h"
#include "packages/safe_tree.h"
#include "pkgmgr_client.h"
#include "support/files.h"
#include "support/fork.h"
#include "support/process.h"
#include "was_api.h"

namespace {

using namespace packages;

const std::string kTree = "/opt/usr/apps/tree";
const fs::path kHostTree = SystemPath(kTree);
const fs::path kOutside = SystemPath("/home/owner/outside");
const fs::path kPackages = SystemPath(set_paths::kPackagesDir);
const fs::path kWebCache = SystemPath(set_paths::kWebCacheDir);

/// With something outside that must never be touched.
class OutsideStaysWhole : public testing::Test {
 protected:
  OutsideStaysWhole() {
    WriteHostFile(kOutside / "file");
    WriteHostFile(kOutside / "folder/file");
  }
  void TearDown() override {
    for (const char* name : {"file", "folder/file"}) EXPECT_EQ(ReadHostFile(kOutside / name), "content") << name;
  }
};

// --- Trees -----------------------------------------------------------------------------------------------------------

class SafeTree : public OutsideStaysWhole {};

TEST_F(SafeTree, RefusesPathsThatAreNotPlain) {
  fs::create_directories(kHostTree / "cache");
  fs::create_symlink(kOutside, kHostTree / "link");
  fs::create_directory_symlink(kHostTree.parent_path(), SystemPath("/opt/usr/linked"));
  WriteHostFile(kHostTree / "file");
  const auto expectRefused = [](int error, const std::string& folder, const std::string& within = "") {
    EXPECT_EQ(MeasureTree(folder, within).error, error) << folder;
    EXPECT_EQ(EmptyTree(folder, {}, within).error, error) << folder;
    EXPECT_EQ(RemoveTree(folder, {}, within).error, error) << folder;
  };
  for (const std::string& folder :
       {std::string(), std::string("/"), kTree + "/../../../../home/owner/outside", kTree + "/./cache", kTree + "\0x"s})
    expectRefused(EINVAL, folder);
  expectRefused(EINVAL, kTree + "/cache", "/opt/usr/apps/other");
  expectRefused(EINVAL, kTree, kTree + "/cache");
  for (const std::string& folder : {kTree + "/link", "/opt/usr/linked/tree/cache"s, kTree + "/file"})
    expectRefused(ENOTDIR, folder);
  expectRefused(ENOENT, kTree + "/none");
  EXPECT_TRUE(fs::exists(kHostTree / "file"));
  EXPECT_EQ(EmptyTree(kTree + "//cache/", {}, kTree + "/").error, 0);
}

TEST_F(SafeTree, MeasuresAsTheFileSystemDoesAndRemovesLinksNotTargets) {
  WriteHostFile(kHostTree / "big", std::string(300000, 'x'));
  WriteHostFile(kHostTree / "cache/\n\xff -rf");
  fs::create_hard_link(kHostTree / "big", kHostTree / "again");
  fs::create_hard_link(kOutside / "file", kHostTree / "shared");
  WriteHostFile(kHostTree / "sparse");
  fs::resize_file(kHostTree / "sparse", int64_t{1} << 33);
  fs::create_symlink(kOutside, kHostTree / "to folder");
  fs::create_symlink(kOutside / "file", kHostTree / "to file");
  fs::create_symlink("nowhere", kHostTree / std::string(250, 'n'));
  ASSERT_EQ(mkfifo((kHostTree / "pipe").c_str(), 0600), 0);

  const TreeResult measured = MeasureTree(kTree);
  EXPECT_EQ(measured.bytes, DiskUsage(kHostTree));
  EXPECT_EQ(measured.files, 10) << "a hard link once, the folder too";
  int64_t last = 0;
  const TreeResult emptied = EmptyTree(kTree, [&last](int64_t bytes) {
    EXPECT_GE(bytes, last);
    last = bytes;
  });
  EXPECT_EQ(emptied.error, 0);
  EXPECT_EQ(emptied.bytes, last);
  EXPECT_EQ(emptied.bytes, measured.bytes - MeasureTree(kTree).bytes - DiskUsage(kOutside / "file"))
      << "the file that is shared with the outside frees nothing";
  EXPECT_TRUE(fs::is_empty(kHostTree));
}

constexpr char kDeeper[] = "a-deeper-one";

/// A chain of folders with a file in each.
void MakeDeep(const fs::path& folder, int depth) {
  fs::create_directories(folder);
  FdHandle at(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = 0; i < depth; ++i) {
    FdHandle(openat(at.get(), "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(mkdirat(at.get(), kDeeper, 0700), 0);
    at.reset(openat(at.get(), kDeeper, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
}

TEST_F(SafeTree, GoesAsDeepAndWideAsATreeIs) {
  const rlimit few = {100, 100};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  MakeDeep(kHostTree, 600);
  EXPECT_GT(600 * sizeof kDeeper, size_t{PATH_MAX}) << "no path reaches its end";
  for (int i = 0; i < 10000; ++i) WriteHostFile(kHostTree / ("wide" + std::to_string(i % 100)) / std::to_string(i), "");
  const TreeResult measured = MeasureTree(kTree);
  EXPECT_EQ(measured.files, 1 + 2 * 600 + 100 + 10000);
  EXPECT_EQ(measured.error, 0);
  const TreeResult removed = RemoveTree(kTree);
  EXPECT_EQ(removed.files, measured.files);
  EXPECT_EQ(removed.bytes, measured.bytes);
  EXPECT_EQ(removed.error, 0);
  EXPECT_FALSE(fs::exists(kHostTree));
}

TEST_F(SafeTree, LeavesMountPointsAlone) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  WriteHostFile(kHostTree / "bound file");
  WriteHostFile(kHostTree / "own/file");
  fs::create_directories(kHostTree / "deep/bound");
  fs::create_directories(kHostTree / "memory");
  ASSERT_EQ(mount(kOutside.c_str(), (kHostTree / "deep/bound").c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount((kOutside / "file").c_str(), (kHostTree / "bound file").c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount("tmpfs", (kHostTree / "memory").c_str(), "tmpfs", 0, "size=1m"), 0);
  WriteHostFile(kHostTree / "memory/file");

  EXPECT_EQ(MeasureTree(kTree).kept, 3);
  const TreeResult removed = RemoveTree(kTree);
  EXPECT_EQ(removed.kept, 3);
  EXPECT_EQ(removed.error, EBUSY);
  EXPECT_FALSE(fs::exists(kHostTree / "own"));
  EXPECT_TRUE(fs::exists(kHostTree / "memory/file"));
  EXPECT_EQ(RemoveTree(kTree + "/deep/bound").error, EBUSY) << "itself a mount point";
  EXPECT_EQ(EmptyTree(kTree + "/deep/bound", {}, kTree).error, EBUSY);
  EXPECT_EQ(EmptyTree(kTree + "/deep/bound/folder", {}, kTree).error, EBUSY);

  PlantPackage("q", "Q");
  ASSERT_EQ(mount(kOutside.c_str(), (kPackages / "q/data").c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(Remove(*FindByPackageId("q")), -EBUSY);
  EXPECT_TRUE(fs::exists(kPackages / "q/cache/1"));
}

TEST_F(SafeTree, DoesNotFollowALinkThatTakesTheNextFoldersPlace) {
  WriteHostFile(kHostTree / "first");
  WriteHostFile(kHostTree / "folder/file");
  EmptyTree(kTree, [](int64_t) {
    if (!fs::exists(kHostTree / "folder/file") || fs::is_symlink(kHostTree / "folder")) return;
    fs::rename(kHostTree / "folder", SystemPath("/tmp/moved"));
    fs::create_directory_symlink(kOutside / "folder", kHostTree / "folder");
  });
  EXPECT_TRUE(fs::exists(SystemPath("/tmp/moved/file")));
}

// --- Packages --------------------------------------------------------------------------------------------------------

std::string Ids() {
  std::string ids;
  for (const Package& package : List()) ids += (ids.empty() ? "" : " ") + package.packageId;
  return ids;
}

int TimesLogged(const std::string& text) {
  return Count(Log(), text);
}

class PackageStore : public OutsideStaysWhole {};

TEST_F(PackageStore, ReadsWholeManifestsOnlyAndTellsOnceWhatIsWrong) {
  const struct {
    std::string id, text, problem;
  } wrong[] = {
      {"w01", "", "Syntax error"},
      {"w03", Manifest("other", "x"), "\"package_id\" must be the name of the folder"},
      {"w04", R"({"package_id": "w04", "title": "x"})", "\"app_id\" is missing"},
      {"w05", R"({"package_id": "w05", "app_id": "../x", "title": "x"})", "\"app_id\" must be 1 to 128"},
      {"w06", Manifest("w06", "\xff"), "\"title\" must be a text"},
      {"w08", Manifest("w08", "x", R"(, "icon_folder": "../w11")"), "\"icon_folder\" must be a folder inside"},
      {"w09", Manifest("w09", "x", R"(, "command": ["../../bin/x"])"), "\"command\" must be a list of texts"},
      {"w10", Manifest("w10", "x", R"(, "attributes": [1])"), "\"attributes\" must be a list of two"},
      {"w11", Manifest("w11", "x", R"(, "locked": 1)"), "\"locked\" must be true or false"},
      {"w12", Manifest("w12", "x", R"(, "lockd": true)"), "\"lockd\" is no member of a manifest"},
      {"w13", Manifest("w13", "x", R"(, "title": "again")"), "Duplicate key"},
      {"w15", std::string(5000, '[') + std::string(5000, ']'), "stackLimit"},
      {"w16", Manifest("w16", "x") + std::string(70000, ' '), "larger than 64 KiB"},
      {"no name", Manifest("no name", "x"), "is no name of a package"},
      {"w18", R"({"package_id": "w18", "app_id": "right.app", "title": "a"})", "\"app_id\" right.app is that of right"},
      {"w19", "a link", "manifest.json: Too many levels"},
      {"w20", "no folder", "is no folder"},
      {"w21", "no folder", "is no folder"},
      {"w22", R"({"package_id": "w22", "app_id": "Plain", "title": "a"})",
       "\"app_id\" Plain is the package id of another"},
      {"w23", R"({"package_id": "w23", "app_id": "w01", "title": "a"})",
       "\"app_id\" w01 is the package id of another"}};
  for (const auto& [id, text, problem] : wrong) WriteHostFile(kPackages / id / "manifest.json", text);
  fs::remove(kPackages / "w19/manifest.json");
  fs::create_symlink(kPackages / "right/manifest.json", kPackages / "w19/manifest.json");
  for (const char* id : {"w20", "w21"}) fs::remove_all(kPackages / id);
  fs::create_directory_symlink(kPackages / "right", kPackages / "w20");
  WriteHostFile(kPackages / "w21");
  PlantPackage("right", "Right", R"(, "service_id": "svc", "icon_folder": "res/i/", "command": ["bin/run", ".."],
      "attributes": [3, -4], "removable": false, "locked": true, "keep_running": true)");
  PlantPackage("Plain", "Plain");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Ids(), "Plain right");
  for (const auto& [id, text, problem] : wrong) {
    EXPECT_EQ(FindByPackageId(id), std::nullopt) << id;
    const std::string name = "/opt/usr/apps/" + id + ": ";
    EXPECT_EQ(TimesLogged(name), 1) << id;
    EXPECT_THAT(Log(), testing::ContainsRegex(name + "[^\n]*" + problem));
  }

  const auto right = FindByAppId("right.app");
  ASSERT_TRUE(right);
  EXPECT_EQ(right->packageId + " " + right->serviceId + " " + right->iconDir, "right svc /opt/usr/apps/right/res/i/");
  EXPECT_THAT(right->command, testing::ElementsAre("bin/run", ".."));
  EXPECT_TRUE(right->attribute1 == 3 && right->attribute2 == -4);
  EXPECT_TRUE(!right->removable && right->locked && right->keepRunning);
  const auto plain = FindByPackageId("Plain");
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->serviceId + " " + plain->iconDir, "Plain.app /opt/usr/apps/Plain/icons/");
  EXPECT_TRUE(plain->removable && !plain->locked && !plain->keepRunning);
  for (const char* id : {"", "..", "../apps/Plain", "Plain/", ".removing-Plain"})
    EXPECT_EQ(FindByPackageId(id), std::nullopt) << id;
}

TEST_F(PackageStore, AnIdStaysWithThePackageThatHadItFirst) {
  const auto plant = [](const std::string& id, const std::string& appId) {
    WriteHostFile(kPackages / id / "manifest.json",
                  R"({"package_id": ")" + id + R"(", "app_id": ")" + appId + R"(", "title": ")" + id + "\"}");
  };
  WriteFile(set_paths::kShippedPackages, "shipped\n");
  PlantPackage("right", "Right");
  plant("shipped", "common");
  plant("rival", "common");
  EXPECT_EQ(Ids(), "right shipped") << "of those that come at once the set's own";
  plant("first", "right.app");  // by name before it
  plant("right.app", "other");  // a folder of that name
  plant("menu", "org.set.menu");
  WriteFile(set_paths::kDesktopEntries + std::string("/org.set.menu.desktop"), "");
  for (int twice = 0; twice < 2; ++twice) {
    EXPECT_EQ(Ids(), "right shipped");
    EXPECT_EQ(FindByAppId("right.app")->packageId, "right");
  }
  for (const char* problem : {"apps/first: manifest.json: \"app_id\" right.app is that of right\n",
                              "apps/right.app: is not used: its package id is that of right\n",
                              "apps/menu: is not used: org.set.menu is the id of an application of the set\n"})
    EXPECT_EQ(TimesLogged(problem), 1) << problem;
  WriteHostFile(kPackages / "right/manifest.json", "");
  EXPECT_EQ(Ids(), "shipped") << "as long as it is there, in whatever state";
  plant("right", "right.app");
  fs::remove_all(kPackages / "right.app");
  EXPECT_EQ(Ids(), "right shipped");
  EXPECT_EQ(Remove(*FindByPackageId("right")), PKGMGR_R_OK);
  EXPECT_EQ(Ids(), "first shipped") << "then the next one has it";
  EXPECT_EQ(fs::status(SystemPath(set_paths::kPackageOwners)).permissions(), fs::perms(0600));
}

TEST_F(PackageStore, OnlyWhatTheSetShippedSoCannotBeRemoved) {
  PlantPackage("fixed", "Fixed", R"(, "removable": false)");
  PlantPackage("shipped", "Shipped");
  PlantPackage("stranger", "Stranger");
  WriteFile(set_paths::kShippedPackages, "fixed fixed\nshipped\n");
  for (const char* id : {"shipped", "stranger"})
    WriteHostFile(kPackages / id / "manifest.json", Manifest(id, "x", R"(, "removable": false)"));
  for (int twice = 0; twice < 2; ++twice)
    for (const char* id : {"fixed", "shipped", "stranger"}) {
      EXPECT_EQ(FindByPackageId(id)->removable, id != "fixed"s) << id;
      EXPECT_EQ(ReadPackage(id)->removable, id != "fixed"s) << id;
    }
  EXPECT_EQ(TimesLogged("apps/stranger/manifest.json: \"removable\" can be false for what the set shipped so only"), 1);
}

TEST_F(PackageStore, RemovesAPackageWithItsWebCacheAndTellsHowFarItIs) {
  PlantPackage("gone", "G");
  fs::create_directory_symlink(kOutside, kPackages / "gone/data/link");
  const Package gone = *FindByPackageId("gone");
  std::vector<int> told;
  EXPECT_EQ(Remove(gone, [&told](int percent) { told.push_back(percent); }), PKGMGR_R_OK);
  ASSERT_GT(told.size(), 20u);
  EXPECT_TRUE(told.front() == 0 && told.back() == 100);
  EXPECT_EQ(std::adjacent_find(told.begin(), told.end(), std::greater_equal<>()), told.end()) << "rises";
  EXPECT_EQ(Remove(gone), PKGMGR_R_ENOPKG);
  EXPECT_TRUE(fs::is_empty(kWebCache));
  EXPECT_TRUE(fs::is_empty(kPackages));
}

TEST_F(PackageStore, FinishesARemovalThatWasInterruptedAtAnyStep) {
  PlantPackage("whole", "W");
  const fs::path hidden = kPackages / ".removing-half";
  // Where it is killed: before it begins, with the web cache gone, half way, before the last file.
  for (const int step : {0, 1, 40, 97}) {
    SCOPED_TRACE(step);
    PlantPackage("half", "H");
    const std::string reached = SystemPath("/tmp/reached-" + std::to_string(step));
    const pid_t remover = Fork([&] {
      Remove(*FindByPackageId("half"), [&](int percent) {
        if (percent < step) return;
        WriteHostFile(reached);
        pause();
      });
    });
    EXPECT_TRUE(Until([&] { return fs::exists(reached); }));
    const std::string ids = step == 0 ? "half whole" : "whole";
    EXPECT_EQ(Ids(), ids);
    EXPECT_EQ(fs::exists(hidden), step > 0) << "a removal that goes on is left to its process";
    EXPECT_EQ(fs::exists(kWebCache / "half.app/page"), step == 0);
    kill(remover, SIGKILL);
    waitpid(remover, nullptr, 0);
    EXPECT_EQ(Ids(), ids);
    EXPECT_FALSE(fs::exists(hidden));
    EXPECT_EQ(fs::exists(kWebCache / "half.app"), step == 0);
    EXPECT_EQ(MeasureTree("/opt/usr/apps/half").files, step == 0 ? 1 + 2 + 1 + 40 : 0) << "whole or not at all";
    if (step == 0) fs::remove_all(kPackages / "half");
  }
  EXPECT_EQ(TimesLogged("finished a removal that was interrupted"), 3);
  fs::create_directory_symlink(kOutside, kPackages / ".removing-link");
  EXPECT_EQ(Ids(), "whole");
  EXPECT_FALSE(fs::is_symlink(kPackages / ".removing-link"));
}

TEST_F(PackageStore, FinishesAllStuckRemovalsAndTheirWebCaches) {
  for (const char* id : {"again", "gone", "taken"}) PlantPackage(id, "T");
  const Package again = *FindByPackageId("again");
  fs::rename(kPackages / "gone", kPackages / ".removing-gone~12");
  fs::rename(kPackages / "taken", kPackages / ".removing-taken");
  WriteHostFile(kPackages / "new/manifest.json", R"({"package_id": "new", "app_id": "taken.app", "title": "n"})");
  WriteHostFile(kPackages / ".removing-again/file");
  WriteHostFile(kPackages / ".removing-again~2");
  EXPECT_EQ(Remove(again), PKGMGR_R_OK);
  EXPECT_TRUE(fs::exists(kPackages / ".removing-again/file"));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Ids(), "new");
  EXPECT_EQ(std::distance(fs::directory_iterator(kPackages), {}), 1);
  EXPECT_FALSE(fs::exists(kWebCache / "gone.app"));
  EXPECT_TRUE(fs::exists(kWebCache / "taken.app/page")) << "the application is installed again";
}

TEST_F(PackageStore, RemovesNothingOfAPackageThatHoldsSomebodyElsesAlsoWhereItIsShut) {
  if (geteuid() != 0) GTEST_SKIP() << "giving files away takes root";
  for (const char* id : {"foreign", "own", "web"}) PlantPackage(id, "T");
  for (const fs::path& folder : {kPackages, kWebCache}) {
    ASSERT_EQ(lchown(folder.c_str(), 4711, 4711), 0);
    for (const auto& entry : fs::recursive_directory_iterator(folder))
      ASSERT_EQ(lchown(entry.path().c_str(), 4711, 4711), 0);
  }
  for (const fs::path& file : {kPackages / "foreign/data/1", kWebCache / "web.app/page"})
    ASSERT_EQ(lchown(file.c_str(), 4712, 4712), 0);
  for (const char* id : {"foreign", "own"}) fs::permissions(kPackages / id / "data", fs::perms(0));
  fs::permissions(kPackages / "own/cache", fs::perms(0500));
  fs::permissions(SystemPath("/var/lib/vexilo-host"), fs::perms(0777));  // for the log
  fs::permissions(SystemPath("/run/vexilo-host"), fs::perms(0777));      // for the lock
  ASSERT_EQ(setresuid(4711, 4711, 4711), 0);
  EXPECT_EQ(MeasureTree("/opt/usr/apps/own").error, EACCES);
  EXPECT_EQ(Remove(*FindByPackageId("foreign")), -EACCES);
  EXPECT_EQ(TimesLogged("1 entries in it are mount points or belong to another user"), 1);
  EXPECT_EQ(MeasureTree("/opt/usr/apps/foreign").files, 1 + 2 + 1 + 40 - 1) << "nothing is gone";
  EXPECT_TRUE(fs::exists(kWebCache / "foreign.app/page"));
  EXPECT_EQ(Remove(*FindByPackageId("own")), PKGMGR_R_OK);
  EXPECT_EQ(Remove(*FindByPackageId("web")), -EACCES) << "its web cache stays";
  EXPECT_EQ(Ids(), "foreign");
}

// The smallest numbers of errors are those of other results.
TEST(PackageResult, OfAnErrorIsNotMistakenForAnother) {
  EXPECT_EQ(ResultOf(0), PKGMGR_R_OK);
  EXPECT_EQ(ResultOf(EPERM), -EACCES) << "a file that must not be changed";
  for (const int error : {ENOENT, ESRCH}) EXPECT_EQ(ResultOf(error), PKGMGR_R_ERROR) << error;
  for (const int error : {EIO, EBUSY, EROFS}) EXPECT_EQ(ResultOf(error), -error);
}

TEST_F(PackageStore, ThePackageManagerMeasuresAndClearsData) {
  PlantPackage("p", "P");
  const fs::path data = kPackages / "p/data", cache = kPackages / "p/cache";
  pkgmgr_client* client = pkgmgr_client_new(PC_REQUEST);
  const auto size = [client](const char* id, int type) {
    long long bytes = -7;
    const int result = pkgmgr_client_usr_get_size(client, id, static_cast<pkgmgr_getsize_type>(type), getuid(), &bytes);
    return result == PKGMGR_R_OK ? bytes : result == PKGMGR_R_ENOPKG ? -2 : -1;
  };
  const auto clear = [client](const char* id) { return pkgmgr_client_clear_user_data(client, nullptr, id, PM_QUIET); };
  EXPECT_EQ(size("p", PM_GET_TOTAL_SIZE), DiskUsage(kPackages / "p"));
  EXPECT_EQ(size("p", PM_GET_DATA_SIZE), DiskUsage(data) + DiskUsage(cache));
  EXPECT_EQ(size("p.app", 0), -2) << "the application's id";
  EXPECT_EQ(clear("none"), PKGMGR_R_ENOPKG);

  EXPECT_EQ(clear("p"), PKGMGR_R_OK) << "the package's id will do";
  WriteHostFile(data / "file");
  EXPECT_EQ(clear("p.app"), PKGMGR_R_OK);
  for (const fs::path& folder : {data, cache, kWebCache / "p.app"}) EXPECT_TRUE(fs::is_empty(folder)) << folder;
  EXPECT_EQ(Ids(), "p");
  fs::remove(data);
  fs::remove(cache);
  EXPECT_EQ(size("p", PM_GET_DATA_SIZE), 0);
  EXPECT_EQ(clear("p.app"), PKGMGR_R_OK);
  EXPECT_FALSE(fs::exists(data)) << "nothing is made";
  fs::create_directory_symlink(kOutside, data);
  WriteHostFile(cache / "file");
  EXPECT_EQ(clear("p.app"), -ENOTDIR);
  EXPECT_TRUE(fs::is_empty(cache)) << "the rest is emptied all the same";
  EXPECT_EQ(pkgmgr_client_free(client), PKGMGR_R_OK);
}

TEST(SamplePackages, AreWholeAndComeIntoASetOnce) {
  const auto install = [] {
    return RunProcess({"cmake", "-P", SAMPLES_INSTALL}, {.env = {{"DESTDIR", SystemPath("")}}}).exitCode;
  };
  ASSERT_EQ(install(), 0);
  const std::vector<Package> samples = List();
  EXPECT_GE(samples.size(), 12u);
  EXPECT_EQ(TimesLogged("/opt/usr/apps"), 0);
  for (const Package& sample : samples) {
    for (const char* icon : {"icon.png", "304x304.png", "448x448.png"})
      EXPECT_EQ(ReadHostFile(SystemPath(sample.iconDir + icon)).substr(0, 4), "\x89PNG") << sample.title;
    EXPECT_EQ(access(SystemPath(FolderOf(sample) + "/" + sample.command.at(0)).c_str(), X_OK), 0) << sample.title;
    for (const std::string& folder : {DataFolderOf(sample), CacheFolderOf(sample)})
      EXPECT_GT(MeasureTree(folder).bytes, 10000) << folder;
  }
  const Package removed = samples.front(), changed = samples.back();
  EXPECT_EQ(Remove(removed), PKGMGR_R_OK);
  EXPECT_EQ(ClearData(changed), PKGMGR_R_OK);
  ASSERT_EQ(install(), 0);
  EXPECT_EQ(List().size(), samples.size() - 1);
  EXPECT_EQ(FindByPackageId(removed.packageId), std::nullopt);
  EXPECT_TRUE(fs::is_empty(SystemPath(DataFolderOf(changed))));
}

// --- The web-application service -------------------------------------------------------------------------------------

using Texts = std::vector<std::string>;

/// What a request reports: "120 a.app", "121 a.app 0 100" (the first and the last of a row), "123 a.app -2".
class Events {
 public:
  static void On(const char* appId, was_notify_event_e event, int progress, int reserved, void* self) {
    static_cast<Events*>(self)->Add(appId, event, progress, reserved);
  }

  Texts WaitForEnd() {
    std::unique_lock lock(m_mutex);
    EXPECT_TRUE(m_ended.wait_for(lock, std::chrono::seconds(60), [this] { return m_complete; }));
    m_complete = false;
    return std::move(m_texts);
  }

 private:
  void Add(const std::string& appId, int event, int progress, int reserved) {
    const std::lock_guard guard(m_mutex);
    std::string text = std::to_string(event) + (appId.empty() ? "" : " " + appId);
    if (event == WAS_EVENT_UNINSTALL_FAILED) text += " " + std::to_string(reserved);
    if (event == WAS_EVENT_UNINSTALL_PROGRESS && progress > 0 && progress < 100) return;
    if (event == WAS_EVENT_UNINSTALL_PROGRESS) text += " " + std::to_string(progress);
    m_texts.push_back(text);
    EXPECT_FALSE(m_complete) << "nothing comes after the end";
    m_complete = event == WAS_EVENT_MULTI_UNINSTALL_COMPLETE;
    m_ended.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_ended;
  bool m_complete = false;
  Texts m_texts;
};

Texts Titles(was_list_kind_e kind) {
  was_app_info_s* list = nullptr;
  int count = -1;
  EXPECT_EQ(was_get_app_list(kind, &list, &count), WAS_ERROR_NONE);
  Texts titles;
  for (int i = 0; i < count; ++i) titles.push_back(list[i].title);
  was_free_app_list(list, count);
  return titles;
}

TEST(WasList, HasTheRemovableApplicationsByTitle) {
  int count = -1;
  EXPECT_EQ(Titles(WAS_LIST_REMOVABLE), Texts{});
  PlantPackage("a", "Zebra", R"(, "service_id": "s", "attributes": [5, 6], "locked": true)");
  PlantPackage("b", "apple");
  PlantPackage("d", "apple");
  PlantPackage("c", "Set", R"(, "removable": false)");
  EXPECT_EQ(was_get_app_count(&count), WAS_ERROR_NONE);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(Titles(WAS_LIST_REMOVABLE), (Texts{"apple", "apple", "Zebra"}));
  EXPECT_EQ(Titles(WAS_LIST_ALL), (Texts{"apple", "apple", "Set", "Zebra"}));
  was_app_info_s* list = nullptr;
  ASSERT_EQ(was_get_app_list(WAS_LIST_REMOVABLE, &list, &count), WAS_ERROR_NONE);
  EXPECT_STREQ(list[0].package_id, "b") << "of one title, by id";
  EXPECT_EQ(list[0].locked, 0);
  EXPECT_STREQ(list[2].service_id, "s");
  EXPECT_STREQ(list[2].app_id, "a.app");
  EXPECT_EQ(list[2].attribute1 + list[2].attribute2, 11);
  EXPECT_NE(list[2].locked, 0);
  was_free_app_list(list, count);
}

TEST(WasUninstall, ReportsEachApplicationInOrderAndTheEndOnce) {
  PlantPackage("a", "A");
  PlantPackage("b", "B");
  PlantPackage("locked", "L", R"(, "locked": true)");
  PlantPackage("set", "S", R"(, "removable": false)");
  Events events;
  const char* ids[] = {"b.app", "none", "locked.app", "b.app", "../a", "set.app", "a.app"};
  ASSERT_EQ(was_multi_uninstall_webapp(ids, 7, Events::On, &events), WAS_ERROR_NONE);
  EXPECT_EQ(events.WaitForEnd(),
            (Texts{"142", "120 b.app", "121 b.app 0", "121 b.app 100", "122 b.app", "123 none -2", "123 locked.app -13",
                   "123 ../a -2", "123 set.app -13", "120 a.app", "121 a.app 0", "121 a.app 100", "122 a.app", "143"}));
  EXPECT_EQ(Titles(WAS_LIST_ALL), (Texts{"L", "S"}));

  const char* holes[] = {"locked.app", nullptr};
  EXPECT_EQ(was_multi_uninstall_webapp(holes, 2, Events::On, &events), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_multi_uninstall_webapp(ids, 0, Events::On, &events), WAS_ERROR_INVALID_PARAMETER);
}

TEST(WasUninstall, EndsTheProgramsFirst) {
  for (const char* id : {"p", "other"}) {
    PlantPackage(id, "P");
    WriteHostFile(kPackages / id / "bin/run",
                  "cd \"${0%/*}\"; trap 'test -e ../data/1 && echo there; exit 7' TERM; echo ready; "
                  "while :; do sleep 0.05; done\n");
  }
  ChildProcess program({"sh", kPackages / "p/bin/run"}), other({"sh", kPackages / "other/bin/run"});
  ASSERT_TRUE(program.ReadLine() && other.ReadLine());
  Events events;
  EXPECT_EQ(was_force_uninstall_webapp("p.app", Events::On, &events), WAS_ERROR_NONE);
  EXPECT_EQ(events.WaitForEnd(), (Texts{"120 p.app", "121 p.app 0", "121 p.app 100", "122 p.app", "143"}));
  const ProcessResult ended = program.Wait(std::chrono::milliseconds(0));
  EXPECT_EQ(ended.exitCode, 7);
  EXPECT_EQ(ended.out, "there\n") << "the package is whole meanwhile";
  EXPECT_TRUE(other.Wait(std::chrono::milliseconds(0)).timedOut) << "another package's program runs on";
}

TEST(WasUninstall, ServesRequestsOfManyThreadsOneAfterTheOther) {
  std::vector<std::thread> threads;
  Events events[8];
  for (int i = 0; i < 8; ++i) PlantPackage("p" + std::to_string(i), "P");
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([i, &events] {
      const std::string id = "p" + std::to_string(i) + ".app";
      EXPECT_EQ(was_force_uninstall_webapp(id.c_str(), Events::On, &events[i]), WAS_ERROR_NONE);
      EXPECT_LE(Titles(WAS_LIST_REMOVABLE).size(), 8u) << "each is there once, or not at all";
    });
  for (std::thread& thread : threads) thread.join();
  for (Events& one : events) EXPECT_EQ(one.WaitForEnd().size(), 5u);
  EXPECT_EQ(Log(), "") << "that a package goes while it is read is no error";
  EXPECT_EQ(Titles(WAS_LIST_ALL), Texts{});
}

}  // namespace
