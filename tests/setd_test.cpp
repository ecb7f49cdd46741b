// The parts of the set's daemon that need no process: reading requests, private data, limits of what is kept.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>
#include <vector>

#include "set_paths.h"
#include "setd/deep_clean.h"
#include "setd/report.h"
#include "setd/request.h"
#include "setd/scrubber.h"
#include "system_path.h"

namespace {

namespace fs = std::filesystem;
using namespace setd;

void Write(const std::string& setPath, const std::string& content) {
  fs::create_directories(fs::path(SystemPath(setPath)).parent_path());
  std::ofstream(SystemPath(setPath), std::ios::binary) << content;
}

bool Exists(const std::string& setPath) {
  return fs::exists(fs::symlink_status(SystemPath(setPath)));
}

void SetAge(const std::string& setPath, time_t seconds) {
  const timespec times[2] = {{time(nullptr) - seconds, 0}, {time(nullptr) - seconds, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, SystemPath(setPath).c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << setPath;
}

TEST(SetdRequest, IsReadOrRefusedAndRefusedOnesGo) {
  const std::string measure = "calcAppDataCacheSize_";
  const struct {
    std::string trigger, text, payload;
    ReadState first, last;
    std::string packageId, appId;
  } kCases[] = {
      {"killApp", "", "org.a\n", ReadState::kReady, ReadState::kReady, "org.a", ""},
      {"killApp", "x", "org.a\n", ReadState::kReady, ReadState::kReady, "org.a", ""},
      {"killApp", "", "", ReadState::kIncomplete, ReadState::kRefused, "", ""},
      {"killApp", "", "org.a", ReadState::kIncomplete, ReadState::kRefused, "", ""},
      {"killApp", "", "org.a|b\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"killApp", "", "../../etc\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"killApp", "", "/opt/usr/apps/org.a\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"killApp", "", "..\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"killApp", "", "org.a\norg.b\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"killApp", "", std::string("org.a\0\n", 7), ReadState::kRefused, ReadState::kRefused, "", ""},
      {"killApp", "", std::string(5000, 'a') + "\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"clearAppCache", "", "org.a|b\n", ReadState::kReady, ReadState::kReady, "org.a", "b"},
      {"clearAppCache", "", "org.a\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"clearAppCache", "", "org.a|../b\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"clearAppCache", "", "org.a|b|c\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"clearAppCache", "", "|b\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {measure + "b", "org.a|b\n", "", ReadState::kReady, ReadState::kReady, "org.a", "b"},
      {measure + "b", "", "org.a|b\n", ReadState::kIncomplete, ReadState::kReady, "org.a", "b"},
      {measure + "b", "org.a|", "", ReadState::kIncomplete, ReadState::kRefused, "", ""},
      {measure + "b", "org.a|c\n", "org.a|b\n", ReadState::kRefused, ReadState::kRefused, "", ""},
      {measure, "org.a|\n", "", ReadState::kRefused, ReadState::kRefused, "", ""},
      {"memBoost", "", "", ReadState::kReady, ReadState::kReady, "", ""},
      {"CleanAll.txt", "CleanUp\n", "", ReadState::kReady, ReadState::kReady, "", ""},
      {"CleanAll.txt", "", "", ReadState::kIncomplete, ReadState::kRefused, "", ""},
      {"CleanAll.txt", "CleanUp now\n", "", ReadState::kIncomplete, ReadState::kRefused, "", ""},
      {"somethingElse", "", "", ReadState::kNoRequest, ReadState::kNoRequest, "", ""},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.trigger + ": \"" + each.text + "\" \"" + each.payload.substr(0, 40) + "\"");
    const std::string trigger = set_paths::kTagerRequests + ("/" + each.trigger);
    const std::string payload = set_paths::kTager + ("/" + each.trigger);
    Write(trigger, each.text);
    Write(payload, each.payload);
    Request request;
    std::string problem;
    EXPECT_EQ(ReadRequest(each.trigger, false, request, problem), each.first);
    EXPECT_EQ(ReadRequest(each.trigger, true, request, problem), each.last);
    EXPECT_EQ(problem.empty(), each.first != ReadState::kRefused && each.last != ReadState::kRefused);
    if (each.last == ReadState::kReady) {
      EXPECT_EQ(request.packageId, each.packageId);
      EXPECT_EQ(request.appId, each.appId);
      EXPECT_TRUE(RemoveServed(request));
    } else {
      EXPECT_TRUE(RemoveRefused(each.trigger));
    }
    // The end of a deep clean says that it was done; of another file nobody knows whose it is.
    const bool stays =
        each.last != ReadState::kReady && (each.trigger == "CleanAll.txt" || each.last == ReadState::kNoRequest);
    EXPECT_EQ(Exists(trigger), stays);
  }
}

TEST(SetdRequest, LinksFoldersAndLaterPayloadsAreNotTaken) {
  Request request;
  std::string problem;
  Write("/home/owner/secret", "org.a\n");
  const std::string trigger = "/tmp/tager/req/killApp", payload = "/tmp/tager/killApp";
  fs::create_symlink(SystemPath("/home/owner/secret"), SystemPath(payload));
  Write(trigger, "");
  EXPECT_EQ(ReadRequest("killApp", false, request, problem), ReadState::kRefused);
  EXPECT_TRUE(RemoveRefused("killApp"));
  EXPECT_FALSE(Exists(payload));
  EXPECT_TRUE(Exists("/home/owner/secret"));

  fs::create_directory(SystemPath(trigger));
  EXPECT_EQ(ReadRequest("killApp", true, request, problem), ReadState::kRefused);
  EXPECT_FALSE(RemoveRefused("killApp"));
  fs::remove(SystemPath(trigger));

  Write(payload, "org.a\n");
  Write(trigger, "");
  ASSERT_EQ(ReadRequest("killApp", false, request, problem), ReadState::kReady);
  Write(payload, "org.b\n");
  EXPECT_TRUE(RemoveServed(request));
  EXPECT_TRUE(Exists(payload));
  EXPECT_TRUE(Exists(trigger));
}

TEST(SetdRequest, AnswersOutliveAnInterruptionButNotTheirTime) {
  const std::string answer = "/tmp/tager/appDataCacheSize_", ack = "/tmp/tager/ack/appDataCacheSize_";
  const struct {
    std::string app;
    bool hasResult, isRequested;
    time_t age;
    bool isFinished, stays;
  } kCases[] = {
      {"lacksAck", true, false, 5, true, true},
      {"late", true, false, 60, true, false},
      {"requested", true, true, 5, false, true},
      {"noResult", false, false, 5, false, false},
  };
  fs::create_directories(SystemPath("/tmp/tager/req"));
  for (const auto& each : kCases) {
    if (each.hasResult) Write(answer + each.app, "1|2");
    if (each.hasResult) SetAge(answer + each.app, each.age);
    Write(answer + each.app + "#ack", "");
    SetAge(answer + each.app + "#ack", each.age);
    if (each.isRequested) Write("/tmp/tager/req/calcAppDataCacheSize_" + each.app, "p|" + each.app + "\n");
  }
  Write(answer + "half#ack#abcdef", "");
  FinishInterrupted();
  EXPECT_FALSE(Exists(answer + "half#ack#abcdef"));
  for (const auto& each : kCases) {
    EXPECT_EQ(Exists(ack + each.app), each.isFinished) << each.app;
    EXPECT_FALSE(Exists(answer + each.app + "#ack")) << each.app;
  }
  EXPECT_TRUE(RemoveOldAnswers());
  for (const auto& each : kCases) {
    EXPECT_EQ(Exists(answer + each.app), each.stays) << each.app;
    EXPECT_EQ(Exists(ack + each.app), each.stays && each.isFinished) << each.app;
  }
  for (const auto& each : kCases)
    if (each.stays) SetAge(answer + each.app, 60);
  fs::remove(SystemPath(ack + "lacksAck"));
  EXPECT_FALSE(RemoveOldAnswers());
  for (const auto& each : kCases) EXPECT_FALSE(Exists(answer + each.app)) << each.app;
}

TEST(SetdScrubber, ReplacesWhatIsPrivateAndNothingElse) {
  const struct {
    const char* text;
    const char* clean;
  } kCases[] = {
      {"a8:5e:45:01:02:ff and A8-5E-45-01-02-FF", "<mac-1> and <mac-2>"},
      {"again A8:5E:45:01:02:FF, dev_11_22_33_44_55_66", "again <mac-1>, dev_<mac-3>"},
      {"wlxa85e450102ff up", "wlx<mac-4> up"},
      {"from 192.168.1.20:8080 to 10.0.0.1.", "from <ip-1>:8080 to <ip-2>."},
      {"local 127.0.0.1, ::1 and 0.0.0.0", "local 127.0.0.1, ::1 and 0.0.0.0"},
      {"fe80::a85e:45ff:fe01:2ff%eth0 2001:db8::1", "<ip-3>%eth0 <ip-4>"},
      {"at 12:34:56 std::vector x::y 2026-11-21 03:19:25.132", "at 12:34:56 std::vector x::y 2026-11-21 03:19:25.132"},
      {"essid:\"My Home Net\" ssid=My Home Net", "essid:\"<ssid-1>\" ssid=<ssid-1>"},
      {R"({"ssid" : "Attic", "x":1} SSID 'Attic')", R"({"ssid" : "<ssid-2>", "x":1} SSID '<ssid-2>')"},
      {"Serial Number: 0VX5A9 serialno=0VX5A9", "Serial Number: <serial-1> serialno=<serial-1>"},
      {"set 0vx5a1k0001x works", "set <serial-2> works"},
      {"joined my home net and 0VX5A9", "joined <ssid-1> and <serial-1>"},
      {"user MIRA said mirabelle", "user <user-1> said mirabelle"},
      {"/home/mira/Films/a.mkv: bad", "<path-1>: bad"},
      {"/home/owner/share/Trevlin/DB/solution.db", "/home/owner/share/Trevlin/DB/solution.db"},
      {"/opt/usr/home/owner/content/Letter.pdf", "<path-2>"},
      {"mail mira.k@example.org", "mail <mail-1>"},
      {"id 6f1c2a34-5b6d-4e8f-9a0b-112233445566", "id <id-1>"},
      {"\xff\xfe 10.0.0.1", "\xff\xfe <ip-2>"},
      {"AABBCCDDEE02 aabb.ccdd.ee03", "<mac-6> <mac-5>"},
      {"wifi_aabbccddee05_4d79486f6d65_managed_psk idle", "<ssid-3> idle"},
      {"network \"VillaKlaus\" and access point 'ApNet'", "network \"<ssid-4>\" and access point '<ssid-5>'"},
      {"addr:2001:db8::11 x_203.0.113.10 ip203.0.113.11", "addr:<ip-5> x_<ip-6> ip<ip-7>"},
      {"serial 0VX77 S/N: 0VX78 SN=0VX79", "serial <serial-3> S/N: <serial-4> SN=<serial-5>"},
      {"serial: error ssid=true", "serial: error ssid=<ssid-6>"},
      {"an error is true", "an error is true"},
      {"/media/maria/USB/x user=maria user=owner", "<path-3> user=<user-2> user=owner"},
      {"psk=\"hunter22\" password=x token: y", "psk=\"<secret-1>\" password=<secret-2> token: <secret-3>"},
      {"Authorization: Bearer abc.def ?user=m&pass=n",
       "Authorization: Bearer <secret-5> ?user=<user-3>&pass=<secret-4>"},
  };
  Scrubber scrubber({{"user", "mira"}, {"serial", "0VX5A1K0001X"}});
  for (const auto& each : kCases) scrubber.Learn(each.text);
  for (const auto& [text, clean] : kCases) EXPECT_EQ(scrubber.Clean(text), clean) << text;
}

TEST(SetdReports, AreKeptWithinNumberSizeAndAge) {
  const std::string folder = set_paths::kReportsDir + std::string("/");
  const auto add = [&](int number, size_t bytes, time_t age) {
    const std::string path = folder + "report-" + std::to_string(number) + ".tar.zst";
    Write(path, "");
    fs::resize_file(SystemPath(path), bytes);
    SetAge(path, age);
    return path;
  };
  Write(folder + "notes.txt", "");
  SetAge(folder + "notes.txt", kMaxReportAge * 2);
  const std::string tooOld = add(1, 10, kMaxReportAge + 60);
  for (int number = 2; number <= 23; ++number) add(number, 10, 1000 - number);
  EXPECT_EQ(PruneReports(), 3);
  EXPECT_FALSE(Exists(tooOld));
  EXPECT_FALSE(Exists(folder + "report-3.tar.zst"));
  EXPECT_TRUE(Exists(folder + "report-4.tar.zst"));
  add(24, 20 << 20, 100);
  add(25, 20 << 20, 50);
  EXPECT_EQ(PruneReports(), 21);
  EXPECT_TRUE(Exists(folder + "report-25.tar.zst"));
  EXPECT_TRUE(Exists(folder + "notes.txt"));
}

TEST(SetdReports, OfOneNameAtOnceAreAllKeptAndPrivate) {
  std::vector<std::string> files(4);
  {
    std::vector<std::jthread> threads;
    for (std::string& file : files)
      threads.emplace_back([&] {
        std::string problem;
        EXPECT_TRUE(MakeReport("SOUND-A", file, problem)) << problem;
      });
  }
  EXPECT_EQ(std::set<std::string>(files.begin(), files.end()).size(), files.size());
  for (const std::string& file : files) {
    struct stat status;
    ASSERT_EQ(stat(SystemPath(file).c_str(), &status), 0) << file;
    EXPECT_EQ(status.st_mode & 0777, 0600u);
  }
}

TEST(SetdDeepClean, RemovesOldFilesOnlyAndNeverThroughALink) {
  const time_t cutoff = time(nullptr) - 3600;
  const std::string folder = "/tmp/vexilo-apps/org.a/";
  for (const char* file : {"old", "new", "folder/old", "mixed/new", "shut/old", "filled/old"})
    Write(folder + file, "x");
  Write("/tmp/org.a/old", "x");
  Write("/home/owner/share/precious", "x");
  fs::create_directory_symlink(SystemPath("/home/owner/share"), SystemPath(folder + "link"));
  fs::create_directory_symlink(SystemPath("/home/owner/share"), SystemPath("/tmp/vexilo-apps/org.b"));
  ASSERT_EQ(mkfifo(SystemPath(folder + "fifo").c_str(), 0600), 0);
  for (const char* each : {"old", "folder/old", "folder", "mixed", "link", "fifo", "shut/old", "filled/old"})
    SetAge(folder + each, 7200);
  SetAge("/tmp/org.a/old", 7200);
  SetAge("/home/owner/share/precious", 7200);
  ASSERT_EQ(chmod(SystemPath(folder + "shut").c_str(), 0500), 0);
  EXPECT_EQ(RemoveTemporaryFiles("org.a", cutoff), geteuid() == 0 ? 6 : 5);
  EXPECT_EQ(RemoveTemporaryFiles("org.b", cutoff), 0);
  for (const char* gone : {"old", "folder", "link", "filled/old"}) EXPECT_FALSE(Exists(folder + gone)) << gone;
  for (const char* kept : {"new", "mixed/new", "fifo", "filled", "shut"}) EXPECT_TRUE(Exists(folder + kept)) << kept;
  for (const char* kept : {"/tmp/org.a/old", "/home/owner/share/precious", "/tmp/vexilo-apps/org.b"})
    EXPECT_TRUE(Exists(kept)) << kept;
  struct stat shut;
  ASSERT_EQ(stat(SystemPath(folder + "shut").c_str(), &shut), 0);
  EXPECT_EQ(shut.st_mode & 0777, 0500u) << "what stays keeps its mode";
}

TEST(SetdDeepClean, DoesNotEnterMountsOfTheSameDisk) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    GTEST_SKIP() << "no mounts of its own: " << std::strerror(errno);
  Write("/home/owner/share/precious", "x");
  SetAge("/home/owner/share/precious", 7200);
  for (const std::string folder : {"/tmp/vexilo-apps/org.a/mounted", "/tmp/vexilo-apps/org.b"}) {
    fs::create_directories(SystemPath(folder));
    ASSERT_EQ(mount(SystemPath("/home/owner/share").c_str(), SystemPath(folder).c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  for (const char* package : {"org.a", "org.b"}) EXPECT_EQ(RemoveTemporaryFiles(package, time(nullptr)), 0);
  EXPECT_TRUE(Exists("/home/owner/share/precious"));
}

}  // namespace
