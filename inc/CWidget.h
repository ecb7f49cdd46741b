#pragma once
/// @file
/// How screens hold widgets and hear of them. Thread rule: main loop thread.

#include <functional>

#include "elm_flux.h"

namespace QUVA {

/// A widget that its parent owns; null from the moment it is deleted.
class CWidget {
 public:
  CWidget() = default;
  CWidget(const CWidget&) = delete;
  CWidget& operator=(const CWidget&) = delete;
  ~CWidget() { m_Forget(); }

  CWidget& operator=(Evas_Object* widget);
  operator Evas_Object*() const { return m_widget; }

  /// Deletes the widget, if there is one.
  void m_Delete();

 private:
  static void m_OnDeleted(void* self, Evas* canvas, Evas_Object* widget, void* info);
  void m_Forget();

  Evas_Object* m_widget = nullptr;
};

/// Calls `handler` with the event's information on each smart event `event` ("clicked") of the widget, for as long as
/// the widget lives. It may delete the widget.
void OnEvent(Evas_Object* widget, const char* event, std::function<void(void* info)> handler);

/// Gives the focus to the widget when the main loop has nothing else to do, unless it is gone by then.
void FocusWhenIdle(Evas_Object* widget);

}  // namespace QUVA
