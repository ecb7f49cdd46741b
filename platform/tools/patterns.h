#pragma once
/// @file
/// The pictures of the picture test and of the installation test, for a panel of any size. Any thread.

#include <functional>
#include <string>
#include <vector>

#include "bitmap.h"

namespace tools {

struct Pattern {
  const char* nameSid;
  const char* lookSid;  ///< what to look for
  std::function<void(Bitmap& picture)> paint;
  std::function<std::vector<Label>()> labels{};  ///< empty for none
};

/// Steps from black to white, the darkest and the brightest two pairs of neighbours marked below and above.
inline constexpr int kGreySteps = 16;
/// Frames of the geometry picture: one each percent of the width and height, from the edge inwards.
inline constexpr int kOverscanFrames = 5;

std::vector<Pattern> PicturePatterns();

/// The panel's modules.
struct ModuleGrid {
  int columns = 1, rows = 1;
};
std::vector<Pattern> ModulePatterns(ModuleGrid grid);

}  // namespace tools
