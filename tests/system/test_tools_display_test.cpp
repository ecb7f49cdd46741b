// The test tools of displays and signals: what they tell of a machine with displays of all kinds, and the guide while
// one is plugged in.

#include <linux/dvb/frontend.h>

#include "display/card_device.h"
#include "display/connectors.h"
#include "display_texts.h"
#include "support/captured_machine.h"
#include "support/edid_maker.h"
#include "support/set_with_screen.h"
#include "support/usage_events.h"
#include "tv/frontends.h"
#include "ui/test_tool_fixture.h"

namespace {

using display::Mode;

std::string Name(const char* name) {
  return edid::Descriptor(0xFC, name + "\n"s);
}

/// A television of Full HD with speakers.
std::string FullHd() {
  return edid::FirstBlock(edid::Timing(14850, 1920, 1080, 280, 45) + Name("Larch 40"), 1) +
         edid::CtaBlock(edid::DataBlock(2, "\x90\x05\x04") + edid::DataBlock(1, "\x09\x07\x07"), true,
                        edid::Timing(7425, 1920, 540, 280, 22, 0x80));
}

/// One of Ultra HD with HDR, sound of eight channels and a refresh rate of 48 to 144 Hz, which prefers 60 Hz.
std::string UltraHd() {
  return edid::FirstBlock(edid::Timing(59400, 3840, 2160, 560, 90) + Name("Rowan 65 UHD"), 1) +
         edid::CtaBlock(edid::DataBlock(2, "\x61\x76\x10") + edid::DataBlock(1, "\x0F\x7F\x07\x57\x06\x01") +
                            edid::DataBlock(7, "\x06\x0D\x01") + edid::DataBlock(3, "\xD8\x5D\xC4\1\0\0\0\0\x30\x90"s),
                        true);
}

/// A monitor without speakers, and without a block to follow.
std::string Monitor() {
  return edid::FirstBlock(
      edid::Timing(15400, 1920, 1200, 160, 35) + Name("Desk 24") + edid::Descriptor(0xFD, "\x30\x4B\x1E\x50\x11\x01\n"),
      0, true);
}

std::string Damaged() {
  std::string bytes = FullHd();
  bytes[60] ^= 0x40;
  return bytes;
}

Files Plug(const std::string& connector, const std::string& bytes) {
  const std::string folder = "/sys/class/drm/card0-" + connector + "/";
  return {{folder + "status", "connected\n"}, {folder + "enabled", "enabled\n"}, {folder + "edid", bytes}};
}

Files FreePlug(const std::string& connector) {
  return {{"/sys/class/drm/card0-" + connector + "/status", "disconnected\n"}};
}

/// A line each: "name: value", details with a blank before; without the marks of direction.
std::string Lines(const std::vector<tools::Fact>& facts) {
  std::string lines;
  for (const tools::Fact& fact : facts) lines += (fact.isDetail ? " " : "") + fact.name + ": " + fact.value + "\n";
  for (size_t at; (at = lines.find("\u200E")) != lines.npos;) lines.erase(at, 3);
  return lines;
}

class DisplayTexts : public testing::Test {
 protected:
  void SetUp() override {
    ApplyMenuLanguage();
    bindtextdomain(QUVA::kApplicationId, VEXILO_BINARY_DIR "/res/locale");
  }
};

TEST(Edid, TellsWhatAScreenCan) {
  const display::Edid hd = display::ReadEdid(FullHd()), uhd = display::ReadEdid(UltraHd());
  EXPECT_EQ(hd.modes, (std::vector<Mode>{{{1920, 1080}, 60},
                                         {{1920, 1080}, 60},
                                         {{1920, 1080}, 60, true},
                                         {{1280, 720}, 60},
                                         {{1920, 1080}, 60, true}}));
  EXPECT_EQ(uhd.Best(), (Mode{{3840, 2160}, 120}));
  EXPECT_EQ(uhd.soundChannels, 8);
  EXPECT_EQ(uhd.rates, (display::RateRange{48, 144}));
  EXPECT_TRUE(uhd.showsHdr10 && uhd.showsHlg && !hd.showsHdr10 && !hd.showsHlg);

  const auto withVideo = [](const std::string& vendor) {
    return display::ReadEdid(edid::FirstBlock("", 1) + edid::CtaBlock(vendor, false)).Best();
  };
  // HDMI 1.4: flags, latencies where they are announced, then the length and the numbers of modes of 2160 lines.
  EXPECT_EQ(withVideo(edid::DataBlock(3, "\3\x0C\0\x10\0\0\0\x20\0\x20\1"s)), (Mode{{3840, 2160}, 30}));
  EXPECT_EQ(withVideo(edid::DataBlock(3, "\3\x0C\0\x10\0\0\0\xA0\1\1\0\x20\4"s)), (Mode{{4096, 2160}, 24}));
  EXPECT_EQ(withVideo(edid::DataBlock(7, "\x0E\x65")), (Mode{{4096, 2160}, 50})) << "in less colour";
  EXPECT_EQ(withVideo("\x5F\x10"), std::nullopt) << "a data block that is longer than what is there";
  EXPECT_EQ(display::ReadEdid(Damaged()).Best(), std::nullopt);
  EXPECT_EQ(display::ReadEdid(Monitor()).rates, (display::RateRange{48, 75}));
  // Limits of what a formula gives, and those of the version before, do not say that each rate between is shown.
  const auto byFormula = edid::FirstBlock(edid::Descriptor(0xFD, "\x30\x4B\x1E\x50\x11\0\n"s), 0, true);
  EXPECT_EQ(display::ReadEdid(byFormula).rates, std::nullopt);
  std::string older = Monitor();
  ++older[127], --older[19];
  EXPECT_TRUE(display::ReadEdid(older).isValid);
  EXPECT_EQ(display::ReadEdid(older).rates, std::nullopt);
}

TEST_F(DisplayTexts, TellOfEachConnector) {
  Files tree = With(Plug("HDMI-A-1", FullHd()), Plug("HDMI-A-2", UltraHd()));
  for (const Files& more : {Plug("DVI-D-1", Monitor()), Plug("HDMI-A-3", Damaged()), Plug("HDMI-A-4", ""),
                            Plug("eDP-1", ""), FreePlug("DP-1"), FreePlug("Writeback-1")})
    tree = With(tree, more);
  const CapturedMachine machine(tree);
  auto connectors = display::ReadConnectors(machine.Get()).value();
  EXPECT_EQ(Lines(tools::ConnectorFacts(connectors)),
            "DisplayPort 1: No display\n"
            "DVI 1: Desk 24\n Best picture: 1920 × 1200, 59.95 Hz\n Sound: Not possible\n"
            "HDMI 1: Larch 40\n Best picture: 1920 × 1080, 60 Hz\n Sound: Stereo\n"
            "HDMI 2: Rowan 65 UHD\n Best picture: 3840 × 2160, 120 Hz\n Sound: Up to 8 channels\n"
            "HDMI 3: Display with damaged description\n"
            "HDMI 4: Display without description\n"
            "Built-in screen: Connected\n");
  EXPECT_EQ(
      Lines(tools::PictureFacts(connectors)),
      "DVI 1: Desk 24\n HDR: Not possible\n Variable refresh rate: Possible: 48–75 Hz\n"
      "HDMI 1: Larch 40\n HDR: Not possible\n"
      "HDMI 2: Rowan 65 UHD\n HDR: Possible: HDR10, HLG\n Variable refresh rate: Possible: 48–144 Hz\n"
      "HDMI 3: Display with damaged description\nHDMI 4: Display without description\nBuilt-in screen: Connected\n");
}

TEST_F(DisplayTexts, TellWhatTheCardShows) {
  using display::Property;
  constexpr std::string_view kHlg("\0\0\0\0\3\0", 6);
  const struct {
    std::vector<Property> properties;
    const char* lines;
  } kCards[] = {
      {{}, " HDR: Possible: HDR10, HLG\n Variable refresh rate: Possible: 48–144 Hz\n"},
      {{{"max bpc", 10},
        {"output format", 1, "YCBCR420"},
        {"Colorspace", 9, "BT2020_RGB"},
        {"HDR_OUTPUT_METADATA", 7, "", kHlg},
        {"vrr_capable", 1},
        {"VRR_ENABLED", 1}},
       " Color depth: Up to 10 bits per color\n Color format: YCBCR420\n Color space: BT2020_RGB\n HDR: On (HLG)\n"
       " Variable refresh rate: On (48–144 Hz)\n"},
      {{{"Colorspace", 0, "Default"}, {"HDR_OUTPUT_METADATA"}, {"vrr_capable", 1}, {"VRR_ENABLED"}},
       " HDR: Off, but possible: HDR10, HLG\n Variable refresh rate: Off, but possible: 48–144 Hz\n"},
      {{{"vrr_capable"}, {"VRR_ENABLED"}}, " HDR: Possible: HDR10, HLG\n Variable refresh rate: Not possible\n"},
  };
  for (const auto& [properties, lines] : kCards) {
    display::Connector connector{"DP-1", true, UltraHd(), Mode{{1920, 1080}, 59.94006, true}};
    for (const Property& property : properties) TakeProperty(property, connector.picture);
    EXPECT_EQ(Lines(tools::PictureFacts({connector})),
              "DisplayPort 1: Rowan 65 UHD\n Resolution: 1920 × 1080\n Refresh rate: 59.94 Hz, interlaced\n"s + lines);
  }
  for (const auto& [text, said] :
       {std::pair("Undesired", "Off"), {"Desired", "Requested, but not on"}, {"Enabled", "On"}}) {
    display::Connector connector{"HDMI-A-1", true, {}, {}};
    TakeProperty({"Content Protection", 1, text}, connector.picture);
    EXPECT_EQ(Lines(tools::ConnectorFacts({connector})), "HDMI 1: Connected\n Copy protection (HDCP): "s + said + "\n");
  }
}

/// A driver of a tuner; `stats` answers the three measures in their order, empty for one that has none.
int Answer(unsigned long request, void* argument, int status, const std::vector<dtv_stats>& stats) {
  if (request == FE_GET_INFO) std::strcpy(static_cast<dvb_frontend_info*>(argument)->name, "Heron T2");
  if (request == FE_READ_STATUS) *static_cast<fe_status*>(argument) = static_cast<fe_status>(status);
  if (request != FE_GET_PROPERTY) return 0;
  if (stats.empty()) return -1;
  const auto& asked = *static_cast<dtv_properties*>(argument);
  for (uint32_t i = 0; i < asked.num; ++i) {
    asked.props[i].u.st.len = 1;
    asked.props[i].u.st.stat[0] = stats.at(i);
  }
  return 0;
}

TEST_F(DisplayTexts, TellWhatTunersReceive) {
  const auto measure = [](fecap_scale_params scale, int64_t value) {
    dtv_stats stats{};
    stats.scale = scale;
    stats.svalue = value;
    return stats;
  };
  const dtv_stats none = measure(FE_SCALE_NOT_AVAILABLE, 5);
  const struct {
    int status;
    std::vector<dtv_stats> stats;
    const char* lines;
  } kTuners[] = {
      {FE_HAS_SIGNAL | FE_HAS_LOCK,
       {measure(FE_SCALE_DECIBEL, -45'250), measure(FE_SCALE_DECIBEL, 28'300), measure(FE_SCALE_COUNTER, 12)},
       " Reception: A channel is received\n Signal strength: -45.3 dBm\n Signal quality: 28.3 dB\n Bit errors: 12\n"},
      {FE_HAS_SIGNAL,
       {measure(FE_SCALE_RELATIVE, 65535), none, none},
       " Reception: There is a signal, but no channel\n Signal strength: 100 %\n"},
      {0, {}, " Reception: No signal\n"},
  };
  for (const auto& [status, stats, lines] : kTuners) {
    const auto ask = [&, s = status, &m = stats](unsigned long request, void* to) { return Answer(request, to, s, m); };
    EXPECT_EQ(Lines(tools::TunerFacts({tv::ReadFrontend(ask)})), "Tuner 1: Heron T2\n"s + lines);
  }
  const auto refuse = [](unsigned long, void*) { return -1; };
  EXPECT_EQ(Lines(tools::TunerFacts({tv::ReadFrontend(refuse)})), "Tuner 1: \n") << "nothing is made up";
}

// ---- the pages, on a machine whose /sys/class is the test's own

class DisplayPages : public ToolPages {
 protected:
  void SetUp() override {
    ASSERT_EQ(LeaveTheMachine(), "");
    unsetenv("DISPLAY");
    ToolPages::SetUp();
  }
  static void Put(const Files& files) {
    for (const auto& [path, content] : files) WriteHostFile(path, content);
  }
  /// Presses a button of a popup or page, once it has the focus.
  void Click(const char* sid) {
    ASSERT_TRUE(FocusBecomes(std::string(sid) == "SID_DONE" ? "done" : QUVA::CUtils::m_GetText(sid)));
    Press("Return");
  }
  bool BecomesStep(int number) {
    return Soon([&] { return Shows("Step " + std::to_string(number) + " of 5"); });
  }
};

TEST_F(DisplayPages, TheGuideEndsAtOnceWhenADisplayIsPluggedIn) {
  Put(With(FreePlug("HDMI-A-1"), Plug("HDMI-A-2", Damaged())));
  OpenTool("hdmi");
  Click("TV_SID_VEXILO_HDMI_GUIDE");
  ASSERT_TRUE(BecomesStep(1));
  Click("TV_SID_VEXILO_CHECK_AGAIN");
  ASSERT_TRUE(BecomesStep(2)) << "nothing has changed";
  EXPECT_EQ(Count(StoredEvents(), "HDMI Troubleshooting"), 0);
  Put(Plug("HDMI-A-1", UltraHd()));
  EXPECT_TRUE(
      Soon([&] { return Shows(QUVA::CUtils::m_GetTextWith("TV_SID_VEXILO_HDMI_MIX_FOUND", "HDMI 1: Rowan 65 UHD")); }));
  EXPECT_FALSE(Shows("Step 2 of 5"));
  EXPECT_TRUE(Soon([&] { return Shows("Up to 8 channels"); })) << "the page behind it knows, too";
  EXPECT_THAT(StoredEvents(), HasSubstr("select_item=HDMI Troubleshooting;status=Solved"));
  Click("SID_DONE");
  EXPECT_EQ(StackSize(), 1u);

  // From here on nothing more comes: all five steps, then the advice.
  Click("TV_SID_VEXILO_HDMI_GUIDE");
  for (int step = 1; step <= 5; ++step) {
    ASSERT_TRUE(BecomesStep(step));
    Click("TV_SID_VEXILO_CHECK_AGAIN");
  }
  EXPECT_TRUE(Soon([&] { return ShowsSid("TV_SID_VEXILO_HDMI_NOT_FOUND"); }));
  EXPECT_THAT(StoredEvents(), HasSubstr("status=Not solved"));
  Press("Escape");
  EXPECT_EQ(g_loopEnds, 0);
  Press("Escape");
  EXPECT_EQ(g_loopEnds, 1);
}

TEST_F(DisplayPages, HaveAButtonWithTheFocusWithAndWithoutConnectors) {
  OpenTool("hdmi");
  ASSERT_TRUE(FocusBecomes("done"));
  Put(FreePlug("HDMI-A-1"));
  ASSERT_TRUE(FocusBecomes(QUVA::CUtils::m_GetText("TV_SID_VEXILO_HDMI_GUIDE")));
  fs::remove_all("/sys/class/drm");
  Click("SID_DONE");
  EXPECT_EQ(g_loopEnds, 1);
}

TEST_F(DisplayPages, FollowWhatIsPluggedInAndPulledOut) {
  OpenTool("signal");
  EXPECT_TRUE(Soon([&] { return ShowsSid("TV_SID_VEXILO_SIGNAL_NOTHING"); }));
  EXPECT_TRUE(FocusBecomes("done"));
  Put(Plug("HDMI-A-1", FullHd()));
  EXPECT_TRUE(Soon([&] { return Shows("Larch 40"); }));
  EXPECT_FALSE(ShowsSid("TV_SID_VEXILO_SIGNAL_NOTHING"));
  fs::remove_all("/sys/class/drm");
  EXPECT_TRUE(Soon([&] { return !Shows("Larch 40") && ShowsSid("TV_SID_VEXILO_SIGNAL_NOTHING"); }));
  Click("SID_DONE");
  EXPECT_EQ(g_loopEnds, 1);
}

}  // namespace
