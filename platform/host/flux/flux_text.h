#pragma once
/// @file
/// How every widget of the set draws a text.

#include <string>
#include <vector>

#include "flux/flux_core.h"
#include "flux/flux_layout.h"

namespace flux {

/// `text` as text objects take it: markup, with what is special in it written so that it is shown.
std::string MarkupOf(const char* text);

/// `colour` as it can be read on a surface that is light or not: what would vanish there is drawn in the surface's own
/// text colour, as transparent as it was; in high contrast everything but the accent is, and nothing is transparent.
Colour Readable(Colour colour, bool onLight);

/// A text in a box, with the set's fonts and direction. Not a widget: it goes into one, as a content.
class TextBox {
 public:
  struct Style {
    std::string family = FLUX_FONT_400;
    FluxTextSize size = FLUX_TEXT_BODY;
    FluxAlign align = FLUX_ALIGN_LEFT;
    Colour colour = kWhite;
    int lines = 1;         ///< 0 for as many as fit
    bool isWhole = false;  ///< of several lines: shrunk to 80 % where that lets all be seen, without a broken word
    bool fit = false;      ///< shrunk to 80 %, then broken into two lines, then ended by an ellipsis
  };

  /// The box belongs to whatever it is packed into, and this to the box.
  static TextBox* Add(Evas_Object* parent);
  TextBox(const TextBox&) = delete;
  TextBox& operator=(const TextBox&) = delete;

  Evas_Object* Object() const { return m_box; }
  void SetText(const char* text);
  void SetStyle(const Style& style);
  const Style& GetStyle() const { return m_style; }
  void SetColour(Colour colour);
  /// Those beside it, with boxes as large: a text that fits is no larger than each of them has to be.
  void SetPeers(std::function<std::vector<TextBox*>()> peers) { m_peers = std::move(peers); }
  /// Fits the text to unit, text size and direction.
  void Update();
  /// What it needs: as wide as it is in one line, as high as its lines are at its present width. It makes do with less.
  Widget::Size NeededSize() const { return m_needed; }
  /// Called when that changes.
  void OnNeededSizeChanged(std::function<void()> changed) { m_neededSizeChanged = std::move(changed); }

 private:
  explicit TextBox(Evas_Object* box, Evas_Object* block) : m_box(box), m_block(block) {}
  static void Place(Evas_Object*, Evas_Object_Box_Data*, void* self) { static_cast<TextBox*>(self)->PlaceBlock(); }
  void PlaceBlock();
  /// Chooses size and lines for the room there is.
  struct Form {
    int pixels;
    int lines;
  };
  Form FormFor(int width, int height);
  Form OwnFormFor(int width, int height);
  int PixelsOfPeers(int width, int height);
  int PixelsForLines(int width, int height);
  bool FitsInLines(int pixels, int width, int height);
  int WidestWord(int pixels);
  void ApplyForm(Form form);
  Widget::Size NaturalSize(int pixels);

  Evas_Object* m_box;
  Evas_Object* m_block;
  Style m_style;
  Form m_form{0, 1};  ///< as it is drawn; 0 until it is
  std::function<std::vector<TextBox*>()> m_peers;
  std::string m_askedOfPeers;  ///< room, size and texts that m_pixelsOfPeers is for
  int m_pixelsOfPeers = 0;
  std::string m_markup;
  Widget::Size m_needed{0, 0};
  std::function<void()> m_neededSizeChanged;
  std::string m_appliedStyle;
};

/// Has the text that elm_object_text_set() gives to `widget`, an elm_layout whose theme keeps it in "elm.text", drawn
/// by `box`.
void FollowText(Evas_Object* widget, TextBox* box);

}  // namespace flux
