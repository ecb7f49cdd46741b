// The device data service: applications and their sizes, storage, requests to the task manager, launching.

#include <dlfcn.h>
#include <sys/inotify.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include "CGetData.h"
#include "CUtils.h"
#include "SettingsKeys.h"
#include "TaskManagerRequests.h"
#include "pkgmgr_client.h"
#include "support/files.h"
#include "support/task_manager.h"
#include "support/usage_events.h"
#include "vconf.h"

namespace {

[[maybe_unused]] const int kLogsAll = setenv("VEXILO_LOG_LEVEL", "debug", 1);  // before the first line

std::function<int(was_app_info_s**, int*)> g_appList;  // stands in for the service's list when the test says so

}  // namespace

extern "C" int was_get_app_list(was_list_kind_e kind, was_app_info_s** list, int* count) {
  if (g_appList) return g_appList(list, count);
  return reinterpret_cast<decltype(&was_get_app_list)>(dlsym(RTLD_NEXT, "was_get_app_list"))(kind, list, count);
}

namespace {

using QUVA::CGetData;
using QUVA::CUtils;
using testing::ElementsAreArray;
using Texts = std::vector<std::string>;

CGetData& g_data = *CGetData::GetInstance();

const std::string kPackages = std::string(set_paths::kPackagesDir) + "/";
const std::string kTager = std::string(set_paths::kTager) + "/";

/// A package whose application id is its own with ".app", with the named icons and 20,000 bytes of data.
void PlantPackage(const std::string& id, const std::string& title, const Texts& icons = {"icon.png"},
                  const std::string& appId = "", const std::string& more = "") {
  WriteFile(kPackages + id + "/manifest.json", "{\"package_id\": \"" + id + "\", \"app_id\": \"" +
                                                   (appId.empty() ? id + ".app" : appId) + "\", \"title\": \"" + title +
                                                   "\"" + more + "}");
  WriteFile(kPackages + id + "/data/file", std::string(20000, 'x'));
  WriteFile(kPackages + id + "/bin/program", std::string(9000, 'x'));
  for (const std::string& icon : icons) WriteFile(kPackages + id + "/icons/" + icon, "");
}

/// Total and data size as the package manager has them.
std::pair<long, long> PackageSizes(const std::string& id) {
  pkgmgr_client* const client = pkgmgr_client_new(PC_REQUEST);
  const std::pair sizes(g_data.getAppSize(client, id, PM_GET_TOTAL_SIZE),
                        g_data.getAppSize(client, id, PM_GET_DATA_SIZE));
  pkgmgr_client_free(client);
  EXPECT_TRUE(sizes.first > sizes.second && sizes.second >= 20000);
  return sizes;
}

/// One member of each record of the list.
template <typename T>
std::vector<T> List(T QUVA::app_list_struct::*member) {
  g_data.sendAppList();
  std::vector<T> members;
  for (const auto& app : g_data.m_GetAppsDataStructure()) members.push_back(app.*member);
  EXPECT_EQ(g_data.m_GetAppsCount(), static_cast<int>(members.size()));
  return members;
}

// ---- applications

TEST(AppList, HoldsTheRecordsWithTheirSizes) {
  const TaskManagerStandIn taskManager(1ms, "1000|200");
  vconf_set_int(QUVA::kConsentKey, 1);
  PlantPackage("a", "Ä", {"icon.png"}, "a.x", R"(, "service_id": "s", "attributes": [5, 6], "locked": true)");
  PlantPackage("y", "YouTube");
  PlantPackage("9Ur5IzDKqV", "Z");
  const std::string webCache = std::string(set_paths::kWebCacheDir) + "/a.x";
  WriteFile(webCache + "/file", std::string(5000, 'x'));
  WriteFile(set_paths::kCobaltSize, "77\n");
  struct stat folder {};
  ASSERT_EQ(stat(SystemPath(webCache).c_str(), &folder), 0);
  std::map<std::string, long> extra = {{"a", folder.st_size + 5000}, {"y", 77}, {"9Ur5IzDKqV", 0}};
  g_data.sendAppList();
  const auto apps = g_data.m_GetAppsDataStructure();
  ASSERT_EQ(apps.size(), 3u);
  for (const auto& app : apps) {
    const auto [total, own] = PackageSizes(app.package_id);
    EXPECT_EQ(app.size, total + extra.at(app.package_id) - own + 1200) << app.app_name;
    if (app.package_id != "a") continue;
    EXPECT_EQ(app.app_name + app.app_id + app.service_id + app.icon_path, "Äa.xs/opt/usr/apps/a/icons/icon.png");
    EXPECT_EQ((std::vector{app.attribute1, app.attribute2, app.selected, app.locked}), (std::vector{5, 6, 0, 1}));
  }
  // One by one, it is the package that tells the browser engine's application.
  const struct {
    std::string id, appId;
    long engine, webCache;
  } rows[] = {{"a", "a.x", 0, extra.at("a")}, {"y", "y.app", 0, 0}, {"9Ur5IzDKqV", "9Ur5IzDKqV.app", 77, 0}};
  for (const auto& row : rows) {
    g_data.sendAppData(row.id, row.appId);
    const auto [total, own] = PackageSizes(row.id);
    EXPECT_EQ(g_data.m_GetTotalSizeOfApp(), total + row.engine + row.webCache - own + 1200) << row.id;
    EXPECT_EQ(g_data.m_GetDataSizeOfApp(), 1000);
    EXPECT_EQ(g_data.m_GetCacheSizeOfApp(), 200 + row.webCache) << "all that clearing empties";
  }
}

TEST(AppSizes, AreThoseOfTheNewestCall) {
  const auto answer = [](const std::string& app, const std::string& sizes) {
    EXPECT_TRUE(Until([&] { return Exists(kTager + "req/calcAppDataCacheSize_" + app); }));
    WriteFile(kTager + "appDataCacheSize_" + app, sizes);
    WriteFile(kTager + "ack/appDataCacheSize_" + app, "");
  };
  for (const char* id : {"a", "b"}) PlantPackage(id, id);
  auto older = std::async(std::launch::async, [] { g_data.sendAppData("a", "a.app"); });
  EXPECT_TRUE(Until([] { return Exists(kTager + "req/calcAppDataCacheSize_a.app"); }));
  auto newer = std::async(std::launch::async, [] { g_data.sendAppData("b", "b.app"); });
  answer("b.app", "11|22");
  newer.get();
  answer("a.app", "33|44");
  older.get();
  EXPECT_EQ(g_data.m_GetDataSizeOfApp(), 11);
  EXPECT_TRUE(g_data.m_AreAppSizesKnown() && !g_data.m_IsAppGone());
  const TaskManagerStandIn taskManager(1ms, "0|0");
  g_data.sendAppData("none", "none");
  EXPECT_TRUE(g_data.m_IsAppGone() && !g_data.m_AreAppSizesKnown());
}

double SecondsOf(const std::function<void()>& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(AppList, WaitsOnceForATaskManagerThatAnswersForNone) {
  vconf_set_int(QUVA::kConsentKey, 1);
  for (int i = 0; i < 200; ++i) PlantPackage("p" + std::to_string(i), "P");
  EXPECT_TRUE(fs::is_empty(SystemPath(set_paths::kTagerRequests)));
  std::vector<bool> measured;
  const double seconds = SecondsOf([&] { measured = List(&QUVA::app_list_struct::measured); });
  EXPECT_LT(seconds, 9);
  EXPECT_THAT(measured, ElementsAreArray(std::vector<bool>(200, false)));
  EXPECT_EQ(std::distance(fs::directory_iterator(SystemPath(set_paths::kTagerRequests)), {}), 20);
  // One answer is enough to ask for all.
  const TaskManagerStandIn taskManager(1ms, "1|1");
  EXPECT_THAT(List(&QUVA::app_list_struct::measured), ElementsAreArray(std::vector<bool>(200, true)));
}

TEST(AppList, ShowsWhatTheConsentAllows) {
  const TaskManagerStandIn taskManager(1ms, "0|0");
  for (const char* title : {"e-Manual", "e-manual", "WebBrowser", "Web Browser", "Other"})
    PlantPackage("p" + std::to_string(std::hash<std::string>()(title)), title);
  const auto titles = [] { return List(&QUVA::app_list_struct::app_name); };
  EXPECT_THAT(titles(), testing::UnorderedElementsAre("e-Manual", "WebBrowser")) << "not asked yet";
  for (const auto& [consent, count] : std::map<int, size_t>{{0, 2}, {1, 5}, {2, 2}}) {
    vconf_set_int(QUVA::kConsentKey, consent);
    EXPECT_EQ(titles().size(), count) << consent;
  }
  g_appList = [](was_app_info_s**, int*) { return -3; };
  EXPECT_THAT(titles(), IsEmpty()) << "the service fails";
}

TEST(AppList, ChoosesTheIconByThePanelAndDropsWhatHasNone) {
  const TaskManagerStandIn taskManager(1ms, "0|0");
  vconf_set_int(QUVA::kConsentKey, 1);
  PlantPackage("a", "All", {"304x304.png", "448x448.png", "icon.png"});
  PlantPackage("b", "Big", {"448x448.png"});
  PlantPackage("c", "Plain", {"icon.png"});
  PlantPackage("d", "Without", {});
  const Texts small = {kPackages + "a/icons/304x304.png", kPackages + "c/icons/icon.png"};
  const Texts large = {kPackages + "a/icons/448x448.png", kPackages + "b/icons/448x448.png",
                       kPackages + "c/icons/icon.png"};
  for (const auto& [width, height, is8K] :
       {std::tuple("7680", "4320", true), {"7680", "2160", false}, {"3840", "4320", false}}) {
    WriteFile(set_paths::kSetProfile,
              std::string("[feature]\npanel_resolution_width=") + width + "\npanel_resolution_height=" + height + "\n");
    EXPECT_EQ(g_data.m_GetTypeOfTV(), is8K);
    EXPECT_EQ(List(&QUVA::app_list_struct::icon_path), is8K ? large : small) << width << " x " << height;
  }
}

TEST(AppList, HandsNoHostileIdToAShell) {
  const TaskManagerStandIn taskManager(1ms, "0|0");
  WriteFile(std::string(set_paths::kWebCacheDir) + "/file", "x");
  for (const char* id : {"x;touch${IFS}hit", "$(touch hit)", "`touch hit`", "x y", "..", "", "-a\n", "'"}) {
    g_appList = [id](was_app_info_s** list, int* count) {
      *list = static_cast<was_app_info_s*>(std::calloc(*count = 1, sizeof **list));
      **list = {strdup("s"), strdup(id), strdup("p"), strdup("WebBrowser"), strdup("/icons/"), 0, 0, 0};
      return 0;
    };
    g_data.sendAppList();
  }
  EXPECT_THAT(Log(), HasSubstr("the web cache of [x;touch${IFS}hit] is not measured"));
  EXPECT_THAT(Log(), Not(HasSubstr("Buffer1"))) << "a command has printed something";
}

TEST(AppData, ClearingKeepsThreeApplicationsAsTheyAre) {
  for (const char* kept : {"org.varno.primevideo", "9Ur5IzDKqV", "org.varno.netflix-app"}) {
    PlantPackage(kept, kept, {}, kept);
    EXPECT_EQ(g_data.clearAppData(kept), 1);
    EXPECT_TRUE(Exists(kPackages + kept + "/data/file"));
  }
  PlantPackage("a", "A", {}, "org.varno.netflix");
  EXPECT_EQ(g_data.clearAppData("org.varno.netflix"), 0);
  EXPECT_FALSE(Exists(kPackages + "a/data/file"));
  EXPECT_EQ(g_data.clearAppData("none"), -1);
}

// ---- storage and facts of the set

TEST(FlashSize, IsThatOfTheSet) {
  for (const auto& [flash, gigabytes] :
       std::map<int, long long>{{-1, 0}, {0, 4}, {1, 8}, {2, 16}, {3, 32}, {4, 64}, {5, 0}}) {
    WriteFile(set_paths::kSetProfile, "[feature]\nflash_size=" + std::to_string(flash) + "\n");
    long long total = 7;
    QUVA::getTotalSize(&total);
    EXPECT_EQ(total, gigabytes ? gigabytes << 30 : 7) << flash;
  }
  long long unused = 0;
  EXPECT_EQ(g_data.getFlashSize("/none", &unused, &unused, &unused), -1);
}

/// Has the kernel tell of a disk with a partition and a mapping of that, and of the one that /opt is on.
void PlantDisks(const std::string& carrier, long long diskSectors) {
  const std::string sda = "/sys/devices/pci/block/sda", mapping = "/sys/devices/virtual/block/dm-0";
  fs::remove_all(SystemPath("/sys"));
  WriteFile(sda + "/size", std::to_string(diskSectors) + "\n");
  WriteFile(sda + "/sda1/size", "2048\n");
  WriteFile(sda + "/sda1/partition", "1\n");
  WriteFile(mapping + "/size", "1024\n");
  fs::create_directories(SystemPath(mapping + "/slaves"));
  fs::create_directory_symlink(SystemPath(sda + "/sda1"), SystemPath(mapping + "/slaves/sda1"));
  struct stat status {};
  ASSERT_EQ(stat(SystemPath("/opt").c_str(), &status), 0);
  const std::string number = std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev));
  fs::create_directories(SystemPath("/sys/dev/block"));
  fs::create_symlink("../../devices/" + carrier, SystemPath("/sys/dev/block/" + number));
}

