#pragma once
/// @file
/// Screens: what their plugs and their self-description (EDID) tell.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

struct Resolution {
  int width = 0;   ///< pixels
  int height = 0;  ///< lines of a whole picture, of both fields where it is interlaced
  int64_t Area() const { return int64_t{width} * height; }
  bool operator==(const Resolution&) const = default;
};

/// What a screen says of itself, as VESA E-EDID 1.4 lays it out: blocks of 128 bytes, the first of which says how many
/// follow.
struct Edid {
  bool isValid = false;                 ///< its header, length and the checksum of the first block are right
  std::optional<Resolution> preferred;  ///< of one that is valid
  bool playsSound = false;              ///< a further block (CEA-861) says so
};
Edid ReadEdid(std::string_view bytes);

struct Connector {
  std::string name;                 ///< "HDMI-A-1"
  std::optional<bool> isConnected;  ///< unknown where the plug cannot tell
  std::optional<std::string> edid;  ///< empty when the screen gives none, nothing when it is not known
  std::optional<Resolution> mode;   ///< what is shown now
  bool takesSound = false;          ///< it is showing a picture, and its card carries sound along with that
};

/// Adds the facts of docs/facts.md, "display".
void AddDisplayFacts(const std::vector<Connector>& connectors, Facts& facts);

}  // namespace trevlin
