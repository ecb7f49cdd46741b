#pragma once

#include <functional>

#include "CUtils.h"
#include "vconf.h"

namespace QUVA {

/// The application's one window: makes it, and hears of its keys and of the user's accessibility and language settings.
/// Thread rule: main loop thread.
class CMainView {
 public:
  /// Created on first use, never destroyed.
  static CMainView& Instance();

  CMainView(const CMainView&) = delete;
  CMainView& operator=(const CMainView&) = delete;

  /// Builds the window and, as soon as the main loop has nothing else to do, starts the loading screen. Once.
  /// `launchFrom` is what the application was launched from, or null, and must stay for as long as the process. False
  /// when there is no display to open a window on.
  bool initUI(char* launchFrom);
  /// The same for another application with screens of this kind, which starts with `first` in place of the loading
  /// screen.
  bool m_OpenWindow(const char* title, std::function<void()> first);

  /// Every key that is pressed in the window; Back is taken here.
  static Eina_Bool m_WindowKeyPress(void* data, int type, void* event);
  /// The user's setting has changed.
  static Eina_Bool m_HighContrastCallback(void* data, int type, void* event);
  static Eina_Bool m_EnlargeCallback(void* data, int type, void* event);
  static Eina_Bool m_ScreenReaderCallback(void* data, int type, void* event);
  static void m_MenuLanguageCallback(keynode_t* node, void* data);
  static void m_RotationCallback(keynode_t* node, void* data);

  /// Puts the background into the window.
  void m_setBGImage();

  char* m_pGetLaunchFrom() const { return m_launchFrom; }
  void m_StartFirst() const { m_first(); }

 private:
  CMainView() = default;

  void m_FollowRotation();
  void m_FollowSettings();
  static void m_OnResize(void* data, Evas* canvas, Evas_Object* window, void* info);

  char* m_launchFrom = nullptr;
  std::function<void()> m_first;
};

/// An idler: turns the application if the screen hangs upright, and starts the first screen.
Eina_Bool ApplyRotation(void* data);

}  // namespace QUVA
