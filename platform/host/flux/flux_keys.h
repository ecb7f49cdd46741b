#pragma once
/// @file
/// The keys that widgets act on, and widgets that take the focus as one while rows, cards or buttons in them show it.
///
/// Thread rule: main loop thread.

#include <memory>
#include <string>

#include "flux/flux_core.h"

namespace flux {

/// The scale at which a themed object grows with the unit and with the user's text size.
double TextScale();

/// Has elm_flux_key_is_repeated() know of the keys from now on. Once; the handlers live as long as the toolkit.
void FollowKeys();

enum class Key { kOther, kUp, kDown, kLeft, kRight, kPageUp, kPageDown, kHome, kEnd, kEnter, kNext, kPrevious };

/// Which key `event` is, those of the number pad included.
Key KeyOf(const Evas_Event_Key_Down& event);

/// A widget that acts on keys while it, or what is in it, has the focus.
class KeyWidget : public Widget {
 protected:
  explicit KeyWidget(Evas_Object* object);

  /// Whether the key was used. One that was not goes on to the widgets round this one and at last moves the focus. The
  /// widget may be deleted by it.
  virtual bool OnKey(Key key) = 0;
};

/// A widget of numbered items, of which one shows the focus while the widget has it. Smart events, each with the item's
/// number (int*): "item,focused", "item,unfocused", "item,selected".
class ItemWidget : public KeyWidget {
 public:
  virtual int Count() const = 0;
  /// The item with the focus, or that had it last; -1 for none.
  int Focused() const { return m_focused; }
  /// Moves the focus to `index`, which is an item. The widget may be deleted by what listens.
  void FocusItem(int index);
  /// The same, and the widget takes the focus. False when what listens has deleted the widget.
  bool FocusWith(int index);

 protected:
  /// An empty one does not take the focus.
  explicit ItemWidget(Evas_Object* object);
  ~ItemWidget() override;

  bool IsItem(int index) const { return index >= 0 && index < Count(); }
  bool HasFocus() const { return m_hasFocus; }
  /// To be called when there are more items or fewer: the focus stays where `focused` says, if there is such an item.
  void CountChanged(int focused);
  /// Draws whether the item has the focus.
  virtual void ShowFocus(int index, bool focused) = 0;
  /// The item has become the focused one.
  virtual void Reveal(int /*index*/) {}
  /// False when what listens has deleted the widget.
  bool Emit(const char* event, int index);
  /// Ends with the widget, for those who call what may delete it.
  std::weak_ptr<void> Life() const { return m_life; }
  /// "item,selected" as soon as the toolkit, which is still working on a click, can stand the widget's deletion.
  void ClickSoon(int index);

 private:
  void SetHasFocus(bool has);
  void Click();

  int m_focused = -1;
  int m_clicked = -1;
  bool m_hasFocus = false;
  Ecore_Job* m_clickJob = nullptr;
  std::shared_ptr<void> m_life = std::make_shared<char>();  ///< ends with the widget
};

/// Whether `object` or a widget round it is `ancestor`.
bool IsWithin(const Evas_Object* object, const Evas_Object* ancestor);

}  // namespace flux
