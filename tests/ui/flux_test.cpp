// The widget set: geometry, texts, focus, settings, images.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "appfw/toolkit.h"
#include "elm_flux.h"
#include "flux/flux_core.h"
#include "set_paths.h"
#include "system_path.h"
#include "ui/ui_harness.h"
#include "vconf.h"

namespace {

std::vector<std::string> g_said;

}  // namespace

void elm_flux_access_say(const char* text) {
  g_said.emplace_back(text);
}

namespace {

using Geometry = UiHarness::Geometry;

Evas_Object* Box(Evas_Object* parent, double width, double height) {
  Evas_Object* plate = elm_flux_plate_add(parent, FLUX_PLATE_PANEL, true, FLUX_PLATE_NORMAL);
  elm_flux_size_set(plate, width, height);
  elm_flux_layout_pack(parent, plate);
  return plate;
}

Evas_Object* Button(Evas_Object* parent, const char* text) {
  Evas_Object* button = elm_flux_button_add(parent, FLUX_BUTTON_PLAIN);
  elm_object_text_set(button, text);
  elm_flux_size_set(button, 40, 10);
  elm_flux_layout_pack(parent, button);
  return button;
}

std::string LogText() {
  std::ifstream log(SystemPath(set_paths::kLogFile));
  return {std::istreambuf_iterator<char>(log), {}};
}

/// A page of 240 x 135 units with three boxes of 20 x 10, the second one hidden or expanding; where they lie in units.
struct LayoutCase {
  const char* name;
  FluxLayoutType type;
  FluxAlign align;
  bool mirrored, hideSecond, expandSecond;
  double x[3], y[3], secondWidth, secondHeight;
};

TEST(FluxLayout, PlacesItsChildrenOnEveryScreen) {
  const LayoutCase cases[] = {
      {"row", FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_TOP_LEFT, false, false, false, {10, 35, 60}, {5, 5, 5}, 20, 10},
      {"row rtl", FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_TOP_LEFT, true, false, false, {210, 185, 160}, {5, 5, 5}, 20, 10},
      {"row at the end",
       FLUX_LAYOUT_HORIZONTAL,
       FLUX_ALIGN_BOTTOM_RIGHT,
       false,
       false,
       false,
       {150, 175, 200},
       {105, 105, 105},
       20,
       10},
      {"row without the second",
       FLUX_LAYOUT_HORIZONTAL,
       FLUX_ALIGN_LEFT,
       false,
       true,
       false,
       {10, -1, 35},
       {55, -1, 55},
       0,
       0},
      {"row, second expands",
       FLUX_LAYOUT_HORIZONTAL,
       FLUX_ALIGN_TOP_LEFT,
       false,
       false,
       true,
       {10, 35, 200},
       {5, 5, 5},
       160,
       110},
      {"column", FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP, false, false, false, {105, 105, 105}, {5, 20, 35}, 20, 10},
      {"column rtl", FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_RIGHT, true, false, false, {20, 20, 20}, {40, 55, 70}, 20, 10},
      {"column, second expands",
       FLUX_LAYOUT_VERTICAL,
       FLUX_ALIGN_TOP_LEFT,
       false,
       false,
       true,
       {10, 10, 10},
       {5, 20, 105},
       210,
       80},
      {"stack", FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER, false, false, false, {105, 105, 105}, {55, 55, 55}, 20, 10},
  };
  UiHarness ui(1280, 720);
  for (const int height : {720, 1080, 2160}) {
    ui.Resize(height * 16 / 9, height);
    for (const LayoutCase& c : cases) {
      elm_config_mirrored_set(c.mirrored);
      Evas_Object* root = elm_flux_layout_add(ui.Window(), c.type, c.align);
      elm_flux_layout_padding_set(root, 10, 5, 20, 20);
      elm_flux_layout_gap_set(root, 5);
      elm_flux_layout_root_set(root, true);
      elm_win_resize_object_add(ui.Window(), root);
      Evas_Object* boxes[3];
      for (auto& box : boxes) box = Box(root, 20, 10);
      if (c.hideSecond) evas_object_hide(boxes[1]);
      if (c.expandSecond) elm_flux_expand_set(boxes[1], true);
      ui.Settle();
      for (int i = 0; i < 3; ++i) {
        if (c.x[i] < 0) continue;
        const Geometry at = UiHarness::GeometryOf(boxes[i]);
        EXPECT_NEAR(at.x, c.x[i] * height / 135.0, 2) << c.name << " " << i << " " << height;
        EXPECT_NEAR(at.y, c.y[i] * height / 135.0, 2) << c.name << " " << i << " " << height;
        EXPECT_NEAR(at.width, (i == 1 ? c.secondWidth : 20) * height / 135.0, 2) << c.name << " " << i;
        EXPECT_NEAR(at.height, (i == 1 ? c.secondHeight : 10) * height / 135.0, 2) << c.name << " " << i;
      }
      evas_object_del(root);
    }
  }
  ui.Resize(1080, 1920);  // on an upright one the units fit the width
  EXPECT_EQ(elm_flux_unit_to_px(240), 1080);
}

/// Every text object below `object` that has room to draw in.
void CollectTexts(Evas_Object* object, std::vector<Evas_Object*>& found) {
  if (evas_object_visible_get(object) && UiHarness::GeometryOf(object).width > 1 &&
      std::string(evas_object_type_get(object)) == "textblock")
    found.push_back(object);
  Eina_List* members = evas_object_smart_members_get(object);
  void* member = nullptr;
  EINA_LIST_FREE(members, member) CollectTexts(static_cast<Evas_Object*>(member), found);
}

TEST(FluxText, IsPlainAndNeverLargerThanItsBox) {
  const char* texts[] = {"OK", "Datenschutzeinstellungen zurücksetzen & neu starten <jetzt>",
                         "إعادة تعيين إعدادات الخصوصية والبدء من جديد الآن"};
  UiHarness ui(1920, 1080);
  Evas_Object* root = ui.Root();
  for (const double scale : {FLUX_SCALE_NORMAL, FLUX_SCALE_ENLARGED}) {
    elm_config_scale_set(scale);
    for (const char* text : texts) {
      for (const int lines : {-1, 0, 1, 2}) {  // -1: a button, of whose lines the glyphs take 85 %
        Evas_Object* widget = lines < 0 ? elm_flux_button_add(root, FLUX_BUTTON_PLAIN) : elm_flux_text_add(root);
        if (lines >= 0) elm_flux_text_lines_set(widget, lines);
        elm_flux_size_set(widget, 40, 12);
        elm_object_text_set(widget, text);
        elm_flux_layout_pack(root, widget);
        ui.Settle();
        EXPECT_STREQ(elm_object_text_get(widget), text);
        const Geometry box = UiHarness::GeometryOf(widget);
        std::vector<Evas_Object*> blocks;
        CollectTexts(widget, blocks);
        ASSERT_EQ(blocks.size(), 1u) << text;
        const Geometry at = UiHarness::GeometryOf(blocks[0]);
        int width = 0, height = 0;
        evas_object_textblock_size_formatted_get(blocks[0], &width, &height);
        EXPECT_GT(width, 0);
        EXPECT_LE(width, box.width) << text << " " << lines;
        EXPECT_LE(height * (lines < 0 ? 0.85 : 1.0), box.height) << text << " " << lines;
        EXPECT_GE(at.x, box.x);
        EXPECT_LE(at.x + at.width, box.x + box.width) << text << " " << lines;
        char* plain = evas_textblock_text_markup_to_utf8(nullptr, evas_object_textblock_text_markup_get(blocks[0]));
        EXPECT_STREQ(plain, text);
        free(plain);
        evas_object_del(widget);
      }
    }
  }
}

TEST(FluxButton, IsClickedByEnterAndPointerUnlessDisabled) {
  UiHarness ui(1280, 720);
  Evas_Object* button = Button(ui.Root(), "OK");
  int clicks = 0;
  evas_object_smart_callback_add(
      button, "clicked", [](void* n, Evas_Object*, void*) { ++*static_cast<int*>(n); }, &clicks);
  elm_object_focus_set(button, EINA_TRUE);
  ui.Settle();
  ui.Key("Return");
  EXPECT_EQ(clicks, 1);
  ui.Key("KP_Enter");
  EXPECT_EQ(clicks, 2);
  ui.Click(button);
  EXPECT_EQ(clicks, 3);
  elm_object_disabled_set(button, EINA_TRUE);
  ui.Key("Return");
  ui.Click(button);
  EXPECT_EQ(clicks, 3);
}

TEST(FluxButton, TheFocusFollowsTheArrowsAndIsSeen) {
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  Evas_Object* grid[2][2];
  for (auto& line : grid) {
    Evas_Object* row = elm_flux_layout_add(root, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT);
    elm_flux_layout_gap_set(row, 5);
    elm_flux_layout_pack(root, row);
    for (auto& button : line) button = Button(row, "x");
  }
  ui.Settle();
  elm_object_focus_set(grid[0][0], EINA_TRUE);
  ui.Settle();
  const struct {
    const char* key;
    Evas_Object* focused;
  } steps[] = {{"Right", grid[0][1]}, {"Down", grid[1][1]}, {"Left", grid[1][0]}, {"Up", grid[0][0]}};
  for (const auto& step : steps) {
    ui.Key(step.key);
    EXPECT_EQ(ui.Focused(), step.focused) << step.key;
    for (auto& line : grid)
      for (Evas_Object* button : line) {
        const Geometry at = UiHarness::GeometryOf(button);
        const bool isLight = (ui.Pixel(at.x + at.width / 8, at.y + at.height / 2) & 0xFF) > 200;
        EXPECT_EQ(isLight, button == step.focused) << step.key;
      }
  }
}

TEST(FluxSet, FollowsTheSettings) {
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  UiHarness ui(1920, 1080);
  EXPECT_TRUE(elm_config_access_get());
  Evas_Object* root = ui.Root();
  Evas_Object* plate = Box(root, 60, 40);
  Evas_Object* text = elm_flux_text_add(root);
  elm_object_text_set(text, "Text");
  elm_flux_layout_pack(root, text);
  ui.Settle();
  const Geometry before = UiHarness::GeometryOf(text);
  const Geometry at = UiHarness::GeometryOf(plate);
  EXPECT_NE(ui.Pixel(at.x + at.width / 2, at.y + 1) & 0xFFFFFF, 0xFFFFFFu);

  int events = 0;
  const Ecore_Event_Handler_Cb count = [](void* n, int, void*) {
    ++*static_cast<int*>(n);
    return ECORE_CALLBACK_PASS_ON;
  };
  ecore_event_handler_add(FLUX_EVENT_HIGH_CONTRAST_CHANGED, count, &events);
  ecore_event_handler_add(FLUX_EVENT_ENLARGE_CHANGED, count, &events);
  vconf_set_int("db/menu/system/accessibility/highcontrast", 1);
  ASSERT_TRUE(ui.PumpUntil([&] { return events == 1; }));
  ui.Settle();
  EXPECT_EQ(ui.Pixel(at.x + at.width / 2, at.y + 1) & 0xFFFFFF, 0xFFFFFFu);
  EXPECT_EQ(ui.Pixel(at.x + at.width / 2, at.y + at.height / 2) & 0xFFFFFF, 0u);

  vconf_set_int("db/menu/system/accessibility/focuszoom", 1);
  ASSERT_TRUE(ui.PumpUntil([&] { return events == 2; }));
  elm_config_scale_set(FLUX_SCALE_ENLARGED);
  ui.Settle();
  EXPECT_NEAR(UiHarness::GeometryOf(text).height, before.height * 1.2, 2);
  EXPECT_EQ(UiHarness::GeometryOf(plate), at);  // texts alone are enlarged
  vconf_set_int("db/menu/system/accessibility/voiceguide", 0);
  EXPECT_TRUE(ui.PumpUntil([] { return !elm_config_access_get(); }));
}

TEST(FluxSet, SpeaksWhatGetsTheFocusWhileTheScreenReaderIsOn) {
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  Evas_Object* first = Button(root, "First & last");
  Evas_Object* second = Button(root, "Second");
  elm_flux_access_info_set(second, [] { return std::string("Second of two"); });
  int clicks = 0;
  evas_object_smart_callback_add(
      second, "clicked", [](void* n, Evas_Object*, void*) { ++*static_cast<int*>(n); }, &clicks);
  ui.Settle();
  elm_object_focus_set(second, EINA_TRUE);
  EXPECT_TRUE(g_said.empty());
  elm_config_access_set(EINA_TRUE);
  elm_object_focus_set(first, EINA_TRUE);
  ui.Settle();
  ui.Key("Down");
  EXPECT_EQ(g_said, (std::vector<std::string>{"First & last", "Second of two"}));
  ui.Key("Return");
  EXPECT_EQ(clicks, 1);
}

TEST(FluxSet, WorksWithoutItsTheme) {
  UiHarness ui(1280, 720, UiHarness::Theme::kMissing);
  EXPECT_NE(LogText().find("/usr/share/vexilo-flux/flux.edj"), std::string::npos);
  Evas_Object* root = ui.Root();
  Evas_Object* button = Button(root, "OK");
  Evas_Object* text = elm_flux_text_add(root);
  elm_flux_size_set(text, 60, 10);
  elm_object_text_set(text, "Text");
  elm_flux_layout_pack(root, text);
  elm_object_content_set(Box(root, 40, 20), elm_flux_progress_add(root, FLUX_PROGRESS_BAR));
  ui.Settle();
  for (Evas_Object* widget : {button, text}) {
    const Geometry at = UiHarness::GeometryOf(widget);
    int bright = 0;
    for (int x = at.x; x < at.x + at.width; ++x)
      for (int y = at.y; y < at.y + at.height; ++y) bright += (ui.Pixel(x, y) & 0xFF) > 150;
    EXPECT_GT(bright, 20) << elm_object_text_get(widget);
  }
}

TEST(FluxProgress, ShowsItsValueFromWhereReadingBegins) {
  UiHarness ui(1920, 1080);
  Evas_Object* root = ui.Root();
  Evas_Object* bar = elm_flux_progress_add(root, FLUX_PROGRESS_BAR);
  elm_flux_size_set(bar, 100, 5);
  elm_flux_layout_pack(root, bar);
  const struct {
    double value;
    bool inverted, mirrored, greenAtQuarter, greenAtThreeQuarters;
  } cases[] = {{0.0, false, false, false, false}, {0.5, false, false, true, false}, {0.5, true, false, false, true},
               {0.5, false, true, false, true},   {0.5, true, true, true, false},   {7.0, false, false, true, true}};
  for (const auto& c : cases) {
    elm_config_mirrored_set(c.mirrored);
    elm_flux_progress_value_set(bar, c.value);
    elm_flux_progress_inverted_set(bar, c.inverted);
    ui.Settle();
    const Geometry at = UiHarness::GeometryOf(bar);
    const auto isGreen = [&](double where) {
      const uint32_t pixel = ui.Pixel(at.x + static_cast<int>(at.width * where), at.y + at.height / 2);
      return (pixel >> 8 & 0xFF) > 200 && (pixel & 0xFF) < 60;
    };
    EXPECT_EQ(isGreen(0.25), c.greenAtQuarter) << c.value << c.inverted << c.mirrored;
    EXPECT_EQ(isGreen(0.75), c.greenAtThreeQuarters) << c.value << c.inverted << c.mirrored;
  }
}

/// How many frames are drawn in half a second.
int FramesDrawn(UiHarness& ui) {
  int frames = 0;
  const auto count = [](void* n, Evas*, void*) { ++*static_cast<int*>(n); };
  evas_event_callback_add(ui.Canvas(), EVAS_CALLBACK_RENDER_POST, count, &frames);
  ui.PumpUntil([] { return false; }, 0.5);
  evas_event_callback_del_full(ui.Canvas(), EVAS_CALLBACK_RENDER_POST, count, &frames);
  return frames;
}

TEST(FluxProgress, PulsesOnlyInSight) {
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  Evas_Object* inner = elm_flux_layout_add(root, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER);
  elm_flux_layout_pack(root, inner);
  for (const FluxProgressStyle style : {FLUX_PROGRESS_BAR, FLUX_PROGRESS_CIRCLE}) {
    Evas_Object* progress = elm_flux_progress_add(inner, style);
    elm_flux_layout_pack(inner, progress);
    elm_flux_progress_pulse(progress, true);
  }
  EXPECT_GT(FramesDrawn(ui), 5);
  evas_object_hide(inner);
  ui.PumpUntil([] { return false; }, 1.3);
  EXPECT_LE(FramesDrawn(ui), 1);
  evas_object_show(inner);
  EXPECT_GT(FramesDrawn(ui), 5);
}

long ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  long pages = 0;
  file >> pages >> pages;
  return pages * sysconf(_SC_PAGESIZE) / 1024;
}

