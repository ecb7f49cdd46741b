// Whose the files are that a set's programs leave behind, and what becomes of what others put in their place.

#include "ReportTrigger.h"
#include "base/state.h"
#include "c_handle.h"
#include "set_paths.h"
#include "support/daemon.h"
#include "support/files.h"
#include "support/process.h"
#include "vconf.h"

namespace {

constexpr uid_t kStranger = 4711;
const std::string kPrivate[] = {set_paths::kHostState, set_paths::kHostRun, set_paths::kTrevlinDatabases};

void End(const Process& daemon) {
  daemon->Signal(SIGTERM);
  EXPECT_EQ(daemon->Wait().exitCode, 0);
}

mode_t ModeOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777u;
}

/// How many files there are; each is its owner's alone, but for what every user may read.
int CheckModes() {
  int files = 0;
  for (const std::string& folder : kPrivate) {
    EXPECT_EQ(ModeOf(SystemPath(folder)), folder == set_paths::kHostRun ? 0711u : 0700u) << folder;
    for (const auto& each : fs::recursive_directory_iterator(SystemPath(folder))) {
      const std::string path = each.path().string().substr(SystemRoot().size());
      const bool isPublic = path.starts_with(set_paths::kReportResults);
      EXPECT_EQ(ModeOf(each),
                (each.is_directory() ? 0700u : 0600u) | (isPublic ? each.is_directory() ? 055u : 044u : 0))
          << path;
      files += each.is_regular_file();
    }
  }
  return files;
}

/// Uses a set: a diagnosis, a setting, an event, a report, and the daemon.
void UseSet() {
  const Process daemon = StartDaemon();
  EXPECT_EQ(RunProcess({VEXILOCTL, "setting", "set", "db/a", "int", "1"}).exitCode, 0);
  EXPECT_EQ(RunProcess({VEXILOCTL, "setting", "set", "memory/a", "int", "1"}).exitCode, 0);
  EXPECT_EQ(RunProcess({VEXILO_APP, "qguide"}).exitCode, 0);
  RunProcess({VEXILOCTL, "engine", "run"});
  const auto request = QUVA::LeaveReportTrigger(set_paths::kReportTriggers, "SOUND-A.log");
  EXPECT_EQ(QUVA::AwaitReport(request, 30s, {}).problem, "");
  WriteFile("/tmp/kov_NDF_reboot/A-B.log", "");
  EXPECT_TRUE(Until([] { return Exists("/var/lib/vexilo-host/setd/after_restart/A-B.log"); }));
  End(daemon);
}

TEST(Ownership, StateIsItsOwnersAloneWhateverTheUmaskAndWasNarrowedWhereItWasNot) {
  fs::copy_file(PARSER_PLUGIN, SystemPath(set_paths::kParserPlugin));
  fs::copy_file(VEXILO_SOURCE_DIR "/platform/set/solutionmap.xml", SystemPath(set_paths::kSolutionMap));
  fs::create_directories(SystemPath("/usr/share/trevlin"));
  fs::copy_file(VEXILO_SOURCE_DIR "/platform/set/rules.json", SystemPath(set_paths::kRules));
  umask(0);
  UseSet();
  const int made = CheckModes();
  EXPECT_GT(made, 8);
  EXPECT_EQ(ModeOf(SystemPath(set_paths::kQGuideFolder)), 0755u);
  // As an earlier version left them.
  for (const std::string& folder : kPrivate) {
    fs::permissions(SystemPath(folder), fs::perms(0755));
    for (const auto& each : fs::recursive_directory_iterator(SystemPath(folder)))
      fs::permissions(each, fs::perms(each.is_directory() ? 0777 : 0666));
  }
  End(StartDaemon());
  EXPECT_GE(CheckModes(), made - 1);
}

