#include <algorithm>
#include <vector>

#include "dlog.h"
#include "flux/flux_image.h"
#include "flux/flux_keys.h"
#include "flux/flux_text.h"

namespace flux {

namespace {

/// In units; the theme's, on both sides of the text.
constexpr double kTextPadding = 24.0 / 9.0;

const char* StyleOf(FluxButtonStyle style) {
  switch (style) {
    case FLUX_BUTTON_ACCENT:
      return "accent";
    case FLUX_BUTTON_TILE:
      return "tile";
    case FLUX_BUTTON_CHECK:
      return "check";
    case FLUX_BUTTON_PLAIN:
      break;
  }
  return "plain";
}

/// Elementary's own button wants to be pressed twice while the screen reader is on; a remote control's is pressed once.
class Button : public Widget {
 public:
  Button(Evas_Object* layout, FluxButtonStyle style) : Widget(layout), m_style(style) {
    elm_object_focus_allow_set(layout, EINA_TRUE);
    AddText();
    elm_object_event_callback_add(layout, OnEvent, this);
    // The toolkit tells the theme, and nobody else, what becomes of a layout.
    OnSignal("elm,action,focus",
             [](void* data, Evas_Object*, const char*, const char*) { static_cast<Button*>(data)->SetFocused(true); });
    OnSignal("elm,action,unfocus",
             [](void* data, Evas_Object*, const char*, const char*) { static_cast<Button*>(data)->SetFocused(false); });
    OnSignal("elm,state,*abled",
             [](void* data, Evas_Object*, const char*, const char*) { static_cast<Button*>(data)->Recolour(); });
    OnSignal("elm,action,click",
             [](void* data, Evas_Object*, const char*, const char*) { static_cast<Button*>(data)->Click(); });
    m_wanted.minWidth = style == FLUX_BUTTON_TILE ? 30.0 : 20.0;
    m_wanted.minHeight = style == FLUX_BUTTON_TILE ? 18.0 : 9.0;
    Restyle();
  }

  ~Button() override {  // its icon goes after it
    if (m_icon) evas_object_event_callback_del_full(m_icon, EVAS_CALLBACK_DEL, ForgetIcon, this);
  }

  void Restyle() override {
    FollowThemeScale();
    Recolour();
    if (m_text) m_text->Update();
    ShowCheck();  // the theme may have been loaded anew
  }

  /// A button without a width of its own takes its text; tiles and check boxes stand in columns.
  Size ContentSize() const override {
    Size content = Widget::ContentSize();
    if (m_text && (m_style == FLUX_BUTTON_PLAIN || m_style == FLUX_BUTTON_ACCENT))
      content.width = std::max(content.width, m_text->NeededSize().width + Px(2 * kTextPadding));
    return content;
  }

  bool IsChecked() const { return m_isChecked; }
  void SetChecked(bool checked) {
    m_isChecked = checked;
    ShowCheck();
  }

  void SetIcon(const std::string& file) {
    if (!m_icon) {
      m_icon = elm_flux_image_add(Object());
      evas_object_event_callback_add(m_icon, EVAS_CALLBACK_DEL, ForgetIcon, this);
      elm_layout_content_set(Object(), "elm.swallow.content", m_icon);
    }
    elm_flux_image_file_set(m_icon, file);
    Recolour();
  }

 private:
  static void ForgetIcon(void* self, Evas*, Evas_Object*, void*) { static_cast<Button*>(self)->m_icon = nullptr; }

  void AddText() {
    m_text = TextBox::Add(Object());
    TextBox::Style text;
    text.family = FLUX_FONT_600;
    text.size = FLUX_TEXT_ROW;
    text.align = FLUX_ALIGN_CENTER;
    text.fit = true;
    // Check boxes stand beside one another, so their texts are of one size.
    if (m_style == FLUX_BUTTON_CHECK) {
      text.align = FLUX_ALIGN_LEFT;
      text.fit = false;
      text.lines = 2;
      text.isWhole = true;
    }
    m_text->SetStyle(text);
    if (m_style == FLUX_BUTTON_TILE) m_text->SetPeers([this] { return TextsOfRow(); });
    m_text->OnNeededSizeChanged([layout = Object()] {
      if (const Widget* button = Of(layout)) button->InvalidateParent();
    });
    if (elm_layout_content_set(Object(), "flux.swallow.text", m_text->Object())) {
      FollowText(Object(), m_text);
    } else {  // the toolkit's own look draws the text by itself
      evas_object_del(m_text->Object());
      m_text = nullptr;
    }
  }