TEST(FlashSize, OfTheSystemIsWhatTheDiskHasBesidesThePartition) {
  constexpr long long kTebibyte = 1LL << 40;
  for (const char* carrier : {"pci/block/sda", "pci/block/sda/sda1", "virtual/block/dm-0"}) {
    PlantDisks(carrier, kTebibyte / 512);
    g_data.m_CalculateTotalSizeOfSystem();
    g_data.sendFlashSize();
    EXPECT_EQ(g_data.m_GetSystemUsedSize(), kTebibyte - g_data.m_GetTotalOptSize()) << carrier;
    for (const auto& [disk, flash] : std::map<long long, long long>{{20, 32}, {32, 32}, {33, 64}}) {
      PlantDisks(carrier, (disk << 30) / 512);
      long long total = 7;
      QUVA::getTotalSize(&total);
      EXPECT_EQ(total, flash << 30) << carrier;
    }
  }
  PlantDisks("pci/block/sda", 1);
  g_data.m_CalculateTotalSizeOfSystem();
  g_data.sendFlashSize();
  EXPECT_GE(g_data.m_GetSystemUsedSize(), 0) << "the disk is smaller than what is on it";
}

/// Compares everything with the arithmetic on the file system of /opt as it is. The state that it is in.
int CheckReserve() {
  constexpr long long kReserve = 70 << 20;
  struct statvfs info {};
  EXPECT_EQ(statvfs(SystemPath("/opt").c_str(), &info), 0);
  const auto block = static_cast<long long>(info.f_frsize);
  const long long available = static_cast<long long>(info.f_bavail) * block;
  const long long used = static_cast<long long>(info.f_blocks - info.f_bfree) * block;
  const long long left = std::max(0LL, available - kReserve);
  const int state = left == 0 ? 0 : left < kReserve ? 1 : 2;
  // Others write to the machine's file systems meanwhile.
  constexpr double kNearly = 256 << 20;
  g_data.sendFlashSize();
  EXPECT_NEAR(double(g_data.m_GetTotalOptSize()), double(used + available), kNearly);
  EXPECT_NEAR(double(g_data.m_GetUsedSize()), double(used + available - left), kNearly);
  EXPECT_EQ(g_data.CheckFlashFreespaceState(), state);
  fs::remove(SystemPath(set_paths::kEventLog));
  EXPECT_EQ(g_data.CheckDeviceState(), state == 0 ? 0 : 1);
  EXPECT_THAT(StoredEvents(),
              HasSubstr(state == 0 ? "select_item=DeviceState;status=Normal" : "select_item=DeviceState;status=Good"));
  return state;
}

