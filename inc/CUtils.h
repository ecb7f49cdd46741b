#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace QUVA {

/// What all screens share.
/// Thread rule: main thread, but for the launch source, the device queries, the report request and the formatting,
/// which any thread may ask for.
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

  /// Asks the log collector for a report: leaves NAME-DETAIL.log, empty, in its folder, or in the one for reports that
  /// are to be taken up after a restart of the set. Both texts are of letters, digits, '.', '_' and '-'; others are
  /// refused, with a log line, as is what cannot be left. Blocks for as long as a shell takes.
  void m_RequestNDF(const std::string& name, const std::string& detail, bool reboot);

  // ---- formatting (CUtilsFormat.cpp); sizes are binary, numbers have two decimals after a point, in every language

  /// "3.50"
  static std::string m_RoundValue(double value);
  /// "-12", without grouping
  static std::string m_GetStringOfNumber(int32_t number);
  /// "512.00B", "1.50KB", "1024.00GB"; the unit is chosen before rounding
  static std::string m_ConvertBytes(int64_t bytes);
  /// The gigabytes (2^30 bytes), rounded to two decimals. Sets the process's numeric locale to "C" for good.
  static double m_ConvertToGB(int64_t bytes);
  /// "3.50GB"
  static std::string convertToString(double gigabytes);
  /// The order of year, month and day in dates: "YMD", "DMY" or "MDY".
  static const char* m_GetDateFormat();

 private:
  CUtils() = default;

  std::atomic<char*> m_launchFrom{nullptr};
  bool m_multitasking = false;
  std::atomic<bool> m_exitOnPause{false};
};

}  // namespace QUVA
