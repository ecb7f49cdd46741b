#include "flux/flux_core.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "dlog.h"
#include "set_paths.h"
#include "system_path.h"

namespace flux {

namespace {

constexpr double kUnitsAcross = 240.0;
constexpr double kUnitsDown = 135.0;
constexpr double kUnitPixelsOfTheme = 8.0;
constexpr char kDataKey[] = "flux";
/// The toolkit's own look has texts of 10 pixels.
constexpr double kScaleWithoutTheme = 2.8;

struct State {
  int windowWidth = 1920;
  int windowHeight = 1080;
  double zoom = 1.0;
  bool highContrast = false;
  bool hasTheme = false;
  std::vector<Widget*> widgets;  // in the order of their making
};

State& TheState() {
  static auto* state = new State;
  return *state;
}

void ApplyColourClasses() {
  for (const Look& look : kLooks) {
    const Colour c = ColourOf(look.token);
    edje_color_class_set(look.name, c.red, c.green, c.blue, c.alpha, 0, 0, 0, 0, 0, 0, 0, 0);
  }
}

}  // namespace

double Unit() {
  const State& state = TheState();
  return std::min(state.windowWidth / kUnitsAcross, state.windowHeight / kUnitsDown) * state.zoom;
}

int Px(double units) {
  return static_cast<int>(std::lround(units * Unit()));
}

double ThemeScale() {
  return Unit() / kUnitPixelsOfTheme;
}

int TextPx(FluxTextSize size) {
  struct Row {
    FluxTextSize size;
    int pixels;
  };
  static constexpr Row kRows[] = {{FLUX_TEXT_HERO, 80},     {FLUX_TEXT_DISPLAY, 64}, {FLUX_TEXT_TITLE, 54},
                                  {FLUX_TEXT_SUBTITLE, 44}, {FLUX_TEXT_LARGE, 40},   {FLUX_TEXT_BODY, 36},
                                  {FLUX_TEXT_ROW, 34},      {FLUX_TEXT_DETAIL, 30},  {FLUX_TEXT_SMALL, 26}};
  int pixels = 36;
  for (const Row& row : kRows)
    if (row.size == size) pixels = row.pixels;
  return std::max(1, static_cast<int>(std::lround(pixels * ThemeScale() * elm_config_scale_get() / FLUX_SCALE_NORMAL)));
}

bool HighContrast() {
  return TheState().highContrast;
}

bool Mirrored() {
  return elm_config_mirrored_get();
}

void SetWindowSize(int width, int height) {
  State& state = TheState();
  if (width <= 1 || height <= 1 || (width == state.windowWidth && height == state.windowHeight)) return;
  state.windowWidth = width;
  state.windowHeight = height;
  RestyleAll();
}

void SetZoom(double zoom) {
  if (zoom <= 0.0 || zoom == TheState().zoom) return;
  TheState().zoom = zoom;
  RestyleAll();
}

double Zoom() {
  return TheState().zoom;
}

void SetHighContrast(bool on) {
  TheState().highContrast = on;
  ApplyColourClasses();
  RestyleAll();
}

void RestyleAll() {
  const std::vector<Widget*> widgets = TheState().widgets;
  for (Widget* widget : widgets) {
    // One may have been deleted by another's restyling.
    if (std::find(TheState().widgets.begin(), TheState().widgets.end(), widget) == TheState().widgets.end()) continue;
    widget->Restyle();
    widget->InvalidateParent();
  }
}

Colour ColourOf(Token token) {
  const Look& look = kLooks[static_cast<size_t>(token)];
  return HighContrast() ? look.contrast : look.normal;
}

Colour ParseColour(const char* text, Colour otherwise) {
  unsigned r = 0, g = 0, b = 0, a = 255;
  int used = 0;
  const size_t length = text ? std::strlen(text) : 0;
  const bool good = (length == 7 && std::sscanf(text, "#%2x%2x%2x%n", &r, &g, &b, &used) == 3 && used == 7) ||
                    (length == 9 && std::sscanf(text, "#%2x%2x%2x%2x%n", &r, &g, &b, &a, &used) == 4 && used == 9);
  if (!good) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "no colour: \"%s\"; it is written #RRGGBB or #RRGGBBAA",
                 text ? text : "");
    return otherwise;
  }
  return {static_cast<uint8_t>(r), static_cast<uint8_t>(g), static_cast<uint8_t>(b), static_cast<uint8_t>(a)};
}

int Brightness(Colour colour) {
  return (colour.red * 299 + colour.green * 587 + colour.blue * 114) / 1000;
}

std::string StyleColour(Colour colour) {
  char text[sizeof "#RRGGBBAA"];
  std::snprintf(text, sizeof text, "#%02X%02X%02X%02X", colour.red, colour.green, colour.blue, colour.alpha);
  return text;
}

void SetObjectColour(Evas_Object* object, Colour colour) {
  const int a = colour.alpha;
  evas_object_color_set(object, colour.red * a / 255, colour.green * a / 255, colour.blue * a / 255, a);
}

void SetClassColour(Evas_Object* edje, const char* colourClass, Colour c) {
  edje_object_color_class_set(edje, colourClass, c.red, c.green, c.blue, c.alpha, 0, 0, 0, 0, 0, 0, 0, 0);
}

