#include "trouble.h"

namespace tools {

namespace {

constexpr double kSilent = 0.5;  // percent, below which it reads 0

}  // namespace

SoundTrouble TroubleOf(const SoundOutputState& state, const sound::Sink* sink,
                       const std::function<std::optional<bool>(const sound::Sink&)>& isHeard) {
  if (sink && sink->IsUnplugged()) return SoundTrouble::kUnplugged;
  if (sink && sink->leadsToScreen && isHeard(*sink) == false) return SoundTrouble::kScreenWithoutSound;
  if (state.isMuted == true) return SoundTrouble::kMuted;
  if (state.volumePercent && *state.volumePercent < kSilent) return SoundTrouble::kVolumeZero;
  return SoundTrouble::kNone;
}

}  // namespace tools
