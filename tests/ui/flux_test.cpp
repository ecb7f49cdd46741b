// The widget set: geometry, texts, focus, settings, images.

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "elm_flux.h"
#include "flux/flux_core.h"
#include "set_paths.h"
#include "speech/voice.h"
#include "system_path.h"
#include "ui/ui_harness.h"
#include "vconf.h"

namespace {

std::vector<std::string> g_said;

}  // namespace

void speech::Say(const std::string& text, Kind kind) {
  g_said.push_back((kind == Kind::kFocus ? "" : "announced: ") + text);
}

namespace {

using Geometry = UiHarness::Geometry;

Evas_Object* Pack(Evas_Object* parent, Evas_Object* widget, double width, double height, const char* text = nullptr) {
  if (text) elm_object_text_set(widget, text);
  elm_flux_size_set(widget, width, height);
  elm_flux_layout_pack(parent, widget);
  return widget;
}

Evas_Object* AddPlate(Evas_Object* parent, double width, double height) {
  return Pack(parent, elm_flux_plate_add(parent, FLUX_PLATE_PANEL, true, FLUX_PLATE_NORMAL), width, height);
}

Evas_Object* AddButton(Evas_Object* parent, const char* text) {
  return Pack(parent, elm_flux_button_add(parent, FLUX_BUTTON_PLAIN), 40, 10, text);
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
  std::string special;
  double x[3], y[3];
  double secondWidth = 20, secondHeight = 10;
};

constexpr FluxLayoutType kRow = FLUX_LAYOUT_HORIZONTAL;
constexpr FluxLayoutType kColumn = FLUX_LAYOUT_VERTICAL;

const LayoutCase kLayoutCases[] = {
    {"row", kRow, FLUX_ALIGN_TOP_LEFT, "", {10, 35, 60}, {5, 5, 5}},
    {"row rtl", kRow, FLUX_ALIGN_TOP_LEFT, "rtl", {210, 185, 160}, {5, 5, 5}},
    {"row at the end", kRow, FLUX_ALIGN_BOTTOM_RIGHT, "", {150, 175, 200}, {105, 105, 105}},
    {"row without the second", kRow, FLUX_ALIGN_LEFT, "hide", {10, -1, 35}, {55, -1, 55}},
    {"row, second expands", kRow, FLUX_ALIGN_TOP_LEFT, "expand", {10, 35, 200}, {5, 5, 5}, 160, 110},
    {"column", kColumn, FLUX_ALIGN_TOP, "", {105, 105, 105}, {5, 20, 35}},
    {"column rtl", kColumn, FLUX_ALIGN_RIGHT, "rtl", {20, 20, 20}, {40, 55, 70}},
    {"column, second expands", kColumn, FLUX_ALIGN_TOP_LEFT, "expand", {10, 10, 10}, {5, 20, 105}, 210, 80},
    {"stack", FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER, "", {105, 105, 105}, {55, 55, 55}},
};

TEST(FluxLayout, PlacesItsChildrenOnEveryScreen) {
  UiHarness ui(1280, 720);
  for (const int height : {720, 1080, 2160}) {
    ui.Resize(height * 16 / 9, height);
    const double unit = height / 135.0;
    for (const LayoutCase& c : kLayoutCases) {
      elm_config_mirrored_set(c.special == "rtl");
      Evas_Object* root = elm_flux_layout_add(ui.Window(), c.type, c.align);
      elm_flux_layout_padding_set(root, 10, 5, 20, 20);
      elm_flux_layout_gap_set(root, 5);
      elm_flux_layout_root_set(root, true);
      elm_win_resize_object_add(ui.Window(), root);
      Evas_Object* boxes[3];
      for (auto& box : boxes) box = AddPlate(root, 20, 10);
      if (c.special == "hide") evas_object_hide(boxes[1]);
      elm_flux_expand_set(boxes[1], c.special == "expand");
      elm_flux_expand_set(boxes[0], true);  // which has a size and keeps it
      if (c.special == "expand") elm_flux_size_set(boxes[1], 0, 0);
      ui.Settle();
      for (int i = 0; i < 3; ++i) {
        if (c.x[i] < 0) continue;
        SCOPED_TRACE(testing::Message() << c.name << " " << i << " " << height);
        const Geometry at = UiHarness::GeometryOf(boxes[i]);
        EXPECT_NEAR(at.x, c.x[i] * unit, 2);
        EXPECT_NEAR(at.y, c.y[i] * unit, 2);
        EXPECT_NEAR(at.width, (i == 1 ? c.secondWidth : 20) * unit, 2);
        EXPECT_NEAR(at.height, (i == 1 ? c.secondHeight : 10) * unit, 2);
      }
      evas_object_del(root);
    }
  }
  ui.Resize(1080, 1920);  // on an upright one the units fit the width
  EXPECT_EQ(elm_flux_unit_to_px(240), 1080);
}

/// The text object below `object` that has room to draw in; null for none.
Evas_Object* TextBlock(Evas_Object* object) {
  if (!evas_object_visible_get(object)) return nullptr;
  if (std::string(evas_object_type_get(object)) == "textblock" && UiHarness::GeometryOf(object).width > 1)
    return object;
  Evas_Object* found = nullptr;
  for (Evas_Object* member : UiHarness::MembersOf(object)) found = found ? found : TextBlock(member);
  return found;
}

TEST(FluxText, IsPlainAndNeverLargerThanItsBox) {
  UiHarness ui(1920, 1080);
  Evas_Object* root = ui.Root();
  for (const double scale : {FLUX_SCALE_NORMAL, FLUX_SCALE_ENLARGED})
    for (const char* text : {"OK", "Datenschutzeinstellungen zurücksetzen & neu starten <jetzt>",
                             "إعادة تعيين إعدادات الخصوصية والبدء من جديد الآن"})
      for (const int lines : {-1, 0, 1, 2}) {  // -1: a button, of whose lines the glyphs take 85 %
        SCOPED_TRACE(testing::Message() << text << " " << lines);
        elm_config_scale_set(scale);
        Evas_Object* widget = lines < 0 ? elm_flux_button_add(root, FLUX_BUTTON_PLAIN) : elm_flux_text_add(root);
        if (lines >= 0) elm_flux_text_lines_set(widget, lines);
        Pack(root, widget, 40, 12, text);
        ui.Settle();
        EXPECT_STREQ(elm_object_text_get(widget), text);
        Evas_Object* const block = TextBlock(widget);
        ASSERT_TRUE(block);
        EXPECT_EQ(UiHarness::PlainText(block), text);
        const Geometry box = UiHarness::GeometryOf(widget);
        const Geometry at = UiHarness::GeometryOf(block);
        int width = 0, height = 0;
        evas_object_textblock_size_formatted_get(block, &width, &height);
        EXPECT_GT(width, 0);
        EXPECT_LE(width, box.width);
        EXPECT_LE(height * (lines < 0 ? 0.85 : 1.0), box.height);
        EXPECT_GE(at.x, box.x);
        EXPECT_LE(at.x + at.width, box.x + box.width);
        evas_object_del(widget);
      }
}

TEST(FluxButton, TheFocusFollowsTheArrowsAndIsSeenAndAButtonIsClickedUnlessDisabled) {
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  std::vector<Evas_Object*> buttons;
  for (int i = 0; i < 2; ++i) {
    Evas_Object* row = elm_flux_layout_add(root, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT);
    elm_flux_layout_gap_set(row, 5);
    elm_flux_layout_pack(root, row);
    for (int j = 0; j < 2; ++j) buttons.push_back(AddButton(row, "x"));
  }
  ui.Settle();
  elm_object_focus_set(buttons[0], EINA_TRUE);
  ui.Settle();
  for (const auto& [key, focused] : {std::pair("Right", 1), {"Down", 3}, {"Left", 2}, {"Up", 0}}) {
    ui.Key(key);
    EXPECT_EQ(ui.Focused(), buttons[focused]) << key;
    for (Evas_Object* button : buttons) {
      const Geometry at = UiHarness::GeometryOf(button);
      const bool isLight = (ui.Pixel(at.x + at.width / 8, at.y + at.height / 2) & 0xFF) > 200;
      EXPECT_EQ(isLight, button == buttons[focused]) << key;
    }
  }
  int clicks = 0;
  UiHarness::CountEvents(buttons[0], "clicked", clicks);
  for (const int expected : {3, 0}) {
    ui.Key("Return");
    ui.Key("KP_Enter");
    ui.Click(buttons[0]);
    EXPECT_EQ(std::exchange(clicks, 0), expected);
    elm_object_disabled_set(buttons[0], EINA_TRUE);
  }
}

TEST(FluxSet, FollowsTheSettings) {
  vconf_set_int("db/menu/system/accessibility/voiceguide", 1);
  UiHarness ui(1920, 1080);
  EXPECT_TRUE(elm_config_access_get());
  Evas_Object* root = ui.Root();
  Evas_Object* plate = AddPlate(root, 60, 40);
  Evas_Object* text = Pack(root, elm_flux_text_add(root), 0, 0, "Text");
  ui.Settle();
  const Geometry before = UiHarness::GeometryOf(text);
  const Geometry at = UiHarness::GeometryOf(plate);
  const auto colourAt = [&](int down) { return ui.Pixel(at.x + at.width / 2, at.y + down) & 0xFFFFFF; };
  EXPECT_NE(colourAt(1), 0xFFFFFFu);

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
  EXPECT_EQ(colourAt(1), 0xFFFFFFu);
  EXPECT_EQ(colourAt(at.height / 2), 0u);

  vconf_set_int("db/menu/system/accessibility/focuszoom", 1);
  ASSERT_TRUE(ui.PumpUntil([&] { return events == 2; }));
  elm_config_scale_set(FLUX_SCALE_ENLARGED);
  ui.Settle();
  EXPECT_NEAR(UiHarness::GeometryOf(text).height, before.height * 1.2, 2);
  EXPECT_EQ(UiHarness::GeometryOf(plate), at);  // texts alone are enlarged
  vconf_set_int("db/menu/system/accessibility/voiceguide", 0);
  EXPECT_TRUE(ui.PumpUntil([] { return !elm_config_access_get(); }));
}

TEST(FluxSet, SpeaksWhatHasTheFocusInTheEndWhileTheScreenReaderIsOn) {
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  Evas_Object* first = AddButton(root, "First & last");
  Evas_Object* second = AddButton(root, "Second");
  elm_flux_access_info_set(second, [] { return std::string("Second of two"); });
  int clicks = 0;
  UiHarness::CountEvents(second, "clicked", clicks);
  ui.Settle();
  elm_object_focus_set(second, EINA_TRUE);
  EXPECT_TRUE(g_said.empty());
  elm_config_access_set(EINA_TRUE);
  elm_object_focus_set(first, EINA_TRUE);
  ui.Settle();
  ui.Key("Down");
  EXPECT_THAT(g_said, testing::ElementsAre("First & last", "Second of two"));
  ui.Key("Return");
  EXPECT_EQ(clicks, 1);

  g_said.clear();
  elm_object_focus_set(first, EINA_TRUE);  // in passing
  elm_object_focus_set(second, EINA_TRUE);
  ui.Settle();
  elm_object_focus_set(first, EINA_TRUE);
  evas_object_hide(root);
  ui.Settle();
  evas_object_show(root);
  elm_object_focus_set(second, EINA_TRUE);
  evas_object_del(second);
  elm_flux_toast_add(ui.Window(), "Message", 5);
  ui.Settle();
  Evas_Object* popup = elm_flux_popup_add(ui.Window());
  elm_flux_popup_title_set(popup, "Title");
  elm_flux_popup_button_add(popup, "OK");
  ui.Settle();
  EXPECT_THAT(g_said, testing::ElementsAre("Second of two", "announced: Message", "First & last", "Title. OK"));
  evas_object_del(popup);
}

TEST(FluxSet, WorksWithoutItsThemeAndWithAWrongWindowSize) {
  setenv("VEXILO_WINDOW", "640x480junk", 1);
  UiHarness ui(1280, 720, UiHarness::Theme::kMissing);
  EXPECT_THAT(LogText(), testing::HasSubstr("/usr/share/vexilo-flux/flux.edj"));
  EXPECT_THAT(LogText(), testing::HasSubstr("VEXILO_WINDOW=\"640x480junk\" is no size"));
  Evas_Object* root = ui.Root();
  Evas_Object* button = AddButton(root, "OK");
  Evas_Object* text = Pack(root, elm_flux_text_add(root), 60, 10, "Text");
  elm_object_content_set(AddPlate(root, 40, 20), elm_flux_progress_add(root, FLUX_PROGRESS_BAR));
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
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  const struct {
    double value;
    bool inverted, mirrored, greenAtQuarter, greenAtThreeQuarters;
  } cases[] = {{0.0, false, false, false, false}, {0.5, false, false, true, false}, {0.5, true, false, false, true},
               {0.5, false, true, false, true},   {0.5, true, true, true, false},   {7.0, false, false, true, true}};
  for (const FluxProgressStyle style : {FLUX_PROGRESS_BAR, FLUX_PROGRESS_TWO_PART}) {
    const bool isPlain = style == FLUX_PROGRESS_BAR;
    Evas_Object* bar = Pack(root, elm_flux_progress_add(root, style), 100, isPlain ? 5 : 0);
    for (const char* part : {"text3", "text4"}) elm_object_part_text_set(bar, part, "5 GB");  // the bar is below them
    elm_flux_progress_unit_set(bar, "%.0f%%");
    for (const auto& c : cases) {
      SCOPED_TRACE(testing::Message() << style << " " << c.value << c.inverted << c.mirrored);
      elm_config_mirrored_set(c.mirrored);
      elm_flux_progress_value_set(bar, c.value);
      elm_flux_progress_inverted_set(bar, c.inverted);
      ui.Settle();
      const Geometry at = UiHarness::GeometryOf(bar);
      const auto isGreen = [&](double where) {
        const uint32_t pixel =
            ui.Pixel(at.x + static_cast<int>(at.width * where), at.y + (isPlain ? at.height / 2 : at.height - 6));
        return (pixel >> 8 & 0xFF) > 180 && (pixel & 0xFF) < 60;
      };
      const bool stays = c.mirrored && !isPlain;  // on its side
      EXPECT_EQ(isGreen(stays ? 0.75 : 0.25), c.greenAtQuarter);
      EXPECT_EQ(isGreen(stays ? 0.25 : 0.75), c.greenAtThreeQuarters);
    }
    if (isPlain) continue;
    EXPECT_STREQ(elm_object_part_text_get(bar, "flux.unit"), "100%");
  }
}

TEST(FluxProgress, PulsesOnlyInSight) {
  UiHarness ui(1280, 720);
  Evas_Object* root = ui.Root();
  Evas_Object* inner = elm_flux_layout_add(root, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER);
  elm_flux_layout_pack(root, inner);
  for (const FluxProgressStyle style : {FLUX_PROGRESS_BAR, FLUX_PROGRESS_CIRCLE})
    elm_flux_progress_pulse(Pack(inner, elm_flux_progress_add(inner, style), 0, 0), true);
  int frames = 0;
  const auto count = [](void* n, Evas*, void*) { ++*static_cast<int*>(n); };
  evas_event_callback_add(ui.Canvas(), EVAS_CALLBACK_RENDER_POST, count, &frames);
  const auto drawsWithin = [&](double seconds) {
    frames = 0;
    return ui.PumpUntil([&] { return frames > 5; }, seconds);
  };
  EXPECT_TRUE(drawsWithin(10));
  evas_object_hide(inner);
  bool moves = true;
  for (int i = 0; moves && i < 10; ++i) moves = drawsWithin(0.6);
  EXPECT_FALSE(moves);
  evas_object_show(inner);
  EXPECT_TRUE(drawsWithin(10));
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
  Evas_Object* image = Pack(root, elm_flux_image_add(root), 20, 20);
  const std::filesystem::path folder = SystemPath("/tmp");
  std::vector<std::string> frames;
  for (int i = 0; i < 20; ++i) {
    frames.push_back(folder / ("frame" + std::to_string(i) + ".svg"));
    std::ofstream(frames.back()) << "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='32'>"
                                    "<rect width='64' height='32' fill='#00ff00'/></svg>";
  }
  const auto colourAt = [&](double down) {
    ui.Settle();
    const Geometry at = UiHarness::GeometryOf(image);
    return ui.Pixel(at.x + at.width / 2, at.y + static_cast<int>(at.height * down)) & 0xFFFFFF;
  };
  ASSERT_TRUE(elm_flux_image_file_set(image, frames[0]));
  EXPECT_EQ(colourAt(0.5), 0x00FF00u);
  EXPECT_NE(colourAt(0.1), 0x00FF00u) << "it is not distorted";

  std::ofstream(folder / "broken.png") << "no picture";
  for (const char* file : {"broken.png", "missing_1.png", "missing_1.png", "missing_2.png"})
    EXPECT_FALSE(elm_flux_image_file_set(image, folder / file)) << file;
  EXPECT_EQ(colourAt(0.5), 0x00FF00u);
  const std::string log = LogText();
  EXPECT_NE(log.find("broken.png"), std::string::npos);
  EXPECT_NE(log.find("missing_"), std::string::npos);
  EXPECT_EQ(log.find("missing_"), log.rfind("missing_")) << "said once for a folder";

  elm_flux_image_tint_set(image, "#FF0000");
  EXPECT_EQ(colourAt(0.5), 0xFF0000u);
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
