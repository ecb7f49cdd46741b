#pragma once
/// @file
/// Whether the screen at an output plays sound, as the sound card has it from the screen (libasound 1.2). Any thread.

#include <optional>

namespace sound {

/// A device of a card that plays, by the kernel's numbers.
struct CardDevice {
  int card = 0;
  int device = 0;
};

/// Whether a description of what it plays (ELD, of High Definition Audio) has come from the screen at this device.
/// Nothing where the card does not tell, or may not be asked.
std::optional<bool> PlaysSound(const CardDevice& output);

}  // namespace sound
