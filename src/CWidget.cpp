#include "CWidget.h"

#include <memory>
#include <utility>

namespace QUVA {

// ---- CWidget

CWidget& CWidget::operator=(Evas_Object* widget) {
  m_Forget();
  m_widget = widget;
  if (widget) evas_object_event_callback_add(widget, EVAS_CALLBACK_DEL, m_OnDeleted, this);
  return *this;
}

void CWidget::m_Delete() {
  if (m_widget) evas_object_del(m_widget);
}

void CWidget::m_Forget() {
  if (m_widget) evas_object_event_callback_del_full(m_widget, EVAS_CALLBACK_DEL, m_OnDeleted, this);
  m_widget = nullptr;
}

void CWidget::m_OnDeleted(void* self, Evas*, Evas_Object*, void*) {
  static_cast<CWidget*>(self)->m_widget = nullptr;
}

// ---- events

namespace {

using Handler = std::function<void(void*)>;

void CallHandler(void* data, Evas_Object*, void* info) {
  // A copy: the handler may delete the widget, and itself with it.
  const Handler handler = *static_cast<Handler*>(data);
  handler(info);
}

void DeleteHandler(void* data, Evas*, Evas_Object*, void*) {
  delete static_cast<Handler*>(data);
}

Eina_Bool GiveFocus(void* data) {
  const std::unique_ptr<CWidget> widget(static_cast<CWidget*>(data));
  if (*widget) elm_object_focus_set(*widget, true);
  return ECORE_CALLBACK_CANCEL;
}

}  // namespace

void OnEvent(Evas_Object* widget, const char* event, Handler handler) {
  if (!widget) return;
  auto* const kept = new Handler(std::move(handler));
  evas_object_smart_callback_add(widget, event, CallHandler, kept);
  evas_object_event_callback_add(widget, EVAS_CALLBACK_FREE, DeleteHandler, kept);
}

void FocusWhenIdle(Evas_Object* widget) {
  if (!widget) return;
  auto* const target = new CWidget;
  *target = widget;
  ecore_idler_add(GiveFocus, target);
}

}  // namespace QUVA
