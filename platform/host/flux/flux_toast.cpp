#include <algorithm>

#include "flux/flux_floating.h"
#include "flux/flux_keys.h"
#include "flux/flux_surface.h"
#include "flux/flux_text.h"

namespace flux {

namespace {

// In units.
constexpr double kUpperMargin = 0.25;
constexpr double kSideMargin = 8.0;
constexpr double kWidest = 160.0;

/// Of the height of a text in one line, what is empty: fonts of some scripts ask for room above and below all lines.
int EmptyHeightOf(Evas_Object* edje) {
  const Evas_Object* const block = edje_object_part_object_get(edje, "elm.text");
  int height = 0, line = 0;
  if (!block || !evas_object_textblock_line_number_geometry_get(block, 0, nullptr, nullptr, nullptr, &line)) return 0;
  evas_object_textblock_size_formatted_get(block, nullptr, &height);
  return std::max(0, height - line);
}

class Toast : public Widget {
 public:
  Toast(Evas_Object* toast, Evas_Object* parent, const std::string& text, double seconds);
  ~Toast() override;
  void Restyle() override;

 private:
  void Place(const Eina_Rect& room) const;

  Floating m_floating;
  Ecore_Timer* m_timer;
};

Toast::Toast(Evas_Object* toast, Evas_Object* parent, const std::string& text, double seconds)
    : Widget(toast), m_floating(toast, parent, Floor::kToast, [this](const Eina_Rect& room) { Place(room); }) {
  elm_object_text_set(toast, MarkupOf(text.c_str()).c_str());
  evas_object_pass_events_set(toast, true);
  m_timer = ecore_timer_add(
      seconds,
      [](void* data) -> Eina_Bool {
        auto* self = static_cast<Toast*>(data);
        self->m_timer = nullptr;  // what listens may delete the toast
        evas_object_smart_callback_call(self->Object(), "timeout", nullptr);
        return ECORE_CALLBACK_CANCEL;
      },
      this);
  Restyle();
  elm_flux_access_say(text.c_str());
}

Toast::~Toast() {
  if (m_timer) ecore_timer_del(m_timer);
}

void Toast::Restyle() {
  elm_object_scale_set(Object(), TextScale());
  m_floating.Place();
}

/// In the page's header, at the end that has no title, where it covers nothing that can be pressed. As wide as its text
/// in one line; in several when that is too wide.
void Toast::Place(const Eina_Rect& room) const {
  const Eina_Rect page = PageIn(elm_object_top_widget_get(Object()), room);
  Evas_Object* edje = elm_layout_edje_get(Object());
  const int widest = std::min(Px(kWidest), page.w - 2 * Px(kSideMargin));
  int width = 0, height = 0;
  const auto say = [edje](const char* signal) {
    edje_object_signal_emit(edje, signal, "flux");
    edje_object_message_signal_process(edje);
  };
  say("flux,lines,one");
  edje_object_size_min_calc(edje, &width, &height);
  const int empty = EmptyHeightOf(edje);
  if (width > widest) {
    say("flux,lines,more");
    width = widest;
    int ignored = 0;
    edje_object_size_min_restricted_calc(edje, &ignored, &height, width, 0);
  }
  height -= empty;
  const int x = Mirrored() ? page.x + Px(kSideMargin) : page.x + page.w - Px(kSideMargin) - width;
  const int y = page.y + std::max(Px(kUpperMargin), (Px(kHeaderHeight) - height) / 2);
  evas_object_geometry_set(Object(), x, y, width, height);
}

}  // namespace

}  // namespace flux

Evas_Object* elm_flux_toast_add(Evas_Object* parent, const std::string& text, double seconds) {
  Evas_Object* toast = flux::AddThemed(parent, "toast", "default", flux::Fallback::kText);
  if (toast) new flux::Toast(toast, parent, text, seconds);
  return toast;
}
