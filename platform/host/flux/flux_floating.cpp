#include "flux/flux_floating.h"

#include <string_view>
#include <utility>

namespace flux {

namespace {

void OnParentChanged(void* self, Evas*, Evas_Object*, void*) {
  static_cast<Floating*>(self)->Place();
}

void OnParentDeleted(void* self, Evas*, Evas_Object*, void*) {
  static_cast<Floating*>(self)->ForgetParent();
}

}  // namespace

Floating::Floating(Evas_Object* object, Evas_Object* parent, Floor floor,
                   std::function<void(const Eina_Rect& room)> place)
    : m_parent(parent), m_place(std::move(place)) {
  evas_object_layer_set(object, static_cast<short>(floor));
  evas_object_event_callback_add(parent, EVAS_CALLBACK_RESIZE, OnParentChanged, this);
  evas_object_event_callback_add(parent, EVAS_CALLBACK_MOVE, OnParentChanged, this);
  evas_object_event_callback_add(parent, EVAS_CALLBACK_DEL, OnParentDeleted, this);
}

Floating::~Floating() {
  if (!m_parent) return;
  evas_object_event_callback_del_full(m_parent, EVAS_CALLBACK_RESIZE, OnParentChanged, this);
  evas_object_event_callback_del_full(m_parent, EVAS_CALLBACK_MOVE, OnParentChanged, this);
  evas_object_event_callback_del_full(m_parent, EVAS_CALLBACK_DEL, OnParentDeleted, this);
}

void Floating::Place() const {
  if (!m_parent) return;
  Eina_Rect room = EINA_RECT_EMPTY();
  // A window's own geometry is that on the screen.
  if (std::string_view(evas_object_type_get(m_parent)) == "elm_win")
    evas_output_viewport_get(evas_object_evas_get(m_parent), &room.x, &room.y, &room.w, &room.h);
  else
    evas_object_geometry_get(m_parent, &room.x, &room.y, &room.w, &room.h);
  m_place(room);
}

}  // namespace flux
