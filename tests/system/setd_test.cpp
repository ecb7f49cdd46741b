// The set's daemon, as a process beside the programs that ask it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "set_paths.h"
#include "support/process.h"
#include "system_path.h"
#include "trevlin/trevlin_database.h"
#include "vconf.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string Path(const std::string& setPath) {
  return SystemPath(setPath);
}

void Write(const std::string& setPath, const std::string& content) {
  fs::create_directories(fs::path(Path(setPath)).parent_path());
  std::ofstream(Path(setPath), std::ios::binary) << content;
}

std::string Read(const std::string& setPath) {
  std::ifstream file(Path(setPath), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Exists(const std::string& setPath) {
  return fs::exists(fs::symlink_status(Path(setPath)));
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// Whether it comes true in time.
bool Comes(const std::function<bool()>& condition, std::chrono::milliseconds time = 10s) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

bool Goes(const std::string& setPath, std::chrono::milliseconds time = 10s) {
  return Comes([&] { return !Exists(setPath); }, time);
}

using Daemon = std::unique_ptr<ChildProcess>;

Daemon StartDaemon() {
  const auto started = [] {
    const std::string log = Read(set_paths::kLogFile);
    size_t count = 0, at = 0;
    for (; (at = log.find("serves this set", at)) != log.npos; ++at) ++count;
    return count;
  };
  const size_t before = started();
  auto daemon = std::make_unique<ChildProcess>(std::vector<std::string>{SETD});
  EXPECT_TRUE(Comes([&] { return started() > before; }));
  return daemon;
}

void Install(const std::string& package, const std::string& app, const std::string& more = "") {
  const std::string folder = set_paths::kPackagesDir + ("/" + package);
  Write(folder + "/manifest.json",
        R"({"package_id":")" + package + R"(","app_id":")" + app + R"(","title":"Sample")" + more + "}");
  Write(folder + "/data/file", std::string(20000, 'd'));
  Write(folder + "/cache/file", std::string(50000, 'c'));
  fs::create_directories(Path(folder + "/bin"));
  fs::copy_file("/bin/sleep", Path(folder + "/bin/run"), fs::copy_options::overwrite_existing);
}

std::string Program(const std::string& package) {
  return Path(set_paths::kPackagesDir + ("/" + package) + "/bin/run");
}

void AskSize(const std::string& package, const std::string& app) {
  const std::string line = package + "|" + app + "\n";
  Write("/tmp/tager/calcAppDataCacheSize_" + app, line);
  Write("/tmp/tager/req/calcAppDataCacheSize_" + app, line);
}

std::string Result(const std::string& app) {
  return "/tmp/tager/appDataCacheSize_" + app;
}
std::string Ack(const std::string& app) {
  return "/tmp/tager/ack/appDataCacheSize_" + app;
}

void Ask(const std::string& request, const std::string& payload) {
  if (!payload.empty()) Write("/tmp/tager/" + request, payload);
  Write("/tmp/tager/req/" + request, "");
}

bool Runs(pid_t pid) {
  char state = 'Z';
  std::string name;
  std::ifstream("/proc/" + std::to_string(pid) + "/stat") >> name >> name >> state;
  return state != 'Z';
}

bool Runs(ChildProcess& process) {
  return Runs(process.Pid());
}

/// A script of the package org.a that SIGTERM does not end; it is ready when this returns.
std::unique_ptr<ChildProcess> StartStubborn() {
  Write("/opt/usr/apps/org.a/bin/stubborn.sh", "trap '' TERM; : >$0.ready; while :; do sleep 1; done\n");
  const std::string script = "/opt/usr/apps/org.a/bin/stubborn.sh";
  auto process = std::make_unique<ChildProcess>(std::vector<std::string>{"sh", Path(script)});
  EXPECT_TRUE(Comes([&] { return Exists(script + ".ready"); }));
  return process;
}

int64_t DiskUsage(const std::string& setPath) {
  return std::stoll(RunProcess({"du", "-s", "-B1", Path(setPath)}).out);
}

TEST(Setd, TellsItsUseAndRunsOncePerRoot) {
  EXPECT_TRUE(Has(RunProcess({SETD, "--help"}).out, "Usage: vexilo-setd [--once]"));
  EXPECT_EQ(RunProcess({SETD, "--twice"}).exitCode, 2);
  const Daemon daemon = StartDaemon();
  const ProcessResult second = RunProcess({SETD});
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_TRUE(Has(second.err, "runs already, process " + std::to_string(daemon->Pid()))) << second.err;
  fs::remove_all(Path(set_paths::kHostRun));
  EXPECT_EQ(RunProcess({SETD}).exitCode, 1) << "its lock file is gone";
  daemon->Signal(SIGTERM);
  const ProcessResult end = daemon->Wait();
  EXPECT_EQ(end.exitCode, 0);
  EXPECT_FALSE(end.timedOut);
}

TEST(Setd, PublishesTheResultBeforeTheAcknowledgement) {
  Install("org.a", "org.a.app");
  Write(std::string(set_paths::kWebCacheDir) + "/org.a.app/page", std::string(30000, 'w'));
  const Daemon daemon = StartDaemon();
  const FdHandle watch(inotify_init1(IN_CLOEXEC));
  for (const char* folder : {set_paths::kTager, set_paths::kTagerAnswers, set_paths::kTagerRequests})
    ASSERT_GE(inotify_add_watch(watch.get(), Path(folder).c_str(), IN_MOVED_TO | IN_DELETE), 0);
  AskSize("org.a", "org.a.app");
  std::string order;
  while (!Has(order, "3:")) {
    pollfd ready{watch.get(), POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 10000), 1) << order;
    alignas(inotify_event) char buffer[4096];
    const ssize_t size = read(watch.get(), buffer, sizeof buffer);
    for (const char* at = buffer; at < buffer + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      at += sizeof *event + event->len;
      const std::string name = event->name;
      if (name == "appDataCacheSize_org.a.app") order += event->wd == 1 ? "1:result " : "3:ack ";
      if (event->wd == 3 && (event->mask & IN_DELETE) != 0) order += "2:request gone ";
    }
  }
  EXPECT_EQ(order, "1:result 2:request gone 3:ack ");
  const std::string folder = "/opt/usr/apps/org.a/";
  EXPECT_EQ(Read(Result("org.a.app")),
            std::to_string(DiskUsage(folder + "data")) + "|" + std::to_string(DiskUsage(folder + "cache")));
  EXPECT_FALSE(Exists("/tmp/tager/calcAppDataCacheSize_org.a.app"));
}

TEST(Setd, AnswersTwentyAtOnceAndTheSameOneAgain) {
  for (int i = 0; i < 20; ++i) Install("org.p" + std::to_string(i), "app" + std::to_string(i));
  const Daemon daemon = StartDaemon();
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 20; ++i) AskSize("org.p" + std::to_string(i), "app" + std::to_string(i));
    for (int i = 0; i < 20; ++i) {
      const std::string app = "app" + std::to_string(i);
      ASSERT_TRUE(Comes([&] { return Exists(Ack(app)); })) << app;
      EXPECT_TRUE(Has(Read(Result(app)), "|"));
      fs::remove(Path(Ack(app)));
      fs::remove(Path(Result(app)));
    }
  }
  // As an asker does that starts over as soon as it has its answer.
  for (int round = 0; round < 200; ++round) {
    AskSize("org.p0", "app0");
    ASSERT_TRUE(Comes([&] { return Exists(Ack("app0")); }, 4s)) << round;
    fs::remove(Path(Ack("app0")));
    fs::remove(Path(Result("app0")));
  }
}

