#include "flux/flux_text.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "flux/flux_surface.h"

namespace flux {

namespace {

constexpr double kSmallestFit = 0.8;
/// Of the height of a line, so much is the glyphs': two lines may reach that far over the edges of a button's room.
constexpr double kGlyphsOfLine = 0.85;
/// Fonts are measured in points of 1/72 inch and drawn at 75 pixels an inch.
constexpr double kPointsOfPixel = 72.0 / 75.0;

/// The weight that a family's name ends in, as fonts are asked for; a machine without the set's families then has at
/// least the weight.
const char* WeightOf(const std::string& family) {
  if (family.ends_with("_700")) return "bold";
  if (family.ends_with("_600")) return "semibold";
  return "normal";
}

void SetBlockStyle(Evas_Object* block, const std::string& text) {
  Evas_Textblock_Style* style = evas_textblock_style_new();
  evas_textblock_style_set(style, text.c_str());
  evas_object_textblock_style_set(block, style);
  evas_textblock_style_free(style);
}

}  // namespace

std::string MarkupOf(const char* text) {
  char* markup = elm_entry_utf8_to_markup(text ? text : "");
  std::string result = markup ? markup : "";
  std::free(markup);
  return result;
}

Colour Readable(Colour colour, bool onLight) {
  constexpr int kDark = 60;  // red is still seen on a dark surface
  constexpr int kBright = 150;
  const bool isAccent = colour.red == kGreen.red && colour.green == kGreen.green && colour.blue == kGreen.blue;
  const Colour own = ColourOf(onLight ? Token::kTextOnLight : Token::kText);
  if (HighContrast()) return isAccent && !onLight ? kGreen : own;
  const bool vanishes = onLight ? Brightness(colour) > kBright : Brightness(colour) < kDark;
  return vanishes ? Colour{own.red, own.green, own.blue, colour.alpha} : colour;
}

TextBox* TextBox::Add(Evas_Object* parent) {
  Evas_Object* box = elm_box_add(parent);
  if (!box) return nullptr;
  Evas_Object* block = evas_object_textblock_add(evas_object_evas_get(parent));
  auto* self = new TextBox(box, block);
  evas_object_pass_events_set(box, EINA_TRUE);
  elm_box_layout_set(box, Place, self, [](void* data) { delete static_cast<TextBox*>(data); });
  evas_object_show(block);
  elm_box_pack_end(box, block);
  evas_object_show(box);
  self->Update();
  return self;
}

void TextBox::SetText(const char* text) {
  std::string markup = MarkupOf(text);
  if (markup == m_markup) return;
  m_markup = std::move(markup);
  Update();
}

void TextBox::SetStyle(const Style& style) {
  m_style = style;
  Update();
}

void TextBox::SetColour(Colour colour) {
  m_style.colour = colour;
  Update();
}

void TextBox::Update() {
  m_appliedStyle.clear();
  // A box is dressed before it gets its text: until then there is nothing to measure, and no font to load for it.
  if (m_markup.empty())
    evas_object_smart_changed(m_box);
  else
    elm_box_recalculate(m_box);
}

void TextBox::ApplyForm(Form form) {
  const Alignment where = AlignmentOf(m_style.align);
  const std::string style = "DEFAULT='font=" + m_style.family + " font_weight=" + WeightOf(m_style.family) +
                            " font_size=" + std::to_string(std::lround(form.pixels * kPointsOfPixel)) +
                            " color=" + StyleColour(m_style.colour) + " align=" + std::to_string(where.across) +
                            (form.lines == 1 ? " wrap=none" : " wrap=mixed") + " ellipsis=1.0'";
  if (style == m_appliedStyle) return;
  m_appliedStyle = style;
  SetBlockStyle(m_block, style);
  evas_object_textblock_text_markup_set(m_block, m_markup.c_str());
}

Widget::Size TextBox::NaturalSize(int pixels) {
  ApplyForm({pixels, 1});
  Widget::Size size{0, 0};
  evas_object_textblock_size_native_get(m_block, &size.width, &size.height);
  return {m_markup.empty() ? 0 : size.width + 1, size.height};
}

/// The size at which the lines hold the whole text, the largest that breaks no word if there is one.
int TextBox::PixelsForLines(int width, int height) {
  const int pixels = TextPx(m_style.size), shrunk = static_cast<int>(std::ceil(pixels * kSmallestFit));
  int fitting = 0;
  for (int smaller = pixels; smaller >= shrunk; --smaller) {
    if (!FitsInLines(smaller, width, height)) continue;
    fitting = std::max(fitting, smaller);
    if (WidestWord(smaller) <= width) return smaller;
  }
  return fitting > 0 ? fitting : pixels;
}

bool TextBox::FitsInLines(int pixels, int width, int height) {
  const int line = std::max(1, NaturalSize(pixels).height);
  ApplyForm({pixels, m_style.lines});
  evas_object_resize(m_block, width, line * 1000);
  int used = 0;
  evas_object_textblock_size_formatted_get(m_block, nullptr, &used);
  return used <= height && used <= line * m_style.lines;
}

int TextBox::WidestWord(int pixels) {
  std::string words = m_markup;
  for (size_t at = words.find(' '); at != words.npos; at = words.find(' ', at)) words.replace(at, 1, "<br/>");
  words.swap(m_markup);
  m_appliedStyle.clear();
  const int width = NaturalSize(pixels).width;
  words.swap(m_markup);
  m_appliedStyle.clear();
  return width;
}

TextBox::Form TextBox::FormFor(int width, int height) {
  Form form = OwnFormFor(width, height);
  if (m_peers) form.pixels = std::min(form.pixels, PixelsOfPeers(width, height));
  return form;
}

/// The size of that of them which has to be the smallest in this room. While it moves they are not measured again.
int TextBox::PixelsOfPeers(int width, int height) {
  const std::vector<TextBox*> peers = m_peers();
  std::string asked = std::to_string(width) + " " + std::to_string(height) + " " + std::to_string(TextPx(m_style.size));
  for (const TextBox* peer : peers) asked += "\n" + peer->m_markup;
  if (asked == m_askedOfPeers) return m_pixelsOfPeers;
  m_askedOfPeers = std::move(asked);
  m_pixelsOfPeers = TextPx(m_style.size);
  for (TextBox* peer : peers) {
    if (peer == this) continue;
    m_pixelsOfPeers = std::min(m_pixelsOfPeers, peer->OwnFormFor(width, height).pixels);
    if (peer->m_form.pixels > 0) peer->ApplyForm(peer->m_form);  // measuring has changed it
  }
  return m_pixelsOfPeers;
}

TextBox::Form TextBox::OwnFormFor(int width, int height) {
  const int pixels = TextPx(m_style.size);
  if (!m_style.fit) return {m_style.isWhole && height > 0 ? PixelsForLines(width, height) : pixels, m_style.lines};
  const Widget::Size natural = NaturalSize(pixels);
  if (natural.width <= width) return {pixels, 1};
  const int shrunk = static_cast<int>(std::ceil(pixels * kSmallestFit));
  for (int smaller = std::min(pixels - 1, pixels * width / natural.width); smaller >= shrunk; --smaller)
    if (NaturalSize(smaller).width <= width) return {smaller, 1};
  return {shrunk, std::lround(NaturalSize(shrunk).height * 2 * kGlyphsOfLine) <= height ? 2 : 1};
}

void TextBox::PlaceBlock() {
  int x = 0, y = 0, width = 0, height = 0;
  evas_object_geometry_get(m_box, &x, &y, &width, &height);
  const Widget::Size natural = NaturalSize(TextPx(m_style.size));
  const Form form = width > 0 ? FormFor(width, height) : Form{TextPx(m_style.size), 1};
  const int line = std::max(1, NaturalSize(form.pixels).height);  // without any font a line has no height
  ApplyForm(form);
  m_form = form;

  // As high as its lines, but no higher than the lines that it may have and those that the box holds.
  int used = line;
  if (form.lines != 1 && width > 0) {
    evas_object_resize(m_block, width, line * 1000);
    evas_object_textblock_size_formatted_get(m_block, nullptr, &used);
    if (form.lines > 1) used = std::min(used, line * form.lines);
  }
  int shown = used;
  if (height > 0 && used > height && !m_style.fit) shown = std::max(line, height / line * line);
  const double down = AlignmentOf(m_style.align).down;
  evas_object_geometry_set(m_block, x, y + static_cast<int>(std::lround((height - shown) * down)), width, shown);
  // Only a text that is set anew looks at its height for where the ellipsis goes.
  if (form.lines != 1) {
    evas_object_textblock_text_markup_set(m_block, "");
    evas_object_textblock_text_markup_set(m_block, m_markup.c_str());
  }
  const Widget::Size before = m_needed;
  m_needed = {natural.width, used};
  if (m_neededSizeChanged && (before.width != m_needed.width || before.height != m_needed.height))
    m_neededSizeChanged();
}

void FollowText(Evas_Object* widget, TextBox* box) {
  Evas_Object* edje = elm_layout_edje_get(widget);
  const auto changed = [](void* data, Evas_Object* object, const char* part) {
    if (part && std::strcmp(part, "elm.text") == 0)
      static_cast<TextBox*>(data)->SetText(edje_object_part_text_get(object, part));
  };
  edje_object_text_change_cb_set(edje, changed, box);
}

namespace {

class Text : public Widget {
 public:
  Text(Evas_Object* layout, TextBox* box) : Widget(layout), m_box(box) {
    // Its surface is known once it lies in it.
    const auto moved = [](void* data, Evas*, Evas_Object*, void*) { static_cast<Text*>(data)->ApplyColour(); };
    evas_object_event_callback_add(layout, EVAS_CALLBACK_RESIZE, moved, this);
    box->OnNeededSizeChanged([layout] {
      if (const Widget* text = Of(layout)) text->InvalidateParent();
    });
    Restyle();
  }