bool LoadTheme() {
  ApplyColourClasses();
  const std::string file = SystemPath(set_paths::kFluxTheme);
  TheState().hasTheme = edje_file_group_exists(file.c_str(), "elm/flux/text/default");
  if (!TheState().hasTheme) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "no theme: %s cannot be read; the toolkit's own look is used",
                 set_paths::kFluxTheme);
    return false;
  }
  elm_theme_extension_del(nullptr, file.c_str());
  elm_theme_extension_add(nullptr, file.c_str());
  return true;
}

Evas_Object* AddThemed(Evas_Object* parent, const char* group, const char* style, Fallback fallback) {
  Evas_Object* layout = elm_layout_add(parent);
  if (!layout || elm_layout_theme_set(layout, "flux", group, style)) return layout;
  switch (fallback) {
    case Fallback::kText:
      elm_layout_theme_set(layout, "label", "base", "default");
      break;
    case Fallback::kContent:
      elm_layout_theme_set(layout, "frame", "base", "pad_small");
      break;
    case Fallback::kButton:
      elm_layout_theme_set(layout, "button", "base", "default");
      break;
  }
  return layout;
}

Widget::Widget(Evas_Object* object) : m_object(object) {
  TheState().widgets.push_back(this);
  evas_object_data_set(object, kDataKey, this);
  evas_object_event_callback_add(
      object, EVAS_CALLBACK_DEL, [](void* data, Evas*, Evas_Object*, void*) { delete static_cast<Widget*>(data); },
      this);
  const auto visibilityChanged = [](void* data, Evas*, Evas_Object*, void*) {
    static_cast<Widget*>(data)->InvalidateParent();
  };
  evas_object_event_callback_add(object, EVAS_CALLBACK_SHOW, visibilityChanged, this);
  evas_object_event_callback_add(object, EVAS_CALLBACK_HIDE, visibilityChanged, this);
  evas_object_smart_callback_add(
      object, "focused", [](void* data, Evas_Object*, void*) { static_cast<Widget*>(data)->SpeakSoon(); }, this);
  evas_object_show(object);
}

Widget::~Widget() {
  if (s_toSpeak == this) s_toSpeak = nullptr;
  std::erase(TheState().widgets, this);
  evas_object_data_del(m_object, kDataKey);
}

Widget* Widget::Of(const Evas_Object* object) {
  return object ? static_cast<Widget*>(evas_object_data_get(object, kDataKey)) : nullptr;
}

void Widget::LogWrongWidget(const char* caller) {
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: not a widget of the kind it is for", caller);
}

std::string Widget::Speech() const {
  if (m_accessInfo) return m_accessInfo();
  const char* text = elm_object_text_get(m_object);
  return text ? text : "";
}

Widget::Size Widget::NeededSize() const {
  const Size content = ContentSize();
  return {m_wanted.width > 0 ? Px(m_wanted.width) : std::max(content.width, Px(m_wanted.minWidth)),
          m_wanted.height > 0 ? Px(m_wanted.height) : std::max(content.height, Px(m_wanted.minHeight))};
}

Widget::Size Widget::ContentSize() const {
  Size content{0, 0};
  evas_object_size_hint_min_get(m_object, &content.width, &content.height);
  return content;
}

void Widget::InvalidateParent() const {
  if (Evas_Object* parent = elm_object_parent_widget_get(m_object)) evas_object_smart_changed(parent);
}

void Widget::FollowThemeScale() const {
  elm_object_scale_set(m_object,
                       ThemeScale() / elm_config_scale_get() * (TheState().hasTheme ? 1.0 : kScaleWithoutTheme));
}

}  // namespace flux

// ---- the operations that all widgets have

void elm_flux_size_set(Evas_Object* widget, double width, double height) {
  if (auto* w = flux::Widget::Of<flux::Widget>(widget, __func__)) {
    w->m_wanted.width = width;
    w->m_wanted.height = height;
    w->Restyle();
    w->InvalidateParent();
  }
}

void elm_flux_min_size_set(Evas_Object* widget, double width, double height) {
  if (auto* w = flux::Widget::Of<flux::Widget>(widget, __func__)) {
    w->m_wanted.minWidth = width;
    w->m_wanted.minHeight = height;
    w->Restyle();
    w->InvalidateParent();
  }
}

void elm_flux_expand_set(Evas_Object* widget, bool expand) {
  auto* w = flux::Widget::Of<flux::Widget>(widget, __func__);
  if (!w) return;
  w->m_wanted.expand = expand;
  const double weight = expand ? EVAS_HINT_EXPAND : 0.0;
  evas_object_size_hint_weight_set(widget, weight, weight);
  evas_object_size_hint_align_set(widget, EVAS_HINT_FILL, EVAS_HINT_FILL);
  w->InvalidateParent();
}

void elm_flux_access_info_set(Evas_Object* widget, std::function<std::string()> info) {
  if (auto* w = flux::Widget::Of<flux::Widget>(widget, __func__)) w->m_accessInfo = std::move(info);
}

int elm_flux_unit_to_px(double units) {
  return flux::Px(units);
}

double elm_flux_px_to_unit(int pixels) {
  return pixels / flux::Unit();
}
