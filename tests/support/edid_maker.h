#pragma once
/// @file
/// EDIDs, byte by byte: VESA E-EDID 1.4 and CTA-861.

#include <string>
#include <string_view>

#include "support/test.h"

namespace edid {

/// A block with its last byte as the others need it.
inline std::string Summed(std::string block) {
  unsigned sum = 0;
  for (size_t i = 0; i + 1 < block.size(); ++i) sum += static_cast<unsigned char>(block[i]);
  block.back() = static_cast<char>(256 - sum % 256);
  return block;
}

/// A detailed timing; the clock in units of 10 kHz, the blanks beside width and (of a field) height.
inline std::string Timing(int clock, int width, int height, int blankWidth = 0, int blankHeight = 0, int flags = 0) {
  const int bytes[] = {clock,
                       clock >> 8,
                       width,
                       blankWidth,
                       width >> 8 << 4 | blankWidth >> 8,
                       height,
                       blankHeight,
                       height >> 8 << 4 | blankHeight >> 8};
  std::string timing(18, '\0');
  std::ranges::transform(bytes, timing.begin(), [](int byte) { return static_cast<char>(byte); });
  timing[17] = static_cast<char>(flags);
  return timing;
}

/// A descriptor that is no timing: 0xFC is a name, 0xFD has the range of rates from its second byte on.
inline std::string Descriptor(int tag, const std::string& content) {
  std::string descriptor = "\0\0\0"s + static_cast<char>(tag) + '\0' + content;
  descriptor.resize(18, ' ');
  return descriptor;
}

/// The first block, with up to four timings and descriptors.
inline std::string FirstBlock(const std::string& descriptors, int more, bool hasContinuousRates = false) {
  std::string block(128, '\0');
  block.replace(0, 8, "\0\xFF\xFF\xFF\xFF\xFF\xFF\0"s);
  block[18] = 1, block[19] = 4;  // the version
  block[24] = hasContinuousRates ? 1 : 0;
  block.replace(54, descriptors.size(), descriptors);
  block[126] = static_cast<char>(more);
  return Summed(block);
}

/// A data block of CTA-861: 1 is sound, 2 video, 3 a vendor's, 7 others.
inline std::string DataBlock(int tag, const std::string& body) {
  return static_cast<char>(tag << 5 | static_cast<int>(body.size())) + body;
}

/// A further block of CTA-861: its data blocks, then timings.
inline std::string CtaBlock(const std::string& dataBlocks, bool playsSound, const std::string& timings = "") {
  std::string block = "\2\3"s + static_cast<char>(4 + dataBlocks.size()) + (playsSound ? '\x40' : '\0');
  block += dataBlocks + timings;
  block.resize(128);
  return Summed(block);
}

}  // namespace edid
