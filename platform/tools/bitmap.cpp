#include "bitmap.h"

#include <algorithm>
#include <cmath>

namespace tools {

Bitmap::Bitmap(int width, int height)
    : m_width(std::max(width, 1)),
      m_height(std::max(height, 1)),
      m_pixels(static_cast<size_t>(m_width) * static_cast<size_t>(m_height), Rgb(0, 0, 0)) {}

void Bitmap::Set(int x, int y, Colour colour) {
  if (x >= 0 && y >= 0 && x < m_width && y < m_height) m_pixels[Index(x, y)] = colour;
}

void Bitmap::Fill(int left, int top, int right, int bottom, Colour colour) {
  left = std::max(left, 0);
  right = std::min(right, m_width);
  if (left >= right) return;
  for (int y = std::max(top, 0); y < std::min(bottom, m_height); ++y)
    std::fill_n(m_pixels.begin() + static_cast<std::ptrdiff_t>(Index(left, y)), right - left, colour);
}

void Bitmap::Frame(int left, int top, int right, int bottom, int thickness, Colour colour) {
  Fill(left, top, right, top + thickness, colour);
  Fill(left, bottom - thickness, right, bottom, colour);
  Fill(left, top, left + thickness, bottom, colour);
  Fill(right - thickness, top, right, bottom, colour);
}

void Bitmap::Circle(int centreX, int centreY, int radius, int thickness, Colour colour) {
  const auto half = [](int at, int reach) {
    return reach * reach < at * at ? -1 : static_cast<int>(std::sqrt(static_cast<double>(reach * reach - at * at)));
  };
  for (int y = -radius; y <= radius; ++y) {
    const int outer = half(y, radius), inner = half(y, radius - thickness);
    if (inner < 0) {
      Fill(centreX - outer, centreY + y, centreX + outer + 1, centreY + y + 1, colour);
    } else {
      Fill(centreX - outer, centreY + y, centreX - inner, centreY + y + 1, colour);
      Fill(centreX + inner + 1, centreY + y, centreX + outer + 1, centreY + y + 1, colour);
    }
  }
}

}  // namespace tools
