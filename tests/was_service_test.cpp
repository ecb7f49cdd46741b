// The web-application service: its list, and removals with their events.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"
#include "was_api.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

const fs::path kPackages = SystemPath(set_paths::kPackagesDir);

void PlantPackage(const std::string& id, const std::string& title, const std::string& more = "") {
  fs::create_directories(kPackages / id / "data");
  std::ofstream(kPackages / id / "manifest.json") << "{\"package_id\": \"" << id << "\", \"app_id\": \"" << id
                                                  << ".app\", \"title\": \"" << title << "\"" << more << "}";
  for (int i = 0; i < 10; ++i) std::ofstream(kPackages / id / "data" / std::to_string(i)) << std::string(8192, 'x');
}

/// What a request reports: "120 a.app", "121 a.app 0 100" (the first and the last of a row), "123 a.app -2".
class Events {
 public:
  static void On(const char* appId, was_notify_event_e event, int progress, int reserved, void* self) {
    static_cast<Events*>(self)->Add(appId, event, progress, reserved);
  }

  Texts WaitForEnd() {
    std::unique_lock lock(m_mutex);
    EXPECT_TRUE(m_ended.wait_for(lock, std::chrono::seconds(30), [this] { return m_complete; }));
    m_complete = false;
    return std::move(m_texts);
  }

  int progressEvents = 0;

