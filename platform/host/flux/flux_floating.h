#pragma once
/// @file
/// What floats above its parent instead of being laid out in it: popups and short messages.
///
/// Thread rule: main loop thread.

#include <functional>

#include "flux/flux_core.h"

namespace flux {

/// The canvas layers of what floats, above those of screens.
enum class Floor { kPopup = FLUX_LAYER_POPUP, kToast = 2000 };

/// Keeps an object above its parent and in its place there.
class Floating {
 public:
  /// `place` gives the object its geometry within that of the parent.
  Floating(Evas_Object* object, Evas_Object* parent, Floor floor, std::function<void(const Eina_Rect& room)> place);
  Floating(const Floating&) = delete;
  Floating& operator=(const Floating&) = delete;
  ~Floating();

  void Place() const;
  bool HasParent() const { return m_parent != nullptr; }
  /// It is being deleted, and what floats will be with it.
  void ForgetParent() { m_parent = nullptr; }

 private:
  Evas_Object* m_parent;
  std::function<void(const Eina_Rect& room)> m_place;
};

}  // namespace flux
