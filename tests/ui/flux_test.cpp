// The widget set, worked with keys and a pointer: geometry, texts, focus, settings, images; lists, grids, popups and
// short messages.

#include <unistd.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "elm_flux.h"
#include "flux/flux_core.h"
#include "speech/voice.h"
#include "support/files.h"
#include "ui/ui_harness.h"
#include "vconf.h"

namespace {

using Geometry = UiHarness::Geometry;
using testing::ElementsAre;

std::vector<std::string> g_said;

}  // namespace

void speech::Say(const std::string& text, Kind kind) {
  g_said.push_back((kind == Kind::kFocus ? "" : "announced: ") + text);
}

namespace {

Evas_Object* Pack(Evas_Object* parent, Evas_Object* widget, double width, double height, const char* text = nullptr) {
  if (text) elm_object_text_set(widget, text);
  elm_flux_size_set(widget, width, height);
  elm_flux_layout_pack(parent, widget);
  return widget;
}

Evas_Object* AddPlate(Evas_Object* parent, double width, double height) {
  return Pack(parent, elm_flux_plate_add(parent, FLUX_PLATE_PANEL, true, FLUX_PLATE_NORMAL), width, height);
}

Evas_Object* AddButton(Evas_Object* parent, const char* text = "Button") {
  return Pack(parent, elm_flux_button_add(parent, FLUX_BUTTON_PLAIN), 40, 10, text);
}

void DeleteIt(void*, Evas_Object* widget, void*) {
  evas_object_del(widget);
}

class Flux : public testing::Test {
 protected:
  void Keys(const std::string& keys) {
    std::istringstream each(keys);
    for (std::string key; each >> key;) m_ui.Key(key.c_str());
  }
  Geometry SettledGeometryOf(Evas_Object* widget) {
    m_ui.Settle();
    return UiHarness::GeometryOf(widget);
  }

