#pragma once
/// @file
/// Plays sounds and tells where they go. Made by a library of its own, loaded when it is needed: what speaks with a
/// sound server is large, and only one tool wants it.

#include <optional>
#include <string>

#include "tones.h"

namespace tools {

/// Why nothing, or not enough, would be heard.
enum class SoundTrouble { kNone, kNoOutput, kMuted, kVolumeZero, kUnplugged, kScreenWithoutSound };

/// Where sound goes now.
struct SoundOutputState {
  SoundTrouble trouble = SoundTrouble::kNoOutput;
  std::string title{};                    ///< of the device, for a reader; empty for none
  std::string port{};                     ///< which of its plugs is in use; empty where it does not tell
  std::optional<double> volumePercent{};  ///< of its loudest channel; more than 100 is amplified
  std::optional<bool> isMuted{};
};

/// The loudest sample of each side that went out lately, 0 to 1.
struct SoundLevels {
  double left = 0, right = 0;
};

class SoundPlayer {
 public:
  SoundPlayer() = default;
  SoundPlayer(const SoundPlayer&) = delete;
  SoundPlayer& operator=(const SoundPlayer&) = delete;
  virtual ~SoundPlayer() = default;

  // These may wait, so never on the main loop's thread. Look() and Unmute() may be called while Play() runs.

  virtual SoundOutputState Look() = 0;
  /// False with the reason where it stays muted.
  virtual bool Unmute(std::string& problem) = 0;
  /// Returns when it has been played or Stop() was called; false with the reason where it cannot be.
  virtual bool Play(Tone tone, std::string& problem) = 0;

  // Any thread.

  /// Ends what is played.
  virtual void Stop() = 0;
  /// Since the last call.
  virtual SoundLevels TakeLevels() = 0;
};

/// What the library exports under this name; it hands the player over.
inline constexpr char kMakeSoundPlayer[] = "vexilo_make_sound_player";

}  // namespace tools
