#pragma once

#include <array>
#include <map>
#include <mutex>
#include <string>

#include "CPlainScreen.h"

namespace QUVA {

/// What a viewer can report. The row number in kErrorCategories is its identity.
struct TSErrorCategory {
  const char* labelSid;     ///< message id of its name
  const char* triggerFile;  ///< the log collector knows the category by this name
  const char* kpiValue;     ///< status of the usage event
};

inline constexpr std::array<TSErrorCategory, 9> kErrorCategories = {{
    {"COM_SID_SCREEN_KR_DUALVIEW", "SCREEN-QUVAKOV.log", "SCREEN"},
    {"COM_SID_SOUND", "SOUND-QUVAKOV.log", "SOUND"},
    {"COM_SID_NETWORK_INTERNET", "NETWORK-QUVAKOV.log", "NETWORK"},
    {"COM_SID_POWER", "POWER-QUVAKOV.log", "POWER"},
    {"COM_SID_APPS_HOME_DECK", "APP-QUVAKOV.log", "APP"},
    {"COM_SID_EXTERNAL_DEVICE", "EXTDEVICE-QUVAKOV.log", "EXTDEVICE"},
    {"TV_SID_VEXILO_CBMAY_BROADCAST_SIGNAL", "BROADCASTSIGNAL-QUVAKOV.log", "BROADCASTSIGNAL"},
    {"COM_LFD_REMOTE_CONTROL", "REMOTECONTROL-QUVAKOV.log", "REMOTECONTROL"},
    {"COM_SID_COUNTRY_OTHERS", "OTHER-QUVAKOV.log", "OTHER"},
}};

/// The error report: so far its title, which categories are ticked, and how they are handed to the log collector.
/// Thread rule: main loop thread for the screen; any thread for the rest. What blocks says so.
class CErrorReport {
 public:
  /// Created on first use, never destroyed.
  static CErrorReport* Instance();

  CErrorReport(const CErrorReport&) = delete;
  CErrorReport& operator=(const CErrorReport&) = delete;

  void m_CreateErrorReport();
  void m_HideErrorReportScreen();
  void m_ShowScreenPostReturn();

  /// Ticks the category of a row of the table, or unticks it; whether it is ticked now. A row that is none stays
  /// unticked.
  bool m_ToggleCategory(int row);
  bool m_CheckIfAnyCheckboxIsSelected();
  void m_UntickAll();

  /// Records a usage event and asks for a report for each ticked category, in the order of the table. What is ticked
  /// when it begins counts. Blocks: a worker's routine. Without a screen it logs that and does nothing.
  static void m_SendBtnBackendCall(CErrorReport* screen);

 private:
  CErrorReport() = default;

  /// Asks the log collector for one report. A failure is only logged.
  static void m_SendErrorTypeNDF(const std::string& fileName);

  std::mutex m_tickedMutex;
  std::map<int, TSErrorCategory> m_ticked;  ///< by row, hence in the order of the table
  CPlainScreen m_screen;
};

}  // namespace QUVA
