// Removing applications: a worker, the service's own thread and a running main loop.

#include "CDeleteApps.h"

#include <Ecore.h>

#include "support/files.h"

namespace {

using QUVA::CDeleteApps;

/// Whether the service's last event comes: only then is its thread through with the main loop.
bool AwaitEnd() {
  return Until([] { return Log().find("Multi-Uninstall complete...") != std::string::npos; });
}

bool IsInstalled(const std::string& id) {
  return Exists(set_paths::kPackagesDir + ("/" + id));
}

/// A record of the list, with its package.
QUVA::app_list_struct Plant(const std::string& id, bool selected = true, bool locked = false) {
  const std::string folder = set_paths::kPackagesDir + ("/" + id);
  WriteFile(folder + "/data/file", std::string(9000, 'x'));
  WriteFile(folder + "/manifest.json", R"({"package_id": ")" + id + R"(", "app_id": ")" + id + R"(", "title": "T")" +
                                           (locked ? R"(, "locked": true})" : "}"));
  QUVA::app_list_struct record;
  record.app_name = "Title of " + id;
  record.app_id = id;
  record.selected = selected;
  record.locked = locked;
  return record;
}

class DeleteApps : public testing::Test {
 protected:
  DeleteApps() {
    setenv("ECORE_NO_SYSTEM_MODULES", "1", 1);
    ecore_init();
  }
  ~DeleteApps() override { ecore_shutdown(); }

  /// Runs `work` on a thread of its own beside the main loop.
  template <typename Work>
  static auto BesideMainLoop(Work work) {
    auto result = std::async(std::launch::async, work);
    while (result.wait_for(1ms) != std::future_status::ready) ecore_main_loop_iterate();
    return result.get();
  }

  CDeleteApps& m_apps = *CDeleteApps::Instance();
};

TEST_F(DeleteApps, RemovesTheSelectedAndCountsFailuresToo) {
  auto gone = Plant("gone");
  m_apps.m_SetApps({Plant("a"), Plant("stays", false), Plant("b"), gone, gone, Plant("locked", true, true)});
  fs::remove_all(SystemPath(set_paths::kPackagesDir + std::string("/gone")));
  EXPECT_TRUE(BesideMainLoop([&] { return m_apps.m_UninstallAppThreadFn(); }));
  EXPECT_EQ(IsInstalled("a") + IsInstalled("b"), 0);
  EXPECT_EQ(IsInstalled("stays") + IsInstalled("locked"), 2);
  const QUVA::UninstallState state = m_apps.m_GetState();
  EXPECT_EQ(state.finished, 4);
  EXPECT_EQ(state.appName, "Title of b");
  EXPECT_EQ(state.progress, 100);
  EXPECT_EQ(state.ended, (std::map<std::string, int>{{"a", 0}, {"b", 0}, {"gone", -2}, {"locked", -13}}));
}

TEST_F(DeleteApps, DoesNotTakeTheEndOfAnotherRemovalForItsOwn) {
  Plant("single");
  m_apps.m_SetApps({Plant("a"), Plant("b"), Plant("c")});
  EXPECT_TRUE(BesideMainLoop([&] {
    m_apps.m_UninstallApp("single");
    return m_apps.m_UninstallAppThreadFn() && m_apps.m_GetState().finished == 4;
  }));
}

TEST_F(DeleteApps, DoesNotWaitForARefusedRequest) {
  m_apps.m_SetApps({Plant("a", false)});
  EXPECT_FALSE(m_apps.m_UninstallAppThreadFn()) << "none is selected";
  m_apps.m_UninstallApp("");
  EXPECT_THAT(Log(), HasSubstr("uninstall app failed\n"));
  m_apps.m_SetApps({Plant("a")});
  m_apps.m_SetPatience(20s);
  EXPECT_TRUE(BesideMainLoop([&] { return m_apps.m_UninstallAppThreadFn(); })) << "waits for its own only";
  EXPECT_FALSE(IsInstalled("a"));
}

std::promise<void> g_release;

TEST_F(DeleteApps, GivesUpAServiceThatGivesNoSignOfLife) {
  Plant("first");
  m_apps.m_SetApps({Plant("a")});
  m_apps.m_SetPatience(200ms);
  // Busy with another request until it is released.
  const auto hold = [](const char*, was_notify_event_e event, int, int, void*) {
    if (event == WAS_EVENT_MULTI_UNINSTALL_COMPLETE) g_release.get_future().wait();
  };
  ASSERT_EQ(was_force_uninstall_webapp("first", hold, nullptr), 0);
  EXPECT_FALSE(BesideMainLoop([&] { return m_apps.m_UninstallAppThreadFn(); }));
  EXPECT_THAT(Log(), HasSubstr("the removal gives no sign of life: not waited for any longer"));
  EXPECT_TRUE(IsInstalled("a"));
  // Its events come late, and do no harm.
  EXPECT_TRUE(BesideMainLoop([&] {
    g_release.set_value();
    return AwaitEnd() && m_apps.m_GetState().finished == 1;
  }));
}

}  // namespace