TEST(Setd, KillEndsThePackagesProcessesAndNoOthers) {
  Install("org.a", "org.a.app");
  Install("org.ab", "org.ab.app");
  const std::string folder = Path("/opt/usr/apps/org.a");
  const Daemon daemon = StartDaemon();
  ChildProcess executable({Program("org.a"), "60"});
  const auto script = StartStubborn();
  ChildProcess environment({"sleep", "60"}, {.env = {{"VEXILO_APP_ID", "org.a.app"}}});
  // Working in the folder is not enough, but for what a process of the package has started.
  ChildProcess directory({"setsid", "env", "-C", folder, "sleep", "60"});
  Write("/opt/usr/apps/org.a/bin/parent.sh", "cd \"${0%/*}\"; sh -c 'sleep 60 & echo $! >child; wait'; :\n");
  ChildProcess parent({"sh", folder + "/bin/parent.sh"});
  ASSERT_TRUE(Comes([] { return Has(Read("/opt/usr/apps/org.a/bin/child"), "\n"); }));
  const pid_t child = std::stoi(Read("/opt/usr/apps/org.a/bin/child"));
  ChildProcess otherPackage({Program("org.ab"), "60"}, {.env = {{"VEXILO_APP_ID", "org.a.app"}}});
  ChildProcess otherRoot({"sleep", "60"}, {.env = {{"VEXILO_APP_ID", "org.a.app"}, {"VEXILO_ROOT", "/elsewhere"}}});
  ChildProcess reader({"tail", "-f", folder + "/manifest.json"});
  ASSERT_TRUE(Comes([&] {
    std::error_code error;
    return fs::read_symlink("/proc/" + std::to_string(directory.Pid()) + "/cwd", error) == folder &&
           fs::read_symlink("/proc/" + std::to_string(environment.Pid()) + "/exe", error).filename() == "sleep";
  }));
  Ask("killApp", "org.a\n");
  // Others are served meanwhile.
  AskSize("org.ab", "org.ab.app");
  EXPECT_TRUE(Comes([&] { return Exists(Ack("org.ab.app")); }, 1500ms));
  EXPECT_TRUE(Goes("/tmp/tager/req/killApp"));
  EXPECT_FALSE(Exists("/tmp/tager/killApp"));
  EXPECT_EQ(executable.Wait().signal, SIGTERM);
  EXPECT_EQ(environment.Wait().signal, SIGTERM);
  EXPECT_EQ(parent.Wait().signal, SIGTERM);
  EXPECT_TRUE(Comes([&] { return !Runs(child); }));
  EXPECT_EQ(script->Wait().signal, SIGKILL);
  EXPECT_TRUE(Runs(directory));
  EXPECT_TRUE(Runs(otherPackage));
  EXPECT_TRUE(Runs(otherRoot));
  EXPECT_TRUE(Runs(reader));
  EXPECT_TRUE(Runs(*daemon));
}

