// Lists, grids, popups, short messages and the two-part progress, worked with keys on a canvas in memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "elm_flux.h"
#include "ui/ui_harness.h"

namespace {

using testing::ElementsAre;

/// "focused 3" for each event of an item widget.
std::vector<std::string>& Record(Evas_Object* widget, std::vector<std::string>& events) {
  const auto on = [&](const char* event, Evas_Smart_Cb callback) {
    evas_object_smart_callback_add(widget, event, callback, &events);
  };
  on("item,focused", [](void* data, Evas_Object*, void* index) {
    static_cast<std::vector<std::string>*>(data)->push_back("focused " + std::to_string(*static_cast<int*>(index)));
  });
  on("item,selected", [](void* data, Evas_Object*, void* index) {
    static_cast<std::vector<std::string>*>(data)->push_back("selected " + std::to_string(*static_cast<int*>(index)));
  });
  return events;
}

void DeleteIt(void*, Evas_Object* widget, void*) {
  evas_object_del(widget);
}

/// A button, a list or grid, and a button, below one another.
class FluxItems : public testing::Test {
 protected:
  std::vector<std::string> m_events;  // written to until the window is gone
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

  void Add(Evas_Object* items) {
    m_items = items;
    elm_flux_size_set(items, 120, 60);
    elm_flux_layout_pack(m_root, items);
    m_below = AddButton();
    Record(items, m_events);
  }

  void AddList(int rows) {
    Add(elm_flux_list_add(m_root, FLUX_ROW_SINGLE_LINE_03));
    elm_flux_list_text_set(m_items, [](int index, const std::string& part) { return part + std::to_string(index); });
    elm_flux_list_append(m_items, rows);
    m_ui.Settle();
  }

  void AddGrid(int cards, int columns) {
    Add(elm_flux_grid_add(m_root, columns));
    elm_flux_grid_cards_set(m_items, std::vector<FluxCard>(cards, FluxCard{"", "Card", false}));
    m_ui.Settle();
  }

  void Keys(std::initializer_list<const char*> keys) {
    for (const char* key : keys) m_ui.Key(key);
  }

