#include "full_screen.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "CUtils.h"
#include "c_handle.h"

namespace tools {

namespace {

constexpr double kUnitsOfHeight = 135;

using TextStyle = std::unique_ptr<Evas_Textblock_Style, CRelease<&evas_textblock_style_free>>;

}  // namespace

Evas* Canvas() {
  return evas_object_evas_get(QUVA::CUtils::Instance().m_pGetAppWindow());
}

Eina_Rect Room() {
  Eina_Rect room = EINA_RECT_EMPTY();
  evas_output_viewport_get(Canvas(), &room.x, &room.y, &room.w, &room.h);
  return room;
}

Evas_Object* AddLabel(const Label& label, const Eina_Rect& room) {
  Evas_Object* const block = evas_object_textblock_add(Canvas());
  const int pixels = static_cast<int>(label.size * std::min(room.h, room.w * 9 / 16) / kUnitsOfHeight);
  char style[160];
  std::snprintf(style, sizeof style, "DEFAULT='font=%s font_size=%d color=#%06X align=center wrap=word'", FLUX_FONT_600,
                pixels, label.colour & 0xFFFFFFu);
  const TextStyle made(evas_textblock_style_new());
  evas_textblock_style_set(made.get(), style);
  evas_object_textblock_style_set(block, made.get());
  const CText text(evas_textblock_text_utf8_to_markup(block, label.text.c_str()));
  evas_object_textblock_text_markup_set(block, text.get());
  int width = 0, height = 0;
  evas_object_resize(block, room.w, room.h);
  evas_object_textblock_size_formatted_get(block, &width, &height);
  evas_object_geometry_set(block, static_cast<int>(room.w * label.x) - (width + 2) / 2,
                           static_cast<int>(room.h * label.y) - height / 2, width + 2, height);
  evas_object_layer_set(block, kPictureLayer);
  evas_object_pass_events_set(block, true);
  evas_object_show(block);
  return block;
}

// ---- keys

KeyPresses::KeyPresses(std::function<void(std::string_view key)> onKey)
    : m_onKey(std::move(onKey)), m_handler(ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, OnKey, this)) {}

Eina_Bool KeyPresses::OnKey(void* self, int, void* event) {
  const auto* const key = static_cast<const Ecore_Event_Key*>(event);
  if (!key->keyname) return ECORE_CALLBACK_PASS_ON;
  std::string_view name = key->keyname;
  if (name == "KP_Enter") name = "Return";
  if (elm_config_mirrored_get() && (name == "Left" || name == "Right")) name = name == "Left" ? "Right" : "Left";
  if (name == "Return" && elm_flux_key_is_repeated()) return ECORE_CALLBACK_PASS_ON;
  static_cast<KeyPresses*>(self)->m_onKey(name);
  return ECORE_CALLBACK_PASS_ON;
}

}  // namespace tools