TEST(Setd, ClearsOneCacheAndLeavesDataAndOthers) {
  Install("org.a", "org.a.app");
  Install("org.b", "org.b.app");
  const Daemon daemon = StartDaemon();
  Ask("clearAppCache", "org.a|org.a.app\n");
  EXPECT_TRUE(Goes("/tmp/tager/req/clearAppCache"));
  EXPECT_FALSE(Exists("/opt/usr/apps/org.a/cache/file"));
  EXPECT_TRUE(Exists("/opt/usr/apps/org.a/cache"));
  EXPECT_TRUE(Exists("/opt/usr/apps/org.a/data/file"));
  EXPECT_TRUE(Exists("/opt/usr/apps/org.b/cache/file"));
  // Of somebody else's application: refused.
  Ask("clearAppCache", "org.b|org.a.app\n");
  EXPECT_TRUE(Goes("/tmp/tager/req/clearAppCache"));
  EXPECT_TRUE(Exists("/opt/usr/apps/org.b/cache/file"));
}

TEST(Setd, BoostEndsWhatNobodyLooksAt) {
  Install("org.shown", "shown");
  Install("org.hidden", "hidden");
  Install("org.kept", "kept", R"(,"keep_running":true)");
  ASSERT_EQ(vconf_set_str("memory/setd/foreground_app", "shown"), 0);
  const Daemon daemon = StartDaemon();
  ChildProcess shown({Program("org.shown"), "60"}), hidden({Program("org.hidden"), "60"}),
      kept({Program("org.kept"), "60"});
  Ask("memBoost", "");
  EXPECT_EQ(hidden.Wait(10s).signal, SIGTERM);
  EXPECT_TRUE(Goes("/tmp/tager/req/memBoost"));
  EXPECT_TRUE(Runs(shown));
  EXPECT_TRUE(Runs(kept));
  EXPECT_TRUE(Has(Read(set_paths::kLogFile), "the kernel was not asked to reclaim"));
}

