#pragma once
/// @file
/// The layout, as other widgets use it.

#include "flux/flux_core.h"

namespace flux {

/// Where `size` goes in a free span: `where` 0.0 for its beginning to 1.0 for its end.
struct Alignment {
  double across, down;
};
/// `align` as fractions, left and right changed in right-to-left order.
Alignment AlignmentOf(FluxAlign align);

class Layout : public Widget {
 public:
  Layout(Evas_Object* box, FluxLayoutType type, FluxAlign align);
  void Restyle() override;

  /// In units.
  struct Padding {
    double left = 0.0, top = 0.0, right = 0.0, bottom = 0.0;
  };
  Padding m_padding;
  double m_gap = 0.0;
  bool m_isRoot = false;  ///< the window's size is not its affair

 private:
  static void Place(Evas_Object* box, Evas_Object_Box_Data* data, void* self);
  void PlaceAll(Evas_Object* box, const Eina_List* options);

  FluxLayoutType m_type;
  FluxAlign m_align;
};

}  // namespace flux
