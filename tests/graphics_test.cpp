// Who draws, by the graphics libraries of this machine: their part that draws by the processor, which can be made to
// say that it is a card's.

#include <sys/mount.h>

#include "support/captured_machine.h"
#include "support/files.h"
#include "trevlin/collectors/collectors.h"

namespace {

class Graphics : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      GTEST_SKIP() << "not root: no /sys of the test's own";
    for (const char* folder : {"/sys", "/dev/dri"}) {
      std::error_code error;
      fs::create_directory(folder, error);
      if (mount("none", folder, "tmpfs", 0, nullptr) != 0) GTEST_SKIP() << "no " << folder << " of the test's own";
    }
    fs::create_directories(fs::path(SystemPath(set_paths::kGraphicsHelper)).parent_path());
    fs::create_symlink(HELPER, SystemPath(set_paths::kGraphicsHelper));
    WriteHostFile("/dev/dri/renderD128", "");
    Drive("i915");
    PlugIn("connected");
  }

  static void Drive(const std::string& driver) {
    WriteHostFile("/sys/class/drm/renderD128/device/uevent", "DRIVER=" + driver + "\n");
  }
  static void PlugIn(const std::string& state) { WriteHostFile("/sys/class/drm/card0-HDMI-A-1/status", state + "\n"); }
  std::string IsSoftware() {
    trevlin::Facts facts;
    m_collector->Collect({}, facts);
    const auto found = facts.find("display.renderer_is_software");
    return found == facts.end() ? "none" : Told(found->second);
  }

  std::unique_ptr<trevlin::Collector> m_collector = trevlin::MakeDisplayCollector();
};

TEST_F(Graphics, AreAskedOnceAndAgainWhenDriversWereInstalled) {
  EXPECT_EQ(IsSoftware(), "yes");
  setenv("force_gl_renderer", "Zephon G2", 1);
  EXPECT_EQ(IsSoftware(), "yes");
  m_collector = trevlin::MakeDisplayCollector();
  EXPECT_EQ(IsSoftware(), "yes") << "another process has asked";
  ASSERT_EQ(mount("none", "/usr/local/lib", "tmpfs", 0, nullptr), 0);
  EXPECT_EQ(IsSoftware(), "no");
}

TEST_F(Graphics, AreUnknownToWhoMayNotUseThemAndNotAskedInVain) {
  fs::remove("/dev/dri/renderD128");
  fs::create_directory("/dev/dri/renderD128");
  EXPECT_EQ(IsSoftware(), "?");
  Drive("a driver with libraries of its own");
  EXPECT_EQ(IsSoftware(), "none");
  Drive("v3d");
  PlugIn("disconnected");
  EXPECT_EQ(IsSoftware(), "none");
}

}  // namespace
