#include <algorithm>
#include <utility>
#include <vector>

#include "flux/flux_floating.h"
#include "flux/flux_keys.h"
#include "flux/flux_text.h"

namespace flux {

namespace {

constexpr size_t kMostButtons = 3;

// In units at the plain text size; paddings and gaps are the theme's too.
constexpr double kWidth = 112.0;
constexpr double kWidthOfThreeButtons = 160.0;
constexpr double kButtonHeight = 10.0;
constexpr double kButtonHeightOfThree = 12.0;  // for texts of two lines
constexpr double kButtonGap = 4.0;
constexpr double kPadding = 6.0;
constexpr double kGap = 4.0;
constexpr int kRoundings = 4;  // pixels by which the theme's paddings may differ, each rounded by itself
constexpr double kScreenMargins = 12.0;

/// Whether it ends in a sign that ends a sentence in one of the languages.
bool EndsSentence(const std::string& text) {
  return std::ranges::any_of(std::initializer_list<const char*>{".", "!", "?", "…", "。", "！", "？", "؟", "।"},
                             [&](const char* sign) { return text.ends_with(sign); });
}

/// The object covers its parent, so that nothing below it is clicked; a panel in the middle of it is what is seen.
class Popup : public KeyWidget {
 public:
  Popup(Evas_Object* cover, Evas_Object* parent);
  ~Popup() override;
  void Restyle() override;
  bool SpeaksForContent() const override { return true; }

  void SetTitle(const std::string& title);
  void SetText(const std::string& text);
  Evas_Object* AddButton(const std::string& text);
  void FocusButton(int index);

 protected:
  bool OnKey(Key key) override;

 private:
  /// Those that are shown, the topmost last.
  static std::vector<Popup*>& Shown();

  void WatchContent();
  void UnwatchContent();
  static void OnContentDeleted(void* self, Evas* canvas, Evas_Object* content, void* info);
  static void OnContentChanged(void* self, Evas* canvas, Evas_Object* content, void* info);
  void OnShown();
  void OnHidden();
  static void OnCanvasFocusIn(void* self, Evas* canvas, void* object);
  static void OnReturnDeleted(void* self, Evas* canvas, Evas_Object* object, void* info);
  void FocusSoon();
  void TakeFocus();
  /// Where the focus was before, once.
  Evas_Object* ForgetReturn();
  int FocusedButton() const;
  /// Whether it is there, can be seen and pressed.
  bool CanFocus(int button) const;
  bool FocusNext(int by);
  bool ScrollText(int direction) const;
  void Place(const Eina_Rect& room);
  static int HeightOf(Evas_Object* text, int width);
  static Evas_Object* AddText(Evas_Object* parent, const char* style);

