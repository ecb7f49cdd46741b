#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "flux/flux_keys.h"
#include "flux/flux_text.h"

namespace flux {

namespace {

constexpr char kSignalSource[] = "flux";
constexpr double kLongAgo = -1e9;
constexpr double kWheelSeconds = 1.0;  // longer than the toolkit scrolls after a turn of the wheel

class List;

struct Row {
  List* list;
  int index;
  bool checked = false;
  Elm_Object_Item* item = nullptr;
};

/// The frame takes the focus and the keys; the genlist in it draws the rows and scrolls.
class List : public ItemWidget {
 public:
  List(Evas_Object* frame, Evas_Object* rows, const char* rowStyle);
  ~List() override;
  void Restyle() override;

  void SetTextOf(FluxTextOf textOf);
  void SetShadows(const std::string& top, const std::string& bottom);
  void Append(int count);
  void Remove(int index);
  int Count() const override { return static_cast<int>(m_rows.size()); }
  void Update(int index);
  void ShowChecks(bool show);
  void Check(int index, bool checked);
  bool IsChecked(int index) const;

 protected:
  bool OnKey(Key key) override;
  void ShowFocus(int index, bool focused) override;
  void Reveal(int index) override;

 private:
  void Refill();
  Elm_Object_Item* AppendItem(Row* row);
  void MoveTo(int index);
  void BringIn(int index, bool animated);
  void FollowWheel();
  int RowHeight() const;
  int RowsOnPage() const;
  void MarkChecks(int index);
  void Mark(int index, const char* signal);
  void OnRealized(const Row& row);
  void UpdateShadowsSoon();
  void UpdateShadows();
  void SetShadow(const char* part, const std::string& file);
  std::string SpeechOfRow() const;
  void ListenToRows();

  static char* TextOfPart(void* row, Evas_Object* rows, const char* part);
  static Evas_Object* ContentOfPart(void* row, Evas_Object* rows, const char* part);