TEST(Ownership, WhatAKillLeftHalfWrittenGoesAtTheNextStartAndWhatIsBeingWrittenStays) {
  const std::string settings = set_paths::kSettingsDir;
  const std::string kCases[] = {"/db%2Fa#abc123", "/db%2Fa", "/db%2Fb#xyzABC", "/db%2Fc#12345", "/c#12345-"};
  for (const std::string& name : kCases) WriteFile(settings + name, "int\n1");
  const FdHandle written(open(SystemPath(settings + kCases[2]).c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(written.get(), LOCK_EX), 0);
  End(StartDaemon());
  for (const std::string& name : kCases) EXPECT_EQ(Exists(settings + name), name != kCases[0]) << name;
}

TEST(Ownership, WhatIsBeingWrittenSurvivesThatOthersTidyMeanwhile) {
  const std::jthread tidying([](const std::stop_token& stop) {
    while (!stop.stop_requested()) TidyState();
  });
  for (int i = 0; i < 60; ++i) ASSERT_EQ(vconf_set_int("db/a", i), 0) << Log();
}

TEST(Ownership, FoldersThatAreMissingOrWronglyMadeAreMadeRight) {
  const std::string kFolders[] = {
      set_paths::kTager,          set_paths::kTagerRequests,        set_paths::kTagerAnswers,
      set_paths::kReportTriggers, set_paths::kRebootReportTriggers, set_paths::kQGuideFolder};
  const auto areRight = [&] {
    return std::all_of(std::begin(kFolders), std::end(kFolders), [](const std::string& folder) {
      struct stat status;
      return lstat(SystemPath(folder).c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
             (status.st_mode & 07777u) == 0755;
    });
  };
  const std::pair<const char*, std::function<void()>> kStarts[] = {
      {"an empty /tmp", [] { fs::remove_all(SystemPath("/tmp")); }},
      {"open to others",
       [&] {
         for (const std::string& folder : kFolders) fs::permissions(SystemPath(folder), fs::perms(0777));
       }},
      {"a stranger's", [&] {
         for (const char* folder : {"/tmp/tager", "/tmp/kov_NDF", "/tmp/qsyslink"}) {
           fs::remove_all(SystemPath(folder));
           fs::create_directories(SystemPath("/opt/strangers"));
           if (folder == "/tmp/tager"sv)
             fs::create_directory_symlink(SystemPath("/opt/strangers"), SystemPath(folder));
           else
             fs::create_directory(SystemPath(folder));
           EXPECT_EQ(lchown(SystemPath(folder).c_str(), kStranger, kStranger), 0);
         }
       }}};
  for (const auto& [what, plant] : kStarts) {
    if (what == "a stranger's"s && geteuid() != 0) GTEST_SKIP() << "giving folders away takes root";
    SCOPED_TRACE(what);
    plant();
    const Process daemon = StartDaemon();
    EXPECT_TRUE(areRight());
    WriteFile("/tmp/tager/req/memBoost", "");
    EXPECT_TRUE(Until([] { return !Exists("/tmp/tager/req/memBoost"); }));
    End(daemon);
  }
  EXPECT_THAT(Log(), HasSubstr("/tmp/kov_NDF: it belongs to another user; it is called kov_NDF#"));
  EXPECT_TRUE(fs::is_empty(SystemPath("/opt/strangers")));
}

TEST(Ownership, AnOwnersFolderThatLeadsElsewhereIsToldAndWatchedUntilItIsRight) {
  fs::remove_all(SystemPath("/tmp/tager"));
  fs::create_directory(SystemPath("/opt/elsewhere"));
  fs::create_directory_symlink(SystemPath("/opt/elsewhere"), SystemPath("/tmp/tager"));
  const Process daemon = StartDaemon();
  EXPECT_TRUE(
      Until([] { return Count(Log(), "/tmp/tager: it is a symbolic link, which is not followed; trying again"); }));
  EXPECT_TRUE(fs::is_empty(SystemPath("/opt/elsewhere")));
  fs::remove(SystemPath("/tmp/tager"));
  EXPECT_TRUE(Until([] { return Exists(set_paths::kTagerRequests); }));
  End(daemon);
}

TEST(Ownership, ADaemonOfRootAndAnApplicationOfTheSetsOwnerShareTheSet) {
  if (geteuid() != 0) GTEST_SKIP() << "being another user takes root";
  for (const char* folder : {"/opt/usr/home/owner", "/home/owner"})
    for (const auto& each : fs::recursive_directory_iterator(SystemPath(folder)))
      ASSERT_EQ(lchown(each.path().c_str(), kStranger, kStranger), 0);
  ASSERT_EQ(lchown(SystemPath("/opt/usr/home/owner").c_str(), kStranger, kStranger), 0);
  for (const char* folder : {"/tmp", "/var/lib/vexilo-host", "/run/vexilo-host"}) fs::remove_all(SystemPath(folder));
  ASSERT_EQ(chmod(std::string(SystemRoot()).c_str(), 0755), 0);
  const Process daemon = StartDaemon();
  EXPECT_EQ(RunProcess({VEXILOCTL, "setting", "set", "db/a", "int", "1"}).exitCode, 0);
  const auto asOwner = [](std::vector<std::string> command) {
    const char* const prefix[] = {"setpriv", "--reuid", "4711", "--regid", "4711", "--clear-groups"};
    command.insert(command.begin(), std::begin(prefix), std::end(prefix));
    return RunProcess(command);
  };
  EXPECT_THAT(asOwner({VEXILOCTL, "setting", "get", "db/a"}).out, HasSubstr("1"));
  EXPECT_EQ(asOwner({VEXILOCTL, "setting", "set", "db/a", "int", "2"}).exitCode, 0);
  EXPECT_THAT(RunProcess({VEXILOCTL, "setting", "get", "db/a"}).out, HasSubstr("2"));
  EXPECT_EQ(asOwner({"touch", SystemPath("/tmp/tager/req/memBoost"), SystemPath("/tmp/kov_NDF/SOUND-A.log")}).exitCode,
            0);
  EXPECT_TRUE(Until([] { return !Exists("/tmp/tager/req/memBoost") && !Exists("/tmp/kov_NDF/SOUND-A.log"); }));
  EXPECT_THAT(asOwner({"cat", SystemPath("/run/vexilo-host/report_results/SOUND-A.log")}).out, HasSubstr("SOUND-A"));
  // Of anybody else's there is nothing to be read but what became of a report.
  const auto asStranger = [](const std::string& path) {
    return RunProcess({"setpriv", "--reuid", "4712", "--regid", "4712", "--clear-groups", "cat", SystemPath(path)})
        .exitCode;
  };
  EXPECT_EQ(asStranger("/run/vexilo-host/report_results/SOUND-A.log"), 0);
  for (const char* path : {"/var/lib/vexilo-host/settings/db%2Fa", set_paths::kLogFile, set_paths::kDaemonLock})
    EXPECT_NE(asStranger(path), 0) << path;
  End(daemon);
}

}  // namespace