TEST(Setd, DeepCleanEmptiesCachesAndOldThingsThenSaysSo) {
  Install("org.a", "org.a.app");
  Write(std::string(set_paths::kCobaltDir) + "/disk", std::string(100000, 'x'));
  Write("/tmp/vexilo-apps/org.a/old", "x");
  Write("/tmp/qsyslink/inference_result", "1\n");
  Write(std::string(set_paths::kReportsDir) + "/a.tar.zst", "x");
  const int64_t cobalt = DiskUsage(set_paths::kCobaltDir);
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(24 * 8);
  for (const char* path :
       {"/tmp/vexilo-apps/org.a/old", "/tmp/qsyslink/inference_result", "/var/lib/vexilo-host/reports/a.tar.zst"})
    fs::last_write_time(Path(path), old);
  const Daemon daemon = StartDaemon();
  EXPECT_TRUE(Comes([&] { return Read(set_paths::kCobaltSize) == std::to_string(cobalt); }));
  Write("/tmp/tager/req/CleanAll.txt", "CleanUp\n");
  EXPECT_TRUE(Goes(set_paths::kDeepCleanRequest));
  for (const char* gone :
       {"/opt/usr/apps/org.a/cache/file", "/tmp/vexilo-apps/org.a/old", "/var/lib/vexilo-host/reports/a.tar.zst"})
    EXPECT_FALSE(Exists(gone)) << gone;
  EXPECT_TRUE(Exists("/opt/usr/apps/org.a/data/file"));
  EXPECT_TRUE(Exists("/tmp/qsyslink/inference_result"));
  EXPECT_EQ(Read(set_paths::kCobaltSize), std::to_string(cobalt)) << "what is stored is no cache";
  EXPECT_TRUE(Has(Read(set_paths::kLogFile), "deep clean: emptied 1 caches, removed 1 temporary files and 1 reports"));
}

TEST(Setd, TheWebEnginesSizeIsThatOfTheAnswer) {
  Install("9Ur5IzDKqV", "9Ur5IzDKqV");
  const Daemon daemon = StartDaemon();
  ASSERT_TRUE(Comes([] { return Exists(set_paths::kCobaltSize); }));
  Write(std::string(set_paths::kCobaltDir) + "/disk", std::string(100000, 'x'));
  AskSize("9Ur5IzDKqV", "9Ur5IzDKqV");
  ASSERT_TRUE(Comes([] { return Exists(Ack("9Ur5IzDKqV")); }));
  EXPECT_EQ(Read(set_paths::kCobaltSize), std::to_string(DiskUsage(set_paths::kCobaltDir)));
  fs::remove(Path(std::string(set_paths::kCobaltDir) + "/disk"));
  Ask("clearAppCache", "9Ur5IzDKqV|9Ur5IzDKqV\n");
  ASSERT_TRUE(Goes("/tmp/tager/req/clearAppCache"));
  EXPECT_EQ(Read(set_paths::kCobaltSize), std::to_string(DiskUsage(set_paths::kCobaltDir)));
}

