#include "display/edid.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <tuple>

namespace display {

namespace {

using namespace std::string_view_literals;

constexpr size_t kBlock = 128;
constexpr std::string_view kHeader = "\0\xFF\xFF\xFF\xFF\xFF\xFF\0"sv;
constexpr size_t kFeatures = 24;
constexpr int kContinuousRates = 1;  // of the features
constexpr size_t kRevision = 19;     // the version's second number
constexpr int kLimitsOnly = 1;       // of a range: each rate in it, not only those by a formula
constexpr size_t kFirstTiming = 54;  // of the preferred mode
constexpr size_t kTiming = 18;       // bytes
constexpr size_t kTimings = 4;
constexpr size_t kMoreBlocks = 126;
constexpr int kCta = 2;  // tag of a block of CTA-861

/// A byte, 0 behind the end.
int ByteAt(std::string_view bytes, size_t at) {
  return at < bytes.size() ? int{static_cast<unsigned char>(bytes[at])} : 0;
}

/// The bytes of a block add up to a multiple of 256.
bool IsSumRight(std::string_view block) {
  return std::accumulate(block.begin(), block.end(), 0u,
                         [](unsigned sum, char c) { return sum + static_cast<unsigned char>(c); }) %
             256 ==
         0;
}

bool IsWellFormed(std::string_view bytes) {
  if (!bytes.starts_with(kHeader) || bytes.size() % kBlock != 0) return false;
  const size_t promised = 1u + static_cast<unsigned char>(bytes[kMoreBlocks]);
  // The kernel lets a wrong sum of a further block pass: some screens have it from their maker.
  return bytes.size() >= promised * kBlock && IsSumRight(bytes.substr(0, kBlock));
}

// ---- the first block

/// A detailed timing: pixel clock in two bytes (0: this is no timing), then the low and high parts of the measures.
std::optional<Mode> ReadTiming(std::string_view timing) {
  const auto byte = [timing](size_t at) { return ByteAt(timing, at); };
  const double clock = (byte(0) | byte(1) << 8) * 10'000.0;  // Hz
  if (clock == 0) return std::nullopt;
  Mode mode;
  mode.isInterlaced = (byte(17) & 0x80) != 0;
  mode.size = {byte(2) | (byte(4) & 0xF0) << 4, (byte(5) | (byte(7) & 0xF0) << 4) * (mode.isInterlaced ? 2 : 1)};
  if (mode.size.Area() <= 0) return std::nullopt;
  const int columns = mode.size.width + (byte(3) | (byte(4) & 0x0F) << 8);
  const int lines = (byte(5) | (byte(7) & 0xF0) << 4) + (byte(6) | (byte(7) & 0x0F) << 8);
  // A field of an interlaced picture has half a line more.
  mode.rate = clock / (columns * (lines + (mode.isInterlaced ? 0.5 : 0.0)));
  return mode;
}

/// Up to a line end; what is not printable is left out, as are blanks at the end.
std::string ReadName(std::string_view descriptor) {
  std::string name(descriptor.substr(5, descriptor.find('\n', 5) - 5));
  std::erase_if(name, [](char c) { return c < ' ' || c > '~'; });
  while (name.ends_with(' ')) name.pop_back();
  return name;
}

RateRange ReadRange(std::string_view descriptor) {
  const int offsets = ByteAt(descriptor, 4);
  return {ByteAt(descriptor, 5) + ((offsets & 3) == 3 ? 255 : 0), ByteAt(descriptor, 6) + (offsets & 2 ? 255 : 0)};
}

/// A timing, or what begins with two zeros and a tag.
void TakeDescriptor(std::string_view descriptor, bool hasContinuousRates, Edid& edid) {
  constexpr int kName = 0xFC, kRange = 0xFD;
  if (const auto mode = ReadTiming(descriptor)) return edid.modes.push_back(*mode);
  const int tag = ByteAt(descriptor, 3);
  if (tag == kName && edid.name.empty()) edid.name = ReadName(descriptor);
  if (tag != kRange || !hasContinuousRates || ByteAt(descriptor, 10) != kLimitsOnly) return;
  const RateRange range = ReadRange(descriptor);
  if (range.least > 0 && range.least < range.most) edid.rates = range;
}

// ---- a block of CTA-861

/// Modes that follow each other by number (VIC); those below high definition are left out, but for the oldest.
struct Numbered {
  int first;
  Resolution size;
  bool isInterlaced;
  std::initializer_list<int> rates;
};
const Numbered kNumbered[] = {
    {1, {640, 480}, false, {60}},
    {2, {720, 480}, false, {60, 60}},
    {4, {1280, 720}, false, {60}},
    {5, {1920, 1080}, true, {60}},
    {16, {1920, 1080}, false, {60}},
    {17, {720, 576}, false, {50, 50}},
    {19, {1280, 720}, false, {50}},
    {20, {1920, 1080}, true, {50}},
    {31, {1920, 1080}, false, {50, 24, 25, 30}},
    {39, {1920, 1080}, true, {50, 100}},
    {41, {1280, 720}, false, {100}},
    {46, {1920, 1080}, true, {120}},
    {47, {1280, 720}, false, {120}},
    {60, {1280, 720}, false, {24, 25, 30}},
    {63, {1920, 1080}, false, {120, 100}},
    {65, {1280, 720}, false, {24, 25, 30, 50, 60, 100, 120}},
    {72, {1920, 1080}, false, {24, 25, 30, 50, 60, 100, 120}},
    {79, {1680, 720}, false, {24, 25, 30, 50, 60, 100, 120}},
    {86, {2560, 1080}, false, {24, 25, 30, 50, 60, 100, 120}},
    {93, {3840, 2160}, false, {24, 25, 30, 50, 60}},
    {98, {4096, 2160}, false, {24, 25, 30, 50, 60}},
    {103, {3840, 2160}, false, {24, 25, 30, 50, 60}},
    {108, {1280, 720}, false, {48, 48}},
    {110, {1680, 720}, false, {48}},
    {111, {1920, 1080}, false, {48, 48}},
    {113, {2560, 1080}, false, {48}},
    {114, {3840, 2160}, false, {48}},
    {115, {4096, 2160}, false, {48}},
    {116, {3840, 2160}, false, {48}},
    {117, {3840, 2160}, false, {100, 120, 100, 120}},
    {121, {5120, 2160}, false, {24, 25, 30, 48, 50, 60, 100}},
    {193, {5120, 2160}, false, {120}},
    {194, {7680, 4320}, false, {24, 25, 30, 48, 50, 60, 100, 120}},
    {202, {7680, 4320}, false, {24, 25, 30, 48, 50, 60, 100, 120}},
    {210, {10240, 4320}, false, {24, 25, 30, 48, 50, 60, 100, 120}},
    {218, {4096, 2160}, false, {100, 120}},
};

void AddNumbered(int number, Edid& edid) {
  for (const Numbered& each : kNumbered) {
    const int at = number - each.first;
    if (at >= 0 && at < static_cast<int>(each.rates.size()))
      edid.modes.push_back({each.size, static_cast<double>(each.rates.begin()[at]), each.isInterlaced});
  }
}

/// Numbers from 1 to 64 may have their highest bit set, for a native one.
void AddNumberedOf(std::string_view numbers, Edid& edid) {
  for (size_t at = 0; at < numbers.size(); ++at) {
    const int number = ByteAt(numbers, at);
    AddNumbered(number > 128 && number <= 192 ? number & 0x7F : number, edid);
  }
}

/// Three bytes for each format, with its channels less one in the lowest bits.
void TakeSoundFormats(std::string_view formats, Edid& edid) {
  for (size_t at = 0; at + 3 <= formats.size(); at += 3)
    edid.soundChannels = std::max(edid.soundChannels, (ByteAt(formats, at) & 7) + 1);
}

/// HDMI 1.4: the numbers of its four modes of 2160 lines, after latencies that may be there.
void TakeHdmi(std::string_view body, Edid& edid) {
  constexpr int kSame[] = {95, 94, 93, 98};  // by CTA-861
  const int flags = ByteAt(body, 7);
  if (!(flags & 0x20)) return;
  const size_t video = 8 + (flags & 0x80 ? 2u : 0u) + (flags & 0x40 ? 2u : 0u);
  const auto count = static_cast<size_t>(ByteAt(body, video + 1) >> 5);
  for (size_t i = 0; i < count; ++i)
    if (const int number = ByteAt(body, video + 2 + i); number >= 1 && number <= 4)
      AddNumbered(kSame[number - 1], edid);
}

/// HDMI 2.1: the range of a variable refresh rate, the highest in ten bits.
void TakeHdmiForum(std::string_view body, Edid& edid) {
  const RateRange range{ByteAt(body, 8) & 0x3F, (ByteAt(body, 8) & 0xC0) << 2 | ByteAt(body, 9)};
  if (range.least > 0 && range.least < range.most) edid.rates = range;
}

void TakeDataBlock(int tag, std::string_view body, Edid& edid) {
  constexpr int kSound = 1, kVideo = 2, kVendor = 3, kExtended = 7;
  constexpr int kHdr = 6, kVideoInLessColour = 14;  // extended ones
  if (tag == kSound) TakeSoundFormats(body, edid);
  if (tag == kVideo) AddNumberedOf(body, edid);
  if (tag == kVendor && body.starts_with("\x03\x0C\x00"sv)) TakeHdmi(body, edid);
  if (tag == kVendor && body.starts_with("\xD8\x5D\xC4"sv)) TakeHdmiForum(body, edid);
  if (tag != kExtended || body.empty()) return;
  if (ByteAt(body, 0) == kVideoInLessColour) AddNumberedOf(body.substr(1), edid);
  if (ByteAt(body, 0) != kHdr) return;
  edid.showsHdr10 = edid.showsHdr10 || (ByteAt(body, 1) & 4) != 0;
  edid.showsHlg = edid.showsHlg || (ByteAt(body, 1) & 8) != 0;
}

/// Byte 2 is where its timings begin, data blocks before them; in byte 3, 0x40 is basic audio, which each that plays
/// sound has.
void TakeCta(std::string_view block, Edid& edid) {
  constexpr size_t kFirst = 4;
  const int version = ByteAt(block, 1);
  if (ByteAt(block, 0) != kCta || version < 2) return;
  if (ByteAt(block, 3) & 0x40) {
    edid.playsSound = true;
    edid.soundChannels = std::max(edid.soundChannels, 2);
  }
  const auto timings = std::min<size_t>(static_cast<size_t>(ByteAt(block, 2)), kBlock - 1);
  for (size_t at = kFirst; version >= 3 && at < timings;) {
    const int head = ByteAt(block, at);
    const auto size = static_cast<size_t>(head & 0x1F);
    if (at + 1 + size > timings) break;
    TakeDataBlock(head >> 5, block.substr(at + 1, size), edid);
    at += 1 + size;
  }
  for (size_t at = timings; timings >= kFirst && at + kTiming < kBlock; at += kTiming) {
    const auto mode = ReadTiming(block.substr(at, kTiming));
    if (!mode) break;
    edid.modes.push_back(*mode);
  }
}

}  // namespace

bool IsBetter(const Mode& one, const Mode& other) {
  const auto rank = [](const Mode& mode) { return std::tuple(mode.size.Area(), !mode.isInterlaced, mode.rate); };
  return rank(one) > rank(other);
}

std::optional<Mode> Edid::Best() const {
  const auto best = std::min_element(modes.begin(), modes.end(), IsBetter);
  return best == modes.end() ? std::nullopt : std::optional(*best);
}

Edid ReadEdid(std::string_view bytes) {
  Edid edid;
  edid.isValid = IsWellFormed(bytes);
  if (!edid.isValid) return edid;
  if (const auto mode = ReadTiming(bytes.substr(kFirstTiming, kTiming))) edid.preferred = mode->size;
  // Before version 1.4 this bit is about a formula for timings.
  const bool hasContinuousRates = ByteAt(bytes, kRevision) >= 4 && (ByteAt(bytes, kFeatures) & kContinuousRates) != 0;
  for (size_t i = 0; i < kTimings; ++i)
    TakeDescriptor(bytes.substr(kFirstTiming + i * kTiming, kTiming), hasContinuousRates, edid);
  for (size_t at = kBlock; at < bytes.size(); at += kBlock) TakeCta(bytes.substr(at, kBlock), edid);
  return edid;
}

}  // namespace display
