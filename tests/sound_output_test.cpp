// Where the session's sound goes: what is decided of a server's outputs, and the whole way on a real sound server whose
// outputs lead to nothing at all.

#include "sound_output.h"

#include <sys/mount.h>

#include "sound/screen_output.h"
#include "support/captured_machine.h"
#include "support/files.h"
#include "support/process.h"
#include "trevlin/collectors/collectors.h"

namespace {

using enum sound::Plugged;

sound::Sink SinkWith(const char* name, std::vector<sound::Plugged> ports, bool leadsToScreen = false) {
  sound::Sink sink;
  sink.name = name;
  sink.leadsToScreen = leadsToScreen;
  for (const auto plugged : ports) sink.ports.push_back({"port", "", plugged, leadsToScreen});
  return sink;
}

TEST(WayToScreen, IsThereOnlyWhereSoundGoesNowhereAndAScreenIsPluggedIn) {
  const auto idle = [](sound::Plugged plugged) {
    return std::vector<sound::IdlePort>{{0, "card", "output:hdmi", {"hdmi-output-0", "", plugged, true}}};
  };
  const sound::Sink screen = SinkWith("hdmi", {kYes}, true);
  const struct {
    const char* name;
    sound::Outputs outputs;
    const char* way;
  } cases[] = {
      {"nothing at the jack", {"jack", {SinkWith("jack", {kNo, kNo}), screen}, {}}, "hdmi"},
      {"the server's stand-in", {"auto_null", {SinkWith("auto_null", {}), screen}, {}}, "hdmi"},
      {"no default", {"", {screen}, {}}, "hdmi"},
      {"another profile", {"jack", {SinkWith("jack", {kNo})}, idle(kYes)}, "card output:hdmi"},
      {"that is not plugged in", {"jack", {SinkWith("jack", {kNo})}, idle(kNo)}, nullptr},
      {"that cannot tell", {"jack", {SinkWith("jack", {kNo})}, idle(kUnknown)}, nullptr},
      {"headphones", {"jack", {SinkWith("jack", {kNo, kYes}), screen}, {}}, nullptr},
      {"speakers that cannot tell", {"jack", {SinkWith("jack", {kNo, kUnknown}), screen}, idle(kYes)}, nullptr},
      {"a device at USB, without ports", {"usb", {SinkWith("usb", {}), screen}, {}}, nullptr},
      {"the screen itself", {"hdmi", {SinkWith("jack", {kNo}), screen}, {}}, nullptr},
      {"no screen", {"jack", {SinkWith("jack", {kNo}), SinkWith("hdmi", {kNo}, true)}, {}}, nullptr},
      {"no output at all", {}, nullptr},
  };
  for (const auto& each : cases) {
    const auto way = sound::FindWayToScreen(each.outputs);
    EXPECT_EQ(way.has_value(), each.way != nullptr) << each.name;
    if (way && each.way) {
      EXPECT_EQ(way->profile.empty() ? way->sink : way->card + " " + way->profile, each.way) << each.name;
    }
  }
}

// The card has a screen at it (its ELD came), the server plays into its stand-in.
class SoundServer : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      GTEST_SKIP() << "not root: no /proc of the test's own";
    const std::string folder = SystemPath("/session");
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME"}) setenv(name, folder.c_str(), 1);
    unsetenv("PULSE_SERVER");
    fs::create_directories(folder);
    fs::create_directories(fs::path(SystemPath(set_paths::kSoundHelper)).parent_path());
    fs::create_symlink(HELPER, SystemPath(set_paths::kSoundHelper));
    const std::string screen = std::string("sink_properties=") + kProfile + "=hdmi-stereo";
    m_server.emplace(std::vector<std::string>{"pulseaudio", "-n", "--daemonize=no", "--use-pid-file=no",
                                              "--exit-idle-time=-1", "-L", "module-native-protocol-unix", "-L",
                                              "module-null-sink sink_name=auto_null", "-L",
                                              "module-null-sink sink_name=screen " + screen});
    ASSERT_TRUE(Until([&] { return fs::exists(folder + "/pulse/native"); })) << m_server->Errors();
    ASSERT_TRUE(Until([] { return AskSoundOutput().isElsewhere.has_value(); })) << m_server->Errors();
  }

  /// What the collector tells where the kernel has such a card.
  static std::string Elsewhere() {
    EXPECT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
    // A sanitizer looks at its own process.
    fs::create_directory("/proc/real");
    EXPECT_EQ(mount("proc", "/proc/real", "proc", 0, nullptr), 0);
    fs::create_directory_symlink("real/self", "/proc/self");
    WriteHostFile("/proc/asound/card0/eld#2.0", "monitor_present\t\t1\neld_valid\t\t1\n");
    trevlin::Facts facts;
    trevlin::MakeSoundCollector()->Collect({}, facts);
    EXPECT_EQ(umount2("/proc", MNT_DETACH), 0);
    const auto found = facts.find("sound.elsewhere");
    return found == facts.end() ? "none" : Told(found->second);
  }

  static constexpr char kProfile[] = "device.profile.name";
  std::optional<ChildProcess> m_server;
  FixProblem m_problem;
};

TEST_F(SoundServer, IsLedToTheScreenWithWhatPlays) {
  ChildProcess player({"pacat", "--playback", "--raw", "/dev/zero"});
  const auto played = [](const char* sink) {
    const auto list = [](const char* what) { return RunProcess({"pactl", "list", "short", what}).out; };
    const std::string sinks = list("sinks"), streams = list("sink-inputs");
    std::istringstream lines(sinks);
    for (std::string index, name, rest; lines >> index >> name && std::getline(lines, rest);)
      if (name == sink) return streams.find("\t" + index + "\t") != streams.npos;
    return false;
  };
  ASSERT_TRUE(Until([&] { return played("auto_null"); })) << player.Errors();
  EXPECT_EQ(Elsewhere(), "yes");
  EXPECT_TRUE(LeadSoundToScreen(m_problem)) << m_problem.reason;
  EXPECT_TRUE(played("screen"));
  EXPECT_EQ(Elsewhere(), "no");
  EXPECT_TRUE(LeadSoundToScreen(m_problem)) << "it is there";

  sound::Server server(1s);
  EXPECT_TRUE(server.SetMuted("screen", true)) << server.Problem();
  const auto outputs = server.List();
  ASSERT_TRUE(outputs) << server.Problem();
  ASSERT_EQ(outputs->sinks.size(), 2U);
  EXPECT_EQ(outputs->defaultSink, "screen");
  EXPECT_TRUE(outputs->sinks[1].isMuted && !outputs->sinks[0].isMuted);
  EXPECT_EQ(outputs->sinks[1].monitor, "screen.monitor");
  EXPECT_EQ(outputs->sinks[1].volumePercent, 100);
  EXPECT_FALSE(server.SetDefault("nobody"));
  EXPECT_EQ(server.Problem(), "No such entity");
}

TEST_F(SoundServer, IsUnknownWhileItHangsAndAbsentWithoutOne) {
  m_server->Signal(SIGSTOP);
  EXPECT_EQ(Elsewhere(), "?");
  EXPECT_FALSE(LeadSoundToScreen(m_problem));
  EXPECT_THAT(m_problem.reason, HasSubstr("cannot lead the sound to the screen: the sound server: no answer in time"));
  m_server.reset();
  setenv("XDG_RUNTIME_DIR", SystemPath("/nobody").c_str(), 1);
  EXPECT_EQ(Elsewhere(), "none");
}

}  // namespace