  Evas_Object* m_genlist;
  Elm_Genlist_Item_Class* m_class;
  std::vector<std::unique_ptr<Row>> m_rows;
  FluxTextOf m_textOf;
  bool m_checksShown = false;
  bool m_stays = false;           // where it is scrolled to, as the next row to take the focus is seen
  double m_wheelTime = kLongAgo;  // seconds, of the loop's clock
  Ecore_Job* m_shadowJob = nullptr;
  Ecore_Job* m_refillJob = nullptr;
};

List::List(Evas_Object* frame, Evas_Object* rows, const char* rowStyle)
    : ItemWidget(frame), m_genlist(rows), m_class(elm_genlist_item_class_new()) {
  m_class->item_style = rowStyle;
  m_class->func.text_get = TextOfPart;
  m_class->func.content_get = ContentOfPart;
  elm_object_style_set(m_genlist, "flux");
  elm_object_focus_allow_set(m_genlist, false);
  elm_genlist_mode_set(m_genlist, ELM_LIST_COMPRESS);
  elm_genlist_homogeneous_set(m_genlist, true);
  elm_genlist_select_mode_set(m_genlist, ELM_OBJECT_SELECT_MODE_ALWAYS);
  elm_scroller_bounce_set(m_genlist, false, false);
  elm_scroller_policy_set(m_genlist, ELM_SCROLLER_POLICY_OFF, ELM_SCROLLER_POLICY_OFF);
  elm_object_part_content_set(frame, "elm.swallow.content", m_genlist);
  m_accessInfo = [this] { return SpeechOfRow(); };
  ListenToRows();
  Restyle();
}

List::~List() {
  if (m_genlist) evas_object_del(m_genlist);  // before what its rows ask for is gone
  if (m_shadowJob) ecore_job_del(m_shadowJob);
  if (m_refillJob) ecore_job_del(m_refillJob);
  elm_genlist_item_class_free(m_class);
}

void List::ListenToRows() {
  evas_object_event_callback_add(
      m_genlist, EVAS_CALLBACK_DEL,
      [](void* data, Evas*, Evas_Object*, void*) { static_cast<List*>(data)->m_genlist = nullptr; }, this);
  evas_object_smart_callback_add(
      m_genlist, "realized",
      [](void* data, Evas_Object*, void* item) {
        const auto* row = static_cast<Row*>(elm_object_item_data_get(static_cast<Elm_Object_Item*>(item)));
        static_cast<List*>(data)->OnRealized(*row);
      },
      this);
  evas_object_smart_callback_add(
      m_genlist, "selected",
      [](void* data, Evas_Object*, void* item) {
        const auto* row = static_cast<Row*>(elm_object_item_data_get(static_cast<Elm_Object_Item*>(item)));
        elm_genlist_item_selected_set(row->item, false);
        static_cast<List*>(data)->ClickSoon(row->index);
      },
      this);
  evas_object_event_callback_add(
      m_genlist, EVAS_CALLBACK_MOUSE_WHEEL,
      [](void* data, Evas*, Evas_Object*, void*) { static_cast<List*>(data)->m_wheelTime = ecore_loop_time_get(); },
      this);
  const auto scrolled = [](void* data, Evas_Object*, void*) { static_cast<List*>(data)->UpdateShadowsSoon(); };
  for (const char* event : {"scroll", "unrealized"}) evas_object_smart_callback_add(m_genlist, event, scrolled, this);
  evas_object_event_callback_add(
      m_genlist, EVAS_CALLBACK_RESIZE,
      [](void* data, Evas*, Evas_Object*, void*) {
        static_cast<List*>(data)->BringIn(static_cast<List*>(data)->Focused(), false);
        static_cast<List*>(data)->UpdateShadowsSoon();
      },
      this);
}

void List::Restyle() {
  elm_object_scale_set(Object(), TextScale());
  elm_object_scale_set(m_genlist, TextScale());
  if (!m_rows.empty() && !m_refillJob)
    m_refillJob = ecore_job_add([](void* data) { static_cast<List*>(data)->Refill(); }, this);
  UpdateShadowsSoon();
}

/// The genlist does not get over a change of the scale: rows stay away, or stand as high as before. Later, when the
/// toolkit is through with it.
void List::Refill() {
  m_refillJob = nullptr;
  elm_genlist_clear(m_genlist);
  for (const auto& row : m_rows) row->item = AppendItem(row.get());
  if (IsItem(Focused())) elm_genlist_item_show(m_rows[Focused()]->item, ELM_GENLIST_ITEM_SCROLLTO_MIDDLE);
  UpdateShadowsSoon();
}

Elm_Object_Item* List::AppendItem(Row* row) {
  return elm_genlist_item_append(m_genlist, m_class, row, nullptr, ELM_GENLIST_ITEM_NONE, nullptr, nullptr);
}

void List::SetTextOf(FluxTextOf textOf) {
  m_textOf = std::move(textOf);
  for (int i = 0; i < Count(); ++i) Update(i);
}

void List::SetShadows(const std::string& top, const std::string& bottom) {
  SetShadow("flux.swallow.shadow_top", top);
  SetShadow("flux.swallow.shadow_bottom", bottom);
}

void List::SetShadow(const char* part, const std::string& file) {
  Evas_Object* image = nullptr;
  if (!file.empty()) {
    image = evas_object_image_filled_add(evas_object_evas_get(Object()));
    evas_object_image_smooth_scale_set(image, false);  // an even gradient
    evas_object_image_file_set(image, file.c_str(), nullptr);
    if (evas_object_image_load_error_get(image) != EVAS_LOAD_ERROR_NONE) {
      evas_object_del(image);  // the theme's stays
      image = nullptr;
    }
  }
  elm_object_part_content_set(Object(), part, image);
  const std::string signal = std::string(part) + (image ? ",own" : ",theme");
  elm_object_signal_emit(Object(), signal.c_str(), kSignalSource);
}

void List::Append(int count) {
  for (int i = 0; i < count; ++i) {
    auto row = std::make_unique<Row>(Row{this, Count()});
    row->item = AppendItem(row.get());
    if (!row->item) return;
    m_rows.push_back(std::move(row));
  }
  CountChanged(std::max(0, Focused()));
  UpdateShadowsSoon();
}

void List::Remove(int index) {
  if (!IsItem(index)) return;
  const std::unique_ptr<Row> gone = std::move(m_rows[index]);  // until the toolkit is done with it
  m_rows.erase(m_rows.begin() + index);
  for (int i = index; i < Count(); ++i) m_rows[i]->index = i;
  elm_object_item_del(gone->item);
  UpdateShadowsSoon();
  const bool wasFocused = index == Focused();
  CountChanged(index < Focused() ? Focused() - 1 : Focused());
  if (wasFocused && IsItem(Focused())) FocusItem(Focused());
}

void List::Reveal(int index) {
  if (std::exchange(m_stays, false)) return;
  m_wheelTime = kLongAgo;
  BringIn(index, true);
}

void List::MoveTo(int index) {
  index = std::clamp(index, 0, Count() - 1);
  if (index != Focused()) FocusItem(index);
}

bool List::OnKey(Key key) {
  if (m_rows.empty()) return false;
  switch (key) {
    case Key::kUp:
      if (Focused() <= 0) return elm_flux_key_is_repeated();  // a held key stays
      MoveTo(Focused() - 1);
      return true;
    case Key::kDown:
      if (Focused() >= Count() - 1) return elm_flux_key_is_repeated();
      MoveTo(Focused() + 1);
      return true;
    case Key::kPageUp:
      MoveTo(Focused() - RowsOnPage());
      return true;
    case Key::kPageDown:
      MoveTo(Focused() + RowsOnPage());
      return true;
    case Key::kHome:
      MoveTo(0);
      return true;
    case Key::kEnd:
      MoveTo(Count() - 1);
      return true;
    case Key::kEnter:
      if (!elm_object_disabled_get(Object())) Emit("item,selected", Focused());
      return true;
    default:
      return false;
  }
}

int List::RowHeight() const {
  int height = 0;
  elm_scroller_child_size_get(m_genlist, nullptr, &height);
  return m_rows.empty() ? 0 : height / Count();
}

int List::RowsOnPage() const {
  int height = 0;
  evas_object_geometry_get(m_genlist, nullptr, nullptr, nullptr, &height);
  const int row = RowHeight();
  return row > 0 ? std::max(1, height / row - 1) : 1;
}

/// Scrolls so that the focused row is seen, and half of those beside it.
void List::BringIn(int index, bool animated) {
  if (!IsItem(index)) return;
  const int row = RowHeight();
  int width = 0, height = 0;
  evas_object_geometry_get(m_genlist, nullptr, nullptr, &width, &height);
  if (row <= 0 || height <= 0) return;  // not laid out yet: done when it is
  const int seen = std::min(height, 2 * row);
  const int top = index * row - (seen - row) / 2;
  if (animated)
    elm_scroller_region_bring_in(m_genlist, 0, top, width, seen);
  else
    elm_scroller_region_show(m_genlist, 0, top, width, seen);
}

/// The focus moves along when the wheel takes its row out of sight.
void List::FollowWheel() {
  const int row = RowHeight();
  if (row <= 0 || !IsItem(Focused()) || ecore_loop_time_get() > m_wheelTime + kWheelSeconds) return;
  int top = 0, height = 0;
  elm_scroller_region_get(m_genlist, nullptr, &top, nullptr, &height);
  const int first = std::min((top + row - 1) / row, Count() - 1);
  const int last = std::clamp((top + height) / row - 1, first, Count() - 1);
  const int index = std::clamp(Focused(), first, last);
  if (index == Focused()) return;
  m_stays = true;
  FocusItem(index);
}

void List::Mark(int index, const char* signal) {
  if (IsItem(index)) elm_object_item_signal_emit(m_rows[index]->item, signal, kSignalSource);
}

void List::ShowFocus(int index, bool focused) {
  Mark(index, focused ? "flux,focus,in" : "flux,focus,out");
}

void List::MarkChecks(int index) {
  Mark(index, m_checksShown ? "flux,check,show" : "flux,check,hide");
  if (IsItem(index)) Mark(index, m_rows[index]->checked ? "flux,check,on" : "flux,check,off");
}

void List::OnRealized(const Row& row) {
  ShowFocus(row.index, HasFocus() && row.index == Focused());
  MarkChecks(row.index);
  UpdateShadowsSoon();
  Emit("realized", row.index);
}

void List::Update(int index) {
  if (!IsItem(index)) return;
  elm_genlist_item_fields_update(m_rows[index]->item, nullptr, ELM_GENLIST_ITEM_FIELD_TEXT);
  elm_genlist_item_fields_update(m_rows[index]->item, nullptr, ELM_GENLIST_ITEM_FIELD_CONTENT);
}

void List::ShowChecks(bool show) {
  m_checksShown = show;
  for (int i = 0; i < Count(); ++i) MarkChecks(i);
}

void List::Check(int index, bool checked) {
  if (!IsItem(index)) return;
  m_rows[index]->checked = checked;
  MarkChecks(index);
}

bool List::IsChecked(int index) const {
  return IsItem(index) && m_rows[index]->checked;
}

void List::UpdateShadowsSoon() {
  if (m_shadowJob) return;
  m_shadowJob = ecore_job_add(
      [](void* data) {
        static_cast<List*>(data)->m_shadowJob = nullptr;
        static_cast<List*>(data)->UpdateShadows();
        static_cast<List*>(data)->FollowWheel();  // last: what listens may delete the list
      },
      this);
}

void List::UpdateShadows() {
  int y = 0, height = 0, content = 0;
  elm_scroller_region_get(m_genlist, nullptr, &y, nullptr, &height);
  elm_scroller_child_size_get(m_genlist, nullptr, &content);
  // A few pixels hide nothing that could be read.
  const int hidden = RowHeight() / 12;
  elm_object_signal_emit(Object(), y > hidden ? "flux,shadow_top,more" : "flux,shadow_top,end", kSignalSource);
  elm_object_signal_emit(Object(), y + height + hidden < content ? "flux,shadow_bottom,more" : "flux,shadow_bottom,end",
                         kSignalSource);
}

std::string List::SpeechOfRow() const {
  if (!m_textOf || !IsItem(Focused())) return "";
  std::string speech;
  for (const char* part : {"MainText", "main.text", "SubText1", "sub.text1"}) {
    const std::string text = m_textOf(Focused(), part);
    if (!text.empty()) speech += (speech.empty() ? "" : ", ") + text;
  }
  return speech;
}

char* List::TextOfPart(void* data, Evas_Object*, const char* part) {
  const auto* row = static_cast<Row*>(data);
  return row->list->m_textOf ? strdup(MarkupOf(row->list->m_textOf(row->index, part).c_str()).c_str()) : nullptr;
}

Evas_Object* List::ContentOfPart(void* data, Evas_Object* rows, const char* part) {
  const auto* row = static_cast<Row*>(data);
  const std::string file = row->list->m_textOf ? row->list->m_textOf(row->index, part) : "";
  if (file.empty()) return nullptr;
  Evas_Object* image = elm_flux_image_add(rows);
  elm_flux_image_file_set(image, file);
  return image;
}

}  // namespace

}  // namespace flux

