#pragma once
/// @file
/// A whole set for a test: installed into its root, with a screen, a window manager and a person who presses keys.
///
/// Needs Xvfb, openbox and xdotool (scripts/setup installs them), and namespaces: as root, or where users may have
/// their own.

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/process.h"

/// Puts this process, and what it starts, where there is no network, display, sound card or other hardware, and little
/// to do. Mounts are its own from then on. Only while it has a single thread. Empty, or why it cannot be.
std::string LeaveTheMachine();

/// An Xvfb of 1280 x 720 with openbox, and its keyboard.
class Screen {
 public:
  Screen();  ///< throws std::runtime_error with what is missing

  /// Presses keys one after the other, a fifth of a second apart.
  void Press(const std::vector<std::string>& keys) const;
  /// Holds a key for `count` presses, `period` apart, while the test goes on.
  ChildProcess Repeat(const std::string& key, int count, std::chrono::milliseconds period) const;
  /// Minimises the application's window.
  void Minimize() const;

 private:
  ChildProcess m_server;
  std::optional<ChildProcess> m_windowManager;
};

/// A run of the installed application, or of another program of the set, with its log.
class RunningApp {
 public:
  using Clock = std::chrono::system_clock;

  explicit RunningApp(const std::string& argument = "");
  explicit RunningApp(const std::vector<std::string>& command);

  const ChildProcess& Process() const { return m_process; }

  /// Waits until the log has `text` `times` times. False, with the log's end on standard error, when it does not come.
  bool Says(const std::string& text, int times = 1);
  /// Waits for the home screen.
  bool IsHome() { return Says("Create Home Screen"); }
  bool HasSaid(const std::string& text) const { return Count(text) > 0; }
  int Count(const std::string& text) const { return ::Count(Log(), text); }
  std::string Log() const { return m_process.Errors(); }

  /// Waits until it has nothing more to say: the screen is built and drawn, and takes keys.
  void Settle() const;

  /// When each line with `text` was written.
  std::vector<Clock::time_point> TimesOf(const std::string& text) const;

  /// Its end; killed after `timeout`.
  ProcessResult End(std::chrono::milliseconds timeout = std::chrono::seconds(5)) { return m_process.Wait(timeout); }

  /// The thread of this name; 0 when there is none.
  pid_t Thread(const std::string& name) const;

 private:
  bool Sleeps() const;  ///< no thread of it works or wants to

  ChildProcess m_process;
};

/// Lays out the set in the test's root: all that is installed. In English, without diagnoses in the background.
void InstallSet();

/// Has that set's rule for auto power off go by the settings key: it has no screen's plug, and nothing that turns it
/// off.
void DecideAutoPowerOffByItsKey();

/// The set's daemon, running.
std::unique_ptr<ChildProcess> StartDaemon();
