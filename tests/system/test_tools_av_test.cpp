// The sound test on a sound server of the test's own, whose output is recorded and measured, and on ALSA; the video
// test with the clip that the build makes, whose frames are counted beside.

#include <gst/app/gstappsink.h>

#include <cmath>
#include <numbers>
#include <optional>
#include <regex>

#include "clip/clip.h"
#include "player_library.h"
#include "sound/playing.h"
#include "sound/sound_player.h"
#include "sound/trouble.h"
#include "support/set_with_screen.h"
#include "support/usage_events.h"
#include "ui/test_tool_fixture.h"
#include "video/gst_handle.h"
#include "video/video_player.h"

namespace {

using tools::SoundTrouble;
using tools::Tone;

/// The library that was built, from its place in the set.
template <class Player>
std::unique_ptr<Player> Load(const char* built, const char* path, const char* symbol, std::string& problem) {
  fs::create_symlink(built, SystemPath(path));
  return tools::LoadPlayer<Player>(path, symbol, problem);
}

// ---- measuring

struct Recording {
  std::vector<double> left, right;  // of full scale
};

Recording ReadRecording(const std::string& bytes) {
  Recording recording;
  const auto* const samples = reinterpret_cast<const int16_t*>(bytes.data());
  for (size_t i = 0; i + 1 < bytes.size() / sizeof(int16_t); i += 2) {
    recording.left.push_back(samples[i] / 32768.0);
    recording.right.push_back(samples[i + 1] / 32768.0);
  }
  return recording;
}

/// How strong this pitch is in a second of the sound from sample `begin` on (Goertzel).
double Strength(const std::vector<double>& samples, size_t begin, double hertz) {
  const double turn = 2 * std::cos(2 * std::numbers::pi * hertz / sound::kRate);
  double last = 0, before = 0;
  for (size_t i = begin; i < begin + sound::kRate; ++i) {
    const double next = samples[i] + turn * last - before;
    before = last, last = next;
  }
  return 2 * std::sqrt(last * last + before * before - turn * last * before) / sound::kRate;
}

/// The first sample that is loud; the end where none is.
size_t BeginOf(const std::vector<double>& samples) {
  return static_cast<size_t>(std::ranges::find_if(samples, [](double each) { return std::abs(each) > 0.05; }) -
                             samples.begin());
}

void ExpectTone(const Recording& recording, double left, double right) {
  const size_t begin = std::min(BeginOf(recording.left), BeginOf(recording.right)) + sound::kRate / 10;
  ASSERT_LT(begin + sound::kRate, recording.left.size()) << "a second of it";
  for (const double hertz : {tools::kLeftHertz, tools::kRightHertz}) {
    EXPECT_NEAR(Strength(recording.left, begin, hertz), hertz == left ? 0.25 : 0, 0.01) << hertz << " on the left";
    EXPECT_NEAR(Strength(recording.right, begin, hertz), hertz == right ? 0.25 : 0, 0.01) << hertz << " on the right";
  }
}

// ---- sound

class SoundServer : public ToolPages {
 protected:
  void Start(const std::string& sink = "speakers") {
    const std::string folder = SystemPath("/session");
    fs::create_directories(folder);
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME"}) setenv(name, folder.c_str(), 1);
    unsetenv("PULSE_SERVER");
    m_server.emplace(std::vector<std::string>{
        "pulseaudio", "-n", "--daemonize=no", "--use-pid-file=no", "--exit-idle-time=-1", "-L",
        "module-native-protocol-unix", "-L",
        "module-null-sink sink_name=" + sink + " rate=48000 sink_properties=device.description=Speakers"});
    ASSERT_TRUE(Until([&] { return fs::exists(folder + "/pulse/native"); })) << m_server->Errors();
    ASSERT_TRUE(Until([] { return RunProcess({"pactl", "info"}).exitCode == 0; })) << m_server->Errors();
  }
  static void Set(const char* what, const char* value) {
    EXPECT_EQ(RunProcess({"pactl", what, "@DEFAULT_SINK@", value}).exitCode, 0) << what;
  }
  static bool IsMuted() { return RunProcess({"pactl", "get-sink-mute", "@DEFAULT_SINK@"}).out == "Mute: yes\n"; }

  /// Records what the output plays until it is ended.
  class Recorder {
   public:
    Recorder() : m_file(SystemPath("/session/recorded")) {
      m_process.emplace(std::vector<std::string>{"parec", "-d", "@DEFAULT_MONITOR@", "--rate=48000", "--channels=2",
                                                 "--format=s16le", "--latency-msec=20"},
                        ProcessOptions{.output = m_file});
      EXPECT_TRUE(Until([this] { return fs::file_size(m_file) > 0; })) << m_process->Errors();
    }
    Recording End() {
      m_process.reset();
      return ReadRecording(ReadHostFile(m_file));
    }

