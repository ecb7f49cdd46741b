// Packages: walking folders that may hold anything, the package folders and manifests, the package manager.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "c_handle.h"
#include "packages/safe_tree.h"
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

/// A chain of folders of the name "d" with a file in each.
void MakeDeep(const fs::path& folder, int depth) {
  fs::create_directories(folder);
  FdHandle at(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = 0; i < depth; ++i) {
    FdHandle(openat(at.get(), "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(mkdirat(at.get(), "d", 0700), 0);
    at.reset(openat(at.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
}

TEST(SafeTree, GoesAsDeepAndWideAsATreeIs) {
  const rlimit few = {100, 100};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  MakeDeep(kHostTree, 5000);
  for (int i = 0; i < 10000; ++i) Write(kHostTree / ("wide" + std::to_string(i % 100)) / std::to_string(i), "");
  const TreeResult measured = MeasureTree(kTree);
  EXPECT_EQ(measured.files, 1 + 2 * 5000 + 100 + 10000);
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
    for (int i = 0; i < 100; ++i) deep += "/d";
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

}  // namespace
