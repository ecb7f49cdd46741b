#pragma once
/// @file
/// Where the sound of this session goes: the default output of its sound server, PulseAudio or PipeWire.
///
/// Thread rule: callable from any thread; blocks. No sound server is started.

#include <optional>

#include "fix_problem.h"

struct SoundOutput {
  bool hasSession = false;          ///< this process is of somebody's session
  bool hasServer = false;           ///< this process's session has a sound server
  std::optional<bool> isElsewhere;  ///< sound goes to an output with nothing at it, while a screen that is plugged in
                                    ///< could play it; nothing where the server does not tell
};
/// Within 1.5 seconds.
SoundOutput AskSoundOutput();

/// Where it is so, makes the screen's output the default, and moves there what is playing. Returns whether the sound
/// does not go elsewhere then; within five seconds. Otherwise `problem` has the reason.
bool LeadSoundToScreen(FixProblem& problem);
