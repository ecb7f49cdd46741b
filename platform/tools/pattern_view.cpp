#include "pattern_view.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "CUtils.h"
#include "full_screen.h"

namespace tools {

namespace {

using QUVA::CUtils;

constexpr double kTellTime = 4.0;  // seconds

}  // namespace

PatternView::PatternView(std::vector<Pattern> patterns, std::function<void()> onEnd)
    : m_patterns(std::move(patterns)), m_onEnd(std::move(onEnd)), m_keys([this](std::string_view key) { OnKey(key); }) {
  m_image = evas_object_image_filled_add(Canvas());
  evas_object_layer_set(m_image, kPictureLayer);
  evas_object_image_smooth_scale_set(m_image, false);
  evas_object_event_callback_add(m_image, EVAS_CALLBACK_MOUSE_UP, OnClick, this);
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_CANVAS_VIEWPORT_RESIZE, OnResize, this);
}

PatternView::~PatternView() {
  if (CUtils::Instance().m_pGetAppWindow())
    evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_CANVAS_VIEWPORT_RESIZE, OnResize, this);
  for (Evas_Object* const label : m_labels) evas_object_del(label);
  m_toast.m_Delete();
  m_image.m_Delete();
}

void PatternView::Show(size_t index) {
  m_index = index;
  m_isDrawn = m_isTold = false;
  Draw();
}

void PatternView::Resume() {
  m_takesKeys = true;
  TellOnce();
}

// ---- keys

void PatternView::OnKey(std::string_view key) {
  if (!m_takesKeys) return;
  if (key == "Right") Step(1);
  if (key == "Left") Step(-1);
  if (key == "Return") End();
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
  m_isDrawn = true;
  TellOnce();
}

void PatternView::PlaceLabels() {
  for (Evas_Object* const label : std::exchange(m_labels, {})) evas_object_del(label);
  if (!m_patterns[m_index].labels) return;
  for (const Label& label : m_patterns[m_index].labels()) m_labels.push_back(AddLabel(label, Room()));
}

/// Which picture it is, and what to look for; spoken, too. Not above what the end has opened.
void PatternView::TellOnce() {
  if (!m_isDrawn || !m_takesKeys || std::exchange(m_isTold, true)) return;
  const Pattern& pattern = m_patterns[m_index];
  const std::string text = CUtils::m_GetText(pattern.nameSid) + " (" + std::to_string(m_index + 1) + "/" +
                           std::to_string(m_patterns.size()) + "). " + CUtils::m_GetText(pattern.lookSid);
  m_toast.m_Delete();
  elm_flux_access_say("");
  m_toast = elm_flux_toast_add(CUtils::Instance().m_pGetAppWindow(), text, kTellTime);
  QUVA::OnEvent(m_toast, "timeout", [this](void*) { m_toast.m_Delete(); });
}

}  // namespace tools
