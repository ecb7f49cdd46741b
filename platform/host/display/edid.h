#pragma once
/// @file
/// What a screen says of itself, as VESA E-EDID 1.4 and CTA-861-G lay it out: blocks of 128 bytes, the first of which
/// says how many follow. Any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace display {

struct Resolution {
  int width = 0;   ///< pixels
  int height = 0;  ///< lines of a whole picture, of both fields where it is interlaced
  int64_t Area() const { return int64_t{width} * height; }
  bool operator==(const Resolution&) const = default;
};

struct Mode {
  Resolution size;
  double rate = 0;  ///< pictures a second, fields where it is interlaced; 0 where it is not known
  bool isInterlaced = false;
  bool operator==(const Mode&) const = default;
};

/// The better of two is the larger, then the one that is not interlaced, then the faster.
bool IsBetter(const Mode& one, const Mode& other);

/// Pictures a second that a screen follows when they vary.
struct RateRange {
  int least = 0, most = 0;
  bool operator==(const RateRange&) const = default;
};

/// Of one that is not valid, all but `isValid` is empty.
struct Edid {
  bool isValid = false;                 ///< its header, length and the checksum of the first block are right
  std::optional<Resolution> preferred;  ///< of its first timing
  bool playsSound = false;              ///< a further block (CTA-861) says so
  std::string name;                     ///< printable ASCII
  std::vector<Mode> modes;              ///< its detailed timings, and those of high definition that it has by number
  int soundChannels = 0;                ///< the most that one of its sound formats has; 0 where it does not say
  bool showsHdr10 = false;              ///< brightness by SMPTE ST 2084
  bool showsHlg = false;                ///< hybrid log-gamma
  std::optional<RateRange> rates{};     ///< of a screen whose refresh rate may vary

  std::optional<Mode> Best() const;
};
Edid ReadEdid(std::string_view bytes);

}  // namespace display
