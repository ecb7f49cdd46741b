#pragma once
/// @file
/// The toolkit and the widget set on a canvas in memory, worked as a person would: with keys and a pointer.
///
/// One object in a process. The tests' own set root gets the theme; a test of its absence asks for none.

#include <Elementary.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "appfw/toolkit.h"

class UiHarness {
 public:
  enum class Theme { kInstalled, kMissing };

  /// A window of this size, shown and with the focus; elm_flux_init() has been called. Settings that are to be there
  /// from the start are written before.
  UiHarness(int width, int height, Theme theme = Theme::kInstalled);
  /// The same with a window that `makeWindow` makes, prepares and shows.
  explicit UiHarness(const std::function<Evas_Object*()>& makeWindow);
  UiHarness(const UiHarness&) = delete;
  UiHarness& operator=(const UiHarness&) = delete;
  ~UiHarness();

  Evas_Object* Window() const { return m_window; }
  Evas* Canvas() const { return evas_object_evas_get(m_window); }
  /// A layout that fills the window, at its top left.
  Evas_Object* Root();

  /// Runs the main loop until `condition` holds. False when it does not within `seconds`.
  bool PumpUntil(const std::function<bool()>& condition, double seconds = 5.0);
  /// Runs the main loop until nothing is drawn any more, two seconds at most.
  void Settle();

  /// Presses and releases a key: "Right", "Return", "XF86Back".
  void Key(const char* key);
  /// The same without running the main loop.
  void FeedKey(const char* key);
  /// Presses a key so many times, as a window system does that repeats a held one, and releases it.
  void Hold(const char* key, int times);
  void Click(Evas_Object* object);
  /// Turns the wheel over an object, downwards for positive steps.
  void Wheel(Evas_Object* object, int steps);
  void Resize(int width, int height);
  Evas_Object* Focused() const { return elm_object_focused_object_get(m_window); }

  struct Geometry {
    int x, y, width, height;
    bool operator==(const Geometry&) const = default;
  };
  static Geometry GeometryOf(const Evas_Object* object);
  static std::vector<Evas_Object*> MembersOf(Evas_Object* object);
  /// What a text object draws, without markup.
  static std::string PlainText(Evas_Object* block);
  /// Adds one to `count`, which must outlive the widget, for each smart event of this name.
  static void CountEvents(Evas_Object* widget, const char* event, int& count);
  /// Of what was drawn last: 0xAARRGGBB; 0 outside.
  uint32_t Pixel(int x, int y);
  /// All of them, row by row.
  std::vector<uint32_t> Pixels();
  bool SavePicture(const std::string& file);

 private:
  void Prepare(Theme theme);
  void HandFocus();
  Ecore_Evas* Engine() const { return ecore_evas_ecore_evas_get(Canvas()); }

  app_framework::ToolkitEnvironment m_environment;
  std::unique_ptr<app_framework::Toolkit> m_toolkit;
  Evas_Object* m_window = nullptr;
  unsigned int m_time = 1000;
};

std::ostream& operator<<(std::ostream& out, const UiHarness::Geometry& geometry);