  Floating m_floating;
  Evas_Object* m_size;  // as large as the panel, in which the theme draws
  Evas_Object* m_title;
  Evas_Object* m_buttonsRow;
  Evas_Object* m_scroller;  // null once the content is another
  Evas_Object* m_text;      // in it
  std::vector<Evas_Object*> m_buttons;
  std::string m_spokenTitle, m_spokenText;
  int m_toFocus = 0;
  bool m_spoken = false;
  Evas_Object* m_returnTo = nullptr;
  Evas_Object* m_content = nullptr;
  Ecore_Job* m_focusJob = nullptr;
  Ecore_Job* m_placeJob = nullptr;
};

std::vector<Popup*>& Popup::Shown() {
  static auto* shown = new std::vector<Popup*>;
  return *shown;
}

Popup::Popup(Evas_Object* cover, Evas_Object* parent)
    : KeyWidget(cover),
      m_floating(cover, parent, Floor::kPopup, [this](const Eina_Rect& room) { Place(room); }),
      m_size(evas_object_rectangle_add(evas_object_evas_get(cover))),
      m_title(AddText(cover, "title")),
      m_buttonsRow(elm_flux_layout_add(cover, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER)),
      m_scroller(elm_scroller_add(cover)),
      m_text(AddText(m_scroller, "text")) {
  evas_object_color_set(m_size, 0, 0, 0, 0);
  elm_object_part_content_set(cover, "flux.size", m_size);
  elm_object_part_content_set(cover, "flux.title", m_title);
  elm_object_part_content_set(cover, "flux.buttons", m_buttonsRow);
  elm_object_style_set(m_scroller, "flux");
  elm_object_focus_allow_set(m_scroller, false);
  elm_scroller_bounce_set(m_scroller, false, false);
  elm_scroller_policy_set(m_scroller, ELM_SCROLLER_POLICY_OFF, ELM_SCROLLER_POLICY_AUTO);
  elm_object_content_set(m_scroller, m_text);
  elm_object_content_set(cover, m_scroller);
  WatchContent();
  elm_flux_layout_gap_set(m_buttonsRow, kButtonGap);
  m_accessInfo = [this] {
    const int button = FocusedButton();
    const char* label = button < 0 ? nullptr : elm_object_text_get(m_buttons[button]);
    std::string speech = m_spokenTitle;
    for (const std::string& part : {m_spokenText, std::string(label ? label : "")})
      if (!part.empty()) speech += (speech.empty() ? "" : EndsSentence(speech) ? " " : ". ") + part;
    return speech;
  };
  const auto on = [cover, this](Evas_Callback_Type event, Evas_Object_Event_Cb callback) {
    evas_object_event_callback_add(cover, event, callback, this);
  };
  on(EVAS_CALLBACK_SHOW, [](void* data, Evas*, Evas_Object*, void*) { static_cast<Popup*>(data)->OnShown(); });
  on(EVAS_CALLBACK_HIDE, [](void* data, Evas*, Evas_Object*, void*) { static_cast<Popup*>(data)->OnHidden(); });
  evas_event_callback_add(evas_object_evas_get(cover), EVAS_CALLBACK_CANVAS_OBJECT_FOCUS_IN, OnCanvasFocusIn, this);
  OnShown();
  Restyle();
}

Popup::~Popup() {
  evas_event_callback_del_full(evas_object_evas_get(Object()), EVAS_CALLBACK_CANVAS_OBJECT_FOCUS_IN, OnCanvasFocusIn,
                               this);
  OnHidden();
  UnwatchContent();
  if (m_placeJob) ecore_job_del(m_placeJob);
}

// ---- the content

void Popup::WatchContent() {
  UnwatchContent();
  m_content = elm_object_content_get(Object());
  if (!m_content) return;
  evas_object_event_callback_add(m_content, EVAS_CALLBACK_DEL, OnContentDeleted, this);
  evas_object_event_callback_add(m_content, EVAS_CALLBACK_CHANGED_SIZE_HINTS, OnContentChanged, this);
}

void Popup::UnwatchContent() {
  Evas_Object* content = std::exchange(m_content, nullptr);
  if (!content) return;
  evas_object_event_callback_del_full(content, EVAS_CALLBACK_DEL, OnContentDeleted, this);
  evas_object_event_callback_del_full(content, EVAS_CALLBACK_CHANGED_SIZE_HINTS, OnContentChanged, this);
}

/// Another one takes its place.
void Popup::OnContentDeleted(void* self, Evas* canvas, Evas_Object* content, void* info) {
  auto* popup = static_cast<Popup*>(self);
  popup->m_content = nullptr;
  if (content == popup->m_scroller) popup->m_scroller = nullptr;
  OnContentChanged(self, canvas, content, info);
}

void Popup::OnContentChanged(void* self, Evas*, Evas_Object*, void*) {
  auto* popup = static_cast<Popup*>(self);
  if (popup->m_placeJob) return;
  popup->m_placeJob = ecore_job_add(
      [](void* data) {
        auto* later = static_cast<Popup*>(data);
        later->m_placeJob = nullptr;
        if (!later->m_content) later->WatchContent();
        later->m_floating.Place();
      },
      popup);
}

Evas_Object* Popup::AddText(Evas_Object* parent, const char* style) {
  Evas_Object* text = AddThemed(parent, "popup_text", style, Fallback::kText);
  evas_object_size_hint_align_set(text, EVAS_HINT_FILL, 0.0);
  evas_object_show(text);
  return text;
}

// ---- the focus

void Popup::OnShown() {
  if (std::find(Shown().begin(), Shown().end(), this) != Shown().end()) return;
  Shown().push_back(this);
  evas_object_raise(Object());
  m_spoken = false;
  m_returnTo = elm_object_focused_object_get(Object());
  if (m_returnTo) evas_object_event_callback_add(m_returnTo, EVAS_CALLBACK_DEL, OnReturnDeleted, this);
  FocusSoon();
}

void Popup::OnHidden() {
  // While it is the topmost, what else has the focus got it from the toolkit, as when the popup is being deleted.
  const bool wasTopmost = !Shown().empty() && Shown().back() == this;
  if (std::erase(Shown(), this) == 0) return;
  if (m_focusJob) ecore_job_del(std::exchange(m_focusJob, nullptr));
  Evas_Object* back = ForgetReturn();
  if (!m_floating.HasParent()) return;  // a window that is being deleted has no focus to give
  Evas_Object* focused = elm_object_focused_object_get(Object());
  if (back && (wasTopmost || !focused || IsWithin(focused, Object()))) elm_object_focus_set(back, true);
}

Evas_Object* Popup::ForgetReturn() {
  Evas_Object* object = std::exchange(m_returnTo, nullptr);
  if (object) evas_object_event_callback_del_full(object, EVAS_CALLBACK_DEL, OnReturnDeleted, this);
  return object;
}

void Popup::OnReturnDeleted(void* self, Evas*, Evas_Object*, void*) {
  static_cast<Popup*>(self)->m_returnTo = nullptr;
}

void Popup::OnCanvasFocusIn(void* self, Evas*, void* object) {
  auto* popup = static_cast<Popup*>(self);
  if (!Shown().empty() && Shown().back() == popup && !IsWithin(static_cast<Evas_Object*>(object), popup->Object()))
    popup->FocusSoon();
}

/// Not at once: the toolkit may be in the midst of giving the focus to another.
void Popup::FocusSoon() {
  if (m_focusJob) return;
  m_focusJob = ecore_job_add(
      [](void* data) {
        static_cast<Popup*>(data)->m_focusJob = nullptr;
        static_cast<Popup*>(data)->TakeFocus();
      },
      this);
}

void Popup::TakeFocus() {
  const int count = static_cast<int>(m_buttons.size());
  int button = count == 0 ? -1 : std::clamp(m_toFocus, 0, count - 1);
  if (!CanFocus(button)) {
    button = 0;
    while (button < count && !CanFocus(button)) ++button;
  }
  const bool any = CanFocus(button);
  // Else the keys would go to what is below.
  elm_object_focus_allow_set(Object(), !any);
  elm_object_focus_set(any ? m_buttons[button] : Object(), true);
  if (!std::exchange(m_spoken, true)) SpeakSoon();  // instead of the button alone
}

bool Popup::CanFocus(int button) const {
  return button >= 0 && button < static_cast<int>(m_buttons.size()) && !elm_object_disabled_get(m_buttons[button]) &&
         evas_object_visible_get(m_buttons[button]);
}

void Popup::FocusButton(int index) {
  if (index < 0 || index >= static_cast<int>(m_buttons.size())) return;
  m_toFocus = index;
  FocusSoon();
}

int Popup::FocusedButton() const {
  for (size_t i = 0; i < m_buttons.size(); ++i)
    if (elm_object_focus_get(m_buttons[i])) return static_cast<int>(i);
  return -1;
}

/// What may take the focus next to the button that has it, past those that may not.
bool Popup::FocusNext(int by) {
  const int count = static_cast<int>(m_buttons.size());
  for (int i = FocusedButton() + by; i >= 0 && i < count; i += by) {
    if (!CanFocus(i)) continue;
    m_toFocus = i;
    elm_object_focus_set(m_buttons[i], true);
    break;
  }
  return true;
}

bool Popup::OnKey(Key key) {
  if (elm_object_focused_object_get(Object()) == Object()) return true;  // there is no button to go to
  if (FocusedButton() < 0) return false;  // the content has it; OnCanvasFocusIn() sees to the rest
  const int forward = Mirrored() ? -1 : 1;
  switch (key) {
    case Key::kLeft:
      return FocusNext(-forward);
    case Key::kRight:
      return FocusNext(forward);
    case Key::kPrevious:
      return FocusNext(-1);
    case Key::kNext:
      return FocusNext(1);
    case Key::kUp:
    case Key::kPageUp:
      return ScrollText(-1);
    case Key::kDown:
    case Key::kPageDown:
      return ScrollText(1);
    default:
      return false;
  }
}

/// True, so that the focus stays, but where the content is the application's: the focus may then go into it.
bool Popup::ScrollText(int direction) const {
  if (!m_scroller) return false;
  int x = 0, y = 0, width = 0, height = 0;
  elm_scroller_region_get(m_scroller, &x, &y, &width, &height);
  elm_scroller_region_bring_in(m_scroller, x, y + direction * height * 2 / 3, width, height);
  return true;
}

// ---- what it shows

void Popup::SetTitle(const std::string& title) {
  m_spokenTitle = title;
  elm_object_text_set(m_title, MarkupOf(title.c_str()).c_str());
  m_floating.Place();
}

void Popup::SetText(const std::string& text) {
  m_spokenText = text;
  if (!m_scroller) return;
  elm_object_text_set(m_text, MarkupOf(text.c_str()).c_str());
  m_floating.Place();
}

Evas_Object* Popup::AddButton(const std::string& text) {
  if (m_buttons.size() == kMostButtons) return nullptr;
  Evas_Object* button = elm_flux_button_add(m_buttonsRow, FLUX_BUTTON_PLAIN);
  if (!button) return nullptr;
  elm_object_text_set(button, text.c_str());
  elm_flux_expand_set(button, true);
  elm_flux_layout_pack(m_buttonsRow, button);
  m_buttons.push_back(button);
  if (m_buttons.size() == 1) FocusSoon();
  Restyle();
  return button;
}

void Popup::Restyle() {
  elm_object_scale_set(Object(), TextScale());
  elm_object_scale_set(m_title, TextScale());
  if (m_scroller) {
    elm_object_scale_set(m_scroller, TextScale());
    elm_object_scale_set(m_text, TextScale());
  }
  m_floating.Place();
}

int Popup::HeightOf(Evas_Object* text, int width) {
  int least = 0, height = 0;
  edje_object_size_min_restricted_calc(elm_layout_edje_get(text), &least, &height, width, 0);
  return height;
}

void Popup::Place(const Eina_Rect& room) {
  evas_object_geometry_set(Object(), room.x, room.y, room.w, room.h);
  const double grown = elm_config_scale_get() / FLUX_SCALE_NORMAL;
  const auto px = [grown](double units) { return Px(units * grown); };
  const bool many = m_buttons.size() == kMostButtons;
  const int mostWidth = room.w - Px(kScreenMargins), mostHeight = room.h - Px(kScreenMargins);
  const int width =
      std::min(mostWidth, m_wanted.width > 0 ? Px(m_wanted.width) : px(many ? kWidthOfThreeButtons : kWidth));
  const int inner = width - 2 * px(kPadding);

  const int title = m_spokenTitle.empty() ? 0 : HeightOf(m_title, inner);
  evas_object_size_hint_min_set(m_title, 0, title);
  const double buttonHeight = many ? kButtonHeightOfThree : kButtonHeight;
  const int buttons = m_buttons.empty() ? 0 : px(buttonHeight);
  for (Evas_Object* button : m_buttons) elm_flux_min_size_set(button, 0, buttonHeight * grown);
  evas_object_size_hint_min_set(m_buttonsRow, 0, buttons);

  const int frame = 2 * px(kPadding) + title + (title ? px(kGap) : 0) + buttons + (buttons ? px(kGap) : 0);
  int content = 0;
  if (m_scroller) {
    content = m_spokenText.empty() ? 0 : HeightOf(m_text, inner);
    evas_object_size_hint_min_set(m_text, 0, content);
  } else if (m_content) {
    const Widget* widget = Widget::Of(m_content);
    if (widget)
      content = widget->NeededSize().height;
    else
      evas_object_size_hint_min_get(m_content, nullptr, &content);
  }
  const int height = std::min(mostHeight, m_wanted.height > 0 ? Px(m_wanted.height) : frame + content + kRoundings);
  evas_object_size_hint_min_set(m_size, width, height);
  evas_object_size_hint_max_set(m_size, width, height);
}

}  // namespace

}  // namespace flux

using flux::Popup;
using flux::Widget;

Evas_Object* elm_flux_popup_add(Evas_Object* parent) {
  Evas_Object* cover = flux::AddThemed(parent, "popup", "default", flux::Fallback::kContent);
  if (cover) new Popup(cover, parent);
  return cover;
}

void elm_flux_popup_title_set(Evas_Object* popup, const std::string& title) {
  if (auto* self = Widget::Of<Popup>(popup, __func__)) self->SetTitle(title);
}

void elm_flux_popup_text_set(Evas_Object* popup, const std::string& text) {
  if (auto* self = Widget::Of<Popup>(popup, __func__)) self->SetText(text);
}

Evas_Object* elm_flux_popup_button_add(Evas_Object* popup, const std::string& text) {
  auto* self = Widget::Of<Popup>(popup, __func__);
  return self ? self->AddButton(text) : nullptr;
}

void elm_flux_popup_focus_set(Evas_Object* popup, int button) {
  if (auto* self = Widget::Of<Popup>(popup, __func__)) self->FocusButton(button);
}