  Size ContentSize() const override {
    const Size text = m_box->NeededSize();
    return {m_wanted.FillsAcross() ? 0 : text.width, text.height};
  }

  void Restyle() override {
    FollowThemeScale();
    ApplyColour();
    m_box->Update();
  }
  TextBox* Box() const { return m_box; }
  void SetColour(Colour colour) {
    m_colour = colour;
    ApplyColour();
  }

 private:
  void ApplyColour() {
    const Colour colour = Readable(m_colour, IsOnLightPlate(Object()));
    if (StyleColour(colour) != StyleColour(m_box->GetStyle().colour)) m_box->SetColour(colour);
  }

  TextBox* m_box;
  Colour m_colour = kLooks[static_cast<size_t>(Token::kText)].normal;
};

void ChangeStyle(Evas_Object* text, const char* caller, const std::function<void(TextBox::Style&)>& change) {
  auto* self = Widget::Of<Text>(text, caller);
  if (!self) return;
  TextBox::Style style = self->Box()->GetStyle();
  change(style);
  self->Box()->SetStyle(style);
}

}  // namespace

}  // namespace flux

Evas_Object* elm_flux_text_add(Evas_Object* parent) {
  Evas_Object* layout = flux::AddThemed(parent, "text", "default", flux::Fallback::kText);
  flux::TextBox* box = layout ? flux::TextBox::Add(layout) : nullptr;
  if (!box) return nullptr;
  new flux::Text(layout, box);
  elm_layout_content_set(layout, "elm.swallow.content", box->Object());
  flux::FollowText(layout, box);
  return layout;
}

void elm_flux_text_font_set(Evas_Object* text, const char* family) {
  flux::ChangeStyle(text, __func__, [family](auto& style) { style.family = family ? family : FLUX_FONT_400; });
}

void elm_flux_text_color_set(Evas_Object* text, const char* color) {
  if (auto* self = flux::Widget::Of<flux::Text>(text, __func__))
    self->SetColour(flux::ParseColour(color, flux::ColourOf(flux::Token::kText)));
}

void elm_flux_text_size_set(Evas_Object* text, FluxTextSize size) {
  flux::ChangeStyle(text, __func__, [size](auto& style) { style.size = size; });
}

void elm_flux_text_align_set(Evas_Object* text, FluxAlign align) {
  flux::ChangeStyle(text, __func__, [align](auto& style) { style.align = align; });
}

void elm_flux_text_lines_set(Evas_Object* text, int lines) {
  flux::ChangeStyle(text, __func__, [lines](auto& style) { style.lines = std::max(0, lines); });
}
