#pragma once
/// @file
/// A picture in memory, and what patterns are made of. Any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tools {

/// 0xAARRGGBB, opaque here.
using Colour = uint32_t;
constexpr Colour Rgb(int red, int green, int blue) {
  return 0xFF000000u | static_cast<Colour>(red) << 16 | static_cast<Colour>(green) << 8 | static_cast<Colour>(blue);
}
constexpr Colour Grey(int level) {
  return Rgb(level, level, level);
}

/// A text on a picture, centred at a share of its width and height.
struct Label {
  double x, y;
  std::string text;
  double size;  ///< in layout units
  Colour colour;
};

/// Pixels from the upper left, line by line. What is drawn beyond the edges is cut off.
class Bitmap {
 public:
  /// Black; at least one pixel.
  Bitmap(int width, int height);

  int Width() const { return m_width; }
  int Height() const { return m_height; }
  const Colour* Pixels() const { return m_pixels.data(); }
  Colour At(int x, int y) const { return m_pixels[Index(x, y)]; }

  void Set(int x, int y, Colour colour);
  void Fill(int left, int top, int right, int bottom, Colour colour);  ///< right and bottom are beyond it
  void Fill(Colour colour) { Fill(0, 0, m_width, m_height, colour); }
  /// The outline of a rectangle, drawn inwards.
  void Frame(int left, int top, int right, int bottom, int thickness, Colour colour);
  void Circle(int centreX, int centreY, int radius, int thickness, Colour colour);

 private:
  size_t Index(int x, int y) const {
    return static_cast<size_t>(y) * static_cast<size_t>(m_width) + static_cast<size_t>(x);
  }

  int m_width, m_height;
  std::vector<Colour> m_pixels;
};

}  // namespace tools