TEST(FlashSize, HidesAReserve) {
  CheckReserve();
  // With small file systems of their own, where the machine permits those.
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
  for (const auto& [size, state] : std::map<std::string, int>{{"50m", 0}, {"70m", 0}, {"100m", 1}, {"200m", 2}}) {
    ASSERT_EQ(mount("tmpfs", SystemPath("/opt").c_str(), "tmpfs", 0, ("size=" + size).c_str()), 0);
    EXPECT_EQ(CheckReserve(), state) << size;
    umount(SystemPath("/opt").c_str());
  }
}

TEST(Facts, OfTheSetAndOfCommands) {
  WriteFile(set_paths::kSetProfile, "[set]\nsw_model=VX_DC5_VX\nlocal_set=CHI_DTV\n");
  EXPECT_EQ(QUVA::GetSystemInfo(SYSTEM_INFO_KEY_LOCAL_SET), "CHI_DTV");
  EXPECT_EQ(QUVA::GetSystemInfo(SYSTEM_INFO_KEY_NUM_OF_TUNER), "") << "no text";
  for (const auto& [prefix, is] :
       std::map<std::string, bool>{{"VX_DC5", true}, {"VX", false}, {"DC5", false}, {"vx_dc5", false}})
    EXPECT_EQ(g_data.m_CheckForSwModel(prefix), is) << prefix;
  EXPECT_EQ(g_data.GetStdoutFromCommand("echo ' one two'; echo three"), "one");
  EXPECT_EQ(g_data.GetStdoutFromCommand("cat /none/x"), "cat:");
}