TEST(FluxImage, KeepsThePictureWhenAFileFailsAndDoesNotGrow) {
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  Evas_Object* image = elm_flux_image_add(root);
  elm_flux_size_set(image, 20, 20);
  elm_flux_layout_pack(root, image);
  const std::filesystem::path folder = SystemPath("/tmp");
  std::vector<std::string> frames;
  for (int i = 0; i < 20; ++i) {
    frames.push_back(folder / ("frame" + std::to_string(i) + ".svg"));
    std::ofstream(frames.back()) << "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='32'><rect width='64' "
                                    "height='32' fill='#00"
                                 << (i < 10 ? "ff" : "fe") << "00'/></svg>";
  }
  ASSERT_TRUE(elm_flux_image_file_set(image, frames[0]));
  ui.Settle();
  const Geometry at = UiHarness::GeometryOf(image);
  const auto colourAt = [&](double down) {
    return ui.Pixel(at.x + at.width / 2, at.y + static_cast<int>(at.height * down));
  };
  EXPECT_EQ(colourAt(0.5) & 0xFFFFFF, 0x00FF00u);
  EXPECT_NE(colourAt(0.1) & 0xFFFFFF, 0x00FF00u);  // not distorted

  std::ofstream(folder / "broken.png") << "no picture";
  EXPECT_FALSE(elm_flux_image_file_set(image, folder / "broken.png"));
  EXPECT_FALSE(elm_flux_image_file_set(image, folder / "missing.png"));
  EXPECT_FALSE(elm_flux_image_file_set(image, folder / "missing.png"));
  ui.Settle();
  EXPECT_EQ(colourAt(0.5) & 0xFFFFFF, 0x00FF00u);
  const std::string log = LogText();
  const size_t line = log.find("missing.png");
  EXPECT_NE(line, std::string::npos);
  EXPECT_EQ(log.find("missing.png", line + 1), std::string::npos);

  elm_flux_image_tint_set(image, "#FF0000");
  ui.Settle();
  EXPECT_EQ(colourAt(0.5) & 0xFFFFFF, 0xFF0000u);
  elm_flux_image_tint_set(image, "");

  const unsigned int missed = elm_flux_missed_frames();
  elm_flux_image_file_set(image, frames[1]);
  elm_flux_image_file_set(image, frames[2]);
  EXPECT_EQ(elm_flux_missed_frames(), missed + 1);

  long before = 0;
  for (int i = 0; i < 1000; ++i) {
    if (i == 200) before = ResidentKiB();
    EXPECT_TRUE(elm_flux_image_file_set(image, frames[i % frames.size()]));
    evas_render(ui.Canvas());
  }
#ifdef __SANITIZE_ADDRESS__
  constexpr long kMostGrowth = 64 * 1024;  // what is freed is kept for a while
#else
  constexpr long kMostGrowth = 1024;
#endif
  EXPECT_LT(ResidentKiB() - before, kMostGrowth);
}

}  // namespace