TEST(Setd, SurvivesBadRequestsAndFoldersThatGo) {
  Install("org.a", "org.a.app");
  const Daemon daemon = StartDaemon();
  Ask("killApp", "../../../bin\n");
  EXPECT_TRUE(Goes("/tmp/tager/req/killApp"));
  Ask("clearAppCache", "org.gone|gone\n");
  EXPECT_TRUE(Goes("/tmp/tager/req/clearAppCache"));
  Ask("killApp", "org.gone\n");
  EXPECT_TRUE(Goes("/tmp/tager/req/killApp"));
  Write("/tmp/tager/req/rubbish", "x");
  // A package that is not there takes no space.
  AskSize("org.gone", "gone");
  EXPECT_TRUE(Comes([&] { return Exists(Ack("gone")); }));
  EXPECT_EQ(Read(Result("gone")), "0|0");

  for (const bool moved : {false, true}) {
    if (moved) {
      fs::rename(Path(set_paths::kTager), Path("/tmp/elsewhere"));
    } else {
      fs::remove_all(Path(set_paths::kTagerRequests));
      fs::remove_all(Path(set_paths::kTagerAnswers));
    }
    ASSERT_TRUE(Comes([] { return Exists(set_paths::kTagerAnswers) && Exists(set_paths::kTagerRequests); }));
    AskSize("org.a", "org.a.app");
    ASSERT_TRUE(Comes([&] { return Exists(Ack("org.a.app")); }));
  }
  EXPECT_TRUE(Runs(*daemon));
}

