#pragma once
/// @file
/// A progress, as the functions of the widget set work it whatever its style.

#include <algorithm>
#include <optional>
#include <string>

#include "flux/flux_core.h"

namespace flux {

class Progress : public Widget {
 public:
  using Widget::Widget;

  void SetValue(double value);
  void SetUnit(const char* unit);
  void SetInverted(bool inverted);
  void SetColour(Colour colour);
  virtual void SetPulse(bool) {}
  /// The percentage as it is shown; empty for none.
  std::string ValueText() const;

 protected:
  /// Value, unit, direction or colour has changed.
  virtual void Draw() = 0;

  double m_value = 0.0;
  std::string m_unit;
  bool m_inverted = false;
  std::optional<Colour> m_colour;
};

/// The progress with a text on each side.
Evas_Object* AddTwoPartProgress(Evas_Object* parent);

}  // namespace flux
