#include "flux/flux_layout.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "dlog.h"

namespace flux {

namespace {

struct Child {
  Evas_Object* object;
  Widget::Size size;
  Widget::Wanted wanted;
};

/// The children that take room, in their order.
std::vector<Child> VisibleChildren(const Eina_List* options) {
  std::vector<Child> children;
  const Eina_List* item = nullptr;
  void* data = nullptr;
  EINA_LIST_FOREACH(options, item, data) {
    Evas_Object* object = static_cast<Evas_Object_Box_Option*>(data)->obj;
    if (!evas_object_visible_get(object)) continue;
    if (const Widget* widget = Widget::Of(object)) {
      children.push_back({object, widget->NeededSize(), widget->m_wanted});
    } else {
      Widget::Size size{0, 0};
      double across = 0.0, down = 0.0;
      evas_object_size_hint_min_get(object, &size.width, &size.height);
      evas_object_size_hint_weight_get(object, &across, &down);
      Widget::Wanted wanted;
      wanted.expand = across > 0.0 || down > 0.0;
      children.push_back({object, size, wanted});
    }
  }
  return children;
}

/// What children need together: beside one another and below one another, gaps included, and the largest of them.
struct Sums {
  int wide = 0, tall = 0, widest = 0, tallest = 0, fillingAcross = 0, fillingDown = 0;
};

Sums SumUp(const std::vector<Child>& children, int gap) {
  Sums sums;
  for (const Child& child : children) {
    sums.wide += child.size.width;
    sums.tall += child.size.height;
    sums.widest = std::max(sums.widest, child.size.width);
    sums.tallest = std::max(sums.tallest, child.size.height);
    sums.fillingAcross += child.wanted.FillsAcross() ? 1 : 0;
    sums.fillingDown += child.wanted.FillsDown() ? 1 : 0;
  }
  const int gaps = gap * std::max(0, static_cast<int>(children.size()) - 1);
  sums.wide += gaps;
  sums.tall += gaps;
  return sums;
}

int Within(int room, int size, double where) {
  return static_cast<int>(std::lround((room - size) * where));
}

}  // namespace

Alignment AlignmentOf(FluxAlign align) {
  const int index = std::clamp(static_cast<int>(align), 1, 9) - 1;
  const int row = index / 3, column = index % 3;
  const double across = column / 2.0;
  return {Mirrored() ? 1.0 - across : across, row / 2.0};
}

Layout::Layout(Evas_Object* box, FluxLayoutType type, FluxAlign align) : Widget(box), m_type(type), m_align(align) {
  elm_box_layout_set(box, Place, this, nullptr);
  // The box in it may be as large already, and then tells nothing.
  const auto resized = [](void*, Evas*, Evas_Object* widget, void*) { evas_object_smart_changed(widget); };
  evas_object_event_callback_add(box, EVAS_CALLBACK_RESIZE, resized, nullptr);
}

void Layout::Restyle() {
  elm_box_recalculate(Object());
}

void Layout::Place(Evas_Object* box, Evas_Object_Box_Data* data, void* self) {
  static_cast<Layout*>(self)->PlaceAll(box, data->children);
}

void Layout::PlaceAll(Evas_Object* box, const Eina_List* options) {
  const std::vector<Child> children = VisibleChildren(options);
  const Sums sums = SumUp(children, Px(m_gap));
  const int padLeft = Px(m_padding.left), padTop = Px(m_padding.top);
  const int padAcross = padLeft + Px(m_padding.right), padDown = padTop + Px(m_padding.bottom);
  if (!m_isRoot)
    evas_object_size_hint_min_set(box, (m_type == FLUX_LAYOUT_HORIZONTAL ? sums.wide : sums.widest) + padAcross,
                                  (m_type == FLUX_LAYOUT_VERTICAL ? sums.tall : sums.tallest) + padDown);

  int x = 0, y = 0, boxWidth = 0, boxHeight = 0;
  // The widget's: the box in it stays as large as it once had to be.
  evas_object_geometry_get(Object(), &x, &y, &boxWidth, &boxHeight);
  const Size room{std::max(0, boxWidth - padAcross), std::max(0, boxHeight - padDown)};
  const Alignment where = AlignmentOf(m_align);
  const int spareAcross = std::max(0, room.width - sums.wide), spareDown = std::max(0, room.height - sums.tall);

  // Laid out as if reading began at the left; mirrored at the end.
  const double startAcross = Mirrored() ? 1.0 - where.across : where.across;
  int nextX = Within(room.width, std::min(room.width, sums.fillingAcross ? room.width : sums.wide), startAcross);
  int nextY = Within(room.height, std::min(room.height, sums.fillingDown ? room.height : sums.tall), where.down);
  int filled = 0;  // of the children that share what is spare
  for (const Child& child : children) {
    // What has no size of its own makes do with the room there is.
    Size size = child.size;
    const int leftWidth = m_type == FLUX_LAYOUT_HORIZONTAL ? room.width - nextX : room.width;
    const int leftHeight = m_type == FLUX_LAYOUT_VERTICAL ? room.height - nextY : room.height;
    if (child.wanted.width <= 0) size.width = std::clamp(size.width, 0, std::max(0, leftWidth));
    if (child.wanted.height <= 0) size.height = std::clamp(size.height, 0, std::max(0, leftHeight));
    const auto share = [&](int spare, int sharing) {
      const int before = filled++;
      return spare * filled / sharing - spare * before / sharing;
    };
    if (child.wanted.FillsAcross())
      size.width = m_type == FLUX_LAYOUT_HORIZONTAL ? size.width + share(spareAcross, sums.fillingAcross) : room.width;
    if (child.wanted.FillsDown())
      size.height = m_type == FLUX_LAYOUT_VERTICAL ? size.height + share(spareDown, sums.fillingDown) : room.height;
    int childX = m_type == FLUX_LAYOUT_HORIZONTAL ? nextX : Within(room.width, size.width, startAcross);
    const int childY = m_type == FLUX_LAYOUT_VERTICAL ? nextY : Within(room.height, size.height, where.down);
    if (Mirrored()) childX = room.width - childX - size.width;
    const int left = Mirrored() ? padAcross - padLeft : padLeft;
    evas_object_geometry_set(child.object, x + left + childX, y + padTop + childY, size.width, size.height);
    nextX += size.width + Px(m_gap);
    nextY += size.height + Px(m_gap);
  }
}

}  // namespace flux

