#include "video_view.h"

#include <algorithm>
#include <utility>

#include "CUtils.h"

namespace tools {

namespace {

using QUVA::CUtils;

constexpr double kBarShare = 0.09;  // of the panel's height
constexpr double kFactsSize = 4;    // units
constexpr double kTellTime = 4.0;   // seconds
// The canvas draws at the ticks of animations: at more of them than a clip has frames, so that none waits for long.
constexpr double kTick = 1.0 / 120;  // seconds
constexpr int kBarOpacity = 200;     // of 255

Evas_Object* AddRectangle(int opacity) {
  Evas_Object* const rectangle = evas_object_rectangle_add(Canvas());
  evas_object_color_set(rectangle, 0, 0, 0, opacity);
  evas_object_layer_set(rectangle, kPictureLayer);
  evas_object_show(rectangle);
  return rectangle;
}

/// The largest place of its shape in the middle of the room.
Eina_Rect Fit(int width, int height, const Eina_Rect& room) {
  const double scale = std::min(static_cast<double>(room.w) / width, static_cast<double>(room.h) / height);
  Eina_Rect place = room;
  place.w = static_cast<int>(width * scale);
  place.h = static_cast<int>(height * scale);
  place.x += (room.w - place.w) / 2;
  place.y += (room.h - place.h) / 2;
  return place;
}

}  // namespace

VideoView::VideoView(std::function<void()> onEnter, std::function<void()> onReady)
    : m_onEnter(std::move(onEnter)), m_onReady(std::move(onReady)), m_keys([this](std::string_view key) {
        if (key == "Return") m_onEnter();
      }) {
  ecore_animator_frametime_set(kTick);
  m_ground = AddRectangle(255);
  m_image = evas_object_image_filled_add(Canvas());
  evas_object_layer_set(m_image, kPictureLayer);
  evas_object_image_colorspace_set(m_image, EVAS_COLORSPACE_ARGB8888);
  evas_object_image_alpha_set(m_image, false);
  m_bar = AddRectangle(kBarOpacity);
  const auto onClick = [](void* self, Evas*, Evas_Object*, void*) { static_cast<VideoView*>(self)->m_onEnter(); };
  evas_object_event_callback_add(m_ground, EVAS_CALLBACK_MOUSE_UP, onClick, this);
  evas_object_pass_events_set(m_image, true);
  evas_object_pass_events_set(m_bar, true);
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_RENDER_PRE, OnRender, this);
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_RENDER_POST, OnRendered, this);
  evas_event_callback_add(Canvas(), EVAS_CALLBACK_CANVAS_VIEWPORT_RESIZE, OnResize, this);
  Place();
}

VideoView::~VideoView() {
  if (CUtils::Instance().m_pGetAppWindow()) {
    evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_CANVAS_VIEWPORT_RESIZE, OnResize, this);
    evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_RENDER_PRE, OnRender, this);
    evas_event_callback_del_full(Canvas(), EVAS_CALLBACK_RENDER_POST, OnRendered, this);
    // The canvas may be drawing on a thread of its own what is about to go.
    evas_sync(Canvas());
  }
  ecore_animator_frametime_set(m_tickBefore);
  for (QUVA::CWidget* const each : {&m_toast, &m_label, &m_bar, &m_image, &m_ground}) each->m_Delete();
}

void VideoView::Show(std::shared_ptr<const VideoFrame> frame) {
  const bool hasNewSize = !m_frame || m_frame->width != frame->width || m_frame->height != frame->height;
  if (hasNewSize) {
    m_frame = nullptr;
    m_pixels.resize(static_cast<size_t>(frame->width) * static_cast<size_t>(frame->height));
    evas_object_image_size_set(m_image, frame->width, frame->height);
  }
  const std::vector<VideoPart> parts = frame->Paint(m_pixels.data(), m_frame.get());
  evas_object_image_data_set(m_image, m_pixels.data());
  for (const VideoPart& part : parts)
    evas_object_image_data_update_add(m_image, part.x, part.y, part.width, part.height);
  m_frame = std::move(frame);
  m_isBusy = true;
  if (hasNewSize) Place();
  evas_object_show(m_image);
}

void VideoView::OnRender(void* self, Evas*, void*) {
  auto& view = *static_cast<VideoView*>(self);
  view.m_isDrawing = view.m_isBusy;
}

void VideoView::OnRendered(void* self, Evas*, void*) {
  auto& view = *static_cast<VideoView*>(self);
  if (!std::exchange(view.m_isDrawing, false)) return;
  view.m_isBusy = false;
  ++view.m_shown;
  view.m_newest = view.m_frame->number;
  view.m_onReady();
}

void VideoView::OnResize(void* self, Evas*, void*) {
  static_cast<VideoView*>(self)->Place();
}

void VideoView::Place() {
  const Eina_Rect room = Room();
  evas_object_geometry_set(m_ground, room.x, room.y, room.w, room.h);
  if (m_frame) {
    const Eina_Rect place = Fit(m_frame->width, m_frame->height, room);
    evas_object_geometry_set(m_image, place.x, place.y, place.w, place.h);
  }
  const int bar = static_cast<int>(room.h * kBarShare);
  evas_object_geometry_set(m_bar, room.x, room.y + room.h - bar, room.w, bar);
  SetFacts(std::exchange(m_facts, {}));
}

void VideoView::SetFacts(const std::string& facts) {
  if (facts == m_facts) return;
  m_facts = facts;
  m_label.m_Delete();
  const double size = kFactsSize * elm_config_scale_get() / FLUX_SCALE_NORMAL;
  m_label = AddLabel({0.5, 1 - kBarShare / 2, facts, size, Grey(255)}, Room());
}

void VideoView::Tell(const std::string& text) {
  m_toast.m_Delete();
  m_toast = elm_flux_toast_add(CUtils::Instance().m_pGetAppWindow(), text, kTellTime);
  QUVA::OnEvent(m_toast, "timeout", [this](void*) { m_toast.m_Delete(); });
}

}  // namespace tools
