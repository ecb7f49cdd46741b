#include "flux/flux_keys.h"

// For the event of a change of focus, which <Elementary.h> leaves out.
using Efl_Ui_Focus_Manager = Eo;
#include <efl_ui_focus_object.eo.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace flux {

namespace {

/// A key that is held is pressed anew without being let go or, where the display says that it was let go each time, at
/// the very moment of that.
struct Held {
  std::string down, up;
  unsigned int downTime = 0, upTime = 0;  // milliseconds
  bool repeats = false;
};
Held g_held;
constexpr unsigned int kLongestPeriod = 1000;
constexpr unsigned int kSameMoment = 5;

std::string NameOf(const Ecore_Event_Key& key) {
  return key.keyname ? key.keyname : "";
}

Eina_Bool OnDown(void*, int, void* event) {
  const auto* key = static_cast<Ecore_Event_Key*>(event);
  const std::string name = NameOf(*key);
  g_held.repeats = (g_held.down == name && key->timestamp - g_held.downTime < kLongestPeriod) ||
                   (g_held.up == name && key->timestamp - g_held.upTime < kSameMoment);
  g_held.down = name;
  g_held.downTime = key->timestamp;
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool OnUp(void*, int, void* event) {
  const auto* key = static_cast<Ecore_Event_Key*>(event);
  g_held.down.clear();
  g_held.repeats = false;  // until the same press comes again
  g_held.up = NameOf(*key);
  g_held.upTime = key->timestamp;
  return ECORE_CALLBACK_PASS_ON;
}

}  // namespace

void FollowKeys() {
  // Before the canvas, whose widgets ask.
  ecore_event_handler_prepend(ECORE_EVENT_KEY_DOWN, OnDown, nullptr);
  ecore_event_handler_prepend(ECORE_EVENT_KEY_UP, OnUp, nullptr);
}

double TextScale() {
  return ThemeScale() / FLUX_SCALE_NORMAL;  // Elementary multiplies it by its own
}

Key KeyOf(const Evas_Event_Key_Down& event) {
  struct Name {
    std::string_view name;
    Key key;
  };
  static constexpr Name kNames[] = {{"Up", Key::kUp},
                                    {"Down", Key::kDown},
                                    {"Left", Key::kLeft},
                                    {"Right", Key::kRight},
                                    {"Prior", Key::kPageUp},
                                    {"Next", Key::kPageDown},
                                    {"Home", Key::kHome},
                                    {"End", Key::kEnd},
                                    {"Return", Key::kEnter},
                                    {"Enter", Key::kEnter},
                                    {"space", Key::kEnter},
                                    {"Tab", Key::kNext},
                                    {"ISO_Left_Tab", Key::kPrevious}};
  std::string_view name = event.key ? event.key : "";
  if (name.starts_with("KP_")) name.remove_prefix(3);
  for (const Name& known : kNames)
    if (known.name == name)
      return known.key == Key::kNext && evas_key_modifier_is_set(event.modifiers, "Shift") ? Key::kPrevious : known.key;
  return Key::kOther;
}

KeyWidget::KeyWidget(Evas_Object* object) : Widget(object) {
  elm_object_event_callback_add(
      object,
      [](void* data, Evas_Object*, Evas_Object*, Evas_Callback_Type type, void* info) -> Eina_Bool {
        if (type != EVAS_CALLBACK_KEY_DOWN) return EINA_FALSE;
        auto* event = static_cast<Evas_Event_Key_Down*>(info);
        const Key key = KeyOf(*event);
        // Even when the widget is gone afterwards, none round it may act on the key once more.
        if (key == Key::kOther) return EINA_FALSE;
        const bool ignored = key == Key::kEnter && elm_flux_key_is_repeated();
        if (!ignored && !static_cast<KeyWidget*>(data)->OnKey(key)) return EINA_FALSE;
        event->event_flags = static_cast<Evas_Event_Flags>(event->event_flags | EVAS_EVENT_FLAG_ON_HOLD);
        return EINA_TRUE;
      },
      this);
}

ItemWidget::ItemWidget(Evas_Object* object) : KeyWidget(object) {
  elm_object_focus_allow_set(object, false);
  // Of what does not take the focus by its nature the toolkit reports it in no other way.
  efl_event_callback_add(
      object, EFL_UI_FOCUS_OBJECT_EVENT_FOCUS_CHANGED,
      [](void* data, const Efl_Event* event) {
        // Not elm_object_focus_get(), which is false as long as the window has no focus.
        static_cast<ItemWidget*>(data)->SetHasFocus(*static_cast<const Eina_Bool*>(event->info));
      },
      this);
}

ItemWidget::~ItemWidget() {
  if (m_clickJob) ecore_job_del(m_clickJob);
}

void ItemWidget::SetHasFocus(bool has) {
  if (m_hasFocus == has) return;
  m_hasFocus = has;
  if (IsItem(m_focused)) ShowFocus(m_focused, has);
  const std::weak_ptr<void> life = m_life;
  evas_object_smart_callback_call(Object(), has ? "focused" : "unfocused", nullptr);
  if (!life.expired() && m_hasFocus == has && IsItem(m_focused))
    Emit(has ? "item,focused" : "item,unfocused", m_focused);
}

void ItemWidget::CountChanged(int focused) {
  m_focused = std::clamp(focused, -1, Count() - 1);
  elm_object_focus_allow_set(Object(), Count() > 0);
}

void ItemWidget::FocusItem(int index) {
  const int before = std::exchange(m_focused, index);
  const bool left = before != index && IsItem(before);
  if (left) ShowFocus(before, false);
  ShowFocus(index, m_hasFocus);
  Reveal(index);
  if (!m_hasFocus) return;
  SpeakSoon();
  if (left && !Emit("item,unfocused", before)) return;
  if (m_focused == index) Emit("item,focused", index);
}

bool ItemWidget::FocusWith(int index) {
  const std::weak_ptr<void> life = m_life;
  Evas_Object* object = Object();
  const bool had = m_hasFocus;
  FocusItem(index);
  if (!had && !life.expired()) elm_object_focus_set(object, true);
  return !life.expired();
}

bool ItemWidget::Emit(const char* event, int index) {
  const std::weak_ptr<void> life = m_life;
  evas_object_smart_callback_call(Object(), event, &index);
  return !life.expired();
}

void ItemWidget::ClickSoon(int index) {
  m_clicked = index;
  if (m_clickJob) return;
  m_clickJob = ecore_job_add(
      [](void* data) {
        auto* self = static_cast<ItemWidget*>(data);
        self->m_clickJob = nullptr;
        self->Click();
      },
      this);
}

void ItemWidget::Click() {
  if (!IsItem(m_clicked) || elm_object_disabled_get(Object())) return;
  if (FocusWith(m_clicked) && IsItem(m_clicked)) Emit("item,selected", m_clicked);
}

bool IsWithin(const Evas_Object* object, const Evas_Object* ancestor) {
  for (; object; object = elm_object_parent_widget_get(object))
    if (object == ancestor) return true;
  return false;
}

}  // namespace flux

bool elm_flux_key_is_repeated() {
  return flux::g_held.repeats;
}
