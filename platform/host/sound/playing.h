#pragma once
/// @file
/// Playing on this machine while hearing what really went out: 48,000 frames a second, each a signed 16-bit sample for
/// left and one for right.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "sound/sound_server.h"

namespace sound {

inline constexpr int kRate = 48000;
inline constexpr int kChannels = 2;

struct Playing {
  /// Writes up to so many frames and returns how many; 0 ends it.
  std::function<size_t(int16_t* samples, size_t frames)> next;
  /// What went out: recorded from the output's monitor, or, where there is none, what the card took.
  std::function<void(const int16_t* samples, size_t frames)> heard;
  /// Ends it early when it becomes true.
  const std::atomic<bool>* stop;
};

// Both block until all has been played, and call back on the caller's thread. False with the reason where that fails,
// after three seconds when the output takes nothing.

/// Through the session's sound server.
bool PlayOnServer(const Sink& sink, const Playing& playing, std::string& problem);
/// On ALSA's default card.
bool PlayOnAlsa(const Playing& playing, std::string& problem);

}  // namespace sound
