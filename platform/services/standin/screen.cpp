#include "screen.h"

#include <Elementary.h>
#include <glib-unix.h>
#include <libintl.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>

#include "c_handle.h"
#include "set_paths.h"
#include "system_path.h"

namespace standin {

namespace {

constexpr char kTextDomain[] = "com.tornelo.TVVexilo";
constexpr int kUnitsOfHeight = 135;  // a unit is 8 pixels on a screen of 1080

// Places and sizes in units.
constexpr int kMargin = 15;
constexpr int kTop = 20;
constexpr int kRowPadding = 2;
constexpr int kKeyShare = 3;  // the keys have this part of the width: a third
constexpr int kGap = 4;
constexpr int kButtonWidth = 28;
constexpr int kButtonHeight = 9;
constexpr int kTitleText = 8;
constexpr int kBodyText = 4;
constexpr int kHeadingText = 3;

constexpr int kMaxValueLines = 3;

struct Color {
  int red, green, blue;
};
constexpr Color kBackground{14, 17, 22};
constexpr Color kLine{42, 48, 57};
constexpr Color kAccent{0x89, 0xE4, 0x13};

constexpr char kTitleStyle[] = "font=Sans:style=Bold color=#FFFFFF wrap=word ellipsis=1.0";
constexpr char kNoteStyle[] = "font=Sans color=#A7B0BC wrap=word";
constexpr char kHeadingStyle[] = "font=Sans:style=Bold color=#89E413";
constexpr char kKeyStyle[] = "font=Sans color=#A7B0BC wrap=mixed ellipsis=1.0";
constexpr char kValueStyle[] = "font=Sans color=#FFFFFF wrap=mixed ellipsis=1.0";
constexpr char kButtonStyle[] = "font=Sans:style=Bold color=#0E1116 align=center";

struct Area {
  int x, y, width, height;
};

using TextStyle = std::unique_ptr<Evas_Textblock_Style, CRelease<&evas_textblock_style_free>>;

/// A text of the catalogue, in the menu language.
const char* Translated(const char* id) {
  return dgettext(kTextDomain, id);
}

class Screen {
 public:
  explicit Screen(const Asked& asked) : m_asked(asked) {}
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  bool Make();

 private:
  static void OnResize(void* self, Evas*, Evas_Object*, void*) { static_cast<Screen*>(self)->Draw(); }
  static Eina_Bool OnKey(void*, int, void* event);
  static void OnClick(void*, Evas*, Evas_Object*, void*) { elm_exit(); }

  void Draw();
  int DrawRow(int top, const std::string& key, const std::string& value);
  Evas_Object* AddBox(const Area& area, const Color& color);
  /// Returns the height that it took: at most `lines` lines, or as many as it needs for 0.
  int AddText(const Area& area, const std::string& text, const char* style, int units, int lines);
  int Pixels(int units) const { return static_cast<int>(std::lround(units * m_unit)); }

