#pragma once
/// @file
/// Who draws, as the graphics libraries (EGL) tell. Loads the drivers of all cards.

#include <optional>

namespace vexilo_graphics {

/// Whether no card draws: each device of EGL either cannot be used, or what draws with it is a program. Nothing when
/// EGL has no list of devices, or cannot be asked about one of them while none of the others draws.
std::optional<bool> IsSoftwareAlone();

}  // namespace vexilo_graphics