// ---- requests to the task manager

/// Answers on the size of "a", without a result when there is none.
void AnswerOnce(const char* result) {
  if (result) WriteFile(kTager + "appDataCacheSize_a", result);
  WriteFile(kTager + "ack/appDataCacheSize_a", "");
}

struct RequestCase {
  const char* name;  ///< of the files
  const char* payload;
  const char* trigger;
  std::string refusal;        ///< of the trigger, in the log
  std::function<int()> send;  ///< 0 or -1
  int refused;
};

std::vector<RequestCase> Requests() {
  const auto measure = [] {
    long data = 0, cache = 0;
    g_data.findDataCacheSize("p", "a", &data, &cache);
    return data == 1 && cache == 2 ? 0 : -1;
  };
  const std::string failed = "[TVMGR-NATIVE] file creation failed ";
  return {
      {"killApp", "p\n", "", failed + "(/tmp/tager/req/killApp)", [] { return g_data.killApp("p"), 0; }, 0},
      {"clearAppCache", "p|a\n", "", failed + "(/tmp/tager/req/clearAppCache)",
       [] { return g_data.clearAppCache("p", "a"); }, -1},
      {"calcAppDataCacheSize_a", "p|a\n", "p|a\n", failed + "for /tmp/tager/req/calcAppDataCacheSize_a", measure, -1},
      {"memBoost", nullptr, "", "File creation failed (/tmp/tager/req/memBoost) with error number : 40",
       [] { return g_data.performMemBoost(); }, -1},
      {"CleanAll.txt", nullptr, "CleanUp\n", "File creation failed (/tmp/tager/req/CleanAll.txt)",
       [] { return g_data.performDeepClean(); }, -1}};
}

