#pragma once
/// @file
/// What the platform tells the application that runs: who it is, and what becomes of its window.
///
/// Thread rule: main thread.

#include <string>

namespace app_framework {

/// The id of the application that ui_app_main() runs: the care application's unless another one is said before.
void SetApplicationId(const std::string& id);

/// Called after each request but one for the background, to show the application's window before all others; null when
/// there is no window.
void SetBringToFront(void (*bringToFront)());

/// The application's window is no longer visible, or is visible again. The pause and resume callbacks are called once
/// for each change; saying the same again does nothing, nor does a call while no application runs. An application
/// starts visible.
void PauseApplication();
void ResumeApplication();

}  // namespace app_framework
