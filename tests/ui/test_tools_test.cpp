// The pictures of the test tools, pixel by pixel, and how a viewer goes through them.

#include "patterns.h"
#include "support/usage_events.h"
#include "ui/test_tool_fixture.h"

namespace {

using testing::HasSubstr;
using namespace tools;

Bitmap Painted(const char* sid, const std::vector<Pattern>& patterns, int width, int height) {
  Bitmap picture(width, height);
  for (const Pattern& pattern : patterns)
    if (std::string(pattern.nameSid) == sid) pattern.paint(picture);
  return picture;
}

/// Sizes of panels, the last with rows and columns that no part divides.
constexpr std::pair<int, int> kPanels[] = {{1280, 720}, {1920, 1080}, {3840, 2160}, {1366, 768}};

TEST(PicturePatterns, ShowWhatTheyAreForOnEveryPanel) {
  const auto patterns = PicturePatterns();
  for (const auto& [width, height] : kPanels) {
    SCOPED_TRACE(width);
    const auto painted = [&, w = width, h = height](const char* sid) { return Painted(sid, patterns, w, h); };

    const Bitmap bars = painted("TV_SID_VEXILO_TEST_BARS");
    const Colour wanted[] = {0xFFFFFFFF, 0xFFFFFF00, 0xFF00FFFF, 0xFF00FF00,
                             0xFFFF00FF, 0xFFFF0000, 0xFF0000FF, 0xFF000000};
    for (int i = 0; i < 8; ++i)
      for (const int x : {width * i / 8, width * (i + 1) / 8 - 1})
        for (const int y : {0, height / 2}) EXPECT_EQ(bars.At(x, y), wanted[i]) << x << " " << y;
    EXPECT_EQ(bars.At(width - 1, height - 1), Rgb(0, 0, 255)) << "the ramp ends at full strength";

    const Bitmap greys = painted("TV_SID_VEXILO_TEST_GREYS");
    for (int i = 0; i < kGreySteps; ++i)
      EXPECT_EQ(greys.At(width * (2 * i + 1) / (2 * kGreySteps), height / 2), Grey(255 * i / (kGreySteps - 1))) << i;

    const Bitmap geometry = painted("TV_SID_VEXILO_TEST_GEOMETRY");
    for (int percent = 0; percent <= kOverscanFrames; ++percent) {
      const int x = width * percent / 100, y = height * percent / 100;
      const Colour frame = geometry.At(width / 3, y);
      EXPECT_GT((frame >> 8) & 0xFF, 150u) << percent;
      for (const auto& [atX, atY] :
           {std::pair(x, height / 3), {width - x - 1, height / 3}, {width / 3, height - y - 1}})
        EXPECT_EQ(geometry.At(atX, atY), frame) << percent << "% at " << atX << " " << atY;
    }
    const int radius = std::min(width, height) * 38 / 100;
    EXPECT_EQ(geometry.At(width / 2 - radius + 1, height / 2), geometry.At(width / 2, height / 2 - radius + 1))
        << "a circle, whatever the panel's shape";

    const Bitmap sharpness = painted("TV_SID_VEXILO_TEST_SHARPNESS");
    const int gap = width / 50, cell = (width - 5 * gap) / 4;
    for (int period = 1; period <= 4; ++period) {
      const int left = gap + (period - 1) * (cell + gap);
      for (int i = 0; i < 3 * period; ++i) {
        const Colour line = i / period % 2 ? 0xFFFFFFFF : 0xFF000000;
        EXPECT_EQ(sharpness.At(left + i, height / 4), line) << period << " standing, " << i;
        EXPECT_EQ(sharpness.At(left + 5, height * 62 / 100 + i), line) << period << " lying, " << i;
      }
    }

    constexpr std::pair<const char*, Colour> kPlain[] = {
        {"TV_SID_VEXILO_TEST_WHITE", 0xFFFFFFFF}, {"TV_SID_VEXILO_TEST_BLACK", 0xFF000000},
        {"TV_SID_VEXILO_TEST_GREY", 0xFF808080},  {"TV_SID_VEXILO_TEST_RED", 0xFFFF0000},
        {"TV_SID_VEXILO_TEST_GREEN", 0xFF00FF00}, {"TV_SID_VEXILO_TEST_BLUE", 0xFF0000FF}};
    for (const auto& [sid, colour] : kPlain) {
      const Bitmap plain = painted(sid);
      const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
      EXPECT_EQ(std::count(plain.Pixels(), plain.Pixels() + pixels, colour), static_cast<std::ptrdiff_t>(pixels))
          << sid;
    }
  }
}

TEST(ModulePatterns, FollowTheGridOfThePanel) {
  for (const auto& [width, height] : kPanels) {
    for (const ModuleGrid grid : {ModuleGrid{8, 4}, ModuleGrid{1, 1}, ModuleGrid{7, 3}}) {
      SCOPED_TRACE(std::to_string(width) + " by " + std::to_string(grid.columns));
      const auto patterns = ModulePatterns(grid);
      const Bitmap seams = Painted("TV_SID_VEXILO_TEST_SEAMS", patterns, width, height);
      const Bitmap crosses = Painted("TV_SID_VEXILO_TEST_CROSSES", patterns, width, height);
      for (int column = 0; column < grid.columns; ++column) {
        const int left = width * column / grid.columns, right = width * (column + 1) / grid.columns;
        // Inside the first row, off its middle.
        const int y = height / grid.rows / 5;
        EXPECT_NE(seams.At(left, y), Grey(128));
        EXPECT_EQ(seams.At(left + 1, y), Grey(128)) << "a line of one pixel on each side";
        EXPECT_EQ(seams.At(right - 1, y), seams.At(left, y));
        EXPECT_EQ(crosses.At((left + right - 1) / 2, 1), 0xFFFFFFFF);
      }
      for (int y = 1; y < height / grid.rows / 4; ++y)
        ASSERT_EQ(crosses.At(width - 1, height - y), crosses.At(0, height - y)) << "none meet at the edge";
      const auto labels = patterns.front().labels();
      ASSERT_EQ(labels.size(), static_cast<size_t>(grid.columns * grid.rows));
      EXPECT_EQ(labels.back().text, std::to_string(grid.columns * grid.rows));
      EXPECT_GT(labels.back().x, 1 - 1.0 / grid.columns);
    }
  }
}

class PatternPages : public ToolPages {
 protected:
  /// The name and number of the picture that is announced.
  std::string Announced() const {
    for (const Shown& shown : Texts())
      if (const size_t end = shown.text.find("). "); end != std::string::npos) return shown.text.substr(0, end + 1);
    return "";
  }
  bool BecomesPicture(const std::string& name) {
    return Soon([&] { return Announced() == name; });
  }
};

TEST_F(PatternPages, FillThePanelAndAreGoneThroughWithTheArrows) {
  OpenTool("picture", "1280x720");
  ASSERT_TRUE(BecomesPicture("Color bars (1/12)")) << Announced();
  // Below the announcement, to the last pixel.
  const Bitmap bars = Painted("TV_SID_VEXILO_TEST_BARS", PicturePatterns(), 1280, 720);
  m_ui->Settle();
  for (const auto& [x, y] : {std::pair(0, 719), {1279, 719}, {200, 400}, {0, 300}, {1279, 300}})
    EXPECT_EQ(m_ui->Pixel(x, y), bars.At(x, y)) << x << " " << y;
  Press("Left");
  EXPECT_EQ(Announced(), "Color bars (1/12)") << "there is none before the first";
  Press("Right");
  ASSERT_TRUE(BecomesPicture("Shades of gray (2/12)")) << Announced();
  m_ui->Resize(960, 540);
  EXPECT_TRUE(Soon([&] { return m_ui->Pixel(959, 270) == 0xFFFFFFFF; })) << "drawn anew for the new size";
  for (int i = 0; i < 10; ++i) Press("Right");
  ASSERT_TRUE(BecomesPicture("Landscape (12/12)")) << Announced();
  Press("Right");
  EXPECT_TRUE(Soon([&] { return ShowsSid("TV_SID_VEXILO_TEST_SEEN"); })) << "after the last comes the question";
}

TEST_F(PatternPages, ArrowsFollowTheReadingDirection) {
  Language("ar_AE.utf8");
  OpenTool("picture");
  ASSERT_TRUE(Soon([&] { return Announced().ends_with("(1/12)"); })) << Announced();
  Press("Left");
  EXPECT_TRUE(Soon([&] { return Announced().ends_with("(2/12)"); })) << Announced();
}

TEST_F(PatternPages, WhatTheViewerAnswersIsRecordedAndExplained) {
  const struct {
    const char* keys;
    const char* status;
    const char* sid;
  } answers[] = {{"Return", "status=Noticed", "TV_SID_VEXILO_PICTURE_NOTICED_MSG"},
                 {"Right Return", "status=Not noticed", "TV_SID_VEXILO_PICTURE_MISSED_MSG"}};
  OpenTool("picture");
  ASSERT_TRUE(BecomesPicture("Color bars (1/12)"));
  for (const auto& [keys, status, sid] : answers) {
    Press("Return");
    ASSERT_TRUE(FocusBecomes(QUVA::CUtils::m_GetText("COM_SID_YES")));
    EXPECT_EQ(Count(StoredEvents(), status), 0);
    Press(keys);
    EXPECT_TRUE(Soon([&, id = sid] { return ShowsSid(id); })) << sid;
    EXPECT_THAT(StoredEvents(), HasSubstr(status));
    EXPECT_THAT(StoredEvents(), HasSubstr("select_item=Picture Test"));
    Press("Escape");
    EXPECT_EQ(StackSize(), 1u) << "back on the picture";
  }
  Press("Return Return");
  ASSERT_TRUE(FocusBecomes("done"));
  Press("Return");
  EXPECT_EQ(g_loopEnds, 1) << "the advice is the end of the tool";
}

TEST_F(PatternPages, BackLeavesTheTool) {
  OpenTool("modules");
  ASSERT_TRUE(BecomesPicture("Module numbers (1/9)")) << Announced();
  Press("Return");
  ASSERT_TRUE(FocusBecomes(QUVA::CUtils::m_GetText("COM_SID_YES")));
  Press("Escape");
  EXPECT_EQ(g_loopEnds, 0);
  Press("Escape");
  EXPECT_EQ(g_loopEnds, 1);
  EXPECT_EQ(Count(StoredEvents(), "MLED"), 0) << "nothing was answered";
}

}  // namespace
