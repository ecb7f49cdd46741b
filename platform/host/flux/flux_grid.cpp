#include <algorithm>
#include <utility>
#include <vector>

#include "flux/flux_image.h"
#include "flux/flux_keys.h"
#include "flux/flux_text.h"

namespace flux {

namespace {

constexpr char kSignalSource[] = "flux";

struct Arrow {
  Key key;
  const char* name;
  int columns, rows;  // where it leads, read from left to right
};
constexpr Arrow kArrows[] = {
    {Key::kUp, "Up", 0, -1}, {Key::kDown, "Down", 0, 1}, {Key::kLeft, "Left", -1, 0}, {Key::kRight, "Right", 1, 0}};

/// The grid takes the focus and the keys; the cards show it.
class Grid : public ItemWidget {
 public:
  Grid(Evas_Object* frame, Evas_Object* table, int columns);
  void Restyle() override;

  void SetCards(std::vector<FluxCard> cards);
  int Count() const override { return static_cast<int>(m_cards.size()); }

 protected:
  bool OnKey(Key key) override;
  void ShowFocus(int index, bool focused) override;

 private:
  struct Card {
    FluxCard what;
    Evas_Object* object;
    Evas_Object* icon;  // null for none
    TextBox* text;      // null where the toolkit's own look draws it
  };

  Evas_Object* AddCard(int index);
  Evas_Object* AddIcon(Evas_Object* object, const FluxCard& card);
  TextBox* AddText(Evas_Object* object, const std::string& label);
  std::vector<TextBox*> Texts() const;
  void Recolour(int index, bool focused);
  bool MoveBy(const Arrow& arrow, const char* event);
  int TargetOf(const Arrow& arrow) const;
  void Turn(const Evas_Event_Mouse_Wheel& wheel);
  static void OnClicked(void* grid, Evas_Object* card, const char*, const char*);