   private:
    std::string m_file;
    std::optional<ChildProcess> m_process;
  };

  std::optional<ChildProcess> m_server;
};

TEST_F(SoundServer, ToolPlaysEachSideUnmutesAndEnds) {
  if (const std::string problem = LeaveTheMachine(); !problem.empty()) GTEST_SKIP() << problem;
  Start();
  InstallSet();
  const Screen screen;
  RunningApp tool(std::vector{SystemPath("/usr/bin/vexilo-test"), "sound"s});
  ASSERT_TRUE(tool.Says("sound test: the output is \"Speakers\""));
  tool.Settle();
  const struct {
    std::vector<std::string> keys;
    const char* logged;
    double left, right;
  } cases[] = {{{"Return"}, "left", tools::kLeftHertz, 0},
               {{"Down", "Return"}, "right", 0, tools::kRightHertz},
               {{"Down", "Return"}, "both", tools::kLeftHertz, tools::kRightHertz}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.logged);
    Recorder recorder;
    screen.Press(each.keys);
    ASSERT_TRUE(tool.Says("sound test: "s + each.logged + " was played on \"Speakers\""));
    ExpectTone(recorder.End(), each.left, each.right);
  }
  Set("set-sink-mute", "1");
  ASSERT_TRUE(tool.Says("the output is \"Speakers\", muted"));
  screen.Press({"Down", "Down", "Down", "Right", "Return"});
  EXPECT_TRUE(Until([] { return !IsMuted(); })) << tool.Log();
  m_server.reset();
  ASSERT_TRUE(tool.Says("there is no output"));
  screen.Press({"Return"});
  EXPECT_EQ(tool.End().exitCode, 0);
}