TEST(Request, LeavesThePayloadWholeBeforeTheTrigger) {
  for (const RequestCase& request : Requests()) {
    SCOPED_TRACE(request.name);
    const FdHandle watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    inotify_add_watch(watch.get(), SystemPath(set_paths::kTager).c_str(), IN_CLOSE_WRITE);
    const int triggers = inotify_add_watch(watch.get(), SystemPath(set_paths::kTagerRequests).c_str(), IN_CREATE);
    // The last one is awaited until it is taken away.
    std::thread cleaner([&] {
      const std::string trigger = kTager + "req/" + request.name;
      EXPECT_TRUE(Until([&] { return Exists(trigger) && ReadFile(trigger) == request.trigger; }));
      if (request.name == std::string("calcAppDataCacheSize_a")) AnswerOnce("1|2");
      fs::remove(SystemPath(trigger));
    });
    EXPECT_EQ(request.send(), 0);
    cleaner.join();
    EXPECT_EQ(ReadFile(kTager + request.name), request.payload ? request.payload : "");

    std::string order;
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(watch.get(), events, sizeof events);
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(events + at);
      if (std::string(event->name) == request.name) order += event->wd == triggers ? "trigger " : "payload ";
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    EXPECT_EQ(order, request.payload ? "payload trigger " : "trigger ");
  }
}