 private:
  void Add(const std::string& appId, int event, int progress, int reserved) {
    const std::lock_guard guard(m_mutex);
    std::string text = std::to_string(event) + (appId.empty() ? "" : " " + appId);
    if (event == WAS_EVENT_UNINSTALL_FAILED) text += " " + std::to_string(reserved);
    if (event == WAS_EVENT_UNINSTALL_PROGRESS) {
      ++progressEvents;
      EXPECT_GT(progress, m_progress) << "rises";
      m_progress = progress;
      if (progress > 0 && progress < 100) return;
      text += " " + std::to_string(progress);
    } else {
      m_progress = -1;
    }
    m_texts.push_back(text);
    EXPECT_FALSE(m_complete) << "nothing comes after the end";
    m_complete = event == WAS_EVENT_MULTI_UNINSTALL_COMPLETE;
    m_ended.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_ended;
  bool m_complete = false;
  int m_progress = -1;
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
  EXPECT_EQ(was_get_app_count(&count), WAS_ERROR_NONE);
  EXPECT_EQ(count, 0);
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
  EXPECT_STREQ(list[0].package_id, "b");
  EXPECT_EQ(list[0].locked, 0);
  EXPECT_STREQ(list[2].service_id, "s");
  EXPECT_STREQ(list[2].app_id, "a.app");
  EXPECT_STREQ(list[2].icon_dir, "/opt/usr/apps/a/icons/");
  EXPECT_EQ(list[2].attribute1, 5);
  EXPECT_EQ(list[2].attribute2, 6);
  EXPECT_NE(list[2].locked, 0);
  was_free_app_list(list, count);
  EXPECT_EQ(was_get_app_list(static_cast<was_list_kind_e>(1), &list, &count), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_get_app_list(WAS_LIST_ALL, nullptr, &count), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_get_app_count(nullptr), WAS_ERROR_INVALID_PARAMETER);
}

TEST(WasUninstall, ReportsEachApplicationInOrderAndTheEndOnce) {
  PlantPackage("a", "A");
  PlantPackage("b", "B");
  PlantPackage("locked", "L", R"(, "locked": true)");
  PlantPackage("set", "S", R"(, "removable": false)");
  PlantPackage("other", "O");
  Events events;
  const char* ids[] = {"b.app", "none", "locked.app", "b.app", "../a", "set.app", "a.app"};
  ASSERT_EQ(was_multi_uninstall_webapp(ids, 7, Events::On, &events), WAS_ERROR_NONE);
  EXPECT_EQ(events.WaitForEnd(),
            (Texts{"142", "120 b.app", "121 b.app 0", "121 b.app 100", "122 b.app", "123 none -2", "123 locked.app -13",
                   "123 ../a -2", "123 set.app -13", "120 a.app", "121 a.app 0", "121 a.app 100", "122 a.app", "143"}));
  EXPECT_GT(events.progressEvents, 2 * 8) << "the progress is real";
  EXPECT_EQ(Titles(WAS_LIST_ALL), (Texts{"L", "O", "S"}));
  ASSERT_EQ(was_force_uninstall_webapp("other.app", Events::On, &events), WAS_ERROR_NONE);
  EXPECT_EQ(events.WaitForEnd(),
            (Texts{"120 other.app", "121 other.app 0", "121 other.app 100", "122 other.app", "143"}));

  const char* holes[] = {"locked.app", nullptr};
  const char* empty[] = {""};
  EXPECT_EQ(was_multi_uninstall_webapp(holes, 2, Events::On, &events), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_multi_uninstall_webapp(empty, 1, Events::On, &events), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_multi_uninstall_webapp(ids, 0, Events::On, &events), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_multi_uninstall_webapp(nullptr, 1, Events::On, &events), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_multi_uninstall_webapp(ids, 1, nullptr, &events), WAS_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(was_force_uninstall_webapp(nullptr, Events::On, &events), WAS_ERROR_INVALID_PARAMETER);
}

bool g_spoiled = false;

/// The package gains a file of somebody else when its removal has begun.
void SpoilRemoval(const char* appId, was_notify_event_e event, int progress, int reserved, void* events) {
  const fs::path hidden = kPackages / ".removing-half";
  if (event == WAS_EVENT_UNINSTALL_PROGRESS && fs::exists(hidden) && !fs::exists(hidden / "foreign")) {
    fs::create_directory(hidden / "foreign");
    std::ofstream(hidden / "foreign/file");
    g_spoiled = chown((hidden / "foreign").c_str(), 4711, -1) == 0;
  }
  Events::On(appId, event, progress, reserved, events);
}

TEST(WasUninstall, GoesOnAfterAFailureHalfWay) {
  PlantPackage("half", "H");
  PlantPackage("next", "N");
  Events events;
  const char* ids[] = {"half.app", "next.app"};
  ASSERT_EQ(was_multi_uninstall_webapp(ids, 2, SpoilRemoval, &events), WAS_ERROR_NONE);
  const Texts texts = events.WaitForEnd();
  if (!g_spoiled) GTEST_SKIP() << "giving files away takes root";
  EXPECT_EQ(texts, (Texts{"142", "120 half.app", "121 half.app 0", "123 half.app -13", "120 next.app", "121 next.app 0",
                          "121 next.app 100", "122 next.app", "143"}));
  EXPECT_EQ(Titles(WAS_LIST_ALL), Texts{});
  EXPECT_TRUE(fs::exists(kPackages / ".removing-half/foreign/file"));
  EXPECT_FALSE(fs::exists(kPackages / ".removing-half/data/1"));
}

TEST(WasUninstall, HasTheTaskManagerEndTheProgramsFirst) {
  const fs::path tager = SystemPath(set_paths::kTager), trigger = SystemPath(set_paths::kTagerRequests) + "/killApp";
  const fs::path lockFile = SystemPath(set_paths::kHostRun) + "/setd.lock", outside = SystemPath("/home/owner/outside");
  fs::create_directories(trigger.parent_path());
  fs::create_directories(lockFile.parent_path());
  fs::create_directories(SystemPath("/home/owner/req"));
  const FdHandle lock(open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  std::ofstream(outside) << "content";
  const struct {
    const char* what;
    bool runs;
    fs::path link;
    std::string seen;
  } kCases[] = {{"no task manager", false, {}, "content"},
                {"served", true, {}, "p\n, there"},
                {"payload is a link", true, tager / "killApp", "content"},
                {"folder is a link", true, tager, "content"}};
  for (const auto& [what, runs, link, seen] : kCases) {
    PlantPackage("p", "P");
    ASSERT_EQ(flock(lock.get(), runs ? LOCK_EX : LOCK_UN), 0);
    if (!link.empty()) {
      fs::remove_all(link);
      fs::create_symlink(link == tager ? SystemPath("/home/owner") : outside.string(), link);
    }
    std::atomic<bool> done{false};
    std::string got = "content";
    std::thread daemon([&] {
      for (; !done; std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        if (!fs::exists(trigger)) continue;
        std::getline(std::ifstream(tager / "killApp"), got, '\0');
        got += fs::exists(kPackages / "p/data/1") ? ", there" : ", gone";
        fs::remove(trigger);
      }
    });
    Events events;
    EXPECT_EQ(was_force_uninstall_webapp("p.app", Events::On, &events), WAS_ERROR_NONE);
    EXPECT_EQ(events.WaitForEnd().back(), "143") << what;
    done = true;
    daemon.join();
    EXPECT_EQ(got, seen) << what;
    EXPECT_FALSE(fs::exists(kPackages / "p")) << what;
    std::ifstream(outside) >> got;
    EXPECT_EQ(got, "content") << what;
  }
  EXPECT_FALSE(fs::exists(SystemPath("/home/owner/killApp")));
}

TEST(WasUninstall, FailsWhereNoThreadCanBeStarted) {
  PlantPackage("a", "A");
  Events events;
  rlimit usual;
  ASSERT_EQ(getrlimit(RLIMIT_NPROC, &usual), 0);
  const rlimit none = {0, usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
  ASSERT_EQ(geteuid() == 0 ? setresuid(4711, 4711, 4711) : 0, 0);
  EXPECT_EQ(was_force_uninstall_webapp("a.app", Events::On, &events), WAS_ERROR_FAILED);
  EXPECT_TRUE(fs::exists(kPackages / "a/data/1"));
  setrlimit(RLIMIT_NPROC, &usual);  // the leak check at the end starts a thread
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
  std::stringstream log;
  log << std::ifstream(SystemPath(set_paths::kLogFile)).rdbuf();
  EXPECT_EQ(log.str(), "") << "that a package goes while it is read is no error";
  EXPECT_EQ(Titles(WAS_LIST_ALL), Texts{});
}

}  // namespace
