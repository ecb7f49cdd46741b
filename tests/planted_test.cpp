// What another user of the machine can put in the way: no reader waits at it, no writer writes through it, and nobody
// is steered by it.

#include <sys/socket.h>
#include <sys/un.h>

#include "QGuideResult.h"
#include "QUVA_DBManager.h"
#include "QUVA_MenuItemParser.h"
#include "ReportTrigger.h"
#include "SolutionMap.h"
#include "TaskManagerRequests.h"
#include "app_framework.h"
#include "c_handle.h"
#include "kpi_logger.h"
#include "packages/package_store.h"
#include "set_paths.h"
#include "setd/request.h"
#include "settings/settings_store.h"
#include "support/files.h"
#include "support/fork.h"
#include "sysinfo/set_profile.h"
#include "trevlin/rule_histories.h"

namespace {

constexpr uid_t kStranger = 4711;
const std::string kPrecious = "/opt/precious";

bool CanMakeStrangers() {
  return geteuid() == 0;
}

/// Puts something in the way of a name, whatever was there.
struct Thing {
  const char* what;
  std::function<void(const std::string& path)> plant;
};

const Thing kThings[] = {
    {"link", [](const std::string& path) { fs::create_symlink(SystemPath(kPrecious), path); }},
    {"link to nothing", [](const std::string& path) { fs::create_symlink(SystemPath("/opt/none"), path); }},
    {"pipe", [](const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0666), 0); }},
    {"socket",
     [](const std::string& path) {
       sockaddr_un address{AF_UNIX, {}};
       // The whole path can be too long for it.
       const fs::path before = fs::current_path();
       fs::current_path(fs::path(path).parent_path());
       std::strncpy(address.sun_path, fs::path(path).filename().c_str(), sizeof address.sun_path - 1);
       const FdHandle listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
       ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
       fs::current_path(before);
     }},
    {"folder", [](const std::string& path) { fs::create_directory(path); }},
    {"stranger's file",
     [](const std::string& path) {
       WriteHostFile(path, "CleanUp\n");
       EXPECT_TRUE(!CanMakeStrangers() || chown(path.c_str(), kStranger, kStranger) == 0);
     }},
};

/// Who uses a name, and whether he took what lies there for his own.
struct User {
  const char* who;
  std::string path;  ///< of the set
  std::function<bool()> use;
};

std::vector<User> UsersOfExchange() {
  using namespace setd;
  const auto isRead = [](const char* trigger) {
    Request request;
    std::string problem;
    return ReadRequest(trigger, true, request, problem) == ReadState::kReady;
  };
  return {
      {"daemon's boost", "/tmp/tager/req/memBoost", [] { return LeaveRequest(Kind::kMemoryBoost); }},
      {"daemon's clean", "/tmp/tager/req/CleanAll.txt", [] { return LeaveRequest(Kind::kDeepClean); }},
      {"read boost", "/tmp/tager/req/memBoost", [=] { return isRead("memBoost"); }},
      {"read clean", "/tmp/tager/req/CleanAll.txt", [=] { return isRead("CleanAll.txt"); }},
      {"boost", "/tmp/tager/req/memBoost", [] { return QUVA::PerformMemBoost() == 0; }},
      {"clear", "/tmp/tager/clearAppCache", [] { return QUVA::ClearAppCache("p", "a") == 0; }},
      {"engine's size", "/tmp/tager/cobalt_size", [] { return QUVA::getAppSizeForYoutube() != 0; }},
      {"trigger", "/tmp/kov_NDF/SOUND-A.log",
       [] { return QUVA::LeaveReportTrigger(set_paths::kReportTriggers, "SOUND-A.log").problem.empty(); }},
      {"what became of it", "/run/vexilo-host/report_results/SOUND-B.log",
       [] {
         const QUVA::ReportRequest request = QUVA::LeaveReportTrigger(set_paths::kReportTriggers, "SOUND-B.log");
         return !request.before.empty();
       }},
      {"result", set_paths::kQGuideResult,
       [] { return static_cast<bool>(QUVA::OpenQGuideResult(set_paths::kQGuideResult)); }},
  };
}

