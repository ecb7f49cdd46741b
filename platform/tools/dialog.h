#pragma once
/// @file
/// A popup of a test tool.
///
/// Thread rule: main loop thread.

#include <functional>
#include <string>

#include "CWidget.h"

namespace tools {

/// A text with a title above the screen, and buttons. Back closes it.
class Dialog {
 public:
  Dialog(const std::string& title, const std::string& text, std::function<void()> onBack);
  Dialog(const Dialog&) = delete;
  Dialog& operator=(const Dialog&) = delete;

  /// Adds a button that closes it and then calls `onClick`; the first one has the focus.
  void AddButton(const std::string& text, std::function<void()> onClick);
  /// Closes it, where it is not closed yet, without calling anything. It must be what Back would close.
  void Dismiss();

 private:
  void Close();

  const std::function<void()> m_onBack;
  QUVA::CWidget m_popup;
};

/// Opens one, kept until the next is opened; the last one must have been closed.
Dialog& OpenDialog(const std::string& title, const std::string& text, std::function<void()> onBack);

}  // namespace tools