TEST_F(SoundServer, PlayerSaysWhatIsWrongAndHearsWhatItPlays) {
  Start();
  std::string problem;
  const auto player = Load<tools::SoundPlayer>(SOUND_PLAYER, set_paths::kSoundPlayer, tools::kMakeSoundPlayer, problem);
  ASSERT_TRUE(player) << problem;
  const struct {
    const char* mute;
    const char* volume;
    SoundTrouble trouble;
  } cases[] = {
      {"0", "65536", SoundTrouble::kNone}, {"1", "65536", SoundTrouble::kMuted}, {"0", "0", SoundTrouble::kVolumeZero}};
  for (const auto& each : cases) {
    Set("set-sink-mute", each.mute);
    Set("set-sink-volume", each.volume);
    EXPECT_EQ(player->Look().trouble, each.trouble) << each.mute << " " << each.volume;
    EXPECT_EQ(player->Look().title, "Speakers");
  }
  Set("set-sink-volume", "65536");
  for (const Tone tone : {Tone::kLeft, Tone::kSweep, Tone::kMelody}) {
    player->TakeLevels();
    EXPECT_TRUE(player->Play(tone, problem)) << problem;
    const tools::SoundLevels levels = player->TakeLevels();
    EXPECT_NEAR(levels.left, tone == Tone::kMelody ? 0.3 : 0.25, 0.1);
    EXPECT_NEAR(levels.right, tone == Tone::kLeft ? 0 : levels.left, 0.001);
  }
  std::thread stop([&] {
    std::this_thread::sleep_for(300ms);
    player->Stop();
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(player->Play(Tone::kSweep, problem));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s) << "it was to end early";
  stop.join();
  m_server.reset();
  EXPECT_FALSE(player->Unmute(problem));
  EXPECT_NE(problem, "");
}

TEST_F(SoundServer, AScreenIsMuteByTheDescriptionAtItsOwnPlug) {
  Start();
  WriteHostFile(SystemPath("/session/.asoundrc"),
                "ctl.!hw { @args [ CARD ] @args.CARD { type string } type played }\n"
                "ctl_type.played { lib \"" PLAYED_CARD "\" }\n");
  std::string problem;
  const auto player = Load<tools::SoundPlayer>(SOUND_PLAYER, set_paths::kSoundPlayer, tools::kMakeSoundPlayer, problem);
  ASSERT_TRUE(player) << problem;
  const struct {
    const char* properties;
    SoundTrouble trouble;
  } cases[] = {{"device.profile.name=hdmi-stereo alsa.card=0 alsa.device=3", SoundTrouble::kNone},
               {"device.profile.name=hdmi-stereo-extra1 alsa.card=0 alsa.device=7", SoundTrouble::kScreenWithoutSound},
               {"device.profile.name=hdmi-stereo-extra2 alsa.card=0 alsa.device=8", SoundTrouble::kScreenWithoutSound},
               {"device.profile.name=hdmi-stereo-extra3 alsa.card=0 alsa.device=9", SoundTrouble::kNone},
               {"device.profile.name=analog-stereo alsa.card=0 alsa.device=7", SoundTrouble::kNone}};
  for (const auto& each : cases) {
    static int count = 0;
    const std::string name = "plug" + std::to_string(++count);
    RunProcess({"pactl", "load-module", "module-null-sink", "sink_name=" + name,
                "sink_properties='" + std::string(each.properties) + "'"});
    RunProcess({"pactl", "set-default-sink", name});
    EXPECT_EQ(player->Look().trouble, each.trouble) << each.properties;
  }
}

TEST(SoundTroubles, AreToldInTheirOrder) {
  using enum sound::Plugged;
  const struct {
    const char* name;
    std::vector<sound::Plugged> ports;
    bool leadsToScreen;
    std::optional<bool> isHeard, isMuted;
    double volume;
    SoundTrouble trouble;
  } cases[] = {
      {"nothing at either jack", {kNo, kNo}, false, {}, true, 0, SoundTrouble::kUnplugged},
      {"nothing at a screen's plug", {kNo}, true, false, false, 50, SoundTrouble::kUnplugged},
      {"one that cannot tell", {kNo, kUnknown}, false, {}, false, 50, SoundTrouble::kNone},
      {"a mute screen", {kYes}, true, false, true, 0, SoundTrouble::kScreenWithoutSound},
      {"a screen that is not known", {kYes}, true, {}, true, 0, SoundTrouble::kMuted},
      {"headphones beside a mute screen", {kYes}, false, false, false, 0.2, SoundTrouble::kVolumeZero},
  };
  for (const auto& each : cases) {
    sound::Sink sink;
    for (const auto plugged : each.ports) sink.ports.push_back({"", "", plugged});
    sink.leadsToScreen = each.leadsToScreen;
    const tools::SoundOutputState state{SoundTrouble::kNone, "", "", each.volume, each.isMuted};
    EXPECT_EQ(tools::TroubleOf(state, &sink, [&](const sound::Sink&) { return each.isHeard; }), each.trouble)
        << each.name;
  }
}

TEST_F(SoundServer, MetersStandOnTheirSidesWithTheirNamesWhereOneReadsFromTheRight) {
  Start();
  fs::create_directories(fs::path(SystemPath(set_paths::kSoundPlayer)).parent_path());
  fs::create_symlink(SOUND_PLAYER, SystemPath(set_paths::kSoundPlayer));
  Language("ar_AE.utf8");
  OpenTool("sound");
  ASSERT_TRUE(Soon([this] { return ShowsSid("SID_DONE"); }));
  m_ui->Settle();
  // What is drawn of the name of a meter; those of the rows are of another kind.
  const auto nameOf = [this](const char* sid) {
    UiHarness::Geometry name{};
    for (const Shown& each : Texts()) {
      if (each.text != QUVA::CUtils::m_GetText(sid) || evas_object_type_get(each.object) != "textblock"s) continue;
      name = each.at;
      int x = 0;
      evas_object_textblock_line_number_geometry_get(each.object, 0, &x, nullptr, &name.width, nullptr);
      name.x += x;
    }
    return name;
  };
  std::map<int, UiHarness::Geometry> bars;  // by where they begin
  EachVisible([&](Evas_Object* each) {
    const auto at = UiHarness::GeometryOf(each);
    if (at.width > 200 && at.height == 8) bars[at.x] = at;  // two units
  });
  ASSERT_EQ(bars.size(), 2U);
  const auto left = bars.begin()->second, right = bars.rbegin()->second;
  const auto nameOfLeft = nameOf("TV_SID_VEXILO_SOUND_LEFT");
  EXPECT_LT(nameOfLeft.x - left.x - left.width, right.x - nameOfLeft.x - nameOfLeft.width);
  EXPECT_GT(nameOf("TV_SID_VEXILO_SOUND_RIGHT").x, right.x + right.width);
}

TEST_F(SoundServer, StandInForNoCardIsNoOutput) {
  Start("auto_null");
  std::string problem;
  const auto player = Load<tools::SoundPlayer>(SOUND_PLAYER, set_paths::kSoundPlayer, tools::kMakeSoundPlayer, problem);
  ASSERT_TRUE(player) << problem;
  EXPECT_EQ(player->Look().trouble, SoundTrouble::kNoOutput);
  EXPECT_FALSE(player->Play(Tone::kLeft, problem));
  EXPECT_NE(problem, "");
}

TEST(Alsa, IsPlayedOnWithoutAServer) {
  const std::string file = SystemPath("/played.raw");
  setenv("HOME", SystemPath("/").c_str(), 1);
  WriteHostFile(SystemPath("/.asoundrc"),
                "pcm.!default { type file file \"" + file + "\" format raw slave.pcm { type null } }\n");
  tools::ToneSource source(Tone::kBoth);
  size_t heard = 0;
  const std::atomic<bool> stop{false};
  std::string problem;
  const auto next = [&](int16_t* samples, size_t frames) { return source.Fill(samples, frames); };
  ASSERT_TRUE(sound::PlayOnAlsa({next, [&](const int16_t*, size_t frames) { heard += frames; }, &stop}, problem))
      << problem;
  const Recording played = ReadRecording(ReadHostFile(file));
  EXPECT_EQ(heard, 2u * sound::kRate);
  ExpectTone(played, tools::kLeftHertz, tools::kRightHertz);
}

// ---- video

/// Decodes the clip with a pipeline of the test's own. `text` ends in an appsink named "out".
void EachSample(const std::string& text, const std::function<void(const GstMapInfo& map, double second)>& take) {
  setenv("GST_REGISTRY", SystemPath("/plugins.bin").c_str(), 1);
  gst_init(nullptr, nullptr);
  const GstHandle<GstElement> pipeline(
      gst_parse_launch(("filesrc location=" TEST_CLIP " ! oggdemux ! " + text).c_str(), nullptr));
  const GstHandle<GstElement> out(gst_bin_get_by_name(GST_BIN(pipeline.get()), "out"));
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  while (const GstSampleHandle sample{gst_app_sink_pull_sample(GST_APP_SINK(out.get()))}) {
    GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_READ);
    take(map, static_cast<double>(GST_BUFFER_PTS(buffer)) / GST_SECOND);
    gst_buffer_unmap(buffer, &map);
  }
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

/// The frames that are in it, and when each flash begins.
int FramesOfClip(std::vector<double>* flashes = nullptr) {
  int frames = 0;
  bool wasFlash = false;
  EachSample("theoradec ! videoconvert ! video/x-raw,format=GRAY8 ! appsink name=out sync=false",
             [&](const GstMapInfo& map, double second) {
               ++frames;
               // Within the disc, on both sides: the runner is on one at most.
               const uint8_t* const line = map.data + static_cast<size_t>(clip::kWidth) * 520 + clip::kWidth / 2;
               const bool isFlash = line[-80] > 200 && line[80] > 200;
               if (isFlash && !std::exchange(wasFlash, isFlash) && flashes) flashes->push_back(second);
               wasFlash = isFlash;
             });
  return frames;
}

TEST(Clip, HasABeepWithEachFlash) {
  std::vector<double> flashes, beeps;
  EXPECT_EQ(FramesOfClip(&flashes), clip::kFrames);
  double loud = -1;
  EachSample("vorbisdec ! audioconvert ! audio/x-raw,format=S16LE,channels=1 ! appsink name=out sync=false",
             [&](const GstMapInfo& map, double second) {
               const auto* const samples = reinterpret_cast<const int16_t*>(map.data);
               for (size_t i = 0; i < map.size / sizeof *samples; ++i) {
                 const double at = second + static_cast<double>(i) / sound::kRate;
                 if (std::abs(samples[i]) < 3000) continue;
                 if (at - loud > 0.5) beeps.push_back(at);
                 loud = at;
               }
             });
  ASSERT_EQ(flashes.size(), 4u);
  ASSERT_EQ(beeps.size(), flashes.size());
  for (size_t i = 0; i < flashes.size(); ++i) EXPECT_NEAR(beeps[i], flashes[i], 0.01) << i;
}

TEST(VideoTest, CountsEachFrameOfTheClipAsShownOrDropped) {
  if (const std::string problem = LeaveTheMachine(); !problem.empty()) GTEST_SKIP() << problem;
  InstallSet();
  setenv("GST_REGISTRY", SystemPath("/plugins.bin").c_str(), 1);
  const Screen screen;
  RunningApp tool(std::vector{SystemPath("/usr/bin/vexilo-test"), "video"s});
  ASSERT_TRUE(tool.Says("video test: AV1"));
  tool.Settle();
  screen.Press({"Return"});
  ASSERT_TRUE(tool.Says("to the end"));
  const std::string log = tool.Log();
  std::smatch found;
  ASSERT_TRUE(std::regex_search(
      log, found, std::regex("video test: theoradec, software, ([0-9]+) frames shown, ([0-9]+) dropped, to the end")));
  const int shown = std::stoi(found[1]), dropped = std::stoi(found[2]);
  EXPECT_EQ(shown + dropped, FramesOfClip());
  EXPECT_GT(shown, clip::kFrames / 10);
  tool.Settle();
  screen.Press({"Return", "Return"});
  EXPECT_EQ(tool.End().exitCode, 0);
  EXPECT_THAT(ReadFile(set_paths::kEventLog), AllOf(HasSubstr("Video Test"), HasSubstr("Noticed")));
}

/// What is on the screen is the frame, though only what changed is painted.
TEST(VideoPlayer, PaintsEachFrameOverTheOneBefore) {
  setenv("GST_REGISTRY", SystemPath("/plugins.bin").c_str(), 1);
  std::string problem;
  const auto player = Load<tools::VideoPlayer>(VIDEO_PLAYER, set_paths::kVideoPlayer, tools::kMakeVideoPlayer, problem);
  ASSERT_TRUE(player) << problem;
  player->Play(TEST_CLIP, [] {});
  std::vector<uint32_t> pixels(size_t{clip::kWidth} * clip::kHeight);
  std::shared_ptr<const tools::VideoFrame> shown;
  size_t painted = 0, frames = 0;
  ASSERT_TRUE(Until([&] {
    while (auto frame = player->TakeFrame()) {
      for (const tools::VideoPart& part : frame->Paint(pixels.data(), shown.get()))
        painted += static_cast<size_t>(part.width * part.height);
      shown = std::move(frame);
      ++frames;
    }
    return shown && clip::IsFlash(shown->number);
  })) << player->State().error;
  player->Stop();
  EXPECT_LT(painted, frames * pixels.size() / 2) << "what stands still is not painted";
  int number = -1, different = 0;
  EachSample("theoradec ! videoconvert ! video/x-raw,format=BGRx ! appsink name=out sync=false",
             [&](const GstMapInfo& map, double) {
               if (++number != shown->number) return;
               const auto* const wanted = reinterpret_cast<const uint32_t*>(map.data);
               for (size_t i = 0; i < pixels.size(); ++i) different += (wanted[i] ^ pixels[i]) << 8 ? 1 : 0;
             });
  EXPECT_GT(number, shown->number);
  EXPECT_EQ(different, 0) << "of frame " << shown->number << ", the last of " << frames;
}

TEST_F(SoundServer, ThatDoesNotAnswerLeavesTheClipItsPictures) {
  Start();
  m_server->Signal(SIGSTOP);
  std::string problem;
  const auto player = Load<tools::VideoPlayer>(VIDEO_PLAYER, set_paths::kVideoPlayer, tools::kMakeVideoPlayer, problem);
  ASSERT_TRUE(player) << problem;
  const auto begin = std::chrono::steady_clock::now();
  player->Play(TEST_CLIP, [] {});
  EXPECT_TRUE(Until([&] { return player->TakeFrame() != nullptr; })) << player->State().error;
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s) << "a library would wait for half a minute";
  EXPECT_EQ(player->State().sound, "");
}

