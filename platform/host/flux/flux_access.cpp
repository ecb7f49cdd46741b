#include <utility>

#include "flux/flux_core.h"
#include "flux/flux_keys.h"
#include "speech/voice.h"

namespace flux {

namespace {

/// Whether it and the widgets that it is in are shown. What the toolkit says of the window is left out: without a
/// window manager it takes every window for withdrawn.
bool IsShown(const Evas_Object* object) {
  const Evas_Object* const window = elm_object_top_widget_get(object);
  for (; object && object != window; object = elm_object_parent_widget_get(object))
    if (!evas_object_visible_get(object)) return false;
  return true;
}

}  // namespace

Widget* Widget::s_toSpeak = nullptr;

void Widget::SpeakSoon() {
  if (!elm_config_access_get()) return;
  if (!std::exchange(s_toSpeak, this)) ecore_idler_add(SpeakFocus, nullptr);
}

Eina_Bool Widget::SpeakFocus(void*) {
  const Widget* const widget = std::exchange(s_toSpeak, nullptr);
  if (!widget || !IsShown(widget->m_object)) return ECORE_CALLBACK_CANCEL;
  if (!IsWithin(elm_object_focused_object_get(widget->m_object), widget->m_object)) return ECORE_CALLBACK_CANCEL;
  if (const std::string text = widget->Speech(); !text.empty()) speech::Say(text, speech::Kind::kFocus);
  return ECORE_CALLBACK_CANCEL;
}

}  // namespace flux

void elm_flux_access_say(const char* text) {
  if (text && elm_config_access_get()) speech::Say(text, speech::Kind::kAnnouncement);
}
