#include "CMotion.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "CUtils.h"
#include "VexiloLog.h"
#include "flux_resources.h"

namespace QUVA {

namespace {

constexpr std::chrono::milliseconds kFrameTime{50};
constexpr int kDeviceGood = 1;
constexpr int kDeviceBad = 2;

// The files' own spelling: capitals, and a blank in one set.
struct Prefixes {
  const char* plain;
  const char* highContrast;
};
constexpr Prefixes kPrefixes[] = {
    {"Motion/vexilo_progress/vexilo_progress_", "Motion/vexilo_highcontrast_progress/vexilo_highcontrast_progress_"},
    {"Motion/vexilo_good/vexilo_good_", "Motion/vexilo_highcontrast_good/vexilo_highcontrast_good _"},
    {"Motion/vexilo_bad/vexilo_bad_", "Motion/vexilo_highcontrast_bad/vexilo_highcontrast_bad_"},
    {"Motion/Vexilo_normal/Vexilo_normal_", "Motion/vexilo_highcontrast_normal/Vexilo_highcontrast_normal_"},
    {"Motion/vexilo_progress/small/vexilo_progress_",
     "Motion/vexilo_highcontrast_progress/small/vexilo_highcontrast_progress_"},
};

constexpr std::chrono::milliseconds kShowingRound{10};
constexpr int kShowingRounds = 50;

// The picture that the image box has comes with a whole new screen, which takes longer to draw than a frame lasts.
bool WaitUntilShown(const CScreenJob::Control& control, const CWidget& image) {
  bool isShown = false;
  for (int round = 0; round < kShowingRounds && !isShown; ++round) {
    if (!control.m_RunInMainLoop([&] { isShown = !image || elm_flux_image_is_shown(image); })) return false;
    if (!isShown) std::this_thread::sleep_for(kShowingRound);
  }
  return true;
}

}  // namespace

MotionSet MotionOfDeviceState(int state) {
  if (state == kDeviceGood) return MOTION_GOOD;
  return state == kDeviceBad ? MOTION_BAD : MOTION_NORMAL;
}

std::string MotionPrefix(MotionSet set, bool highContrast) {
  const Prefixes& prefixes = kPrefixes[set];
  return getResourcePath(highContrast ? prefixes.highContrast : prefixes.plain);
}

std::string MotionFrame(MotionSet set, bool highContrast, int frame) {
  return MotionPrefix(set, highContrast) + std::to_string(frame) + ".png";
}

bool PlayMotion(const CScreenJob::Control& control, const CWidget& image, MotionSet set, int first, int last) {
  if (!WaitUntilShown(control, image)) return false;
  unsigned int missedBefore = 0;
  control.m_RunInMainLoop([&] { missedBefore = elm_flux_missed_frames(); });
  auto due = std::chrono::steady_clock::now();
  for (int frame = first; frame <= last; ++frame) {
    const std::string file = MotionFrame(set, CUtils::Instance().m_GetHighContrast() != 0, frame);
    const auto show = [&] {
      if (image) elm_flux_image_file_set(image, file);
    };
    if (!control.m_RunInMainLoop(show)) return false;
    // What showing it took is part of its time; after a stop the frames do not race to catch up.
    due = std::max(due + kFrameTime, std::chrono::steady_clock::now() + kFrameTime / 2);
    std::this_thread::sleep_until(due);
  }
  return control.m_RunInMainLoop([&] { VEXILO_LOGD("frames missed: %u", elm_flux_missed_frames() - missedBefore); });
}

}  // namespace QUVA