TEST(Request, IsGivenUpWhereALinkStands) {
  WriteFile("/tmp/other", "kept");
  for (const RequestCase& request : Requests()) {
    SCOPED_TRACE(request.name);
    const fs::path payload = SystemPath(kTager + request.name), trigger = SystemPath(kTager + "req/" + request.name);
    if (request.payload) {
      fs::create_symlink(SystemPath("/tmp/other"), payload);
      EXPECT_EQ(request.send(), request.refused);
      EXPECT_FALSE(fs::exists(trigger));
      fs::remove(payload);
    }
    fs::create_symlink(SystemPath("/tmp/other"), trigger);
    EXPECT_EQ(request.send(), request.refused);
    EXPECT_THAT(Log(), HasSubstr(request.refusal + "\n"));
    fs::remove(trigger);
  }
  EXPECT_EQ(ReadFile("/tmp/other"), "kept");
  fs::rename(SystemPath(kTager + "req"), SystemPath("/tmp/elsewhere"));
  fs::create_directory_symlink(SystemPath("/tmp/elsewhere"), SystemPath(kTager + "req"));
  EXPECT_EQ(g_data.performMemBoost(), -1);
  EXPECT_FALSE(Exists("/tmp/elsewhere/memBoost"));
}

TEST(Request, TakesTheAnswerOnASizeAway) {
  const struct {
    const char* result;  ///< null for none
    long data, cache;
    bool stays;
    const char* log;
  } rows[] = {{"1024|2048", 1024, 2048, false, ""},
              {nullptr, -7, -7, true, "[TAGER-NATIVE] Unable to open file /tmp/tager/appDataCacheSize_a\n"},
              {"none", -7, -7, false, "/tmp/tager/appDataCacheSize_a does not hold two numbers"}};
  const std::string trigger = kTager + "req/calcAppDataCacheSize_a";
  double seconds = 0;
  for (const auto& row : rows) {
    // What an earlier request was answered with, which had been given up.
    AnswerOnce("5|6");
    std::thread taskManager([&] {
      EXPECT_TRUE(Until([&] { return Exists(trigger); }));
      EXPECT_FALSE(Exists(kTager + "ack/appDataCacheSize_a") || Exists(kTager + "appDataCacheSize_a"));
      AnswerOnce(row.result);
    });
    long data = -7, cache = -7;
    seconds += SecondsOf([&] { g_data.findDataCacheSize("p", "a", &data, &cache); });
    taskManager.join();
    EXPECT_EQ(std::pair(data, cache), std::pair(row.data, row.cache));
    EXPECT_EQ(Exists(kTager + "ack/appDataCacheSize_a"), row.stays);
    EXPECT_FALSE(Exists(kTager + "appDataCacheSize_a"));
    EXPECT_THAT(Log(), HasSubstr(row.log));
    fs::remove(SystemPath(trigger));
  }
  EXPECT_LT(seconds, 2.9) << "it wakes when the answer comes, and does not look each second only";
}

