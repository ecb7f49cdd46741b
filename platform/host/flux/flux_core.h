#pragma once
/// @file
/// What every widget of the set is built on: the size of a unit, the theme, the colours, and the base of a widget.
///
/// Thread rule: main loop thread.

#include <functional>
#include <string>

#include "elm_flux.h"
#include "flux/flux_look.h"
#include "log_tags.h"

namespace flux {

inline constexpr const char* kTag = log_tags::kFlux;

// ---- the state of the set

/// Pixels of a unit at present, 8.0 on a screen of 1080 lines.
double Unit();
int Px(double units);
/// Pixels of the theme, which is drawn for a screen of 1080 lines, to pixels of this screen.
double ThemeScale();
/// The height of a text in pixels of this screen, the user's text size included.
int TextPx(FluxTextSize size);
bool HighContrast();
/// Whether texts run from right to left.
bool Mirrored();

/// The window's size in pixels before it is turned, and the zoom of what it shows. Restyles every widget when the unit
/// changes.
void SetWindowSize(int width, int height);
void SetZoom(double zoom);
double Zoom();
void SetHighContrast(bool on);
/// Every widget fits itself anew to unit, text size, contrast and direction.
void RestyleAll();

// ---- colours

Colour ColourOf(Token token);
/// "#RRGGBB" or "#RRGGBBAA". Anything else is a line in the log and `otherwise`.
Colour ParseColour(const char* text, Colour otherwise);
/// From 0 for black to 255 for white, as bright as it looks.
int Brightness(Colour colour);
/// "#RRGGBBAA", as text styles take it.
std::string StyleColour(Colour colour);
/// Sets the colour of a canvas object, which wants it multiplied by its alpha.
void SetObjectColour(Evas_Object* object, Colour colour);
/// Sets a colour class of one Edje object; the others keep theirs.
void SetClassColour(Evas_Object* edje, const char* colourClass, Colour colour);

// ---- theme

/// Loads the theme once. False, with a line in the log, when it cannot be loaded: widgets then look as Elementary's
/// own.
bool LoadTheme();
/// An elm_layout drawn by the theme's group "elm/flux/GROUP/STYLE". Without the theme it has a text (`elm.text`), a
/// content (`elm.swallow.content`) or both all the same, as `fallback` says.
enum class Fallback { kText, kContent, kButton };
Evas_Object* AddThemed(Evas_Object* parent, const char* group, const char* style, Fallback fallback);

// ---- widgets

/// The base of all widgets: what the set knows of one Evas object. Deleted with the object.
class Widget {
 public:
  /// Attaches itself to `object`, which is shown and owns it from now on.
  explicit Widget(Evas_Object* object);
  Widget(const Widget&) = delete;
  Widget& operator=(const Widget&) = delete;
  virtual ~Widget();

  /// What the set knows of `object`; null when it is no widget of the set.
  static Widget* Of(const Evas_Object* object);
  /// The same when it is a `Kind`, else null with a line in the log.
  template <class Kind>
  static Kind* Of(const Evas_Object* object, const char* caller) {
    auto* widget = dynamic_cast<Kind*>(Of(object));
    if (!widget) LogWrongWidget(caller);
    return widget;
  }

  Evas_Object* Object() const { return m_object; }

  /// Called when it is made and whenever unit, text size, contrast or direction changes. Classes that override it call
  /// it once at the end of their constructor.
  virtual void Restyle() {}
  /// What the screen reader says; empty for nothing.
  std::string Speech() const;
  /// Whether it speaks for the widget in it that has the focus, when the screen reader is switched on.
  virtual bool SpeaksForContent() const { return false; }
  /// Has the screen reader, if it is on, say what has the focus once the loop is idle: this widget, if it, or what is
  /// in it, then still has it and is in sight. Until then the toolkit may try one widget after the other.
  void SpeakSoon();

  /// What its maker asked for, in units; 0 for what the content needs.
  struct Wanted {
    double width = 0.0, height = 0.0, minWidth = 0.0, minHeight = 0.0;
    bool expand = false;

    bool FillsAcross() const { return expand && width <= 0; }
    bool FillsDown() const { return expand && height <= 0; }
  };
  Wanted m_wanted;
  /// What it says instead of its text.
  std::function<std::string()> m_accessInfo;

  /// The size it needs, in pixels: its own, or its content's and at least its minimum.
  struct Size {
    int width, height;
  };
  Size NeededSize() const;
  /// What its content needs; by default the hint of its object.
  virtual Size ContentSize() const;
  /// Has the layout that it is in, if any, lay out anew.
  void InvalidateParent() const;

 protected:
  /// Pixel sizes of the theme and its borders follow the unit from here on.
  void FollowThemeScale() const;

 private:
  static void LogWrongWidget(const char* caller);
  static Eina_Bool SpeakFocus(void*);

  static Widget* s_toSpeak;
  Evas_Object* m_object;
};

}  // namespace flux
