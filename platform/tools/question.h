#pragma once
/// @file
/// What a test ends with: whether the viewer noticed the problem in it, too, and what follows from that.
///
/// Thread rule: main loop thread.

#include <functional>

#include "tool.h"

namespace tools {

struct Question {
  const char* askSid;      ///< "Do you see the problem here, too?"
  const char* noticedSid;  ///< what to try then, and what to tell support
  const char* missedSid;   ///< what it must be then
};

/// Asks in a popup above what is shown, records the answer as a usage event ("Noticed" or "Not noticed") and shows what
/// follows, whose button leaves the tool. Back in either popup closes it and calls `onBack`.
void Ask(const Tool& tool, const Question& question, std::function<void()> onBack);

}  // namespace tools