TEST(Request, AnswersAreSmallRegularFiles) {
  const std::string trigger = kTager + "req/calcAppDataCacheSize_a";
  const struct {
    std::function<void(const std::string&)> plant;  // at a path of this machine
    const char* reason;
  } rows[] = {
      {[](const std::string& path) { mkfifo(path.c_str(), 0600); }, "it is not a regular file"},
      {[](const std::string& path) { fs::create_symlink(SystemPath("/tmp/numbers"), path); }, "it is a symbolic link"},
      {[](const std::string& path) {
         WriteHostFile(path, "1|2");
         fs::resize_file(path, 8ULL << 40);
       },
       "it is larger than 64 bytes"}};
  WriteFile("/tmp/numbers", "1|2");
  for (const auto& [plant, reason] : rows) {
    for (const std::string& path : {kTager + "appDataCacheSize_a", std::string(set_paths::kCobaltSize)}) {
      fs::create_directories(SystemPath(kTager + "req"));
      std::thread taskManager([&, plant = plant] {
        EXPECT_TRUE(path == set_paths::kCobaltSize || Until([&] { return Exists(trigger); }));
        plant(SystemPath(path));
        AnswerOnce(nullptr);
      });
      long data = -7, cache = -7;
      if (path == set_paths::kCobaltSize) taskManager.join();
      // Who waits for a writer waits for ever.
      const auto asked = std::async(std::launch::async, [&] {
        if (path == set_paths::kCobaltSize) return QUVA::getAppSizeForYoutube() == 0;
        return !g_data.findDataCacheSize("p", "a", &data, &cache) && data + cache == -14;
      });
      if (asked.wait_for(20s) != std::future_status::ready) std::abort();
      if (taskManager.joinable()) taskManager.join();
      EXPECT_THAT(Log(), HasSubstr(path + ": " + reason)) << path;
      for (const std::string& each : {trigger, path, kTager + "ack/appDataCacheSize_a"}) fs::remove(SystemPath(each));
    }
  }
}

/// Requests of one kind, of several threads and when nobody takes them.
void ExpectTurns(const std::string& name, const std::function<void(const std::string&)>& send) {
  const std::string trigger = kTager + "req/" + name;
  std::set<std::string> served;
  std::thread taskManager([&] {
    while (served.size() < 4 && Until([&] { return Exists(trigger) || served.size() == 4; })) {
      std::this_thread::sleep_for(50ms);
      served.insert(ReadFile(kTager + name).substr(0, 2));
      fs::remove(SystemPath(trigger));
    }
  });
  {
    const std::jthread other([&] {
      for (const char* id : {"p1", "p2"}) send(id);
    });
    for (const char* id : {"p3", "p4"}) send(id);
  }
  taskManager.join();
  EXPECT_THAT(served, ElementsAre("p1", "p2", "p3", "p4")) << name;
  // Nobody takes them any more.
  send("p7");
  const double seconds = SecondsOf([&] { send("p8"); });
  EXPECT_TRUE(seconds > 2.9 && seconds < 5) << seconds;
  EXPECT_LT(SecondsOf([&] { send("p9"); }), 1) << "that one was waited for already";
  EXPECT_TRUE(ReadFile(kTager + name).starts_with("p9"));
  fs::remove(SystemPath(trigger));
  send("p7");
  EXPECT_GT(SecondsOf([&] { send("p8"); }), 2.9) << "the one before was taken";
  EXPECT_THAT(Log(), HasSubstr("an earlier request is still there (/tmp/tager/req/" + name + ")"));
}

TEST(Request, WaitsForTheOneBeforeAndIsGivenUpWhenNobodyAnswers) {
  // Beside each other, as most of this is waiting.
  std::vector<std::jthread> waits;
  waits.emplace_back([] { ExpectTurns("killApp", [](const std::string& id) { g_data.killApp(id.c_str()); }); });
  waits.emplace_back([] { ExpectTurns("clearAppCache", [](const std::string& id) { g_data.clearAppCache(id, id); }); });
  waits.emplace_back([] {
    long data = -7, cache = -7;
    const double seconds = SecondsOf([&] { g_data.findDataCacheSize("p", "a", &data, &cache); });
    EXPECT_EQ(data + cache, -14);
    EXPECT_TRUE(seconds > 4.9 && seconds < 9) << seconds;
  });
  const double seconds = SecondsOf([] { EXPECT_EQ(g_data.performDeepClean(), -1); });
  EXPECT_TRUE(seconds > 9.9 && seconds < 18) << seconds;
  EXPECT_THAT(Log(), HasSubstr("Deep Clean Process unable to complete in 10 seconds.. so returning failure..."));
}

