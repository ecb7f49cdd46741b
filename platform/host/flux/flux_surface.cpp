#include "flux/flux_surface.h"

#include <algorithm>
#include <cmath>

#include <Ecore_Evas.h>

#include "dlog.h"
#include "flux/flux_layout.h"

namespace flux {

namespace {

/// A plate or a header: a layout of the theme with one child.
class Surface : public Widget {
 public:
  Surface(Evas_Object* layout, bool light) : Widget(layout), m_light(light) { Restyle(); }
  void Restyle() override { FollowThemeScale(); }
  bool IsLight() const { return m_light; }

 private:
  bool m_light;
};

constexpr double kTwoLineHeaderHeight = 25.0;

const char* PlateStyle(FluxPlateType type) {
  switch (type) {
    case FLUX_PLATE_SUNKEN:
      return "sunken";
    case FLUX_PLATE_LIGHT:
      return "light";
    case FLUX_PLATE_SIDE:
      return "side";
    case FLUX_PLATE_PANEL:
      break;
  }
  return "panel";
}

/// The background fills the window; what it shows lies in the middle, as large as the unturned window times the zoom
/// where there is room for it.
class Background : public Widget {
 public:
  Background(Evas_Object* box, Evas_Object* window) : Widget(box), m_window(window) {
    elm_box_layout_set(
        box, [](Evas_Object*, Evas_Object_Box_Data*, void* self) { static_cast<Background*>(self)->Place(); }, this,
        nullptr);
    evas_object_size_hint_weight_set(box, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
    evas_object_size_hint_align_set(box, EVAS_HINT_FILL, EVAS_HINT_FILL);
    m_surround = evas_object_rectangle_add(evas_object_evas_get(box));
    SetObjectColour(m_surround, kBlack);
    evas_object_show(m_surround);
    elm_box_pack_end(box, m_surround);
    m_surface = AddThemed(box, "background", "default", Fallback::kContent);
    evas_object_show(m_surface);
    elm_box_pack_end(box, m_surface);
    Restyle();
  }

  void Restyle() override {
    elm_object_scale_set(m_surface, ThemeScale() / elm_config_scale_get());
    elm_box_recalculate(Object());
  }

  void SetContent(Evas_Object* root) {
    evas_object_show(root);
    elm_layout_content_set(m_surface, "elm.swallow.content", root);
  }

  /// The window itself is turned: drawing through a map would redraw the whole screen, slowly, for each change.
  /// Zoomed about the centre and turned about the centre, what is shown is as large as the zoomed window and lies in
  /// its middle, so units of that size in a turned window are the same picture.
  void Transform(double zoom, int degrees) {
    elm_win_rotation_with_resize_set(m_window, (360 - degrees) % 360);  // which turns the other way round
    SetZoom(zoom);
    elm_box_recalculate(Object());
  }

 private:
  void Place() {
    // The window's own: what lies in it may ask for a pixel more, and the window then has it stand out on both sides.
    Eina_Rect room = EINA_RECT_EMPTY();
    evas_output_viewport_get(evas_object_evas_get(Object()), &room.x, &room.y, &room.w, &room.h);
    evas_object_geometry_set(m_surround, room.x, room.y, room.w, room.h);
    const Eina_Rect page = PageIn(m_window, room);
    evas_object_geometry_set(m_surface, page.x, page.y, page.w, page.h);
  }

  Evas_Object* m_window;
  Evas_Object* m_surround = nullptr;
  Evas_Object* m_surface = nullptr;
};

}  // namespace

bool IsTurnedUpright(const Evas_Object* window) {
  const int degrees = ecore_evas_rotation_get(ecore_evas_ecore_evas_get(evas_object_evas_get(window)));
  return degrees == 90 || degrees == 270;
}

Eina_Rect PageIn(const Evas_Object* window, const Eina_Rect& room) {
  const bool upright = IsTurnedUpright(window);
  const int width = std::min(room.w, static_cast<int>(std::lround((upright ? room.h : room.w) * Zoom())));
  const int height = std::min(room.h, static_cast<int>(std::lround((upright ? room.w : room.h) * Zoom())));
  return EINA_RECT(room.x + (room.w - width) / 2, room.y + (room.h - height) / 2, width, height);
}

bool IsOnLightPlate(const Evas_Object* object) {
  for (const Evas_Object* at = object; at; at = elm_object_parent_widget_get(at))
    if (const auto* surface = dynamic_cast<const Surface*>(Widget::Of(at))) return surface->IsLight();
  return false;
}

bool IsInSight(const Evas_Object* object) {
  for (const Evas_Object* at = object; at; at = evas_object_smart_parent_get(at))
    if (!evas_object_visible_get(at)) return false;
  Evas_Object* window = elm_object_top_widget_get(object);
  return !window ||
         (evas_object_visible_get(window) && !elm_win_iconified_get(window) && !elm_win_withdrawn_get(window));
}

}  // namespace flux

Evas_Object* elm_flux_bg_add(Evas_Object* window) {
  Evas_Object* box = elm_box_add(window);
  if (!box) return nullptr;
  new flux::Background(box, window);
  elm_win_resize_object_add(window, box);
  return box;
}

void elm_flux_bg_content_set(Evas_Object* bg, Evas_Object* root) {
  if (auto* self = flux::Widget::Of<flux::Background>(bg, __func__)) self->SetContent(root);
}

void elm_flux_bg_transform(Evas_Object* bg, double zoom, int degrees) {
  auto* self = flux::Widget::Of<flux::Background>(bg, __func__);
  if (!self) return;
  if (zoom <= 0.0 || degrees % 90 != 0) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, flux::kTag, "no such transformation: zoom %f, %d degrees", zoom, degrees);
    return;
  }
  self->Transform(zoom, ((degrees % 360) + 360) % 360);
}

Evas_Object* elm_flux_plate_add(Evas_Object* parent, FluxPlateType type, bool radius, FluxPlateState state) {
  Evas_Object* layout = flux::AddThemed(parent, "plate", flux::PlateStyle(type), flux::Fallback::kContent);
  if (!layout) return nullptr;
  new flux::Surface(layout, type == FLUX_PLATE_LIGHT);
  if (!radius) elm_layout_signal_emit(layout, "flux,corners,square", "flux");
  if (state == FLUX_PLATE_DIMMED) elm_layout_signal_emit(layout, "flux,dimmed", "flux");
  return layout;
}

Evas_Object* elm_flux_header_add(Evas_Object* parent, FluxHeaderStyle style) {
  Evas_Object* layout = flux::AddThemed(parent, "header", "default", flux::Fallback::kContent);
  if (!layout) return nullptr;
  auto* self = new flux::Surface(layout, false);
  self->m_wanted.minHeight = style == FLUX_HEADER_TWO_LINES ? flux::kTwoLineHeaderHeight : flux::kHeaderHeight;
  return layout;
}

void elm_flux_header_plate_set(Evas_Object* header, bool enabled) {
  if (flux::Widget::Of<flux::Surface>(header, __func__))
    elm_layout_signal_emit(header, enabled ? "flux,plate,on" : "flux,plate,off", "flux");
}
