#pragma once

namespace speech {

enum class Kind {
  kAnnouncement,  ///< what a screen or a message says: spoken after the announcements before it; cuts a focus text off
  kFocus,         ///< what has the focus: waits for announcements, and replaces a focus text spoken or waiting
};

}  // namespace speech
