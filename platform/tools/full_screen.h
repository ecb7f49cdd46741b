#pragma once
/// @file
/// What tools share that fill the panel themselves: the canvas, texts on it, keys.
///
/// Thread rule: main loop thread.

#include <functional>
#include <string_view>

#include "bitmap.h"
#include "elm_flux.h"

namespace tools {

/// Above the page, below popups.
inline constexpr short kPictureLayer = FLUX_LAYER_POPUP / 2;

/// The window's.
Evas* Canvas();
/// What the canvas is large, as the window is turned.
Eina_Rect Room();
/// Owned by the window.
Evas_Object* AddLabel(const Label& label, const Eina_Rect& room);

/// Keys that are pressed while it lives, wherever the focus is: "Left" and "Right" in the direction of reading,
/// "Return" for each Enter that is not held, others by their names.
class KeyPresses {
 public:
  explicit KeyPresses(std::function<void(std::string_view key)> onKey);
  KeyPresses(const KeyPresses&) = delete;
  KeyPresses& operator=(const KeyPresses&) = delete;
  ~KeyPresses() { ecore_event_handler_del(m_handler); }

 private:
  static Eina_Bool OnKey(void* self, int type, void* event);

  const std::function<void(std::string_view key)> m_onKey;
  Ecore_Event_Handler* m_handler;
};

}  // namespace tools
