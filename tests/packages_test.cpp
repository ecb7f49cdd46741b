// Packages: walking folders that may hold anything, the package folders and manifests, the package manager.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "c_handle.h"
#include "packages/package_store.h"
#include "packages/safe_tree.h"
#include "pkgmgr_client.h"
#include "set_paths.h"
#include "support/process.h"
#include "system_path.h"

namespace {

namespace fs = std::filesystem;
using namespace packages;

constexpr char kTree[] = "/opt/usr/apps/tree";
const fs::path kHostTree = SystemPath(kTree);
const fs::path kOutside = SystemPath("/home/owner/outside");

void Write(const fs::path& file, const std::string& content = "content") {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

std::string Read(const fs::path& file) {
  std::stringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

void PlantOutside() {
  Write(kOutside / "file");
  Write(kOutside / "folder/file");
}

void ExpectOutsideIsWhole() {
  EXPECT_EQ(Read(kOutside / "file"), "content");
  EXPECT_EQ(Read(kOutside / "folder/file"), "content");
}

/// What "du" counts, as a second opinion.
int64_t DiskUsage(const fs::path& folder) {
  return std::stoll(RunProcess({"du", "-s", "-B1", folder}).out);
}

// --- Trees -----------------------------------------------------------------------------------------------------------

TEST(SafeTree, RefusesPathsThatAreNotPlain) {
  PlantOutside();
  fs::create_directories(kHostTree / "cache");
  fs::create_symlink(kOutside, kHostTree / "link");
  fs::create_directory_symlink(kHostTree.parent_path(), SystemPath("/opt/usr/linked"));
  Write(kHostTree / "file");
  const std::string tree = kTree;
  const struct {
    std::string folder, within;
    int error;
  } kCases[] = {{"", "", EINVAL},
                {"/", "", EINVAL},
                {"opt/usr/apps", "", EINVAL},
                {tree + "/../../../../home/owner/outside", "", EINVAL},
                {tree + "/./cache", "", EINVAL},
                {tree + std::string("\0x", 2), "", EINVAL},
                {tree + "/cache", "/opt/usr/apps/other", EINVAL},
                {tree, tree + "/cache", EINVAL},
                {tree + "/link", "", ENOTDIR},
                {tree + "/link/folder", "", ENOTDIR},
                {"/opt/usr/linked/tree/cache", "", ENOTDIR},
                {tree + "/file", "", ENOTDIR},
                {tree + "/none", "", ENOENT}};
  for (const auto& [folder, within, error] : kCases) {
    EXPECT_EQ(MeasureTree(folder, within).error, error) << folder;
    EXPECT_EQ(EmptyTree(folder, {}, within).error, error) << folder;
    EXPECT_EQ(RemoveTree(folder, {}, within).error, error) << folder;
  }
  ExpectOutsideIsWhole();
  EXPECT_TRUE(fs::exists(kHostTree / "file"));
  EXPECT_EQ(EmptyTree(tree + "//cache/", {}, tree + "/").error, 0);
}

TEST(SafeTree, MeasuresAsTheFileSystemDoesAndRemovesLinksNotTargets) {
  PlantOutside();
  Write(kHostTree / "big", std::string(300000, 'x'));
  Write(kHostTree / "empty", "");
  fs::create_hard_link(kHostTree / "big", kHostTree / "again");
  fs::create_hard_link(kOutside / "file", kHostTree / "shared");
  Write(kHostTree / "sparse");
  fs::resize_file(kHostTree / "sparse", int64_t{1} << 33);
  fs::create_symlink(kOutside, kHostTree / "to folder");
  fs::create_symlink(kOutside / "file", kHostTree / "to file");
  fs::create_symlink("nowhere", kHostTree / std::string(250, 'n'));
  Write(kHostTree / "cache/\n\xff -rf", "x");
  ASSERT_EQ(mkfifo((kHostTree / "pipe").c_str(), 0600), 0);

  const TreeResult measured = MeasureTree(kTree);
  EXPECT_EQ(measured.bytes, DiskUsage(kHostTree));
  EXPECT_EQ(measured.files, 11) << "a hard link once, the folder too";
  EXPECT_EQ(measured.kept, 0);
  int64_t last = 0;
  const TreeResult emptied = EmptyTree(kTree, [&last](int64_t bytes) {
    EXPECT_GE(bytes, last);
    last = bytes;
  });
  EXPECT_EQ(emptied.error, 0);
  EXPECT_EQ(emptied.kept, 0);
  EXPECT_EQ(emptied.bytes, last);
  EXPECT_EQ(emptied.bytes, measured.bytes - MeasureTree(kTree).bytes - DiskUsage(kOutside / "file"))
      << "the file that is shared with the outside frees nothing";
  EXPECT_TRUE(fs::is_empty(kHostTree));
  EXPECT_EQ(RemoveTree(kTree).error, 0);
  EXPECT_FALSE(fs::exists(kHostTree));
  ExpectOutsideIsWhole();
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

TEST(SafeTree, GoesAsDeepAndWideAsATreeIs) {
  const rlimit few = {100, 100};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  MakeDeep(kHostTree, 600);
  EXPECT_GT(600 * sizeof kDeeper, size_t{PATH_MAX}) << "no path reaches its end";
  for (int i = 0; i < 10000; ++i) Write(kHostTree / ("wide" + std::to_string(i % 100)) / std::to_string(i), "");
  const TreeResult measured = MeasureTree(kTree);
  EXPECT_EQ(measured.files, 1 + 2 * 600 + 100 + 10000);
  EXPECT_EQ(measured.error, 0);
  const TreeResult removed = RemoveTree(kTree);
  EXPECT_EQ(removed.files, measured.files);
  EXPECT_EQ(removed.bytes, measured.bytes);
  EXPECT_EQ(removed.error, 0);
  EXPECT_FALSE(fs::exists(kHostTree));
}

/// Gives this process mounts of its own; the reason why not, else empty.
std::string PrivateMounts() {
  if (unshare(CLONE_NEWNS) != 0) return std::string("no mount namespace: ") + std::strerror(errno);
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return std::string("no private mounts: ") + std::strerror(errno);
  return {};
}

TEST(SafeTree, LeavesMountPointsAlone) {
  const std::string why = PrivateMounts();
  if (!why.empty()) GTEST_SKIP() << why;
  PlantOutside();
  Write(kHostTree / "bound file");
  Write(kHostTree / "own/file");
  fs::create_directories(kHostTree / "deep/bound");
  fs::create_directories(kHostTree / "memory");
  ASSERT_EQ(mount(kOutside.c_str(), (kHostTree / "deep/bound").c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount((kOutside / "file").c_str(), (kHostTree / "bound file").c_str(), nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount("tmpfs", (kHostTree / "memory").c_str(), "tmpfs", 0, "size=1m"), 0);
  Write(kHostTree / "memory/file");

  EXPECT_EQ(MeasureTree(kTree).kept, 3);
  const TreeResult removed = RemoveTree(kTree);
  EXPECT_EQ(removed.kept, 3);
  EXPECT_EQ(removed.error, EBUSY);
  EXPECT_FALSE(fs::exists(kHostTree / "own"));
  EXPECT_TRUE(fs::exists(kHostTree / "memory/file"));
  const std::string bound = std::string(kTree) + "/deep/bound";
  EXPECT_EQ(RemoveTree(bound).error, EBUSY) << "itself a mount point";
  EXPECT_EQ(EmptyTree(bound, {}, kTree).error, EBUSY);
  EXPECT_EQ(EmptyTree(bound + "/folder", {}, kTree).error, EBUSY);
  ExpectOutsideIsWhole();
}

TEST(SafeTree, LeavesAloneWhatOthersOwn) {
  if (geteuid() != 0) GTEST_SKIP() << "giving files away takes root";
  Write(kHostTree / "own/file");
  Write(kHostTree / "foreign/file");
  Write(kHostTree / "deep/foreign file");
  for (const char* name : {"foreign", "deep/foreign file"}) ASSERT_EQ(chown((kHostTree / name).c_str(), 4711, -1), 0);
  EXPECT_EQ(MeasureTree(kTree).kept, 2);
  const TreeResult removed = RemoveTree(kTree);
  EXPECT_EQ(removed.kept, 2);
  EXPECT_EQ(removed.error, EACCES);
  EXPECT_EQ(removed.files, 2);
  EXPECT_TRUE(fs::exists(kHostTree / "foreign/file"));
  EXPECT_TRUE(fs::exists(kHostTree / "deep/foreign file"));
  const std::string foreign = std::string(kTree) + "/foreign";
  EXPECT_EQ(EmptyTree(foreign, {}, kTree).error, EACCES);
  EXPECT_TRUE(fs::exists(kHostTree / "foreign/file"));
}

TEST(SafeTree, RemovesFoldersThatTheirOwnerMadeReadOnly) {
  if (geteuid() == 0) {
    ASSERT_EQ(chown(kHostTree.parent_path().c_str(), 4711, 4711), 0);
    ASSERT_EQ(setresuid(4711, 4711, 4711), 0);
  }
  Write(kHostTree / "shut/deeper/file");
  Write(kHostTree / "locked/file");
  fs::permissions(kHostTree / "shut", fs::perms(0));
  fs::permissions(kHostTree / "locked", fs::perms(0500));
  EXPECT_EQ(MeasureTree(kTree).error, EACCES);
  EXPECT_EQ(RemoveTree(kTree).error, 0);
  EXPECT_FALSE(fs::exists(kHostTree));
}

TEST(SafeTree, IsNotLedOutsideByWhatChangesUnderTheWalk) {
  PlantOutside();
  // A folder that is still to be entered becomes a link.
  Write(kHostTree / "first");
  Write(kHostTree / "folder/file");
  EmptyTree(kTree, [](int64_t) {
    if (!fs::exists(kHostTree / "folder/file") || fs::is_symlink(kHostTree / "folder")) return;
    fs::rename(kHostTree / "folder", SystemPath("/tmp/moved"));
    fs::create_directory_symlink(kOutside / "folder", kHostTree / "folder");
  });
  ExpectOutsideIsWhole();
  ASSERT_EQ(RemoveTree(kTree).error, 0);

  // The folder that the walk is in moves elsewhere, so that its ".." is not the way it came.
  MakeDeep(kHostTree, 200);
  bool moved = false;
  const TreeResult result = EmptyTree(kTree, [&moved](int64_t) {
    std::string deep = kHostTree;
    for (int i = 0; i < 100; ++i) deep.append("/").append(kDeeper);
    if (moved || fs::exists(deep + "/f")) return;
    fs::rename(deep, kOutside / "guest");
    moved = true;
  });
  EXPECT_TRUE(moved);
  EXPECT_EQ(result.error, ESTALE);
  ExpectOutsideIsWhole();
  ASSERT_EQ(RemoveTree(kTree).error, 0);

  // Folders and links change places all the time.
  std::atomic<bool> done{false};
  std::thread swapper([&done] {
    const std::string a = kHostTree / "a", b = kHostTree / "b";
    while (!done) renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE);
  });
  for (int round = 0; round < 500; ++round) {
    mkdir((kHostTree / "a").c_str(), 0700);
    [[maybe_unused]] const int linked = symlink(kOutside.c_str(), (kHostTree / "b").c_str());
    const FdHandle folder(open((kHostTree / "a").c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder) FdHandle(openat(folder.get(), "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    EmptyTree(kTree);
  }
  done = true;
  swapper.join();
  ExpectOutsideIsWhole();
}

// --- Packages --------------------------------------------------------------------------------------------------------

const fs::path kPackages = SystemPath(set_paths::kPackagesDir);
const fs::path kWebCache = SystemPath(set_paths::kWebCacheDir);

std::string Manifest(const std::string& id, const std::string& more = "") {
  return "{\"package_id\": \"" + id + "\", \"app_id\": \"" + id + ".app\", \"title\": \"" + id + "\"" + more + "}";
}

void PlantPackage(const std::string& id, const std::string& more = "") {
  Write(kPackages / id / "manifest.json", Manifest(id, more));
  for (int i = 0; i < 40; ++i)
    Write(kPackages / id / (i % 2 ? "data" : "cache") / std::to_string(i), std::string(20000, 'x'));
  Write(kWebCache / (id + ".app") / "page", std::string(20000, 'x'));
}

std::string Ids() {
  std::string ids;
  for (const Package& package : List()) ids += (ids.empty() ? "" : " ") + package.packageId;
  return ids;
}

int TimesLogged(const std::string& text) {
  const std::string log = Read(SystemPath(set_paths::kLogFile));
  int times = 0;
  for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++times;
  return times;
}

TEST(PackageStore, ReadsWholeManifestsOnlyAndTellsOnceWhatIsWrong) {
  const std::string many(257, 't');
  const struct {
    std::string id, text, problem;
  } kWrong[] = {
      {"w01", "", "Syntax error"},
      {"w02", "{\"package_id\": \"w02\"", "Missing ',' or '}'"},
      {"w03", "[]", "is no JSON object"},
      {"w04", Manifest("other"), "\"package_id\" must be the name of the folder"},
      {"w05", "{\"package_id\": \"w05\", \"title\": \"x\"}", "\"app_id\" is missing"},
      {"w06", "{\"package_id\": \"w06\", \"app_id\": \"../x\", \"title\": \"x\"}", "\"app_id\" must be 1 to 128"},
      {"w07", "{\"package_id\": \"w07\", \"app_id\": 7, \"title\": \"x\"}", "\"app_id\" must be 1 to 128"},
      {"w08", "{\"package_id\": \"w08\", \"app_id\": \"x\", \"title\": \"\"}", "\"title\" must be a text"},
      {"w09", "{\"package_id\": \"w09\", \"app_id\": \"x\", \"title\": \"\xff\"}", "\"title\" must be a text"},
      {"w10", "{\"package_id\": \"w10\", \"app_id\": \"x\", \"title\": \"" + many + "\"}", "\"title\" must be a text"},
      {"w11", Manifest("w11", ", \"icon_folder\": \"../w12\""), "\"icon_folder\" must be a folder inside"},
      {"w12", Manifest("w12", ", \"icon_folder\": \"/etc\""), "\"icon_folder\" must be a folder inside"},
      {"w13", Manifest("w13", ", \"command\": [\"../../bin/x\"]"), "\"command\" must be a list of texts"},
      {"w14", Manifest("w14", ", \"command\": \"bin/run\""), "\"command\" must be a list of texts"},
      {"w15", Manifest("w15", ", \"attributes\": [1]"), "\"attributes\" must be a list of two"},
      {"w16", Manifest("w16", ", \"locked\": 1"), "\"locked\" must be true or false"},
      {"w17", Manifest("w17", ", \"lockd\": true"), "\"lockd\" is no member of a manifest"},
      {"w18", Manifest("w18", ", \"title\": \"again\""), "Duplicate key"},
      {"w19", Manifest("w19") + "x", "Extra non-whitespace"},
      {"w20", std::string(5000, '[') + std::string(5000, ']'), "stackLimit"},
      {"w21", Manifest("w21") + std::string(70000, ' '), "larger than 64 KiB"},
      {"no name", Manifest("no name"), "is no name of a package"},
      {"-dash", Manifest("-dash"), "is no name of a package"}};
  for (const auto& [id, text, problem] : kWrong) Write(kPackages / id / "manifest.json", text);
  PlantPackage("right", R"(, "service_id": "svc", "icon_folder": "res/i/", "command": ["bin/run", ".."],
      "attributes": [3, -4], "removable": false, "locked": true, "keep_running": true)");
  PlantPackage("Plain");
  fs::create_directory_symlink(kPackages / "right", kPackages / "w30");
  fs::create_directories(kPackages / "w31");
  fs::create_directories(kPackages / "w32");
  fs::create_symlink(kPackages / "right/manifest.json", kPackages / "w32/manifest.json");
  Write(kPackages / "w33");
  Write(kPackages / "zz/manifest.json", R"({"package_id": "zz", "app_id": "right.app", "title": "a"})");

  for (int i = 0; i < 2; ++i) EXPECT_EQ(Ids(), "Plain right");
  for (const auto& [id, text, problem] : kWrong) {
    EXPECT_EQ(FindByPackageId(id), std::nullopt);
    const std::string name = "/opt/usr/apps/" + id + ": ", log = Read(SystemPath(set_paths::kLogFile));
    EXPECT_EQ(TimesLogged(name), 1) << id;
    const std::string line = log.substr(std::min(log.find(name), log.size()));
    EXPECT_NE(line.substr(0, line.find('\n')).find(problem), line.npos) << line.substr(0, 300);
  }
  for (const char* text :
       {"w30: is no folder", "w31: manifest.json: No such file", "w32: manifest.json: Too many levels",
        "w33: is no folder", "zz: manifest.json: \"app_id\" right.app is that of right"})
    EXPECT_EQ(TimesLogged(std::string("/opt/usr/apps/") + text), 1) << text;

  EXPECT_EQ(FindByPackageId("zz"), std::nullopt) << "as its application is another package's";
  const auto right = FindByAppId("right.app");
  ASSERT_TRUE(right);
  EXPECT_EQ(right->packageId, "right");
  EXPECT_EQ(right->serviceId, "svc");
  EXPECT_EQ(right->iconDir, "/opt/usr/apps/right/res/i/");
  EXPECT_EQ(right->command, (std::vector<std::string>{"bin/run", ".."}));
  EXPECT_EQ(right->attribute1, 3);
  EXPECT_EQ(right->attribute2, -4);
  EXPECT_TRUE(!right->removable && right->locked && right->keepRunning);
  const auto plain = FindByPackageId("Plain");
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->serviceId, "Plain.app");
  EXPECT_EQ(plain->iconDir, "/opt/usr/apps/Plain/icons/");
  EXPECT_TRUE(plain->removable && !plain->locked && !plain->keepRunning);
  for (const char* id : {"", ".", "..", "../apps/Plain", "Plain/", ".removing-Plain"}) {
    EXPECT_EQ(FindByPackageId(id), std::nullopt) << id;
    EXPECT_EQ(FindByAppId(id), std::nullopt) << id;
  }
}

TEST(PackageStore, BoundsWhatItRemembersAsWrong) {
  for (int i = 0; i < 1005; ++i) Write(kPackages / std::to_string(i));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Ids(), "");
  EXPECT_EQ(TimesLogged(": is no folder"), 1000);
  for (int i = 0; i < 1005; ++i) fs::remove(kPackages / std::to_string(i));
  Write(kPackages / "later");
  EXPECT_EQ(Ids(), "");
  EXPECT_EQ(TimesLogged("/opt/usr/apps/later: is no folder"), 1) << "those that are gone make room";
}

TEST(PackageStore, RemovesWholePackagesOrNothing) {
  PlantOutside();
  PlantPackage("gone");
  PlantPackage("stays");
  fs::create_directory_symlink(kOutside, kPackages / "gone/data/link");
  const Package gone = *FindByPackageId("gone");
  std::vector<int> told;
  EXPECT_EQ(Remove(gone, [&told](int percent) { told.push_back(percent); }), PKGMGR_R_OK);
  ASSERT_GT(told.size(), 20u);
  EXPECT_EQ(told.front(), 0);
  EXPECT_EQ(told.back(), 100);
  EXPECT_EQ(std::adjacent_find(told.begin(), told.end(), std::greater_equal<>()), told.end());
  EXPECT_EQ(Remove(gone), PKGMGR_R_ENOPKG);
  EXPECT_FALSE(fs::exists(kWebCache / "gone.app"));
  EXPECT_EQ(std::distance(fs::directory_iterator(kPackages), {}), 1);
  ExpectOutsideIsWhole();

  if (geteuid() != 0) GTEST_SKIP() << "giving files away takes root";
  const Package stays = *FindByPackageId("stays");
  const auto files = MeasureTree("/opt/usr/apps/stays").files;
  ASSERT_EQ(chown((kPackages / "stays/data/1").c_str(), 4711, -1), 0);
  EXPECT_EQ(Remove(stays), PKGMGR_R_ERROR);
  EXPECT_EQ(TimesLogged("1 entries in it are mount points or belong to another user"), 1);
  EXPECT_TRUE(fs::exists(kPackages / "stays/data/1"));
  EXPECT_EQ(MeasureTree("/opt/usr/apps/stays").files, files - 1);
  EXPECT_EQ(Ids(), "stays");
  EXPECT_TRUE(fs::exists(kWebCache / "stays.app/page"));
}

TEST(PackageStore, FinishesAnInterruptedRemoval) {
  PlantPackage("half");
  PlantPackage("whole");
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t remover = fork();
  if (remover == 0) {
    Remove(*FindByPackageId("half"), [&ends](int percent) {
      if (percent < 40) return;
      if (write(ends[1], "x", 1) == 1) pause();
    });
    _exit(1);
  }
  char byte;
  ASSERT_EQ(read(ends[0], &byte, 1), 1);
  const fs::path hidden = kPackages / ".removing-half";
  EXPECT_EQ(Ids(), "whole");
  EXPECT_TRUE(fs::exists(hidden)) << "a removal that goes on is left to its process";
  kill(remover, SIGKILL);
  waitpid(remover, nullptr, 0);
  fs::create_directory_symlink(kOutside, kPackages / ".removing-link");
  EXPECT_EQ(Ids(), "whole");
  EXPECT_FALSE(fs::exists(hidden));
  EXPECT_FALSE(fs::is_symlink(kPackages / ".removing-link"));
  EXPECT_EQ(TimesLogged("finished a removal that was interrupted"), 1);
}

TEST(PackageStore, FinishesAllStuckRemovalsAndTheirWebCaches) {
  for (const char* id : {"again", "gone", "taken"}) PlantPackage(id);
  const Package again = *FindByPackageId("again");
  fs::rename(kPackages / "gone", kPackages / ".removing-gone~12");
  fs::rename(kPackages / "taken", kPackages / ".removing-taken");
  Write(kPackages / "new/manifest.json", R"({"package_id": "new", "app_id": "taken.app", "title": "n"})");
  Write(kPackages / ".removing-again/file");
  Write(kPackages / ".removing-again~2");
  EXPECT_EQ(Remove(again), PKGMGR_R_OK);
  EXPECT_TRUE(fs::exists(kPackages / ".removing-again/file"));
  EXPECT_EQ(Ids(), "new");
  EXPECT_EQ(Ids(), "new");
  EXPECT_EQ(std::distance(fs::directory_iterator(kPackages), {}), 1);
  EXPECT_FALSE(fs::exists(kWebCache / "gone.app"));
  EXPECT_TRUE(fs::exists(kWebCache / "taken.app/page")) << "the application is installed again";
}

TEST(PackageStore, TouchesNoPackageThatIsAMountPoint) {
  const std::string why = PrivateMounts();
  if (!why.empty()) GTEST_SKIP() << why;
  PlantPackage("p");
  const std::string folder = kPackages / "p";
  ASSERT_EQ(mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(Remove(*FindByPackageId("p")), -EBUSY);
  EXPECT_TRUE(fs::exists(kWebCache / "p.app/page"));
  EXPECT_EQ(ClearData(*FindByPackageId("p")), -EBUSY);
  EXPECT_TRUE(fs::exists(kPackages / "p/data/1"));
}

TEST(PackageStore, LooksIntoShutFoldersBeforeItRemoves) {
  if (geteuid() != 0) GTEST_SKIP() << "giving files away takes root";
  for (const char* id : {"foreign", "own", "web"}) PlantPackage(id);
  for (const fs::path& folder : {kPackages, kWebCache}) {
    ASSERT_EQ(lchown(folder.c_str(), 4711, 4711), 0);
    for (const auto& entry : fs::recursive_directory_iterator(folder))
      ASSERT_EQ(lchown(entry.path().c_str(), 4711, 4711), 0);
  }
  for (const fs::path& file : {kPackages / "foreign/data/1", kWebCache / "web.app/page"})
    ASSERT_EQ(lchown(file.c_str(), 4712, 4712), 0);
  for (const char* id : {"foreign", "own"}) fs::permissions(kPackages / id / "data", fs::perms(0));
  ASSERT_EQ(setresuid(4711, 4711, 4711), 0);
  EXPECT_EQ(Remove(*FindByPackageId("foreign")), PKGMGR_R_ERROR);
  EXPECT_EQ(MeasureTree("/opt/usr/apps/foreign").files, 1 + 2 + 1 + 40 - 1) << "nothing is gone";
  EXPECT_EQ(Remove(*FindByPackageId("own")), PKGMGR_R_OK);
  EXPECT_EQ(Remove(*FindByPackageId("web")), -EACCES) << "its web cache stays";
  EXPECT_EQ(Ids(), "foreign");
}

TEST(PackageManager, MeasuresAndClearsData) {
  PlantOutside();
  PlantPackage("p");
  pkgmgr_client* client = pkgmgr_client_new(PC_REQUEST);
  const auto size = [client](const char* id, int type) {
    long long bytes = -7;
    const int result = pkgmgr_client_usr_get_size(client, id, static_cast<pkgmgr_getsize_type>(type), getuid(), &bytes);
    return result == PKGMGR_R_OK ? bytes : result == PKGMGR_R_ENOPKG ? -2 : -1;
  };
  const auto clear = [client](const char* id) { return pkgmgr_client_clear_user_data(client, nullptr, id, PM_QUIET); };
  EXPECT_EQ(size("p", PM_GET_TOTAL_SIZE), DiskUsage(kPackages / "p"));
  EXPECT_EQ(size("p", PM_GET_DATA_SIZE), DiskUsage(kPackages / "p/data") + DiskUsage(kPackages / "p/cache"));
  EXPECT_EQ(size("p", 9), -1);
  EXPECT_EQ(size(nullptr, 0), -1);
  EXPECT_EQ(size("p.app", 0), -2) << "the application's id";
  EXPECT_EQ(clear("p"), PKGMGR_R_ENOPKG) << "the package's id";

  EXPECT_EQ(clear("p.app"), PKGMGR_R_OK);
  for (const fs::path& folder : {kPackages / "p/data", kPackages / "p/cache", kWebCache / "p.app"})
    EXPECT_TRUE(fs::is_empty(folder)) << folder;
  EXPECT_EQ(Ids(), "p");

  fs::remove(kPackages / "p/data");
  fs::remove(kPackages / "p/cache");
  EXPECT_EQ(size("p", PM_GET_DATA_SIZE), 0);
  EXPECT_EQ(clear("p.app"), PKGMGR_R_OK);
  EXPECT_FALSE(fs::exists(kPackages / "p/data")) << "nothing is made";
  fs::create_directory_symlink(kOutside, kPackages / "p/data");
  Write(kPackages / "p/cache/file");
  EXPECT_EQ(clear("p.app"), -ENOTDIR);
  EXPECT_TRUE(fs::is_empty(kPackages / "p/cache")) << "the rest is emptied all the same";
  if (geteuid() == 0) {
    Write(kPackages / "p/cache/file");
    ASSERT_EQ(chown((kPackages / "p/cache").c_str(), 4711, -1), 0);
    fs::remove(kPackages / "p/data");
    EXPECT_EQ(clear("p.app"), -EACCES);
    EXPECT_TRUE(fs::exists(kPackages / "p/cache/file"));
  }
  ExpectOutsideIsWhole();
  EXPECT_EQ(pkgmgr_client_free(client), PKGMGR_R_OK);
  EXPECT_EQ(pkgmgr_client_free(nullptr), PKGMGR_R_EINVAL);
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
      EXPECT_EQ(Read(SystemPath(sample.iconDir + icon)).substr(0, 4), "\x89PNG") << sample.title;
    EXPECT_EQ(access(SystemPath(FolderOf(sample) + "/" + sample.command.at(0)).c_str(), X_OK), 0) << sample.title;
    EXPECT_GT(MeasureTree(DataFolderOf(sample)).bytes, 10000) << sample.title;
    EXPECT_GT(MeasureTree(CacheFolderOf(sample)).bytes, 10000) << sample.title;
  }
  const Package removed = samples.front(), changed = samples.back();
  EXPECT_EQ(Remove(removed), PKGMGR_R_OK);
  EXPECT_EQ(ClearData(changed), PKGMGR_R_OK);
  ASSERT_EQ(install(), 0);
  EXPECT_EQ(List().size(), samples.size() - 1);
  EXPECT_EQ(FindByPackageId(removed.packageId), std::nullopt);
  EXPECT_TRUE(fs::is_empty(SystemPath(DataFolderOf(changed))));
}

}  // namespace
