#pragma once
/// @file
/// What keeps sound from being heard. Any thread.

#include <functional>
#include <optional>

#include "sound/sound_server.h"
#include "sound_player.h"

namespace tools {

/// The first of docs/test-tools.md, "Sound", that there is with this output. `sink` is null where ALSA plays; `isHeard`
/// is asked for one that leads to a screen: whether that plays sound, nothing where it is not known.
SoundTrouble TroubleOf(const SoundOutputState& state, const sound::Sink* sink,
                       const std::function<std::optional<bool>(const sound::Sink&)>& isHeard);

}  // namespace tools
