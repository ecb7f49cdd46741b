// The resolution of a screen, on a real X server without one.

#include "screen_mode.h"

#include "support/files.h"
#include "support/process.h"

namespace {

class ScreenMode : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(fs::path(SystemPath(set_paths::kScreenHelper)).parent_path());
    fs::create_symlink(HELPER, SystemPath(set_paths::kScreenHelper));
    unsetenv("WAYLAND_DISPLAY");
    setenv("DISPLAY", (":" + m_server.ReadLine(30s).value_or("")).c_str(), 1);
  }

  static void Change(const std::vector<std::string>& how) {
    std::vector<std::string> argv = {"xrandr"};
    argv.insert(argv.end(), how.begin(), how.end());
    const ProcessResult result = RunProcess(argv);
    ASSERT_EQ(result.exitCode, 0) << result.err;
  }
  static std::string Shown() { return RunProcess({"xrandr", "--current"}).out; }

  ChildProcess m_server{{"Xvfb", "-displayfd", "1", "-screen", "0", "1920x1080x24", "-nolisten", "tcp", "-noreset"}};
  std::string m_problem;
};

TEST_F(ScreenMode, IsTheBestOnceAskedFor) {
  EXPECT_FALSE(ShowBestResolution(m_problem));
  EXPECT_THAT(m_problem, HasSubstr("cannot change the screen's resolution: each screen shows its best"));
  Change({"--newmode", "coarse", "0", "1280", "0", "0", "1280", "720", "0", "0", "720"});
  Change({"--addmode", "screen", "coarse"});
  Change({"--output", "screen", "--mode", "coarse"});
  ASSERT_THAT(Shown(), HasSubstr("screen connected 1280x720+0+0"));
  EXPECT_TRUE(ShowBestResolution(m_problem)) << m_problem;
  EXPECT_THAT(Shown(), AllOf(HasSubstr("current 1920 x 1080"), HasSubstr("screen connected 1920x1080+0+0")));

  setenv("WAYLAND_DISPLAY", "wayland-0", 1);
  EXPECT_FALSE(ShowBestResolution(m_problem));
  EXPECT_THAT(m_problem, HasSubstr("on Wayland the desktop alone"));
  unsetenv("WAYLAND_DISPLAY");
  setenv("DISPLAY", ":4711", 1);
  EXPECT_FALSE(ShowBestResolution(m_problem));
  EXPECT_THAT(m_problem, HasSubstr("there is no X server"));
}

}  // namespace