TEST(Setd, WhereNothingCanBeWrittenThereIsNoAnswerUntilItCan) {
  Install("org.a", "org.a.app");
  const Daemon daemon = StartDaemon();
  ASSERT_TRUE(Comes([] { return Exists(set_paths::kCobaltSize); }));
  const rlimit none{0, RLIM_INFINITY}, all{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(prlimit(daemon->Pid(), RLIMIT_FSIZE, &none, nullptr), 0);
  AskSize("org.a", "org.a.app");
  std::this_thread::sleep_for(500ms);
  EXPECT_FALSE(Exists(Ack("org.a.app")));
  EXPECT_FALSE(Exists(Result("org.a.app")));
  EXPECT_TRUE(Exists("/tmp/tager/req/calcAppDataCacheSize_org.a.app"));
  ASSERT_EQ(prlimit(daemon->Pid(), RLIMIT_FSIZE, &all, nullptr), 0);
  EXPECT_TRUE(Comes([&] { return Exists(Ack("org.a.app")); }));
}

TEST(Setd, GoesOnAfterHavingBeenKilledInTheMiddle) {
  Install("org.a", "org.a.app");
  Daemon daemon = StartDaemon();
  const auto script = StartStubborn();
  Ask("killApp", "org.a\n");
  std::this_thread::sleep_for(300ms);
  daemon->Signal(SIGKILL);
  daemon->Wait();
  EXPECT_TRUE(Exists("/tmp/tager/req/killApp"));
  EXPECT_TRUE(Runs(*script));
  // What it left half written, and a request whose writer has ended without its line.
  Write(Result("x") + "#abcdef", "1");
  Write("/tmp/tager/calcAppDataCacheSize_org.a.app", "org.a|org.a.app\n");
  Write("/tmp/tager/req/calcAppDataCacheSize_org.a.app", "");
  const ProcessResult once = RunProcess({SETD, "--once"});
  EXPECT_EQ(once.exitCode, 0) << once.err;
  EXPECT_EQ(script->Wait().signal, SIGKILL);
  EXPECT_FALSE(Exists("/tmp/tager/req/killApp"));
  EXPECT_FALSE(Exists(Result("x") + "#abcdef"));
  EXPECT_TRUE(Exists(Ack("org.a.app")));
}

// --- Reports ---------------------------------------------------------------------------------------------------------

std::vector<std::string> Reports() {
  std::vector<std::string> found;
  std::error_code error;
  for (const auto& each : fs::directory_iterator(Path(set_paths::kReportsDir), error)) found.push_back(each.path());
  return found;
}

TEST(SetdReport, HoldsTheLogsWithoutPrivateData) {
  const char* const kPrivate[] = {"0VX5SECRET1", "a8:5e:45:01:02:ff", "192.168.77.5", "Attic Net", "/home/mira"};
  Write(set_paths::kSetProfile, "[set]\nmodel_name=VX55A100\nserial_number=0VX5SECRET1\n");
  std::string log = "before\n";
  for (const char* each : kPrivate) log += std::string("ssid=\"Attic Net\" value ") + each + "\n";
  Write(set_paths::kLogFile, log);
  Write(set_paths::kEventLog, "{\"event\":\"Scan\",\"description\":\"/home/mira/a at 192.168.77.5\"}\n");
  Write("/proc/net/dev", "eth0 a8:5e:45:01:02:ff\n");
  const Daemon daemon = StartDaemon();
  for (int i = 0; i < 5; ++i) Write("/tmp/kov_NDF/NETWORK-QUVAKOV.log", "");
  ASSERT_TRUE(Goes("/tmp/kov_NDF/NETWORK-QUVAKOV.log", 20s));
  ASSERT_FALSE(Reports().empty());
  EXPECT_LE(Reports().size(), 2u);
  EXPECT_TRUE(Has(Reports()[0], "-NETWORK-QUVAKOV.tar.")) << Reports()[0];
  const std::string out = Path("/tmp/unpacked");
  fs::create_directories(out);
  ASSERT_EQ(RunProcess({"tar", "-C", out, "-xf", Reports()[0]}).exitCode, 0);
  for (const char* file : {"meta.json", "vexilo.log", "events.jsonl", "engine.jsonl", "state.txt"}) {
    const std::string text = Read("/tmp/unpacked/" + std::string(file));
    for (const char* each : kPrivate) EXPECT_FALSE(Has(text, each)) << file << ": " << text;
  }
  EXPECT_TRUE(Has(Read("/tmp/unpacked/vexilo.log"), "before\n"));
  EXPECT_TRUE(Has(Read("/tmp/unpacked/state.txt"), "eth0 <mac-"));
  EXPECT_TRUE(Has(Read("/tmp/unpacked/meta.json"), "VX55A100"));
  EXPECT_TRUE(Has(Read("/tmp/unpacked/events.jsonl"), "Scan"));
}

TEST(SetdReport, HasWholeLinesOfTheJournalWhereTheLogGoesThere) {
  Write("/bin/journalctl",
        "#!/bin/sh\ncase \"$*\" in *'-t TVVexilo -t SETD '*) ;; *) exit 1 ;; esac\n"
        "yes 'start of a line of which many make more than is kept' | head -n 30000\n");
  fs::permissions(Path("/bin/journalctl"), fs::perms::owner_all);
  Write("/tmp/kov_NDF/OTHER-A.log", "");
  const std::map<std::string, std::string> environment = {{"VEXILO_LOG_TARGET", "stderr"},
                                                          {"PATH", Path("/bin") + ":" + getenv("PATH")}};
  ASSERT_EQ(RunProcess({SETD, "--once"}, {.env = environment}).exitCode, 0);
  ASSERT_EQ(Reports().size(), 1u);
  fs::create_directories(Path("/tmp/unpacked"));
  ASSERT_EQ(RunProcess({"tar", "-C", Path("/tmp/unpacked"), "-xf", Reports()[0]}).exitCode, 0);
  const std::string log = Read("/tmp/unpacked/vexilo.log");
  EXPECT_TRUE(log.starts_with("start of a line")) << log.substr(0, 200);
  EXPECT_GT(log.size(), 1000000u);
  EXPECT_LE(log.size(), size_t{1024 * 1024});
}

TEST(SetdReport, WhoseTriggerCannotBeRemovedIsMadeOnce) {
  const std::string trigger = "/tmp/kov_NDF/SOUND-A.log";
  Write(trigger, "");
  Write("/tmp/mounted", "");
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  ASSERT_EQ(mount(Path("/tmp/mounted").c_str(), Path(trigger).c_str(), nullptr, MS_BIND, nullptr), 0);
  const Daemon daemon = StartDaemon();
  const auto tries = [&] {
    const std::string log = Read(set_paths::kLogFile);
    size_t count = 0;
    for (size_t at = 0; (at = log.find(trigger + " stays", at)) != log.npos; ++at) ++count;
    return count;
  };
  ASSERT_TRUE(Comes([&] { return tries() >= 2; }));
  EXPECT_EQ(Reports().size(), 1u);
  ASSERT_EQ(umount(Path(trigger).c_str()), 0);
  EXPECT_TRUE(Goes(trigger));
}

TEST(SetdReport, AfterARestartOnlyAndThenOnce) {
  const std::string trigger = "/tmp/kov_NDF_reboot/StartVexilo-StartVexilo.log";
  const auto boot = [](const std::string& id) { Write("/proc/sys/kernel/random/boot_id", id + "\n"); };
  const auto run = [] { EXPECT_EQ(RunProcess({SETD, "--once"}).exitCode, 0); };
  boot("first");
  run();
  Write(trigger, "");
  run();
  run();
  EXPECT_TRUE(Exists(trigger));
  EXPECT_EQ(Reports().size(), 0u);
  boot("second");
  run();
  EXPECT_FALSE(Exists(trigger));
  EXPECT_EQ(Reports().size(), 1u);
  // One that came when no daemon ran, and one whose trigger the restart took away.
  Write(trigger, "");
  Write("/tmp/kov_NDF_reboot/bad name.log", "");
  boot("third");
  run();
  EXPECT_FALSE(Exists(trigger));
  EXPECT_EQ(Reports().size(), 2u);
  Write(trigger, "");
  run();
  fs::remove(Path(trigger));
  boot("fourth");
  run();
  EXPECT_EQ(Reports().size(), 3u);
  run();
  EXPECT_EQ(Reports().size(), 3u);
}

TEST(SetdStart, TellsAShutdownOutOfOrder) {
  const struct {
    const char* boot;
    const char* told;
    int end;
  } kStarts[] = {
      {"first", "first clean\n", SIGTERM},   {"second", "second clean\n", SIGKILL},
      {"third", "third unclean\n", SIGKILL}, {"third", "third unclean\n", SIGTERM},
      {"fourth", "fourth clean\n", SIGTERM},
  };
  for (const auto& start : kStarts) {
    Write("/proc/sys/kernel/random/boot_id", start.boot + std::string("\n"));
    const auto daemon = StartDaemon();
    EXPECT_EQ(Read(set_paths::kLastShutdown), start.told);
    daemon->Signal(start.end);
    daemon->Wait();
    EXPECT_EQ(Exists("/var/lib/vexilo-host/setd/running"), start.end == SIGKILL);
  }
}

/// The niceness of the daemon's thread of the name; nothing when there is none.
std::optional<int> NicenessOf(pid_t daemon, const std::string& name) {
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(daemon) + "/task")) {
    std::ifstream comm(task.path() / "comm");
    std::string line;
    std::getline(comm, line);
    if (line == name) return getpriority(PRIO_PROCESS, static_cast<id_t>(std::stoi(task.path().filename().string())));
  }
  return std::nullopt;
}

