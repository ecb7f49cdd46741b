#include <algorithm>
#include <utility>
#include <vector>

#include "flux/flux_keys.h"
#include "flux/flux_text.h"

namespace flux {

namespace {

constexpr char kSignalSource[] = "flux";

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
  };

  Evas_Object* AddCard(const FluxCard& card, int index);
  bool MoveBy(int columns, int rows);
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
  Restyle();
}

void Grid::Restyle() {
  for (int i = 0; i < Count(); ++i) {
    const Card& card = m_cards[i];
    elm_object_scale_set(card.object, TextScale());
    // The theme may have been loaded anew, and what it showed is lost.
    if (!card.what.enabled) elm_object_signal_emit(card.object, "flux,card,disabled", kSignalSource);
    if (HasFocus() && i == Focused()) ShowFocus(i, true);
  }
}

void Grid::SetCards(std::vector<FluxCard> cards) {
  elm_table_clear(m_table, true);
  m_cards.clear();
  for (FluxCard& card : cards) {
    Evas_Object* object = AddCard(card, Count());
    if (!object) break;
    m_cards.push_back({std::move(card), object});
  }
  CountChanged(std::max(0, Focused()));
  Restyle();
}

Evas_Object* Grid::AddCard(const FluxCard& card, int index) {
  Evas_Object* object = AddThemed(m_table, "card", "default", Fallback::kText);
  if (!object) return nullptr;
  evas_object_size_hint_weight_set(object, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
  evas_object_size_hint_align_set(object, EVAS_HINT_FILL, EVAS_HINT_FILL);
  elm_object_text_set(object, MarkupOf(card.label.c_str()).c_str());
  if (!card.icon.empty()) {
    Evas_Object* icon = elm_flux_image_add(object);
    elm_flux_image_file_set(icon, card.icon);
    elm_object_part_content_set(object, "elm.swallow.content", icon);
  }
  elm_object_signal_callback_add(object, "flux,click", kSignalSource, OnClicked, this);
  elm_table_pack(m_table, object, index % m_columns, index / m_columns, 1, 1);
  evas_object_show(object);
  return object;
}

void Grid::ShowFocus(int index, bool focused) {
  Evas_Object* card = m_cards[index].object;
  if (focused) evas_object_raise(card);  // it reaches over those beside it
  elm_object_signal_emit(card, focused ? "flux,focus,in" : "flux,focus,out", kSignalSource);
}

bool Grid::MoveBy(int columns, int rows) {
  const int column = Focused() % m_columns + columns, row = Focused() / m_columns + rows;
  const int lastRow = (Count() - 1) / m_columns;
  const bool stays = elm_flux_key_is_repeated();  // a held key does not leave an edge
  if (column < 0 || column >= m_columns || row < 0 || row > lastRow) return stays;
  // A last row that is not full is reached all the same.
  const int index = rows == 0 ? row * m_columns + column : std::min(row * m_columns + column, Count() - 1);
  if (index >= Count()) return stays;
  FocusItem(index);
  return true;
}

bool Grid::OnKey(Key key) {
  if (!IsItem(Focused())) return false;
  const int forward = Mirrored() ? -1 : 1;
  switch (key) {
    case Key::kUp:
      return MoveBy(0, -1);
    case Key::kDown:
      return MoveBy(0, 1);
    case Key::kLeft:
      return MoveBy(-forward, 0);
    case Key::kRight:
      return MoveBy(forward, 0);
    case Key::kEnter:
      Emit("item,selected", Focused());
      return true;
    default:
      return false;
  }
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
