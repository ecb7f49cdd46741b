#pragma once
/// @file
/// The widget toolkit as the programs of this platform run it.
///
/// Thread rule: main thread, one object of each class at a time.

#include <Ecore.h>

#include <optional>

#include "appfw/glib_main_loop.h"

namespace app_framework {

/// Environment variables as the widget toolkit needs them. It aborts where it has no folder for its run-time files,
/// and makes whatever folder HOME names; where one of the two is missing it gets a private folder instead, which goes
/// with the object. The set's font families are made known to this process, and the menu language decides how
/// characters that several languages share are drawn.
class ToolkitEnvironment {
 public:
  ToolkitEnvironment();
  ToolkitEnvironment(const ToolkitEnvironment&) = delete;
  ToolkitEnvironment& operator=(const ToolkitEnvironment&) = delete;
  ~ToolkitEnvironment() { RemovePrivateFolder(); }

  static void RemovePrivateFolder();
};

/// The toolkit, started with its messages going to the platform log, and with GLib's default context running in its
/// main loop. Made after a ToolkitEnvironment.
class Toolkit {
 public:
  Toolkit(int argc, char** argv);
  Toolkit(const Toolkit&) = delete;
  Toolkit& operator=(const Toolkit&) = delete;
  ~Toolkit();
  /// False when it does not start.
  explicit operator bool() const { return m_started; }

 private:
  bool m_started = false;
  Ecore_Timer* m_fontCheck = nullptr;
  std::optional<GLibMainLoop> m_glib;
};

}  // namespace app_framework
