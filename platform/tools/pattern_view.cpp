#include "pattern_view.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "CUtils.h"
#include "c_handle.h"

namespace tools {

namespace {

using QUVA::CUtils;

constexpr short kPictureLayer = FLUX_LAYER_POPUP / 2;  // above the page, below popups
constexpr double kTellTime = 4.0;                      // seconds
constexpr double kUnitsOfHeight = 135;

using TextStyle = std::unique_ptr<Evas_Textblock_Style, CRelease<&evas_textblock_style_free>>;

Evas* Canvas() {
  return evas_object_evas_get(CUtils::Instance().m_pGetAppWindow());
}

/// What the canvas is large, as the window is turned.
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

}  // namespace

PatternView::PatternView(std::vector<Pattern> patterns, std::function<void()> onEnd)
    : m_patterns(std::move(patterns)), m_onEnd(std::move(onEnd)) {
  m_image = evas_object_image_filled_add(Canvas());
  evas_object_layer_set(m_image, kPictureLayer);
  evas_object_image_smooth_scale_set(m_image, false);
  evas_object_event_callback_add(m_image, EVAS_CALLBACK_MOUSE_UP, OnClick, this);
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_CANVAS_VIEWPORT_RESIZE, OnResize, this);
  m_keys = ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, OnKey, this);
}

PatternView::~PatternView() {
  if (CUtils::Instance().m_pGetAppWindow())
    evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_CANVAS_VIEWPORT_RESIZE, OnResize, this);
  ecore_event_handler_del(m_keys);
  for (Evas_Object* const label : m_labels) evas_object_del(label);
  m_toast.m_Delete();
  m_image.m_Delete();
}

void PatternView::Show(size_t index) {
  m_index = index;
  m_isTold = false;
  Draw();
}

void PatternView::Resume() {
  m_takesKeys = true;
}

// ---- keys

Eina_Bool PatternView::OnKey(void* self, int, void* event) {
  auto* const view = static_cast<PatternView*>(self);
  const auto* const key = static_cast<const Ecore_Event_Key*>(event);
  if (!view->m_takesKeys || !key->keyname) return ECORE_CALLBACK_PASS_ON;
  const std::string_view name = key->keyname;
  const int forward = elm_config_mirrored_get() ? -1 : 1;
  if (name == "Right") view->Step(forward);
  if (name == "Left") view->Step(-forward);
  const bool isEnter = name == "Return" || name == "KP_Enter";
  if (isEnter && !elm_flux_key_is_repeated()) view->End();
  return ECORE_CALLBACK_PASS_ON;
}

void PatternView::OnClick(void* self, Evas*, Evas_Object*, void*) {
  static_cast<PatternView*>(self)->Step(1);
}

void PatternView::Step(int by) {
  if (by < 0 && m_index == 0) return;
  if (by > 0 && m_index + 1 == m_patterns.size()) return End();
  Show(by < 0 ? m_index - 1 : m_index + 1);
}

void PatternView::End() {
  m_takesKeys = false;
  m_toast.m_Delete();
  m_onEnd();
}

// ---- drawing

void PatternView::OnResize(void* self, Evas*, void*) {
  static_cast<PatternView*>(self)->Draw();
}

void PatternView::Draw() {
  const Eina_Rect room = Room();
  if (room.w <= 1 || room.h <= 1) return;  // not yet the window's
  const auto picture = std::make_shared<Bitmap>(room.w, room.h);
  m_job.m_Cancel();
  m_job.m_Start([picture, paint = m_patterns[m_index].paint](const QUVA::CScreenJob::Control&) { paint(*picture); },
                [this, picture] { Finish(*picture); }, {});
}

void PatternView::Finish(const Bitmap& picture) {
  const Eina_Rect room = Room();
  evas_object_image_alpha_set(m_image, false);
  evas_object_image_size_set(m_image, picture.Width(), picture.Height());
  void* const pixels = evas_object_image_data_get(m_image, true);
  if (!pixels) return;
  const size_t line = static_cast<size_t>(picture.Width()) * sizeof(Colour);
  const auto stride = static_cast<size_t>(evas_object_image_stride_get(m_image));
  for (int y = 0; y < picture.Height(); ++y)
    std::memcpy(static_cast<char*>(pixels) + stride * static_cast<size_t>(y),
                picture.Pixels() + static_cast<size_t>(y) * static_cast<size_t>(picture.Width()), line);
  evas_object_image_data_set(m_image, pixels);
  evas_object_image_data_update_add(m_image, 0, 0, picture.Width(), picture.Height());
  evas_object_geometry_set(m_image, room.x, room.y, room.w, room.h);
  evas_object_show(m_image);
  PlaceLabels();
  if (!std::exchange(m_isTold, true)) Tell();
}

void PatternView::PlaceLabels() {
  for (Evas_Object* const label : std::exchange(m_labels, {})) evas_object_del(label);
  if (!m_patterns[m_index].labels) return;
  for (const Label& label : m_patterns[m_index].labels()) m_labels.push_back(AddLabel(label, Room()));
}

/// Which picture it is, and what to look for; spoken, too.
void PatternView::Tell() {
  const Pattern& pattern = m_patterns[m_index];
  const std::string text = CUtils::m_GetText(pattern.nameSid) + " (" + std::to_string(m_index + 1) + "/" +
                           std::to_string(m_patterns.size()) + "). " + CUtils::m_GetText(pattern.lookSid);
  m_toast.m_Delete();
  elm_flux_access_say("");
  m_toast = elm_flux_toast_add(CUtils::Instance().m_pGetAppWindow(), text, kTellTime);
  QUVA::OnEvent(m_toast, "timeout", [this](void*) { m_toast.m_Delete(); });
}

}  // namespace tools