/// What is the owner's alone: there nobody plants anything, but a set may be damaged, and nobody waits for that either.
std::vector<User> UsersOfTheSet() {
  return {
      {"menu items", set_paths::kMenuItems,
       [] {
         QUVA::MenuItemParser::GetInstance()->ParseJson(set_paths::kMenuItems);
         return false;
       }},
      {"solution map", set_paths::kSolutionMap,
       [] {
         QUVA::QUVA_SolutionMap map;
         std::string problem;
         return QUVA::ReadSolutionMap(map, problem);
       }},
      {"desktop entry", "/usr/share/applications/org.a.desktop",
       [] {
         app_control_h request = nullptr;
         app_control_create(&request);
         app_control_set_app_id(request, "org.a");
         const int result = app_control_send_launch_request(request, nullptr, nullptr);
         app_control_destroy(request);
         return result == APP_CONTROL_ERROR_NONE;
       }},
      {"profile", set_paths::kSetProfile,
       [] {
         std::string text;
         return set_profile::Text("set", "model", text) == set_profile::Answer::kValue;
       }},
      {"setting", "/var/lib/vexilo-host/settings/db%2Fa",
       [] {
         settings::Value value;
         std::string error;
         return settings::Read("db/a", value, error) == settings::ReadResult::kOk;
       }},
      {"event", set_paths::kEventLog,
       [] { return KPILogFramework::CLogger::GetInstance()->AddEventLogSync("a", "b", "c", "d") == 1; }},
      {"histories' lock", set_paths::kRuleHistoriesLock,
       [] {
         trevlin::ChangeHistories([](trevlin::Histories&) {}, std::chrono::steady_clock::now());
         return false;
       }},
      {"database", set_paths::kRemainingDb,
       [] {
         auto* manager = QUVA::TCDBManager::GetInstance();
         manager->OpenDB(QUVA::DB_REMAINING);
         return manager->CloseDB() == 1 && manager->IsChanging();
       }},
  };
}

void ExpectUntouched(const User& user, const Thing& thing, bool trustsStrangers) {
  SCOPED_TRACE(user.who + std::string(": ") + thing.what);
  const std::string path = SystemPath(user.path);
  WriteFile(kPrecious, "CleanUp\n");
  fs::create_directories(fs::path(path).parent_path());
  fs::remove_all(path);
  thing.plant(path);
  const bool isStrangers = thing.what == "stranger's file"sv;
  const bool isTold = user.path.starts_with(set_paths::kHostRun);  // nobody else can put anything there
  const bool mayTake = isStrangers && (trustsStrangers || isTold || !CanMakeStrangers());
  // In a process of its own, as it may hang.
  const pid_t child = Fork([&] {
    alarm(10);
    _exit(user.use() && !mayTake ? 1 : 0);
  });
  ExpectEndsWell(child);
  EXPECT_EQ(ReadFile(kPrecious), "CleanUp\n");
  EXPECT_FALSE(Exists("/opt/none"));
  fs::remove_all(path);
}

TEST(Planted, NothingInAnExchangeFolderIsWaitedForFollowedOrBelieved) {
  for (const User& user : UsersOfExchange())
    for (const Thing& thing : kThings) ExpectUntouched(user, thing, false);
}

TEST(Planted, NothingInTheSetIsWaitedFor) {
  for (const User& user : UsersOfTheSet())
    for (const Thing& thing : kThings)
      if (thing.what != "link"sv || user.path != set_paths::kSolutionMap) ExpectUntouched(user, thing, true);
}

TEST(Planted, AFolderThatIsNotTheSetsIsNotUsed) {
  struct Folder {
    const char* what;
    bool isTrusted;
    std::function<void(const std::string& path)> make;
  };
  const auto make = [](mode_t mode, uid_t owner) {
    return [=](const std::string& path) {
      fs::create_directory(path);
      ASSERT_EQ(chown(path.c_str(), owner, static_cast<gid_t>(-1)), 0);
      ASSERT_EQ(chmod(path.c_str(), mode), 0);
    };
  };
  std::vector<Folder> folders = {
      {"link", false,
       [](const std::string& path) { fs::create_directory_symlink(SystemPath("/opt/elsewhere"), path); }},
      {"everybody's", false, make(0777, geteuid())},
      {"the group's", false, make(0775, geteuid())},
      {"sticky", true, make(01777, geteuid())},
      {"own", true, make(0755, geteuid())},
  };
  if (CanMakeStrangers()) folders.push_back({"stranger's", false, make(0755, kStranger)});
  for (const User& user : UsersOfExchange()) {
    if (user.who == "read boost"sv || user.who == "read clean"sv || user.who == "engine's size"sv ||
        user.who == "what became of it"sv)
      continue;
    const fs::path folder = fs::path(SystemPath(user.path)).parent_path();
    for (const Folder& each : folders) {
      SCOPED_TRACE(user.who + std::string(": ") + each.what);
      fs::remove_all(folder);
      fs::create_directories(SystemPath("/opt/elsewhere"));
      each.make(folder);
      if (folder == SystemPath(set_paths::kTager) && !fs::is_symlink(folder))
        fs::create_directory(SystemPath(set_paths::kTagerRequests));
      EXPECT_EQ(user.use(), each.isTrusted);
      EXPECT_EQ(Exists(user.path), each.isTrusted);
      EXPECT_TRUE(fs::is_empty(SystemPath("/opt/elsewhere")));
      fs::remove_all(folder);
      fs::create_directories(folder);
    }
  }
}

TEST(Planted, ALockOnAPackagesFolderStopsNoRemoval) {
  PlantPackage("org.a", "A");
  const FdHandle held(open(SystemPath("/opt/usr/apps/org.a").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(held.get(), LOCK_SH), 0);
  const auto package = packages::FindByPackageId("org.a");
  ASSERT_TRUE(package);
  EXPECT_EQ(packages::Remove(*package, {}), 0);
  EXPECT_FALSE(Exists("/opt/usr/apps/org.a"));
}

}  // namespace
