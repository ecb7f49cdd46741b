#pragma once
/// @file
/// What the platform's window tells the running application.
///
/// Thread rule: main thread.

namespace app_framework {

/// Called after each request but one for the background, to show the application's window before all others; null when
/// there is no window.
void SetBringToFront(void (*bringToFront)());

/// The application's window is no longer visible, or is visible again. The pause and resume callbacks are called once
/// for each change; saying the same again does nothing, nor does a call while no application runs. An application
/// starts visible.
void PauseApplication();
void ResumeApplication();

}  // namespace app_framework
