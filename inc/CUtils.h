#pragma once

#include <atomic>
#include <boost/function.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AppState.h"
#include "CWidget.h"
#include "DeviceQueries.h"
#include "ReportTrigger.h"
#include "Texts.h"

namespace QUVA {

/// The colours of texts, and of those that say less.
inline constexpr char kTextColor[] = "#FFFFFF";
inline constexpr char kFaintTextColor[] = "#9EAEC4";
/// The colour of what is done, used or stands out.
inline constexpr char kAccentColor[] = "#89E413";
/// What is free beside a screen's title and content, in layout units.
inline constexpr double kPageMargin = 11;

/// The title of the screens that have none of their own.
inline constexpr char kProductTitle[] = "TV_SID_CARE_VEXILO";
/// The title of the storage manager, whose header has two lines.
inline constexpr char kStorageTitle[] = "TV_SID_DEVICE_MANAGE_STORAGE";

/// A screen, or a toast, on the return stack. Both functions must be set: calling an empty one throws.
struct _returnCBStruct {
  boost::function<void()> m_showAfterReturn;  ///< what was above it has gone
  boost::function<void()> m_hide;             ///< it goes itself, by Back
  uint32_t m_reserved = 0;                    ///< nobody's
};

/// The widgets of a title header, owned by it.
struct TitleHeader {
  Evas_Object* header = nullptr;
  Evas_Object* row = nullptr;
  Evas_Object* text = nullptr;
};

/// What all screens share: the window and its root, the return stack, dimming, the loading popup, the accessibility
/// settings and their signals.
/// Thread rule: main thread, but for the launch source, the flags and the speech, which any thread may ask for.
class CUtils {
 public:
  /// Created on first use, never destroyed.
  static CUtils& Instance();

  CUtils(const CUtils&) = delete;
  CUtils& operator=(const CUtils&) = delete;

  // ---- the window and what stands in it; all are the window's

  Evas_Object* m_pGetAppWindow() const { return m_appWindow; }
  void m_SetAppWindow(Evas_Object* window) { m_appWindow = window; }
  Evas_Object* m_pGetFluxBg() const { return m_fluxBg; }
  void m_SetFluxBg(Evas_Object* background) { m_fluxBg = background; }
  Evas_Object* m_pGetRootLayout() const { return m_rootLayout; }
  void m_SetRootLayout(Evas_Object* layout) { m_rootLayout = layout; }
  Evas_Object* m_pGetManageStorageRootLayout() const { return m_manageStorageRootLayout; }
  void m_SetManageStorageRootLayout(Evas_Object* layout) { m_manageStorageRootLayout = layout; }
  /// A new root layout in the window, in place of what there was. Null without a window.
  Evas_Object* m_pResetRootLayout();

  /// The window's size in pixels.
  int m_GetScreenWidth() const { return m_screenWidth; }
  int m_GetScreenHeight() const { return m_screenHeight; }
  void m_SetScreenWidth(int width) { m_screenWidth = width; }
  void m_SetScreenHeight(int height) { m_screenHeight = height; }
  /// The window's width in layout units.
  double m_GetFluxWidthOfScreen();

  /// The screen hangs upright: everything is drawn turned.
  void m_SetPortraitSignage(bool portrait) { m_portraitSignage = portrait; }
  bool m_GetPortraitSignage() const { return m_portraitSignage; }
  void SetShrinkUI(bool shrink) { m_shrinkUI = shrink; }
  bool GetShrinkUI() const { return m_shrinkUI; }

  // ---- launching and ending

  /// What the application was launched from, or null. The text is kept as it was passed, so it must stay for as long
  /// as the process.
  void m_pSetLaunchFrom(char* launchFrom) { AppState::Instance().launchFrom = launchFrom; }
  char* m_pGetLaunchFrom() const { return AppState::Instance().launchFrom; }

  /// Whether the application goes on living while it is not visible.
  void m_SetMultitaskingStatus(bool status) { m_multitasking = status; }
  bool m_GetMultitaskingStatus() const { return m_multitasking; }

  /// Whether the application ends when it is no longer visible, as after launching another one from here.
  void m_SetExitOnPause(bool exitOnPause) { AppState::Instance().exitOnPause = exitOnPause; }
  bool m_GetExitOnPause() const { return AppState::Instance().exitOnPause; }

  /// Ends the process at once with `code`.
  void m_SetExitFlag(int code);

  // ---- the Back key

  /// Puts a copy of `entry` on top; with `replaceTop` in place of the top one, whose functions are not called.
  void m_RegisterForReturnStack(const _returnCBStruct& entry, bool replaceTop);
  /// Back: takes the top entry away, hides it and shows the one below. On the last entry the application ends.
  void m_ExecuteReturn();
  /// Takes the top entry away without calling its functions.
  void m_DropFromReturnStack();
  /// Ends the application, as Back on the first screen does: back to the menu that it was launched from.
  void m_Leave();
  /// Has m_Leave() do this instead: another application is left to another place.
  void m_SetLeave(std::function<void()> leave) { m_leave = std::move(leave); }
  size_t m_GetReturnStackSize() const { return m_returnStack.size(); }

