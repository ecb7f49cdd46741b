#pragma once

#include <functional>

#include "CUtils.h"

namespace QUVA {

/// What every screen has: a place in the window's root layout with a title header and a body below it, to be shown,
/// hidden and cleaned, and the widget that the focus goes back to. A screen has it as a member.
/// Thread rule: main loop thread.
class CScreen {
 public:
  /// `announce` is called when the screen reader is switched on while the screen is shown: it says what the screen says
  /// when it opens.
  explicit CScreen(std::function<void()> announce);
  CScreen(const CScreen&) = delete;
  CScreen& operator=(const CScreen&) = delete;

  /// Builds the place anew, empty but for the header. False when there is no window to build it in.
  bool m_Build(const char* titleSid);
  /// A vertical layout, centred, of the screen's width and the height that the header leaves, on a screen of 16:9 120
  /// units; what the screen shows goes here. Null when not built.
  Evas_Object* m_pGetBody() const { return m_body; }
  bool m_IsBuilt() const { return m_layout != nullptr; }
  /// Whether it is the screen that the viewer sees.
  bool m_IsShown() const { return m_layout && evas_object_visible_get(m_layout); }
  /// The whole of it, header and body. Null when not built.
  Evas_Object* m_pGetLayout() const { return m_layout; }
  /// The text of the header. Null when not built.
  Evas_Object* m_pGetTitle() const { return m_layout ? m_header.text : nullptr; }
  /// The second line of a header of two lines.
  void m_SetSubtitle(const std::string& text);

  void m_Show();
  /// Takes it off the screen and keeps its widgets, but for a toast, which is dismissed.
  void m_Hide();
  /// Deletes its widgets.
  void m_Clean();

  /// The widget that m_RestoreFocus() gives the focus to.
  void m_RememberFocus(Evas_Object* widget) { m_remembered = widget; }
  Evas_Object* m_pGetRememberedFocus() const { return m_remembered; }
  void m_RestoreFocus() { FocusWhenIdle(m_remembered); }

  static constexpr double kToastTime = 3.0;  ///< seconds
  /// Shows a toast until it times out after `seconds`, when `onTimeout` is called, or Back takes it away. `entry` goes
  /// onto the return stack; its hide function deletes the toast. One that shows gives way.
  void m_ShowToast(const std::string& text, const _returnCBStruct& entry, std::function<void()> onTimeout,
                   double seconds = kToastTime);
  void m_DeleteToast() { m_toast.m_Delete(); }
  bool m_HasToast() const { return m_toast != nullptr; }
  /// Takes the toast away, if one shows, and its entry off the return stack, on which nothing may be above it.
  void m_DismissToast();

 private:
  CWidget m_layout;
  CWidget m_body;
  CWidget m_remembered;
  CWidget m_toast;
  TitleHeader m_header;
  CWidget m_subtitle;
};

/// Adds a text to the layout `parent`; sizes in units, 0 for what it needs or, when it expands, gets.
Evas_Object* AddText(Evas_Object* parent, const std::string& text, const char* font, const char* color,
                     FluxTextSize size, FluxAlign align, double width, double height);
/// Adds an image box to the layout `parent`.
Evas_Object* AddImage(Evas_Object* parent, const std::string& file, double width, double height);
/// Adds a layout to the layout `parent`.
Evas_Object* AddLayout(Evas_Object* parent, FluxLayoutType type, FluxAlign align, double width, double height);

/// By how much texts are larger than as they are designed, as the viewer wants them.
double Enlargement();

}  // namespace QUVA
