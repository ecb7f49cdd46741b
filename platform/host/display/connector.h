#pragma once
/// @file
/// A connector for a screen, and what is on it.

#include <optional>
#include <string>

#include "display/edid.h"

namespace display {

/// The copy protection of a picture (HDCP): not asked for, asked for but not there (yet), there.
enum class Protection { kOff, kAsked, kOn };
/// How brightness is coded.
enum class Brightness { kStandard, kHdr10, kHlg };

/// What only the card's device tells; nothing where it does not.
struct Picture {
  std::optional<Mode> best;  ///< of the modes that card and screen have in common
  std::optional<Protection> protection;
  std::optional<int> mostBits;  ///< for each of the three colours; a link may carry fewer
  std::string format;           ///< "RGB", "YCBCR420", as the driver names it
  std::string colours;          ///< "BT2020_RGB"; empty also for the usual ones
  std::optional<Brightness> brightness;
  std::optional<bool> canVary;  ///< card and screen can vary the refresh rate
  std::optional<bool> varies;   ///< and programs may
};

struct Connector {
  std::string name;                 ///< "HDMI-A-1"
  std::optional<bool> isConnected;  ///< unknown where the plug cannot tell
  std::optional<std::string> edid;  ///< empty when the screen gives none, nothing when it is not known
  std::optional<Mode> mode;         ///< what is shown now
  bool takesSound = false;          ///< it is showing a picture, and its card carries sound along with that
  std::string card{};               ///< "card0"
  bool isForViewers = true;         ///< leads to a screen, not into another machine's window or a server's console
  bool isShowing = false;           ///< it is sent a picture
  Picture picture{};
};

}  // namespace display
