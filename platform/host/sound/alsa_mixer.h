#pragma once
/// @file
/// The volume of the default sound card, by ALSA (libasound 1.2).
///
/// Thread rule: one thread at a time, for as long as it lives.

#include <memory>
#include <optional>
#include <string>

typedef struct _snd_mixer snd_mixer_t;
typedef struct _snd_mixer_elem snd_mixer_elem_t;

namespace sound {

/// While it lives, the library does not tell of each missing card on the standard error output, which is the program's.
class QuietAlsa {
 public:
  QuietAlsa();
  ~QuietAlsa();
  QuietAlsa(const QuietAlsa&) = delete;
  QuietAlsa& operator=(const QuietAlsa&) = delete;

 private:
  struct Before;
  const std::unique_ptr<Before> m_before;
};

/// What the default card is called; empty where there is none.
std::string DefaultCardTitle();

class AlsaMixer {
 public:
  AlsaMixer();
  ~AlsaMixer();
  AlsaMixer(const AlsaMixer&) = delete;
  AlsaMixer& operator=(const AlsaMixer&) = delete;

  /// The loudest channel's. Nothing without a card that has a volume, here and below.
  std::optional<double> VolumePercent() const;
  /// By its switch, on all channels. Without a switch it cannot be muted.
  std::optional<bool> IsMuted() const;
  /// Switches all channels on. False where that fails.
  bool Unmute();

 private:
  const QuietAlsa m_quiet;
  snd_mixer_t* m_mixer = nullptr;
  snd_mixer_elem_t* m_volume = nullptr;  ///< the mixer's
};

}  // namespace sound
