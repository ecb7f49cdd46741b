#pragma once
/// @file
/// The animations: sets of 60 pictures, played at 20 a second.

#include <string>

#include "CScreenJob.h"
#include "CWidget.h"

namespace QUVA {

/// The last is the first of them, drawn as small as the loading screen shows it.
enum MotionSet { MOTION_PROGRESS, MOTION_GOOD, MOTION_BAD, MOTION_NORMAL, MOTION_SMALL_PROGRESS };

inline constexpr int kLastFrame = 59;

/// The set of a device's state: 1 good, 2 bad, any other normal.
MotionSet MotionOfDeviceState(int state);

/// The path of a set's pictures up to the number, and of the picture of a frame. Any thread.
std::string MotionPrefix(MotionSet set, bool highContrast);
std::string MotionFrame(MotionSet set, bool highContrast, int frame);

/// Shows frames `first` to `last` in an image box, each for 50 milliseconds, in the form that the user's high-contrast
/// setting asks for at that moment; begins when the box is on the screen, half a second from now at the latest. False,
/// at once, when the job was cancelled. A worker's routine.
bool PlayMotion(const CScreenJob::Control& control, const CWidget& image, MotionSet set, int first, int last);

}  // namespace QUVA