  /// Of the tiles in the same layout.
  std::vector<TextBox*> TextsOfRow() const {
    std::vector<TextBox*> texts;
    Evas_Object* const row = elm_object_parent_widget_get(Object());
    if (!dynamic_cast<Layout*>(Of(row))) return texts;
    Eina_List* children = elm_box_children_get(row);
    for (; children; children = eina_list_remove_list(children, children)) {
      const auto* const button = dynamic_cast<Button*>(Of(static_cast<Evas_Object*>(eina_list_data_get(children))));
      if (button && button->m_style == FLUX_BUTTON_TILE && button->m_text) texts.push_back(button->m_text);
    }
    return texts;
  }

  void OnSignal(const char* signal, Edje_Signal_Cb callback) {
    elm_layout_signal_callback_add(Object(), signal, "elm", callback, this);
  }

  static Eina_Bool OnEvent(void* self, Evas_Object*, Evas_Object*, Evas_Callback_Type type, void* event) {
    if (type != EVAS_CALLBACK_KEY_DOWN) return EINA_FALSE;
    if (KeyOf(*static_cast<Evas_Event_Key_Down*>(event)) != Key::kEnter) return EINA_FALSE;
    if (elm_flux_key_is_repeated()) return EINA_TRUE;
    elm_layout_signal_emit(static_cast<Button*>(self)->Object(), "flux,press", "flux");
    static_cast<Button*>(self)->Click();
    return EINA_TRUE;
  }

  /// The button may be gone after it.
  void Click() {
    if (elm_object_disabled_get(Object())) return;
    elm_object_focus_set(Object(), EINA_TRUE);
    evas_object_smart_callback_call(Object(), "clicked", nullptr);
  }

  Token TextToken() const {
    if (elm_object_disabled_get(Object())) return Token::kTextDisabled;
    if (m_isFocused) return Token::kFocusText;
    return m_style == FLUX_BUTTON_ACCENT ? Token::kTextOnAccent : Token::kText;
  }

  void Recolour() {
    const Token text = TextToken();
    if (m_text) m_text->SetColour(ColourOf(text));
    if (m_icon) SetImageTint(m_icon, ColourOf(text == Token::kText ? Token::kAccent : text));
  }

  void ShowCheck() {
    if (m_style == FLUX_BUTTON_CHECK)
      elm_layout_signal_emit(Object(), m_isChecked ? "flux,check,on" : "flux,check,off", "flux");
  }

  void SetFocused(bool focused) {
    m_isFocused = focused;
    Recolour();
    evas_object_smart_callback_call(Object(), focused ? "focused" : "unfocused", nullptr);
  }

  FluxButtonStyle m_style;
  bool m_isFocused = false;
  bool m_isChecked = false;
  TextBox* m_text = nullptr;
  Evas_Object* m_icon = nullptr;
};

}  // namespace

}  // namespace flux

Evas_Object* elm_flux_button_add(Evas_Object* parent, FluxButtonStyle style) {
  Evas_Object* layout = flux::AddThemed(parent, "button", flux::StyleOf(style), flux::Fallback::kButton);
  if (layout) new flux::Button(layout, style);
  return layout;
}

void elm_flux_button_icon_set(Evas_Object* button, const std::string& file) {
  if (auto* self = flux::Widget::Of<flux::Button>(button, __func__)) self->SetIcon(file);
}

void elm_flux_button_check_set(Evas_Object* button, bool checked) {
  if (auto* self = flux::Widget::Of<flux::Button>(button, __func__)) self->SetChecked(checked);
}

bool elm_flux_button_check_get(const Evas_Object* button) {
  const auto* self = flux::Widget::Of<flux::Button>(button, __func__);
  return self && self->IsChecked();
}
