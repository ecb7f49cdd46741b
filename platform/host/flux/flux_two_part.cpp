#include "flux/flux_keys.h"
#include "flux/flux_progress.h"

namespace flux {

namespace {

/// Its texts "text3" and "text4" are the theme's parts, which stay on their sides in every direction.
class TwoPartProgress : public Progress {
 public:
  explicit TwoPartProgress(Evas_Object* layout) : Progress(layout) {
    m_wanted.minWidth = 50.0;
    elm_object_mirrored_automatic_set(layout, false);
    elm_object_mirrored_set(layout, false);
    Restyle();
  }

  void Restyle() override {
    elm_object_scale_set(Object(), TextScale());
    m_wanted.minHeight = 9.0 * elm_config_scale_get() / FLUX_SCALE_NORMAL;
    Draw();
  }

 private:
  void Draw() override {
    Evas_Object* edje = elm_layout_edje_get(Object());
    SetClassColour(edje, "flux/progress", m_colour ? *m_colour : ColourOf(Token::kAccent));
    edje_object_part_drag_size_set(edje, "flux.part", m_value, 1.0);
    edje_object_part_drag_value_set(edje, "flux.part", m_inverted ? 1.0 : 0.0, 0.0);
    elm_object_signal_emit(Object(), m_value > 0.0 ? "flux,level,on" : "flux,level,off", "flux");
    elm_object_part_text_set(Object(), "flux.unit", ValueText().c_str());
  }
};

}  // namespace

Evas_Object* AddTwoPartProgress(Evas_Object* parent) {
  Evas_Object* layout = AddThemed(parent, "progress", "two_part", Fallback::kContent);
  if (layout) new TwoPartProgress(layout);
  return layout;
}

}  // namespace flux
