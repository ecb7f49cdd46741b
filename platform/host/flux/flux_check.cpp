#include "flux/flux_keys.h"

namespace flux {

namespace {

class Check : public Widget {
 public:
  explicit Check(Evas_Object* check) : Widget(check) {
    elm_object_style_set(check, "flux");
    Restyle();
  }

  void Restyle() override { elm_object_scale_set(Object(), TextScale()); }
};

}  // namespace

}  // namespace flux

Evas_Object* elm_flux_check_add(Evas_Object* parent) {
  Evas_Object* check = elm_check_add(parent);
  if (check) new flux::Check(check);
  return check;
}
