#pragma once
/// @file
/// The set's voice: speaks texts in the menu language, with speech-dispatcher where it runs, else with espeak-ng.
///
/// speech-dispatcher is spoken to over its socket, in SSIP, the protocol that its manual describes; the socket is where
/// SPEECHD_ADDRESS says ("unix_socket:PATH"), else below XDG_RUNTIME_DIR. espeak-ng is found in PATH.

#include <string>

namespace speech {

/// Speaks `text` (UTF-8), and cuts off what is being spoken; an empty text only does that. Returns at once; of texts
/// that come faster than they can be begun the last one is spoken. Where the machine has no speech, or it fails, the
/// log says so once. Any thread.
void Say(const std::string& text);

}  // namespace speech
