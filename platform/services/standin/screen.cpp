#include "screen.h"

#include <Elementary.h>
#include <glib-unix.h>
#include <libintl.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>

#include "base/glib_handle.h"
#include "c_handle.h"
#include "set_names.h"
#include "set_paths.h"
#include "system_path.h"

namespace standin {

namespace {

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

constexpr int kMaxLines = 3;
constexpr int kAdviceLines = 5;

struct Color {
  int red, green, blue;
};
constexpr Color kBackground{14, 17, 22};
constexpr Color kLine{54, 61, 72};
constexpr Color kAccent{0x89, 0xE4, 0x13};

constexpr char kTitleStyle[] = "font=Sans:style=Bold color=#FFFFFF wrap=word";
constexpr char kNoteStyle[] = "font=Sans color=#A7B0BC wrap=word";
constexpr char kHeadingStyle[] = "font=Sans:style=Bold color=#89E413";
constexpr char kKeyStyle[] = "font=Sans color=#A7B0BC wrap=mixed";
constexpr char kValueStyle[] = "font=Sans color=#FFFFFF wrap=mixed";
constexpr char kWithStyle[] = "font=Sans color=#89E413 wrap=mixed";
constexpr char kButtonStyle[] = "font=Sans:style=Bold color=#0E1116 align=center";

struct Area {
  int x, y, width, height;
};

using TextStyle = std::unique_ptr<Evas_Textblock_Style, CRelease<&evas_textblock_style_free>>;

void SetText(Evas_Object* block, const std::string& text) {
  const CText escaped(evas_textblock_text_utf8_to_markup(block, text.c_str()));
  evas_object_textblock_text_markup_set(block, escaped.get());
}

/// Puts the text into the block, cut to `lines` lines with an ellipsis where it needs more. Returns its height.
int Fit(Evas_Object* block, const std::string& text, int width, int lines) {
  constexpr int kPlenty = 100000;
  const auto fits = [&](const std::string& shown) {
    SetText(block, shown);
    return !evas_object_textblock_line_number_geometry_get(block, lines, nullptr, nullptr, nullptr, nullptr);
  };
  evas_object_resize(block, width, kPlenty);
  if (!fits(text)) {
    long longest = 0;
    for (long end = g_utf8_strlen(text.c_str(), -1); longest + 1 < end;) {
      const long middle = (longest + end) / 2;
      const GText start(g_utf8_substring(text.c_str(), 0, middle));
      (fits(start.get() + std::string("…")) ? longest : end) = middle;
    }
    const GText start(g_utf8_substring(text.c_str(), 0, longest));
    SetText(block, start.get() + std::string("…"));
  }
  int height = 0;
  evas_object_textblock_size_formatted_get(block, nullptr, &height);
  return height;
}

/// A text of the catalogue, in the menu language.
const char* Translated(const char* id) {
  return dgettext(set_names::kCareApplication, id);
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
  void DrawAdvice(int top);
  void DrawAsked(int top, int end);
  void DrawRows(int top, int end);
  int DrawRow(int top, const std::string& key, const std::string& value);
  Evas_Object* AddBox(const Area& area, const Color& color);
  /// Returns the height that it took, at most `lines` lines.
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
  const std::string all = "DEFAULT='" + std::string(style) + " font_size=" + std::to_string(Pixels(units)) +
                          (elm_config_mirrored_get() && !std::strstr(style, "align=") ? " align=right'" : "'");
  evas_textblock_style_set(made.get(), all.c_str());
  evas_object_textblock_style_set(block, made.get());
  const int height = Fit(block, text, area.width, lines);
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
  const int height = std::max(AddText(keyArea, key, kKeyStyle, kBodyText, kMaxLines),
                              AddText(valueArea, value, kValueStyle, kBodyText, kMaxLines));
  AddBox({left, top + height + 2 * padding, width, std::max(1, Pixels(1) / 8)}, kLine);
  return height + 2 * padding;
}

/// What there is no room for before `end` is counted instead of drawn.
void Screen::DrawRows(int top, int end) {
  const int note = Pixels(2 * kRowPadding + kHeadingText);
  const size_t count = m_asked.extras.size();
  for (size_t i = 0; i < count; ++i) {
    const size_t drawn = m_drawn.size();
    const int height = DrawRow(top, m_asked.extras[i].first, m_asked.extras[i].second);
    if (top + height + (i + 1 < count ? note : 0) <= end) {
      top += height;
      continue;
    }
    for (; m_drawn.size() > drawn; m_drawn.pop_back()) evas_object_del(m_drawn.back());
    AddText({Pixels(kMargin), top + Pixels(kRowPadding), m_width - 2 * Pixels(kMargin), 0},
            "+ " + std::to_string(count - i), kNoteStyle, kHeadingText, 1);
    return;
  }
}

void Screen::DrawAdvice(int top) {
  const int left = Pixels(kMargin);
  const int width = m_width - 2 * left;
  for (const std::string& message : m_asked.advice)
    top += AddText({left, top, width, 0}, Translated(message.c_str()), kValueStyle, kBodyText, kAdviceLines) +
           Pixels(kRowPadding);
  AddText({left, top, width, 0}, m_asked.with, kWithStyle, kBodyText, kAdviceLines);
}

void Screen::DrawAsked(int top, int end) {
  if (!m_asked.extras.empty()) {
    const int left = Pixels(kMargin);
    const int width = m_width - 2 * left;
    top += AddText({left, top, width, 0}, Translated("TV_SID_VEXILO_ASKED_FOR"), kHeadingStyle, kHeadingText, 1);
    top += Pixels(kRowPadding);
    AddBox({left, top, width, std::max(1, Pixels(1) / 8)}, kLine);
  }
  DrawRows(top, end);
}

void Screen::Draw() {
  int height = 0;
  evas_object_geometry_get(m_window, nullptr, nullptr, &m_width, &height);
  m_unit = static_cast<double>(std::min(m_width, height)) / kUnitsOfHeight;  // on its side, too
  for (Evas_Object* each : m_drawn) evas_object_del(each);
  m_drawn.clear();

  const int left = Pixels(kMargin);
  const int width = m_width - 2 * left;
  const int buttonTop = height - Pixels(kMargin) - Pixels(kButtonHeight);
  AddBox({0, 0, m_width, height}, kBackground);
  int top = Pixels(kTop);
  top += AddText({left, top, width, 0}, m_asked.name, kTitleStyle, kTitleText, 2) + Pixels(2);
  top += AddText({left, top, width, 0}, Translated("TV_SID_VEXILO_NOT_ON_THIS_SET"), kNoteStyle, kBodyText, kMaxLines);
  top += Pixels(6);

  if (m_asked.advice.empty())
    DrawAsked(top, buttonTop - Pixels(kGap));
  else
    DrawAdvice(top);

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
  bindtextdomain(set_names::kCareApplication, SystemPath(set_paths::kLocaleDir).c_str());
  bind_textdomain_codeset(set_names::kCareApplication, "UTF-8");
  Screen screen(asked);
  if (!screen.Make()) return false;
  const unsigned signals[] = {g_unix_signal_add(SIGTERM, OnSignal, nullptr),
                              g_unix_signal_add(SIGINT, OnSignal, nullptr)};
  elm_run();
  for (const unsigned source : signals) g_source_remove(source);
  return true;
}

}  // namespace standin
