#pragma once
/// @file
/// What is in the clip of the video test. Any thread.

namespace clip {

inline constexpr int kWidth = 1920;
inline constexpr int kHeight = 1080;
inline constexpr int kFramesPerSecond = 60;
inline constexpr int kFrames = 480;

/// A flash and its beep begin with the same frame, first in the middle of a period.
inline constexpr int kFlashPeriod = 120;
inline constexpr int kFlashFrames = 6;

/// The first frame of the flash of the period that `frame` is in.
constexpr int FlashOf(int frame) {
  return frame / kFlashPeriod * kFlashPeriod + kFlashPeriod / 2;
}
constexpr bool IsFlash(int frame) {
  return frame >= FlashOf(frame) && frame < FlashOf(frame) + kFlashFrames;
}

}  // namespace clip