  std::vector<std::string> m_events;  // "focused 3"; written to until the window is gone
  UiHarness m_ui{1280, 720};
  Evas_Object* m_root = m_ui.Root();
};

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

TEST_F(Flux, LayoutPlacesItsChildrenOnEveryScreen) {
  for (const int height : {720, 1080, 2160}) {
    m_ui.Resize(height * 16 / 9, height);
    const double unit = height / 135.0;
    for (const LayoutCase& c : kLayoutCases) {
      elm_config_mirrored_set(c.special == "rtl");
      Evas_Object* root = elm_flux_layout_add(m_ui.Window(), c.type, c.align);
      elm_flux_layout_padding_set(root, 10, 5, 20, 20);
      elm_flux_layout_gap_set(root, 5);
      elm_flux_layout_root_set(root, true);
      elm_win_resize_object_add(m_ui.Window(), root);
      Evas_Object* boxes[3];
      for (auto& box : boxes) box = AddPlate(root, 20, 10);
      if (c.special == "hide") evas_object_hide(boxes[1]);
      elm_flux_expand_set(boxes[1], c.special == "expand");
      elm_flux_expand_set(boxes[0], true);  // which has a size and keeps it
      if (c.special == "expand") elm_flux_size_set(boxes[1], 0, 0);
      m_ui.Settle();
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
  m_ui.Resize(1080, 1920);  // on an upright one the units fit the width
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

TEST_F(Flux, TextIsPlainAndNeverLargerThanItsBox) {
  for (const double scale : {FLUX_SCALE_NORMAL, FLUX_SCALE_ENLARGED})
    for (const char* text : {"OK", "Datenschutzeinstellungen zurücksetzen & neu starten <jetzt>",
                             "إعادة تعيين إعدادات الخصوصية والبدء من جديد الآن"})
      for (const int lines : {-1, 0, 1, 2}) {  // -1: a button, of whose lines the glyphs take 85 %
        SCOPED_TRACE(testing::Message() << text << " " << lines);
        elm_config_scale_set(scale);
        Evas_Object* widget = lines < 0 ? elm_flux_button_add(m_root, FLUX_BUTTON_PLAIN) : elm_flux_text_add(m_root);
        if (lines >= 0) elm_flux_text_lines_set(widget, lines);
        Pack(m_root, widget, 40, 12, text);
        m_ui.Settle();
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

TEST_F(Flux, TheFocusFollowsTheArrowsAndIsSeenAndAButtonIsClickedUnlessDisabled) {
  std::vector<Evas_Object*> buttons;
  for (int i = 0; i < 2; ++i) {
    Evas_Object* row = elm_flux_layout_add(m_root, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_LEFT);
    elm_flux_layout_gap_set(row, 5);
    elm_flux_layout_pack(m_root, row);
    for (int j = 0; j < 2; ++j) buttons.push_back(AddButton(row));
  }
  elm_object_focus_set(buttons[0], EINA_TRUE);
  m_ui.Settle();
  for (const auto& [key, focused] : {std::pair("Right", 1), {"Down", 3}, {"Left", 2}, {"Up", 0}}) {
    m_ui.Key(key);
    EXPECT_EQ(m_ui.Focused(), buttons[focused]) << key;
    for (Evas_Object* button : buttons) {
      const Geometry at = UiHarness::GeometryOf(button);
      const bool isLight = (m_ui.Pixel(at.x + at.width / 8, at.y + at.height / 2) & 0xFF) > 200;
      EXPECT_EQ(isLight, button == buttons[focused]) << key;
    }
  }
  int clicks = 0;
  UiHarness::CountEvents(buttons[0], "clicked", clicks);
  for (const int expected : {3, 0}) {
    Keys("Return KP_Enter");
    m_ui.Click(buttons[0]);
    EXPECT_EQ(std::exchange(clicks, 0), expected);
    elm_object_disabled_set(buttons[0], EINA_TRUE);
  }
}

TEST_F(Flux, FollowsTheSettings) {
  m_ui.Resize(1920, 1080);
  Evas_Object* plate = AddPlate(m_root, 60, 40);
  Evas_Object* text = Pack(m_root, elm_flux_text_add(m_root), 0, 0, "Text");
  const int lineHeight = SettledGeometryOf(text).height;
  const Geometry at = UiHarness::GeometryOf(plate);
  const auto colourAt = [&](int down) { return m_ui.Pixel(at.x + at.width / 2, at.y + down) & 0xFFFFFF; };
  EXPECT_NE(colourAt(1), 0xFFFFFFu);

  int events = 0;
  const Ecore_Event_Handler_Cb count = [](void* n, int, void*) {
    ++*static_cast<int*>(n);
    return ECORE_CALLBACK_PASS_ON;
  };
  ecore_event_handler_add(FLUX_EVENT_HIGH_CONTRAST_CHANGED, count, &events);
  ecore_event_handler_add(FLUX_EVENT_ENLARGE_CHANGED, count, &events);
  vconf_set_int("db/menu/system/accessibility/highcontrast", 1);
  ASSERT_TRUE(m_ui.PumpUntil([&] { return events == 1; }));
  m_ui.Settle();
  EXPECT_EQ(colourAt(1), 0xFFFFFFu);
  EXPECT_EQ(colourAt(at.height / 2), 0u);

  vconf_set_int("db/menu/system/accessibility/focuszoom", 1);
  ASSERT_TRUE(m_ui.PumpUntil([&] { return events == 2; }));
  elm_config_scale_set(FLUX_SCALE_ENLARGED);
  EXPECT_NEAR(SettledGeometryOf(text).height, lineHeight * 1.2, 2);
  EXPECT_EQ(UiHarness::GeometryOf(plate), at);  // texts alone are enlarged
  for (const int on : {1, 0}) {
    vconf_set_int("db/menu/system/accessibility/voiceguide", on);
    EXPECT_TRUE(m_ui.PumpUntil([on] { return elm_config_access_get() == on; }));
  }
}

TEST_F(Flux, SpeaksWhatHasTheFocusInTheEndWhileTheScreenReaderIsOn) {
  Evas_Object* first = AddButton(m_root, "First & last");
  Evas_Object* second = AddButton(m_root, "Second");
  elm_flux_access_info_set(second, [] { return std::string("Second of two"); });
  int clicks = 0;
  UiHarness::CountEvents(second, "clicked", clicks);
  m_ui.Settle();
  elm_object_focus_set(second, EINA_TRUE);
  EXPECT_TRUE(g_said.empty());
  elm_config_access_set(EINA_TRUE);
  elm_object_focus_set(first, EINA_TRUE);
  m_ui.Settle();
  m_ui.Key("Down");
  EXPECT_THAT(g_said, ElementsAre("First & last", "Second of two"));
  m_ui.Key("Return");
  EXPECT_EQ(clicks, 1);

  g_said.clear();
  elm_object_focus_set(first, EINA_TRUE);  // in passing
  elm_object_focus_set(second, EINA_TRUE);
  m_ui.Settle();
  elm_object_focus_set(first, EINA_TRUE);
  evas_object_hide(m_root);
  m_ui.Settle();
  evas_object_show(m_root);
  elm_object_focus_set(second, EINA_TRUE);
  evas_object_del(second);
  elm_flux_toast_add(m_ui.Window(), "Message", 5);
  m_ui.Settle();
  Evas_Object* popup = elm_flux_popup_add(m_ui.Window());
  elm_flux_popup_title_set(popup, "Title");
  elm_flux_popup_button_add(popup, "OK");
  m_ui.Settle();
  EXPECT_THAT(g_said, ElementsAre("Second of two", "announced: Message", "First & last", "Title. OK"));
  evas_object_del(popup);
}

TEST(FluxSet, WorksWithoutItsThemeAndWithAWrongWindowSize) {
  setenv("VEXILO_WINDOW", "640x480junk", 1);
  UiHarness ui(1280, 720, UiHarness::Theme::kMissing);
  EXPECT_THAT(Log(), testing::HasSubstr("/usr/share/vexilo-flux/flux.edj"));
  EXPECT_THAT(Log(), testing::HasSubstr("VEXILO_WINDOW=\"640x480junk\" is no size"));
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

TEST_F(Flux, ProgressShowsItsValueFromWhereReadingBegins) {
  const struct {
    double value;
    bool inverted, mirrored, greenAtQuarter, greenAtThreeQuarters;
  } cases[] = {{0.0, false, false, false, false}, {0.5, false, false, true, false}, {0.5, true, false, false, true},
               {0.5, false, true, false, true},   {0.5, true, true, true, false},   {7.0, false, false, true, true}};
  for (const FluxProgressStyle style : {FLUX_PROGRESS_BAR, FLUX_PROGRESS_TWO_PART}) {
    const bool isPlain = style == FLUX_PROGRESS_BAR;
    Evas_Object* bar = Pack(m_root, elm_flux_progress_add(m_root, style), 100, isPlain ? 5 : 0);
    for (const char* part : {"text3", "text4"}) elm_object_part_text_set(bar, part, "5 GB");  // the bar is below them
    elm_flux_progress_unit_set(bar, "%.0f%%");
    for (const auto& c : cases) {
      SCOPED_TRACE(testing::Message() << style << " " << c.value << c.inverted << c.mirrored);
      elm_config_mirrored_set(c.mirrored);
      elm_flux_progress_value_set(bar, c.value);
      elm_flux_progress_inverted_set(bar, c.inverted);
      m_ui.Settle();
      const Geometry at = UiHarness::GeometryOf(bar);
      const auto isGreen = [&](double where) {
        const uint32_t pixel =
            m_ui.Pixel(at.x + static_cast<int>(at.width * where), at.y + (isPlain ? at.height / 2 : at.height - 6));
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

TEST_F(Flux, ProgressPulsesOnlyInSight) {
  Evas_Object* inner = elm_flux_layout_add(m_root, FLUX_LAYOUT_STACK, FLUX_ALIGN_CENTER);
  elm_flux_layout_pack(m_root, inner);
  for (const FluxProgressStyle style : {FLUX_PROGRESS_BAR, FLUX_PROGRESS_CIRCLE})
    elm_flux_progress_pulse(Pack(inner, elm_flux_progress_add(inner, style), 0, 0), true);
  int frames = 0;
  const auto count = [](void* n, Evas*, void*) { ++*static_cast<int*>(n); };
  evas_event_callback_add(m_ui.Canvas(), EVAS_CALLBACK_RENDER_POST, count, &frames);
  const auto drawsWithin = [&](double seconds) {
    frames = 0;
    return m_ui.PumpUntil([&] { return frames > 5; }, seconds);
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

TEST_F(Flux, ImageKeepsThePictureWhenAFileFailsAndDoesNotGrow) {
  Evas_Object* image = Pack(m_root, elm_flux_image_add(m_root), 20, 20);
  const fs::path folder = SystemPath("/tmp");
  std::vector<std::string> frames;
  for (int i = 0; i < 20; ++i) {
    frames.push_back(folder / ("frame" + std::to_string(i) + ".svg"));
    WriteHostFile(frames.back(),
                  "<svg xmlns='http://www.w3.org/2000/svg' width='64' height='32'>"
                  "<rect width='64' height='32' fill='#00ff00'/></svg>");
  }
  const auto colourAt = [&](double down) {
    m_ui.Settle();
    const Geometry at = UiHarness::GeometryOf(image);
    return m_ui.Pixel(at.x + at.width / 2, at.y + static_cast<int>(at.height * down)) & 0xFFFFFF;
  };
  ASSERT_TRUE(elm_flux_image_file_set(image, frames[0]));
  EXPECT_EQ(colourAt(0.5), 0x00FF00u);
  EXPECT_NE(colourAt(0.1), 0x00FF00u) << "it is not distorted";

  WriteHostFile(folder / "broken.png", "no picture");
  for (const char* file : {"broken.png", "missing_1.png", "missing_1.png", "missing_2.png"})
    EXPECT_FALSE(elm_flux_image_file_set(image, folder / file)) << file;
  EXPECT_EQ(colourAt(0.5), 0x00FF00u);
  EXPECT_EQ(Count(Log(), "broken.png"), 1);
  EXPECT_EQ(Count(Log(), "missing_"), 1) << "said once for a folder";

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
    evas_render(m_ui.Canvas());
  }
#ifdef __SANITIZE_ADDRESS__
  constexpr long kMostGrowth = 64 * 1024;  // what is freed is kept for a while
#else
  constexpr long kMostGrowth = 1024;
#endif
  EXPECT_LT(ResidentKiB() - before, kMostGrowth);
}

// ---- lists and grids

/// A button, a list or grid, and a button, below one another.
class FluxItems : public Flux {
 protected:
  template <const auto& kName>
  static void Record(void* events, Evas_Object*, void* index) {
    static_cast<std::vector<std::string>*>(events)->push_back(kName + std::to_string(*static_cast<int*>(index)));
  }
  static constexpr char kFocused[] = "focused ";
  static constexpr char kSelected[] = "selected ";

  void Add(Evas_Object* items) {
    m_items = items;
    Pack(m_root, items, 120, 60);
    m_below = AddButton(m_root);
    evas_object_smart_callback_add(items, "item,focused", Record<kFocused>, &m_events);
    evas_object_smart_callback_add(items, "item,selected", Record<kSelected>, &m_events);
    m_ui.Settle();
  }
  void AddList(int rows) {
    Add(elm_flux_list_add(m_root, FLUX_ROW_SINGLE_LINE_03));
    elm_flux_list_text_set(m_items, [this](int index, const std::string& part) {
      m_drawn.insert(index);
      return part + std::to_string(index);
    });
    elm_flux_list_append(m_items, rows);
    m_ui.Settle();
  }
  void AddGrid(int cards, int columns) {
    Add(elm_flux_grid_add(m_root, columns));
    elm_flux_grid_cards_set(m_items, std::vector<FluxCard>(cards, FluxCard{"", "Card", false}));
    m_ui.Settle();
  }
  void Clear() {
    elm_flux_layout_clear(m_root);
    m_above = AddButton(m_root);
    m_ui.Settle();
  }
  /// Whether the list is scrolled so that a row, and this part of those beside it, is seen.
  bool Sees(int index, double beside) const {
    Evas_Object* rows = elm_object_part_content_get(m_items, "elm.swallow.content");
    int content = 0, top = 0, height = 0;
    elm_scroller_child_size_get(rows, nullptr, &content);
    elm_scroller_region_get(rows, nullptr, &top, nullptr, &height);
    const double row = 1.0 * content / elm_flux_list_count(m_items);
    return row > 20 && top <= std::max(0.0, (index - beside) * row + 2) &&
           top + height >= std::min(1.0 * content, (index + 1 + beside) * row - 2);
  }
  std::string FocusedName() const {
    Evas_Object* focused = m_ui.Focused();
    return focused == m_above ? "above" : focused == m_items ? "items" : focused == m_below ? "below" : "nothing";
  }

  std::set<int> m_drawn;  // rows whose texts a list of AddList() has asked for
  Evas_Object* m_above = AddButton(m_root);
  Evas_Object* m_items = nullptr;
  Evas_Object* m_below = nullptr;
};

TEST_F(FluxItems, ListScrollsSoThatTheFocusAndHalfOfTheNextRowAreSeenAndDrawsNoOthers) {
  AddList(1000);
  elm_object_focus_set(m_items, true);
  const auto expectSeen = [&](int index) {
    EXPECT_TRUE(m_ui.PumpUntil([&] { return Sees(index, 0.5); })) << index;
    EXPECT_EQ(elm_flux_list_focus_get(m_items), index);
  };
  for (int i = 0; i < 9; ++i) Keys("Down");
  expectSeen(9);
  EXPECT_LT(m_drawn.size(), 100u);
  Keys("Next");
  const int page = elm_flux_list_focus_get(m_items);
  EXPECT_GT(page, 10);
  expectSeen(page);
  Keys("Prior");
  expectSeen(9);
  Keys("End");
  expectSeen(999);
  elm_flux_list_focus_set(m_items, 500);
  expectSeen(500);
}

TEST_F(FluxItems, TheFocusFollowsTheWheelAndAKeyGoesOnFromThere) {
  AddList(100);
  elm_object_focus_set(m_items, true);
  const auto focus = [&] { return elm_flux_list_focus_get(m_items); };
  m_ui.Wheel(m_items, 6);
  EXPECT_TRUE(m_ui.PumpUntil([&] { return focus() > 0 && Sees(focus(), 0); }));
  m_ui.Settle();
  const int followed = focus();
  Keys("Down");
  EXPECT_TRUE(m_ui.PumpUntil([&] { return Sees(focus(), 0); }));
  EXPECT_EQ(focus(), followed + 1);
  elm_flux_list_focus_set(m_items, 99);
  m_ui.Settle();
  m_ui.Wheel(m_items, -6);
  EXPECT_TRUE(m_ui.PumpUntil([&] { return focus() < 99 && Sees(focus(), 0); }));
  EXPECT_EQ(FocusedName(), "items");
}

TEST_F(FluxItems, AKeyThatIsHeldDoesNotLeaveListsAndGrids) {
  for (const bool isList : {true, false}) {
    if (isList)
      AddList(3);
    else
      AddGrid(6, 2);
    elm_object_focus_set(m_items, true);
    m_ui.Hold("Down", 5);
    EXPECT_EQ(FocusedName(), "items");
    EXPECT_EQ(m_events.back(), isList ? "focused 2" : "focused 4");
    m_ui.Hold("Down", 1);
    EXPECT_EQ(FocusedName(), "below");
    Keys("Up Return");
    EXPECT_EQ(m_events.back(), isList ? "selected 2" : "selected 4") << "it came back to where it was left";
    Keys(isList ? "Up Up Up" : "Up Up Up Up");
    EXPECT_EQ(FocusedName(), "above");
    Clear();
  }
}

TEST_F(FluxItems, RemovingARowKeepsTheFocusInPlace) {
  const struct {
    int rows, focused, removed, expected;
  } kCases[] = {{4, 1, 0, 0}, {4, 1, 1, 1}, {4, 1, 3, 1}, {4, 3, 3, 2}, {4, 0, 0, 0}, {1, 0, 0, -1}};
  AddList(0);
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.removed << " of " << c.rows);
    while (elm_flux_list_count(m_items) > 0) elm_flux_list_remove(m_items, 0);
    elm_flux_list_append(m_items, c.rows);
    m_ui.Settle();
    elm_flux_list_focus_set(m_items, c.focused);
    elm_flux_list_remove(m_items, c.removed);
    m_ui.Settle();
    EXPECT_EQ(elm_flux_list_focus_get(m_items), c.expected);
    EXPECT_EQ(elm_flux_list_count(m_items), c.rows - 1);
    EXPECT_NE(FocusedName(), "nothing");
    EXPECT_EQ(FocusedName() == "items", c.rows > 1) << "an empty list has no focus";
  }
}

TEST_F(FluxItems, TextsAndChecksAreAskedForAgainAndKept) {
  Add(elm_flux_list_add(m_root, FLUX_ROW_CHECK));
  std::vector<std::string> asked;
  elm_flux_list_text_set(m_items, [&](int index, const std::string& part) {
    asked.push_back(part + std::to_string(index));
    return std::string();
  });
  elm_flux_list_append(m_items, 3);
  elm_flux_list_checks_show(m_items, true);
  elm_flux_list_check_set(m_items, 1, true);
  m_ui.Settle();
  asked.clear();
  elm_flux_list_update(m_items, 2);
  m_ui.Settle();
  EXPECT_THAT(asked, testing::UnorderedElementsAre("main.text2", "sub.text12", "icon2"));
  elm_flux_list_remove(m_items, 0);
  EXPECT_TRUE(elm_flux_list_check_get(m_items, 0)) << "the mark moves with its row";
  EXPECT_FALSE(elm_flux_list_check_get(m_items, 1));
  EXPECT_FALSE(elm_flux_list_check_get(m_items, 7));
}

TEST_F(FluxItems, GridMovesByRowsAndColumnsAndIsLeftAtItsEdges) {
  // Seven cards in rows of four.
  const struct {
    bool mirrored;
    int from;
    const char* key;
    int expected;
    const char* focus;
  } kCases[] = {
      {false, 0, "Right", 1, "items"}, {false, 1, "Left", 0, "items"},  {false, 1, "Down", 5, "items"},
      {false, 3, "Down", 6, "items"},  {false, 6, "Up", 2, "items"},    {false, 2, "Up", 2, "above"},
      {false, 5, "Down", 5, "below"},  {false, 6, "Right", 6, "items"}, {false, 3, "Right", 3, "items"},
      {true, 0, "Left", 1, "items"},   {true, 1, "Right", 0, "items"},  {true, 4, "Up", 0, "items"},
  };
  AddGrid(7, 4);
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.from << " " << c.key);
    elm_config_mirrored_set(c.mirrored);
    elm_flux_grid_focus_set(m_items, c.from);
    Keys(c.key);
    EXPECT_EQ(FocusedName(), c.focus);
    elm_object_focus_set(m_items, true);
    m_events.clear();
    Keys("Return");
    EXPECT_THAT(m_events, ElementsAre("selected " + std::to_string(c.expected)));
  }
}

TEST_F(FluxItems, WhatListensMayDeleteTheWidget) {
  for (const bool isList : {true, false})
    for (const char* event : {"item,focused", "item,selected"})
      for (const char* key : {"Down", "Return"}) {
        if (isList)
          AddList(6);
        else
          AddGrid(6, 2);
        elm_object_focus_set(m_items, true);
        evas_object_smart_callback_add(m_items, event, DeleteIt, nullptr);
        Keys(key);
        m_ui.Click(m_items);
        m_ui.Settle();
        EXPECT_NE(m_ui.Focused(), nullptr) << event << " " << key;
        Clear();
      }
}

// ---- above a screen

class FluxPopup : public FluxItems {
 protected:
  Evas_Object* m_popup = nullptr;
  Evas_Object* m_buttons[3] = {};

  void AddPopup(const std::string& text) {
    elm_object_focus_set(m_above, true);
    m_popup = elm_flux_popup_add(m_ui.Window());
    elm_flux_popup_title_set(m_popup, "Title");
    elm_flux_popup_text_set(m_popup, text);
    for (Evas_Object*& button : m_buttons) button = elm_flux_popup_button_add(m_popup, "Anwendungsdaten löschen");
    m_ui.Settle();
  }
  /// Its number; 3 for none.
  int FocusedButton() const {
    return static_cast<int>(std::ranges::find(m_buttons, m_ui.Focused()) - std::begin(m_buttons));
  }
};

TEST_F(FluxPopup, KeepsTheFocusAndGivesItBack) {
  AddPopup("Text");
  EXPECT_EQ(elm_flux_popup_button_add(m_popup, "Fourth"), nullptr);
  const struct {
    bool mirrored;
    const char* key;
    int expected;
  } kSteps[] = {{false, "Up", 0},    {false, "Left", 0}, {false, "Right", 1}, {false, "Right", 2},
                {false, "Right", 2}, {false, "Down", 2}, {false, "Tab", 2},   {false, "Left", 1},
                {true, "Left", 2},   {true, "Right", 1}, {true, "Right", 0}};
  ASSERT_EQ(FocusedButton(), 0);
  for (const auto& step : kSteps) {
    elm_config_mirrored_set(step.mirrored);
    Keys(step.key);
    EXPECT_EQ(FocusedButton(), step.expected) << step.key;
  }
  elm_object_focus_set(m_above, true);
  m_ui.Settle();
  EXPECT_EQ(FocusedButton(), 0) << "another took the focus";
  elm_flux_popup_focus_set(m_popup, 2);
  m_ui.Settle();
  EXPECT_EQ(FocusedButton(), 2);
  evas_object_del(m_popup);
  m_ui.Settle();
  EXPECT_EQ(FocusedName(), "above");
}

TEST(FluxPopups, AskNothingOfAWindowThatGoes) {
  static int problems = 0;
  eina_log_print_cb_set([](const Eina_Log_Domain*, Eina_Log_Level level, const char*, const char*, int, const char*,
                           void*, va_list) { problems += level <= EINA_LOG_LEVEL_ERR; },
                        nullptr);
  {
    UiHarness ui(960, 540);
    Evas_Object* button = AddButton(ui.Root(), "Below");
    elm_object_focus_set(button, EINA_TRUE);
    Evas_Object* popup = elm_flux_popup_add(ui.Window());
    elm_flux_popup_button_add(popup, "OK");
    ui.Settle();
    problems = 0;
  }
  EXPECT_EQ(problems, 0);
}

TEST_F(FluxPopup, LiesWithinTheScreenHoweverLongItsTextAndItsContentIsReplaceable) {
  std::string text = "Several <words> & more. ";
  for (int i = 0; i < 9; ++i) text += text;
  const auto lies = [](const UiHarness::Geometry& in, const UiHarness::Geometry& at) {
    return at.x >= in.x && at.y >= in.y && at.x + at.width <= in.x + in.width && at.y + at.height <= in.y + in.height;
  };
  for (const double scale : {FLUX_SCALE_NORMAL, FLUX_SCALE_ENLARGED}) {
    elm_config_scale_set(scale);
    AddPopup(text);
    Evas_Object* panel = elm_object_part_content_get(m_popup, "flux.size");
    const auto at = UiHarness::GeometryOf(panel);
    EXPECT_TRUE(lies({0, 0, 1280, 720}, at)) << at;
    for (Evas_Object* button : m_buttons)
      EXPECT_TRUE(lies(at, UiHarness::GeometryOf(button))) << UiHarness::GeometryOf(button) << " in " << at;
    const auto scrolled = [scroller = elm_object_content_get(m_popup)] {
      int top = 0;
      elm_scroller_region_get(scroller, nullptr, &top, nullptr, nullptr);
      return top;
    };
    const int before = scrolled();
    Keys("Down");
    EXPECT_TRUE(m_ui.PumpUntil([&] { return scrolled() > before; }));
    Evas_Object* own = elm_flux_text_add(m_popup);
    elm_object_text_set(own, "Other");
    elm_object_content_set(m_popup, own);
    m_ui.Settle();
    EXPECT_LT(UiHarness::GeometryOf(panel).height, at.height) << "fits what it holds now";
    evas_object_del(m_popup);
    m_ui.Settle();
  }
}

TEST_F(FluxItems, AShortMessageLiesInTheHeaderAndTakesNoFocus) {
  elm_object_focus_set(m_above, true);
  int ended = 0;
  Evas_Object* toast = elm_flux_toast_add(m_ui.Window(), "Message", 0.2);
  UiHarness::CountEvents(toast, "timeout", ended);
  evas_object_smart_callback_add(toast, "timeout", DeleteIt, nullptr);
  const auto at = UiHarness::GeometryOf(toast);
  EXPECT_TRUE(at.y >= 0 && at.y + at.height <= elm_flux_unit_to_px(15)) << at << " in the header of a page";
  EXPECT_GT(at.x, 640) << "where that has no title";
  Evas_Object* wide = elm_flux_toast_add(m_ui.Window(), std::string(2000, 'x'), 0.1);
  EXPECT_LE(UiHarness::GeometryOf(wide).width, 1280);
  EXPECT_GT(UiHarness::GeometryOf(wide).height, 2 * at.height) << "in several lines";
  evas_object_del(wide);  // before its time
  EXPECT_TRUE(m_ui.PumpUntil([&] { return ended > 0; }));
  EXPECT_EQ(FocusedName(), "above");
}

}  // namespace
