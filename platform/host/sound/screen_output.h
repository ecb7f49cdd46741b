#pragma once
/// @file
/// Whether the session's sound goes nowhere while a screen could play it, and the way there.
///
/// Thread rule: callable from any thread.

#include "sound/sound_server.h"

namespace sound {

/// A sink, or where `profile` is not empty, the profile of a card that has one.
struct WayToScreen {
  std::string sink{};
  std::string card{};
  std::string profile{};
};

/// Nothing where the default output may be somebody's choice, or no output leads to a screen that is plugged in. An
/// output leads nowhere when all its ports say that nothing is plugged in, or it is the server's stand-in for none.
std::optional<WayToScreen> FindWayToScreen(const Outputs& outputs);

/// Goes it, if there is one, and looks whether the sound does. `problem` has the reason why not.
bool TakeWayToScreen(Server& server, std::string& problem);

}  // namespace sound
