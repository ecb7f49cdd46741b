#include "flux/flux_progress.h"

#include <cstdio>

#include "dlog.h"
#include "flux/flux_surface.h"
#include "flux/flux_text.h"

namespace flux {

void Progress::SetValue(double value) {
  m_value = std::clamp(value, 0.0, 1.0);
  Draw();
}

void Progress::SetUnit(const char* unit) {
  m_unit = unit ? unit : "";
  Draw();
}

void Progress::SetInverted(bool inverted) {
  m_inverted = inverted;
  Draw();
}

void Progress::SetColour(Colour colour) {
  m_colour = colour;
  Draw();
}

std::string Progress::ValueText() const {
  // The format is the caller's: only the placeholder of a number is filled in.
  const size_t from = m_unit.find("%.");
  if (m_unit.empty() || from == std::string::npos || m_unit.compare(from + 3, 1, "f") != 0) return {};
  char number[32];
  std::snprintf(number, sizeof number, "%.*f", std::clamp(m_unit[from + 2] - '0', 0, 9), m_value * 100.0);
  std::string text = m_unit.substr(0, from) + number + m_unit.substr(from + 4);
  if (const size_t percent = text.find("%%"); percent != std::string::npos) text.erase(percent, 1);
  return text;
}

namespace {

/// A bar or a circle. The theme moves it while it pulses and tells us each time round; out of sight it is stopped, and
/// set going again by the first frame that is drawn with it in sight.
class ThemedProgress : public Progress {
 public:
  ThemedProgress(Evas_Object* layout, FluxProgressStyle style) : Progress(layout) {
    const bool isCircle = style == FLUX_PROGRESS_CIRCLE;
    m_wanted.minWidth = isCircle ? 15.0 : 30.0;
    m_wanted.minHeight = isCircle ? 15.0 : 1.5;
    m_text = TextBox::Add(layout);
    TextBox::Style text;
    text.family = FLUX_FONT_600;
    text.size = FLUX_TEXT_DETAIL;
    text.align = isCircle ? FLUX_ALIGN_CENTER : FLUX_ALIGN_RIGHT;
    text.fit = true;
    m_text->SetStyle(text);
    elm_layout_content_set(layout, "flux.swallow.text", m_text->Object());
    elm_layout_signal_callback_add(
        layout, "flux,pulse,round", "flux",
        [](void* data, Evas_Object*, const char*, const char*) { static_cast<ThemedProgress*>(data)->UpdatePulse(); },
        this);
    evas_event_callback_add(evas_object_evas_get(layout), EVAS_CALLBACK_RENDER_POST, OnDrawn, this);
    Restyle();
  }
  ~ThemedProgress() override {
    evas_event_callback_del_full(evas_object_evas_get(Object()), EVAS_CALLBACK_RENDER_POST, OnDrawn, this);
  }

  void Restyle() override {
    FollowThemeScale();
    m_text->SetColour(ColourOf(Token::kText));
    Draw();
  }

  void SetPulse(bool run) override {
    m_pulses = run;
    elm_layout_signal_emit(Object(), run ? "flux,pulse,show" : "flux,pulse,hide", "flux");
    UpdatePulse();
    Draw();
  }

 private:
  static void OnDrawn(void* self, Evas*, void*) { static_cast<ThemedProgress*>(self)->UpdatePulse(); }

  void UpdatePulse() {
    const bool run = m_pulses && IsInSight(Object());
    if (run == m_runs) return;
    m_runs = run;
    elm_layout_signal_emit(Object(), run ? "flux,pulse,on" : "flux,pulse,off", "flux");
  }

  void Draw() override {
    Evas_Object* edje = elm_layout_edje_get(Object());
    if (m_colour)
      SetClassColour(edje, "flux/progress", *m_colour);
    else
      SetClassColour(edje, "flux/progress", ColourOf(Token::kAccent));
    // The theme is mirrored, but not what is dragged in it.
    const auto place = [edje](const char* edge, double at) {
      edje_object_part_drag_value_set(edje, edge, Mirrored() ? 1.0 - at : at, 0.0);
    };
    place("flux.from", m_inverted ? 1.0 - m_value : 0.0);
    place("flux.to", m_inverted ? 1.0 : m_value);
    if (!m_pulses) elm_layout_signal_emit(Object(), m_value > 0.0 ? "flux,some" : "flux,empty", "flux");
    const std::string text = ValueText();
    m_text->SetText(text.c_str());
    elm_layout_signal_emit(Object(), text.empty() ? "flux,unit,off" : "flux,unit,on", "flux");
  }

  TextBox* m_text = nullptr;
  bool m_pulses = false;
  bool m_runs = false;
};

}  // namespace

}  // namespace flux

Evas_Object* elm_flux_progress_add(Evas_Object* parent, FluxProgressStyle style) {
  if (style == FLUX_PROGRESS_TWO_PART) return flux::AddTwoPartProgress(parent);
  Evas_Object* layout =
      flux::AddThemed(parent, "progress", style == FLUX_PROGRESS_CIRCLE ? "circle" : "bar", flux::Fallback::kContent);
  if (layout) new flux::ThemedProgress(layout, style);
  return layout;
}

void elm_flux_progress_value_set(Evas_Object* progress, double value) {
  if (auto* self = flux::Widget::Of<flux::Progress>(progress, __func__)) self->SetValue(value);
}

void elm_flux_progress_unit_set(Evas_Object* progress, const char* unit) {
  if (auto* self = flux::Widget::Of<flux::Progress>(progress, __func__)) self->SetUnit(unit);
}

void elm_flux_progress_inverted_set(Evas_Object* progress, bool inverted) {
  if (auto* self = flux::Widget::Of<flux::Progress>(progress, __func__)) self->SetInverted(inverted);
}

void elm_flux_progress_pulse(Evas_Object* progress, bool run) {
  if (auto* self = flux::Widget::Of<flux::Progress>(progress, __func__)) self->SetPulse(run);
}

void elm_flux_progress_color_set(Evas_Object* progress, const char* color) {
  if (auto* self = flux::Widget::Of<flux::Progress>(progress, __func__))
    self->SetColour(flux::ParseColour(color, flux::kGreen));
}