using flux::List;
using flux::Widget;

Evas_Object* elm_flux_list_add(Evas_Object* parent, const char* rowStyle) {
  Evas_Object* frame = flux::AddThemed(parent, "list", "default", flux::Fallback::kContent);
  if (!frame) return nullptr;
  Evas_Object* rows = elm_genlist_add(frame);
  if (!rows) {
    evas_object_del(frame);
    return nullptr;
  }
  new List(frame, rows, rowStyle);
  return frame;
}

void elm_flux_list_text_set(Evas_Object* list, FluxTextOf textOf) {
  if (auto* self = Widget::Of<List>(list, __func__)) self->SetTextOf(std::move(textOf));
}

void elm_flux_list_shadows_set(Evas_Object* list, const std::string& top, const std::string& bottom) {
  if (auto* self = Widget::Of<List>(list, __func__)) self->SetShadows(top, bottom);
}

void elm_flux_list_append(Evas_Object* list, int count) {
  if (auto* self = Widget::Of<List>(list, __func__)) self->Append(count);
}

void elm_flux_list_remove(Evas_Object* list, int index) {
  if (auto* self = Widget::Of<List>(list, __func__)) self->Remove(index);
}

int elm_flux_list_count(const Evas_Object* list) {
  const auto* self = Widget::Of<List>(list, __func__);
  return self ? self->Count() : 0;
}

void elm_flux_list_focus_set(Evas_Object* list, int index) {
  auto* self = Widget::Of<List>(list, __func__);
  if (self && index >= 0 && index < self->Count()) self->FocusWith(index);
}

int elm_flux_list_focus_get(const Evas_Object* list) {
  const auto* self = Widget::Of<List>(list, __func__);
  return self ? self->Focused() : -1;
}

void elm_flux_list_update(Evas_Object* list, int index) {
  if (auto* self = Widget::Of<List>(list, __func__)) self->Update(index);
}

void elm_flux_list_checks_show(Evas_Object* list, bool show) {
  if (auto* self = Widget::Of<List>(list, __func__)) self->ShowChecks(show);
}

void elm_flux_list_check_set(Evas_Object* list, int index, bool checked) {
  if (auto* self = Widget::Of<List>(list, __func__)) self->Check(index, checked);
}

bool elm_flux_list_check_get(const Evas_Object* list, int index) {
  const auto* self = Widget::Of<List>(list, __func__);
  return self && self->IsChecked(index);
}