  const Asked& m_asked;
  Evas_Object* m_window = nullptr;
  double m_unit = 8;
  int m_width = 0;
  std::vector<Evas_Object*> m_drawn;  // owned by the canvas until the next Draw()
};

bool Screen::Make() {
  m_window = elm_win_add(nullptr, "vexilo-standin", ELM_WIN_BASIC);
  if (!m_window) return false;
  elm_win_title_set(m_window, m_asked.name.c_str());
  elm_win_autodel_set(m_window, EINA_TRUE);
  elm_policy_set(ELM_POLICY_QUIT, ELM_POLICY_QUIT_LAST_WINDOW_CLOSED);
  evas_object_event_callback_add(m_window, EVAS_CALLBACK_RESIZE, OnResize, this);
  ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, OnKey, nullptr);
  int width = 1920;
  int height = 1080;
  elm_win_screen_size_get(m_window, nullptr, nullptr, &width, &height);
  evas_object_resize(m_window, std::max(width, 1), std::max(height, 1));
  elm_win_fullscreen_set(m_window, EINA_TRUE);
  evas_object_show(m_window);
  Draw();
  return true;
}

Eina_Bool Screen::OnKey(void*, int, void* event) {
  const char* const key = static_cast<Ecore_Event_Key*>(event)->key;
  for (const char* end : {"Escape", "BackSpace", "Return", "KP_Enter", "XF86Back"})
    if (key && std::strcmp(key, end) == 0) elm_exit();
  return ECORE_CALLBACK_PASS_ON;
}

Evas_Object* Screen::AddBox(const Area& area, const Color& color) {
  Evas_Object* const box = evas_object_rectangle_add(evas_object_evas_get(m_window));
  evas_object_color_set(box, color.red, color.green, color.blue, 255);
  evas_object_geometry_set(box, area.x, area.y, area.width, area.height);
  evas_object_show(box);
  m_drawn.push_back(box);
  return box;
}

int Screen::AddText(const Area& area, const std::string& text, const char* style, int units, int lines) {
  Evas_Object* const block = evas_object_textblock_add(evas_object_evas_get(m_window));
  const TextStyle made(evas_textblock_style_new());
  const std::string all = "DEFAULT='" + std::string(style) + " font_size=" + std::to_string(Pixels(units)) + "'";
  evas_textblock_style_set(made.get(), all.c_str());
  evas_object_textblock_style_set(block, made.get());
  const CText escaped(evas_textblock_text_utf8_to_markup(block, text.c_str()));
  evas_object_textblock_text_markup_set(block, escaped.get());
  evas_object_resize(block, area.width, 100000);
  int height = 0;
  evas_object_textblock_size_formatted_get(block, nullptr, &height);
  int line = height;
  evas_object_textblock_line_number_geometry_get(block, 0, nullptr, nullptr, nullptr, &line);
  if (lines > 0) height = std::min(height, line * lines);
  const int top = area.height > height ? area.y + (area.height - height) / 2 : area.y;
  evas_object_geometry_set(block, area.x, top, area.width, height);
  evas_object_show(block);
  m_drawn.push_back(block);
  return height;
}

int Screen::DrawRow(int top, const std::string& key, const std::string& value) {
  const int left = Pixels(kMargin);
  const int width = m_width - 2 * left;
  const int keyWidth = width / kKeyShare;
  const int padding = Pixels(kRowPadding);
  const bool mirrored = elm_config_mirrored_get();
  const int valueWidth = width - keyWidth - Pixels(kGap);
  const Area keyArea{mirrored ? left + width - keyWidth : left, top + padding, keyWidth, 0};
  const Area valueArea{mirrored ? left : left + width - valueWidth, top + padding, valueWidth, 0};
  const int height = std::max(AddText(keyArea, key, kKeyStyle, kBodyText, 1),
                              AddText(valueArea, value, kValueStyle, kBodyText, kMaxValueLines));
  AddBox({left, top + height + 2 * padding, width, std::max(1, Pixels(1) / 8)}, kLine);
  return height + 2 * padding;
}

void Screen::Draw() {
  int height = 0;
  evas_object_geometry_get(m_window, nullptr, nullptr, &m_width, &height);
  m_unit = static_cast<double>(height) / kUnitsOfHeight;
  for (Evas_Object* each : m_drawn) evas_object_del(each);
  m_drawn.clear();

  const int left = Pixels(kMargin);
  const int width = m_width - 2 * left;
  const int buttonTop = height - Pixels(kMargin) - Pixels(kButtonHeight);
  AddBox({0, 0, m_width, height}, kBackground);
  int top = Pixels(kTop);
  top += AddText({left, top, width, 0}, m_asked.name, kTitleStyle, kTitleText, 2) + Pixels(2);
  top += AddText({left, top, width, 0}, Translated("TV_SID_VEXILO_NOT_ON_THIS_SET"), kNoteStyle, kBodyText, 0);
  top += Pixels(6);

  const int rowEnd = buttonTop - Pixels(kGap);
  if (!m_asked.extras.empty()) {
    top += AddText({left, top, width, 0}, Translated("TV_SID_VEXILO_ASKED_FOR"), kHeadingStyle, kHeadingText, 1);
    top += Pixels(kRowPadding);
    AddBox({left, top, width, std::max(1, Pixels(1) / 8)}, kLine);
  }
  for (size_t i = 0; i < m_asked.extras.size(); ++i) {
    const auto& [key, value] = m_asked.extras[i];
    const size_t drawn = m_drawn.size();
    const int rowHeight = DrawRow(top, key, value);
    if (top + rowHeight > rowEnd) {  // no room: the rest is left out rather than drawn over the button
      for (; m_drawn.size() > drawn; m_drawn.pop_back()) evas_object_del(m_drawn.back());
      break;
    }
    top += rowHeight;
  }

  const int buttonWidth = Pixels(kButtonWidth);
  const Area button{elm_config_mirrored_get() ? m_width - left - buttonWidth : left, buttonTop, buttonWidth,
                    Pixels(kButtonHeight)};
  evas_object_event_callback_add(AddBox(button, kAccent), EVAS_CALLBACK_MOUSE_UP, OnClick, nullptr);
  AddText(button, Translated("COM_SID_CLOSE"), kButtonStyle, kBodyText, 1);
  evas_object_pass_events_set(m_drawn.back(), EINA_TRUE);
}

gboolean OnSignal(void*) {
  elm_exit();
  return G_SOURCE_CONTINUE;
}

}  // namespace

bool Show(const Asked& asked) {
  bindtextdomain(kTextDomain, SystemPath(set_paths::kLocaleDir).c_str());
  bind_textdomain_codeset(kTextDomain, "UTF-8");
  Screen screen(asked);
  if (!screen.Make()) return false;
  const unsigned signals[] = {g_unix_signal_add(SIGTERM, OnSignal, nullptr),
                              g_unix_signal_add(SIGINT, OnSignal, nullptr)};
  elm_run();
  for (const unsigned source : signals) g_source_remove(source);
  return true;
}

}  // namespace standin