TEST(SetdBackground, DiagnosesAtThePeriodThatTheSettingsKeyHas) {
  constexpr char kPeriod[] = "db/trevlin/background_period";
  Write(set_paths::kRules,
        R"({"version": 1, "rules": [{"code": 17, "group": "memory",
            "when": {"fact": "setting:db/trouble", "is": "==", "value": true}}]})");
  vconf_set_bool("db/trouble", 1);
  vconf_set_int(kPeriod, 0);
  const Daemon daemon = StartDaemon();
  const auto comesTo = [](int type) {
    return Comes([type] {
      trevlin::Database database(trevlin::Database::Access::kReadOnly);
      std::vector<trevlin::Transition> all;
      database.AllTransitions(all);
      return !all.empty() && all.back().type == type;
    });
  };
  EXPECT_TRUE(Comes([&] { return NicenessOf(daemon->Pid(), "trevlin") == 10; }));
  EXPECT_FALSE(Exists(set_paths::kInferenceDb));
  vconf_set_int(kPeriod, 1);
  EXPECT_TRUE(comesTo(1));
  vconf_set_bool("db/trouble", 0);
  EXPECT_TRUE(comesTo(0));
  daemon->Signal(SIGTERM);
  EXPECT_EQ(daemon->Wait(5s).exitCode, 0);
}

}  // namespace