  Evas_Object* m_table;
  int m_columns;
  std::vector<Card> m_cards;
};

Grid::Grid(Evas_Object* frame, Evas_Object* table, int columns)
    : ItemWidget(frame), m_table(table), m_columns(std::max(1, columns)) {
  elm_table_homogeneous_set(table, true);
  elm_object_content_set(frame, table);
  m_accessInfo = [this] { return IsItem(Focused()) ? m_cards[Focused()].what.label : std::string(); };
  evas_object_event_callback_add(
      frame, EVAS_CALLBACK_MOUSE_WHEEL,
      [](void* data, Evas*, Evas_Object*, void* event) {
        static_cast<Grid*>(data)->Turn(*static_cast<Evas_Event_Mouse_Wheel*>(event));
      },
      this);
  Restyle();
}

void Grid::Restyle() {
  for (int i = 0; i < Count(); ++i) {
    const Card& card = m_cards[i];
    elm_object_scale_set(card.object, TextScale());
    // The theme may have been loaded anew, and what it showed is lost.
    if (!card.what.enabled) elm_object_signal_emit(card.object, "flux,card,disabled", kSignalSource);
    if (HasFocus() && i == Focused())
      ShowFocus(i, true);
    else
      Recolour(i, false);
  }
}

void Grid::SetCards(std::vector<FluxCard> cards) {
  elm_table_clear(m_table, true);
  m_cards.clear();
  for (FluxCard& card : cards) {
    Evas_Object* object = AddCard(Count());
    if (!object) break;
    Evas_Object* icon = AddIcon(object, card);
    TextBox* text = AddText(object, card.label);
    m_cards.push_back({std::move(card), object, icon, text});
  }
  CountChanged(std::max(0, Focused()));
  Restyle();
}

Evas_Object* Grid::AddCard(int index) {
  Evas_Object* object = AddThemed(m_table, "card", "default", Fallback::kText);
  if (!object) return nullptr;
  evas_object_size_hint_weight_set(object, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
  evas_object_size_hint_align_set(object, EVAS_HINT_FILL, EVAS_HINT_FILL);
  elm_object_signal_callback_add(object, "flux,click", kSignalSource, OnClicked, this);
  elm_table_pack(m_table, object, index % m_columns, index / m_columns, 1, 1);
  evas_object_show(object);
  return object;
}

Evas_Object* Grid::AddIcon(Evas_Object* object, const FluxCard& card) {
  if (card.icon.empty()) return nullptr;
  Evas_Object* icon = elm_flux_image_add(object);
  elm_flux_image_file_set(icon, card.icon);
  elm_object_part_content_set(object, "elm.swallow.content", icon);
  return icon;
}

TextBox* Grid::AddText(Evas_Object* object, const std::string& label) {
  TextBox* text = TextBox::Add(object);
  TextBox::Style style;
  style.family = FLUX_FONT_600;
  style.size = FLUX_TEXT_DETAIL;
  style.align = FLUX_ALIGN_CENTER;
  style.lines = 2;
  style.isWhole = true;
  text->SetStyle(style);
  text->SetPeers([this] { return Texts(); });
  if (!elm_layout_content_set(object, "flux.swallow.text", text->Object())) {
    evas_object_del(text->Object());
    text = nullptr;
  } else {
    FollowText(object, text);
  }
  elm_object_text_set(object, label.c_str());
  return text;
}

std::vector<TextBox*> Grid::Texts() const {
  std::vector<TextBox*> texts;
  for (const Card& card : m_cards)
    if (card.text) texts.push_back(card.text);
  return texts;
}

void Grid::Recolour(int index, bool focused) {
  const Card& card = m_cards[index];
  if (card.icon) SetImageTint(card.icon, ColourOf(focused ? Token::kFocusText : Token::kAccent));
  if (card.text) card.text->SetColour(ColourOf(focused ? Token::kFocusText : Token::kText));
}

void Grid::ShowFocus(int index, bool focused) {
  Evas_Object* card = m_cards[index].object;
  if (focused) evas_object_raise(card);  // it reaches over those beside it
  const std::string signal = focused ? "flux,focus,in" : "flux,focus,out";
  // A held key is faster than the eye could follow it.
  elm_object_signal_emit(card, (signal + (elm_flux_key_is_repeated() ? ",now" : "")).c_str(), kSignalSource);
  Recolour(index, focused);
}

/// The card that an arrow leads to; -1 for none.
int Grid::TargetOf(const Arrow& arrow) const {
  const int column = Focused() % m_columns + (Mirrored() ? -arrow.columns : arrow.columns);
  const int row = Focused() / m_columns + arrow.rows;
  const int lastRow = (Count() - 1) / m_columns;
  if (column < 0 || column >= m_columns || row < 0 || row > lastRow) return -1;
  // A last row that is not full is reached all the same.
  const int index = row * m_columns + column;
  return arrow.rows == 0 && index >= Count() ? -1 : std::min(index, Count() - 1);
}

/// Whether the key was used: one that is held does not leave an edge.
bool Grid::MoveBy(const Arrow& arrow, const char* event) {
  const std::weak_ptr<void> life = Life();
  evas_object_smart_callback_call(Object(), event, const_cast<char*>(arrow.name));
  if (life.expired()) return true;
  const int target = TargetOf(arrow);
  if (target < 0) return elm_flux_key_is_repeated();
  FocusItem(target);
  if (!life.expired()) Emit("item,moved", target);
  return true;
}

bool Grid::OnKey(Key key) {
  if (!IsItem(Focused())) return false;
  if (key == Key::kEnter) {
    Emit("item,selected", Focused());
    return true;
  }
  const auto arrow =
      std::find_if(std::begin(kArrows), std::end(kArrows), [key](const auto& a) { return a.key == key; });
  return arrow != std::end(kArrows) && MoveBy(*arrow, "arrow");
}

// The wheel moves the focus as the arrows do, but not out of the grid.
void Grid::Turn(const Evas_Event_Mouse_Wheel& wheel) {
  if (!IsItem(Focused()) || elm_object_disabled_get(Object())) return;
  const int steps = wheel.z > 0 ? 1 : -1;
  const int columns = wheel.direction != 0 ? steps : 0, rows = wheel.direction != 0 ? 0 : steps;
  const auto arrow = std::find_if(std::begin(kArrows), std::end(kArrows),
                                  [&](const auto& a) { return a.columns == columns && a.rows == rows; });
  const std::weak_ptr<void> life = Life();
  elm_object_focus_set(Object(), true);
  if (!life.expired()) MoveBy(*arrow, "wheel");
}

void Grid::OnClicked(void* grid, Evas_Object* card, const char*, const char*) {
  auto* self = static_cast<Grid*>(grid);
  for (int i = 0; i < self->Count(); ++i)
    if (self->m_cards[i].object == card) return self->ClickSoon(i);
}

}  // namespace

}  // namespace flux

Evas_Object* elm_flux_grid_add(Evas_Object* parent, int columns) {
  Evas_Object* frame = flux::AddThemed(parent, "grid", "default", flux::Fallback::kContent);
  if (!frame) return nullptr;
  Evas_Object* table = elm_table_add(frame);
  if (!table) {
    evas_object_del(frame);
    return nullptr;
  }
  new flux::Grid(frame, table, columns);
  return frame;
}

void elm_flux_grid_cards_set(Evas_Object* grid, std::vector<FluxCard> cards) {
  if (auto* self = flux::Widget::Of<flux::Grid>(grid, __func__)) self->SetCards(std::move(cards));
}

void elm_flux_grid_focus_set(Evas_Object* grid, int index) {
  auto* self = flux::Widget::Of<flux::Grid>(grid, __func__);
  if (self && index >= 0 && index < self->Count()) self->FocusWith(index);
}
