#pragma once

#include <atomic>
#include <string>

namespace QUVA {

/// What all screens share.
/// Thread rule: main thread, but for the launch source and the device queries, which any thread may ask for.
class CUtils {
 public:
  /// Created on first use, never destroyed.
  static CUtils& Instance();

  CUtils(const CUtils&) = delete;
  CUtils& operator=(const CUtils&) = delete;

  /// What the application was launched from, or null. The text is kept as it was passed, so it must stay for as long
  /// as the process.
  void m_pSetLaunchFrom(char* launchFrom) { m_launchFrom = launchFrom; }
  char* m_pGetLaunchFrom() const { return m_launchFrom; }

  /// Whether the application goes on living while it is not visible.
  void m_SetMultitaskingStatus(bool status) { m_multitasking = status; }
  bool m_GetMultitaskingStatus() const { return m_multitasking; }

  /// Whether the application ends when it is no longer visible, as after launching another one from here.
  void m_SetExitOnPause(bool exitOnPause) { m_exitOnPause = exitOnPause; }
  bool m_GetExitOnPause() const { return m_exitOnPause; }

  /// Ends the process at once with `code`.
  void m_SetExitFlag(int code);

  /// The channel type of the channel that is showing, -1 when there is none.
  int GetChannelType();
  /// The number of the input source that is showing, -1 when it cannot be read.
  int GetCurrentSourceInfo();
  /// The software model, empty when the set does not say.
  std::string m_GetSwModel();

 private:
  CUtils() = default;

  std::atomic<char*> m_launchFrom{nullptr};
  bool m_multitasking = false;
  std::atomic<bool> m_exitOnPause{false};
};

}  // namespace QUVA
