#pragma once
/// @file
/// What the sound test plays. Any thread.

#include <cstddef>
#include <cstdint>

namespace tools {

enum class Tone { kLeft, kRight, kBoth, kSweep, kMelody };

/// A pitch for each side, so that sides that were swapped are heard.
inline constexpr double kLeftHertz = 440;
inline constexpr double kRightHertz = 550;
inline constexpr double kLowestHertz = 40, kHighestHertz = 16000;  ///< of the sweep

/// Signed 16-bit samples in turn for left and right, 48,000 of each a second.
class ToneSource {
 public:
  explicit ToneSource(Tone tone) : m_tone(tone) {}
  /// Writes up to so many frames and returns how many; 0 at its end.
  size_t Fill(int16_t* samples, size_t frames);

 private:
  const Tone m_tone;
  size_t m_at = 0;  // frames
};

}  // namespace tools