  /// While set, Back does nothing.
  void m_SetKeyBlock(bool block) { m_keyBlock = block; }
  bool m_GetKeyBlock() const { return m_keyBlock; }

  // ---- widgets that screens share

  /// Darken what is on the screen so far, and undo the last of these. Called in pairs.
  void m_ShowDimBackground();
  void m_HideDimBackground();
  /// Whether the screen is darkened, as it is below every popup.
  bool m_IsDimmed() const { return !m_dimLayers.empty(); }
  /// Has the layers cover the screen as large as it is now.
  void m_FitDimBackground();

  /// Something runs in the middle of `parent`, spoken every five seconds, and Back is blocked, until it is stopped.
  void m_CreateLoadingPopup(Evas_Object* parent);
  void m_StopLoadingPopup();

  /// Adds a title header to the layout `parent`; returns it.
  Evas_Object* m_pTitleHeader(Evas_Object* parent, TitleHeader& out, const char* titleSid);
  void m_SetHeaderImage(Evas_Object* imageBox, Evas_Object* textBox, const char* titleSid);
  /// Adds a rounded plate of so many units to the layout `parent`; 0 for all that is there.
  void m_CreateBottomFrame(Evas_Object*& out, Evas_Object* parent, double width, double height);
  void m_CreateButton(Evas_Object*& out, Evas_Object* parent, const std::string& text, double width, double height);

  /// An idler: gives the focus to the widget `object`, once.
  static Eina_Bool OnIdle(void* object);

  /// Deletes what belongs to no screen: the dimming, the loading popup and its speech.
  void m_CleanObjects();

  // ---- accessibility

  /// Read the user's setting.
  void m_SetHighContrast();
  void m_SetEnlarge();
  int m_GetHighContrast() const { return m_highContrast; }
  int m_GetEnlarge() const { return m_enlarge; }

  void ConnectHighContrastChangeCB(const std::function<void()>& slot);
  void ConnectEnlargeChangeCB(const std::function<void()>& slot);
  void ConnectLangChangeCB(const std::function<void()>& slot);
  void ConnectScreenReaderChangeCB(const std::function<void()>& slot);
  void HighContrastChangeCB();
  void EnlargeChangeCB();
  void LanguageChangeCB();
  void ScreenReaderChangeCB();

  /// Has the screen reader speak, where it is on; on the main loop, later. Any thread.
  static void m_SayVoiceGuideText(const std::string& text);

  // ---- what is not about the screen, by its names of old (DeviceQueries.h, ReportTrigger.h, Texts.h). Any thread.

  int GetChannelType() { return QUVA::GetChannelType(); }
  int GetCurrentSourceInfo() { return QUVA::GetCurrentSourceInfo(); }
  std::string m_GetSwModel() { return GetSwModel(); }
  std::string GetChipSet() { return QUVA::GetChipSet(); }
  std::string GetLocalSet() { return QUVA::GetLocalSet(); }
  int m_CheckOstravSupport() { return GetOstravVersion(); }
  int GetTVProductType() { return QUVA::GetTVProductType(); }
  bool m_IsSignage() { return IsSignage(); }

  void m_RequestNDF(const std::string& name, const std::string& detail, bool reboot) {
    RequestReport(name, detail, reboot);
  }

  static std::string m_GetText(const char* sid) { return GetText(sid); }
  static std::string m_GetTextWith(const char* sid, const std::string& value) { return GetTextWith(sid, value); }
  static std::string m_RoundValue(double value) { return RoundValue(value); }
  /// "-12", without grouping
  static std::string m_GetStringOfNumber(int32_t number) { return std::to_string(number); }
  static std::string m_ConvertBytes(int64_t bytes) { return ConvertBytes(bytes); }
  static double m_ConvertToGB(int64_t bytes) { return ConvertToGB(bytes); }
  static std::string convertToString(double gigabytes) { return GigabytesText(gigabytes); }
  static const char* m_GetDateFormat() { return GetDateFormat(); }

 private:
  struct Signals;

  CUtils();

  void m_DeleteLoadingPopup();
  void m_SpeakOfLoading();
  static Eina_Bool m_SayLoading(void* self);

  CWidget m_loadingProgress;
  CWidget m_rootLayout;
  CWidget m_appWindow;
  const std::unique_ptr<Signals> m_signals;  ///< apart, as their header takes longer to compile than all others here
  std::atomic<int> m_highContrast{0};
  int m_enlarge = 0;
  std::atomic<bool> m_keyBlock{false};
  Ecore_Timer* m_loadingTimer = nullptr;
  std::deque<_returnCBStruct> m_returnStack;
  std::function<void()> m_leave;
  int m_screenWidth = 0;
  int m_screenHeight = 0;
  std::vector<Evas_Object*> m_dimLayers;  ///< newest last
  bool m_portraitSignage = false;
  CWidget m_fluxBg;
  CWidget m_manageStorageRootLayout;
  bool m_multitasking = false;
  bool m_shrinkUI = false;
  CWidget m_loadingLayout;
};

}  // namespace QUVA