TEST(Request, IsLeftWholeOrNotAtAll) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{0, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  for (const RequestCase& request : Requests()) {
    if (!request.payload) continue;
    EXPECT_EQ(request.send(), request.refused);
    EXPECT_FALSE(Exists(kTager + request.name) || Exists(kTager + "req/" + request.name)) << request.name;
  }
}

// ---- launching and checks

TEST(Launching, TellsEachApplicationWhatItExpects) {
  const std::string from = "launchedFrom=com.tornelo.TVVexilo ";
  const struct {
    const char* id;
    std::string extras;
    bool exitsOnPause;
  } rows[] = {
      {"org.varno.picture-test", from, true},
      {"com.tornelo.video-test", from, true},
      {"org.varno.sound-test", from, true},
      {"org.varno.homedeck-reset", from, true},
      {"org.varno.homedeck-connection-test", from, true},
      {"org.varno.mled-installation-test", from, true},
      {"com.tornelo.tv.hdmi-troubleshooting", "type=VIDEO_TROUBLE_SHOOTING_SETUP ", false},
      {"com.tornelo.tv.broadcastingmenu",
       "ID=signal-information PrevSubmenu=com.tornelo.TVVexilo __K_RELOCATE_BELOW=org.varno.tv-viewer ", true},
      {"org.varno.menu", "launchby=others callerid=com.tornelo.TVVexilo type=networkstatus ", false},
      {"org.varno.wizard", "type=TERMS_SETUP ", false},
      {"org.example.other", "", false},
  };
  // Each is a program that writes its arguments to a file.
  WriteFile("/usr/bin/show", "#!/bin/sh\nprintf '%s ' \"$@\" >\"$0.new\"\nmv \"$0.new\" \"$0.out\"\n");
  fs::permissions(SystemPath("/usr/bin/show"), fs::perms(0755));
  const auto plant = [](const std::string& id) {
    WriteFile(set_paths::kDesktopEntries + ("/" + id + ".desktop"),
              "[Desktop Entry]\nType=Application\nName=A\nExec=/usr/bin/show " + id + "\n");
  };
  const auto arguments = [] {
    EXPECT_TRUE(Until([] { return Exists("/usr/bin/show.out"); }));
    const std::string text = ReadFile("/usr/bin/show.out");
    fs::remove(SystemPath("/usr/bin/show.out"));
    return text;
  };
  for (const auto& row : rows) {
    CUtils::Instance().m_SetExitOnPause(false);
    plant(row.id);
    EXPECT_TRUE(g_data.ProcessLaunchApp(row.id));
    EXPECT_EQ(arguments(), std::string(row.id) + " " + row.extras);
    EXPECT_EQ(CUtils::Instance().m_GetExitOnPause(), row.exitsOnPause) << row.id;
  }
  g_data.launch_menu_app();
  EXPECT_EQ(arguments(), "org.varno.menu menuitem=tdm ");
  plant("org.varno.ep-hotel-factory");
  g_data.launch_hotel_menu();
  EXPECT_EQ(arguments(), "org.varno.ep-hotel-factory ");
  fs::remove(SystemPath("/usr/share/applications/org.varno.sound-test.desktop"));
  EXPECT_FALSE(g_data.ProcessLaunchApp("org.varno.sound-test"));
  EXPECT_FALSE(CUtils::Instance().m_GetExitOnPause()) << "there is nothing to make room for";
}

TEST(Checks, ConsentAndRequestSupport) {
  EXPECT_EQ(g_data.m_CheckTermsCond(), 0);
  vconf_set_int(QUVA::kConsentKey, 1);
  EXPECT_EQ(g_data.m_CheckTermsCond(), 1);
  const std::string notice = "[home]\ndisclaimer_items=service_request\n";
  const std::string feature = "[feature]\nproduct.smart_monitor_feature_support=";
  for (const auto& [profile, enabled] : std::map<std::string, bool>{{notice, true},
                                                                    {notice + feature + "false\n", true},
                                                                    {notice + feature + "true\n", false},
                                                                    {feature + "false\n", false}}) {
    WriteFile(set_paths::kSetProfile, profile);
    EXPECT_EQ(g_data.check_request_support_enable(), enabled) << profile;
  }
}

}  // namespace
