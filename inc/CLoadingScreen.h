#pragma once

#include "CScreen.h"
#include "CScreenJob.h"

namespace QUVA {

/// The first screen: an animation while the remaining problems of earlier scans are asked for, then the screen that the
/// launch source asks for. It is not on the return stack.
/// Thread rule: main loop thread, unless said otherwise.
class CLoadingScreen {
 public:
  /// Created on first use, never destroyed.
  static CLoadingScreen* Instance();

  CLoadingScreen(const CLoadingScreen&) = delete;
  CLoadingScreen& operator=(const CLoadingScreen&) = delete;

  /// Builds the screen in `parent` and starts it. `launchFrom`, which may be null, must stay for as long as the
  /// process.
  void m_StartLoading(Evas_Object* parent, char* launchFrom);
  /// Plays frames 0 to `lastFrame` in `image` at 20 a second, then waits for the home screen's remaining problems, five
  /// seconds at most. The worker's routine.
  void m_AnimationStart(const CScreenJob::Control& control, const CWidget& image, int lastFrame);
  void m_SetVoiceGuideText();
  /// Deletes its widgets and cancels the worker.
  void m_CleanObjects();

 private:
  CLoadingScreen() = default;

  void m_BuildBody();
  void m_WaitForRemainingData(const CScreenJob::Control& control);
  void m_End();
  void m_OpenNextScreen();
  void m_OpenErrorReport();

  CScreen m_screen{[this] { m_SetVoiceGuideText(); }};
  CWidget m_animation;
  char* m_launchFrom = nullptr;
  CScreenJob m_job;
};

}  // namespace QUVA