TEST(VideoPlayer, NamesWhatIsMissing) {
  const std::string none = SystemPath("/no-plugins");
  fs::create_directories(none);
  for (const char* name : {"GST_PLUGIN_SYSTEM_PATH_1_0", "GST_PLUGIN_PATH_1_0"}) setenv(name, none.c_str(), 1);
  setenv("GST_REGISTRY", SystemPath("/plugins.bin").c_str(), 1);
  std::string problem;
  const auto player = Load<tools::VideoPlayer>(VIDEO_PLAYER, set_paths::kVideoPlayer, tools::kMakeVideoPlayer, problem);
  ASSERT_TRUE(player) << problem;
  std::map<std::string, std::string> missing;
  for (const tools::VideoFormat& format : player->Formats()) {
    EXPECT_EQ(format.decoder.name, "");
    missing[format.name] = format.package;
  }
  EXPECT_EQ(missing, (std::map<std::string, std::string>{{"H.264", "gstreamer1.0-libav"},
                                                         {"H.265", "gstreamer1.0-libav"},
                                                         {"VP9", "gstreamer1.0-plugins-good"},
                                                         {"AV1", "gstreamer1.0-plugins-bad"}}));
  player->Play(TEST_CLIP, [] {});
  EXPECT_THAT(player->State().error, HasSubstr("filesrc"));
}

}  // namespace