  std::string FocusedName() const {
    Evas_Object* focused = m_ui.Focused();
    return focused == m_above ? "above" : focused == m_items ? "items" : focused == m_below ? "below" : "nothing";
  }
};

TEST_F(FluxItems, ListIsPassedThroughWithArrowsAndTellsWhatHappens) {
  AddList(3);
  elm_object_focus_set(m_above, true);
  Keys({"Down", "Down", "Down", "Return", "Down"});
  EXPECT_EQ(FocusedName(), "below");
  EXPECT_THAT(m_events, ElementsAre("focused 0", "focused 1", "focused 2", "selected 2"));
  Keys({"Up", "Up", "Up"});
  EXPECT_EQ(FocusedName(), "items");
  EXPECT_EQ(elm_flux_list_focus_get(m_items), 0) << "it came back to the row it was left from";
  Keys({"Up"});
  EXPECT_EQ(FocusedName(), "above");
}

TEST_F(FluxItems, ListScrollsSoThatTheFocusAndHalfOfTheNextRowAreSeen) {
  AddList(1000);
  elm_object_focus_set(m_items, true);
  Evas_Object* rows = elm_object_part_content_get(m_items, "elm.swallow.content");
  int content = 0;
  elm_scroller_child_size_get(rows, nullptr, &content);
  const int row = content / 1000;
  ASSERT_GT(row, 20);
  const auto expectSeen = [&](int index) {
    m_ui.PumpUntil([] { return false; }, 0.8);  // until it has scrolled
    int top = 0, height = 0;
    elm_scroller_region_get(rows, nullptr, &top, nullptr, &height);
    EXPECT_EQ(elm_flux_list_focus_get(m_items), index);
    EXPECT_LE(top, std::max(0, index * row - row / 2 + 1)) << index;
    EXPECT_GE(top + height, std::min(content, (index + 1) * row + row / 2 - 1)) << index;
  };
  for (int i = 0; i < 9; ++i) m_ui.Key("Down");
  expectSeen(9);
  m_ui.Key("Next");
  const int page = elm_flux_list_focus_get(m_items);
  EXPECT_GT(page, 10);
  expectSeen(page);
  m_ui.Key("Prior");
  expectSeen(9);
  m_ui.Key("End");
  expectSeen(999);
  elm_flux_list_focus_set(m_items, 500);
  expectSeen(500);
}

TEST_F(FluxItems, AThousandRowsAreQuick) {
  const double start = ecore_time_get();
  AddList(1000);
  EXPECT_LT(ecore_time_get() - start, 3.0);
  elm_object_focus_set(m_items, true);
  int drawn = 0;
  evas_event_callback_add(
      m_ui.Canvas(), EVAS_CALLBACK_RENDER_POST, [](void* data, Evas*, void*) { ++*static_cast<int*>(data); }, &drawn);
  const double moved = ecore_time_get();
  for (int i = 0; i < 20; ++i) m_ui.Key("Down");
  EXPECT_LT((ecore_time_get() - moved) / drawn, 0.1) << "seconds a frame, on a machine that others use";
}

TEST_F(FluxItems, RemovingARowKeepsTheFocusInPlace) {
  const struct {
    int rows, focused, removed, expected;
  } kCases[] = {{4, 1, 0, 0}, {4, 1, 1, 1}, {4, 1, 3, 1}, {4, 3, 3, 2}, {4, 0, 0, 0}, {1, 0, 0, -1}};
  AddList(0);
  for (const auto& c : kCases) {
    elm_flux_list_clear(m_items);
    elm_flux_list_append(m_items, c.rows);
    m_ui.Settle();
    elm_flux_list_focus_set(m_items, c.focused);
    elm_flux_list_remove(m_items, c.removed);
    m_ui.Settle();
    EXPECT_EQ(elm_flux_list_focus_get(m_items), c.expected) << c.removed << " of " << c.rows;
    EXPECT_EQ(elm_flux_list_count(m_items), c.rows - 1);
    EXPECT_NE(FocusedName(), "nothing");
    EXPECT_EQ(FocusedName() == "items", c.rows > 1) << "an empty list has no focus";
  }
}

TEST_F(FluxItems, TextsAndChecksAreAskedForAgainAndKept) {
  Add(elm_flux_list_add(m_root, FLUX_ROW_CHECK));
  std::string size = "1 MB";
  std::vector<std::string> asked;
  elm_flux_list_text_set(m_items, [&](int index, const std::string& part) {
    asked.push_back(part + std::to_string(index));
    return part == "icon" ? "" : size;
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
      {false, 5, "Down", 5, "below"},  {false, 6, "Right", 6, "items"}, {true, 0, "Left", 1, "items"},
      {true, 1, "Right", 0, "items"},  {true, 4, "Up", 0, "items"},
  };
  AddGrid(7, 4);
  for (const auto& c : kCases) {
    elm_config_mirrored_set(c.mirrored);
    elm_flux_grid_focus_set(m_items, c.from);
    m_events.clear();
    m_ui.Key(c.key);
    EXPECT_EQ(FocusedName(), c.focus) << c.from << " " << c.key;
    elm_object_focus_set(m_items, true);
    m_events.clear();
    m_ui.Key("Return");
    EXPECT_THAT(m_events, ElementsAre("selected " + std::to_string(c.expected))) << c.from << " " << c.key;
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
        Evas_Object* below = m_below;
        elm_object_focus_set(m_items, true);
        evas_object_smart_callback_add(m_items, event, DeleteIt, nullptr);
        m_ui.Key(key);
        m_ui.Click(m_items);
        m_ui.Settle();
        EXPECT_NE(m_ui.Focused(), nullptr) << event << " " << key;
        elm_flux_layout_clear(m_root);
        m_above = AddButton();
        m_ui.Settle();
        (void)below;
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

  int FocusedButton() const {
    for (int i = 0; i < 3; ++i)
      if (m_ui.Focused() == m_buttons[i]) return i;
    return -1;
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
    m_ui.Key(step.key);
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
  std::string text;
  for (int i = 0; i < 400; ++i) text += "Several <words> & more. ";
  for (const double scale : {FLUX_SCALE_NORMAL, FLUX_SCALE_ENLARGED}) {
    elm_config_scale_set(scale);
    AddPopup(text);
    Evas_Object* panel = elm_object_part_content_get(m_popup, "flux.size");
    const auto at = UiHarness::GeometryOf(panel);
    EXPECT_GE(at.x, 0);
    EXPECT_GE(at.y, 0);
    EXPECT_LE(at.y + at.height, 720) << at;
    EXPECT_LE(at.x + at.width, 1280) << at;
    for (Evas_Object* button : m_buttons) {
      const auto inside = UiHarness::GeometryOf(button);
      EXPECT_TRUE(inside.x > at.x && inside.x + inside.width < at.x + at.width &&
                  inside.y + inside.height < at.y + at.height)
          << inside << " in " << at;
    }
    Evas_Object* scroller = elm_object_content_get(m_popup);
    int before = 0, after = 0;
    elm_scroller_region_get(scroller, nullptr, &before, nullptr, nullptr);
    m_ui.Key("Down");
    m_ui.PumpUntil([] { return false; }, 0.8);
    elm_scroller_region_get(scroller, nullptr, &after, nullptr, nullptr);
    EXPECT_GT(after, before);
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
  evas_object_smart_callback_add(
      m_buttons[0], "clicked",
      [](void* popup, Evas_Object*, void*) { evas_object_del(static_cast<Evas_Object*>(popup)); }, m_popup);
  m_ui.Key("Return");
  EXPECT_EQ(m_ui.Focused(), belowButton);
  evas_object_hide(below);
  m_ui.Settle();
  EXPECT_EQ(FocusedName(), "above");
}

TEST_F(FluxItems, AShortMessageEndsOnceAndTakesNoFocus) {
  elm_object_focus_set(m_above, true);
  int ended = 0;
  const Evas_Smart_Cb count = [](void* data, Evas_Object*, void*) { ++*static_cast<int*>(data); };
  Evas_Object* toast = elm_flux_toast_add(m_ui.Window(), "Message", 0.05);
  Evas_Object* early = elm_flux_toast_add(m_ui.Window(), std::string(2000, 'x'), 0.05);
  evas_object_smart_callback_add(toast, "timeout", count, &ended);
  evas_object_smart_callback_add(toast, "timeout", DeleteIt, nullptr);
  evas_object_smart_callback_add(early, "timeout", count, &ended);
  const auto at = UiHarness::GeometryOf(toast);
  EXPECT_GT(at.y, 360);
  EXPECT_LE(at.y + at.height, 720);
  EXPECT_LE(UiHarness::GeometryOf(early).width, 1280);
  evas_object_del(early);
  m_ui.PumpUntil([] { return false; }, 0.4);
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(FocusedName(), "above");
}

TEST_F(FluxItems, TwoPartProgressFillsFromTheSideItIsToldTo) {
  Evas_Object* bar = elm_flux_progress_add(m_root, FLUX_PROGRESS_TWO_PART);
  elm_flux_size_set(bar, 100, 0);
  elm_object_part_text_set(bar, "text3", "5 GB");
  elm_object_part_text_set(bar, "text4", "3(37%)");
  elm_flux_layout_pack(m_root, bar);
  elm_flux_progress_unit_set(bar, "%.0f%%");
  elm_flux_progress_value_set(bar, 0.25);
  for (const bool inverted : {false, true}) {
    elm_flux_progress_inverted_set(bar, inverted);
    m_ui.Settle();
    const auto at = UiHarness::GeometryOf(bar);
    const int y = at.y + at.height - 6;
    const auto green = [&](int x) { return (m_ui.Pixel(x, y) >> 8 & 0xFF) > 180; };
    EXPECT_EQ(green(at.x + at.width / 8), !inverted);
    EXPECT_EQ(green(at.x + at.width * 7 / 8), inverted);
  }
  EXPECT_STREQ(elm_object_part_text_get(bar, "flux.unit"), "25%");
}

}  // namespace
