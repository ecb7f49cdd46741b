#pragma once
/// @file
/// One main loop of two: while an object of this class lives, Ecore's main loop also runs GLib's default context, so
/// that D-Bus, file monitors and g_idle_add() work in a program with a screen. Nothing is polled: an idle program
/// sleeps in one poll() over what both wait for.
///
/// A callback of either side may run a nested loop of either side: a nested Ecore loop serves both, a nested GLib loop
/// only GLib.
///
/// Thread rule: main thread, between ecore_init() and ecore_shutdown(). One object at a time.

namespace app_framework {

class GLibMainLoop {
 public:
  GLibMainLoop();
  GLibMainLoop(const GLibMainLoop&) = delete;
  GLibMainLoop& operator=(const GLibMainLoop&) = delete;
  /// Ecore waits as it did before.
  ~GLibMainLoop();
};

}  // namespace app_framework
