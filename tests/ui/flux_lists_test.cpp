// Lists, grids, popups and short messages, worked with keys on a canvas in memory.

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "elm_flux.h"
#include "ui/ui_harness.h"

namespace {

using testing::ElementsAre;

void DeleteIt(void*, Evas_Object* widget, void*) {
  evas_object_del(widget);
}

/// A button, a list or grid, and a button, below one another.
class FluxItems : public testing::Test {
 protected:
  std::vector<std::string> m_events;  // "focused 3"; written to until the window is gone
  std::set<int> m_drawn;              // rows whose texts a list of AddList() has asked for
  UiHarness m_ui{1280, 720};
  Evas_Object* m_root = m_ui.Root();
  Evas_Object* m_above = AddButton();
  Evas_Object* m_items = nullptr;
  Evas_Object* m_below = nullptr;

  Evas_Object* AddButton() {
    Evas_Object* button = elm_flux_button_add(m_root, FLUX_BUTTON_PLAIN);
    elm_object_text_set(button, "Button");
    elm_flux_layout_pack(m_root, button);
    return button;
  }

  template <const auto& kName>
  static void Record(void* events, Evas_Object*, void* index) {
    static_cast<std::vector<std::string>*>(events)->push_back(kName + std::to_string(*static_cast<int*>(index)));
  }
  static constexpr char kFocused[] = "focused ";
  static constexpr char kSelected[] = "selected ";

  void Add(Evas_Object* items) {
    m_items = items;
    elm_flux_size_set(items, 120, 60);
    elm_flux_layout_pack(m_root, items);
    m_below = AddButton();
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

  void Keys(const std::string& keys) {
    std::istringstream each(keys);
    for (std::string key; each >> key;) m_ui.Key(key.c_str());
  }
  std::string FocusedName() const {
    Evas_Object* focused = m_ui.Focused();
    return focused == m_above ? "above" : focused == m_items ? "items" : focused == m_below ? "below" : "nothing";
  }
};

TEST_F(FluxItems, ListIsPassedThroughWithArrowsAndTellsWhatHappens) {
  AddList(3);
  elm_object_focus_set(m_above, true);
  Keys("Down Down Down Return Down");
  EXPECT_EQ(FocusedName(), "below");
  EXPECT_THAT(m_events, ElementsAre("focused 0", "focused 1", "focused 2", "selected 2"));
  Keys("Up Up Up");
  EXPECT_EQ(FocusedName(), "items");
  EXPECT_EQ(elm_flux_list_focus_get(m_items), 0) << "it came back to the row it was left from";
  Keys("Up");
  EXPECT_EQ(FocusedName(), "above");
}

TEST_F(FluxItems, ListScrollsSoThatTheFocusAndHalfOfTheNextRowAreSeenAndDrawsNoOthers) {
  AddList(1000);
  elm_object_focus_set(m_items, true);
  Evas_Object* rows = elm_object_part_content_get(m_items, "elm.swallow.content");
  int content = 0;
  elm_scroller_child_size_get(rows, nullptr, &content);
  const int row = content / 1000;
  ASSERT_GT(row, 20);
  const auto expectSeen = [&](int index) {
    int top = 0, height = 0;
    const auto isSeen = [&] {
      elm_scroller_region_get(rows, nullptr, &top, nullptr, &height);
      return top <= std::max(0, index * row - row / 2 + 1) &&
             top + height >= std::min(content, (index + 1) * row + row / 2 - 1);
    };
    EXPECT_TRUE(m_ui.PumpUntil(isSeen)) << index << " of " << row << " in " << top << " + " << height;
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
  Evas_Object* rows = elm_object_part_content_get(m_items, "elm.swallow.content");
  int content = 0;
  elm_scroller_child_size_get(rows, nullptr, &content);
  const int row = content / 100;
  const auto isSeen = [&] {
    int top = 0, height = 0;
    elm_scroller_region_get(rows, nullptr, &top, nullptr, &height);
    const int focused = elm_flux_list_focus_get(m_items);
    return top <= focused * row && top + height >= (focused + 1) * row;
  };
  m_ui.Wheel(m_items, 6);
  EXPECT_TRUE(m_ui.PumpUntil([&] { return elm_flux_list_focus_get(m_items) > 0 && isSeen(); }));
  m_ui.Settle();
  const int followed = elm_flux_list_focus_get(m_items);
  Keys("Down");
  EXPECT_TRUE(m_ui.PumpUntil(isSeen));
  EXPECT_EQ(elm_flux_list_focus_get(m_items), followed + 1);
  elm_flux_list_focus_set(m_items, 99);
  m_ui.Settle();
  m_ui.Wheel(m_items, -6);
  EXPECT_TRUE(m_ui.PumpUntil([&] { return elm_flux_list_focus_get(m_items) < 99 && isSeen(); }));
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
    elm_flux_layout_clear(m_root);
    m_above = AddButton();
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
        elm_flux_layout_clear(m_root);
        m_above = AddButton();
        m_ui.Settle();
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

TEST_F(FluxPopup, AButtonMayDeleteItAndAnotherMayLieAboveIt) {
  AddPopup("Below");
  Evas_Object* below = m_popup;
  Evas_Object* belowButton = m_buttons[0];
  AddPopup("Above");
  EXPECT_EQ(FocusedButton(), 0);
  const auto end = [](void* popup, Evas_Object*, void*) { evas_object_del(static_cast<Evas_Object*>(popup)); };
  evas_object_smart_callback_add(m_buttons[0], "clicked", end, m_popup);
  Keys("Return");
  EXPECT_EQ(m_ui.Focused(), belowButton);
  evas_object_hide(below);
  m_ui.Settle();
  EXPECT_EQ(FocusedName(), "above");
}

TEST_F(FluxItems, AShortMessageEndsOnceAndTakesNoFocus) {
  elm_object_focus_set(m_above, true);
  int ended = 0, later = 0;
  Evas_Object* toast = elm_flux_toast_add(m_ui.Window(), "Message", 0.2);
  Evas_Object* early = elm_flux_toast_add(m_ui.Window(), std::string(2000, 'x'), 0.2);
  Evas_Object* last = elm_flux_toast_add(m_ui.Window(), "Later", 0.5);
  for (Evas_Object* each : {toast, early}) UiHarness::CountEvents(each, "timeout", ended);
  UiHarness::CountEvents(last, "timeout", later);
  evas_object_smart_callback_add(toast, "timeout", DeleteIt, nullptr);
  const auto at = UiHarness::GeometryOf(toast);
  EXPECT_GE(at.y, 0);
  EXPECT_LE(at.y + at.height, elm_flux_unit_to_px(15)) << "in the header of a page";
  EXPECT_GT(at.x, 640) << "where that has no title";
  const auto wide = UiHarness::GeometryOf(early);
  EXPECT_LE(wide.width, 1280);
  EXPECT_GT(wide.height, 2 * at.height) << "in several lines";
  evas_object_del(early);
  EXPECT_TRUE(m_ui.PumpUntil([&] { return later > 0; }));
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(FocusedName(), "above");
}

}  // namespace
