#pragma once
/// @file
/// The set's voice: speaks texts in the menu language, with speech-dispatcher where it runs, else with espeak-ng.
///
/// speech-dispatcher is spoken to over its socket, in SSIP, the protocol that its manual describes; the socket is where
/// SPEECHD_ADDRESS says ("unix_socket:PATH"), else below XDG_RUNTIME_DIR. espeak-ng is found in PATH.

#include <string>

#include "speech/kind.h"

namespace speech {

/// Speaks `text` (UTF-8) when it is its turn. An empty text ends what is spoken and drops what waits. Returns at once.
/// Where the machine has no speech, or it fails, the log says so once. Any thread.
void Say(const std::string& text, Kind kind);

}  // namespace speech