Evas_Object* elm_flux_layout_add(Evas_Object* parent, FluxLayoutType type, FluxAlign align) {
  Evas_Object* box = elm_box_add(parent);
  if (box) new flux::Layout(box, type, align);
  return box;
}

void elm_flux_layout_root_set(Evas_Object* layout, bool root) {
  auto* self = flux::Widget::Of<flux::Layout>(layout, __func__);
  if (!self) return;
  self->m_isRoot = root;
  elm_flux_expand_set(layout, root);
}

void elm_flux_layout_pack(Evas_Object* layout, Evas_Object* child) {
  if (flux::Widget::Of<flux::Layout>(layout, __func__)) elm_box_pack_end(layout, child);
}

void elm_flux_layout_clear(Evas_Object* layout) {
  if (flux::Widget::Of<flux::Layout>(layout, __func__)) elm_box_clear(layout);
}

void elm_flux_layout_padding_set(Evas_Object* layout, double left, double top, double right, double bottom) {
  if (auto* self = flux::Widget::Of<flux::Layout>(layout, __func__)) {
    self->m_padding = {left, top, right, bottom};
    self->Restyle();
  }
}

void elm_flux_layout_gap_set(Evas_Object* layout, double units) {
  if (auto* self = flux::Widget::Of<flux::Layout>(layout, __func__)) {
    self->m_gap = units;
    self->Restyle();
  }
}

void elm_flux_layout_render(Evas_Object* layout) {
  if (flux::Widget::Of<flux::Layout>(layout, __func__)) evas_smart_objects_calculate(evas_object_evas_get(layout));
}
