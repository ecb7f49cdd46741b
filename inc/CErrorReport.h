#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CScreen.h"
#include "CScreenJob.h"
#include "ReportTrigger.h"

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

/// The colour of the error report's texts.
inline constexpr char kReportTextColor[] = "#FFFFFFAF";

/// The error report: the viewer ticks what gave trouble, and the log collector is asked for a report of each. What
/// became of those that were asked for last is known here. Thread rule: main loop thread, but for
/// m_SendBtnBackendCall() and the set of ticked categories, which any thread may ask for.
class CErrorReport {
 public:
  using Signal = boost::signals2::signal<void()>;

  /// Created on first use, never destroyed.
  static CErrorReport* Instance();

  CErrorReport(const CErrorReport&) = delete;
  CErrorReport& operator=(const CErrorReport&) = delete;

  // ---- the screen (CErrorReportScreen.cpp)

  void m_CreateErrorReport();
  void m_HideErrorReportScreen();
  void m_ShowScreenPostReturn();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_SetVoiceGuideText();

  void m_OnItemPressed(int row);
  void m_OnItemFocused(int row);
  void m_SendBtnBtnClickCall();
  void m_CancelBtnBtnClickCall();

  // ---- the categories

  /// Ticks the category of a row of the table, or unticks it; whether it is ticked now. A row that is none stays
  /// unticked.
  bool m_ToggleCategory(int row);
  bool m_CheckIfAnyCheckboxIsSelected();
  void m_UntickAll();

  // ---- sending

  /// What is ticked now is to be sent; nothing is ticked afterwards.
  void m_HandOver();
  /// Records a usage event and asks for a report for each category that was handed over, in the order of the table.
  /// Blocks: a worker's routine. Without a screen it logs that and does nothing.
  static void m_SendBtnBackendCall(CErrorReport* screen);
  /// Before the process ends: does what of that is not done yet, and waits for what a worker does, three seconds at
  /// most.
  void m_FinishSending();
  void end_function_ER();
  void error_function_ER();

  /// What became of the categories that were sent last.
  struct TSSent {
    std::vector<std::string> reports;  ///< file names in set_paths::kReportsDir, in the order of their making
    std::set<int> failed;              ///< rows of which there is no report so far, nor will there be any news
    bool isWaiting = false;            ///< for some it is not known yet
  };
  const TSSent& m_GetSent() const { return m_sent; }
  /// The names of the categories, in the menu language, in the order of the table.
  static std::string m_NamesOf(const std::set<int>& rows);

  /// Rows of which there is no report so far, also of what was sent before, until the viewer has been told of them.
  const std::set<int>& m_GetFailures() const { return m_failures; }
  void m_ForgetFailures(const std::set<int>& told);
  /// Whether more is to be known, of whatever was sent.
  bool m_IsWaiting();
  /// Calls on the main loop whenever what became of one is known.
  void ConnectSentChangeCB(const Signal::slot_type& slot) { m_sentChanged.connect(slot); }

 private:
  using Ticked = std::map<int, TSErrorCategory>;  ///< by row, hence in the order of the table
  struct HandedOver {
    int send;  ///< number of the press of "Send"
    Ticked categories;
  };
  struct Asked {
    int send;
    int row;
    std::chrono::steady_clock::time_point deadline;  ///< of the news
    ReportRequest request;
  };

  CErrorReport();

  void m_CreateMainBanner();
  void m_CreateBannerInfo();
  void m_CreateCheckBoxes(Evas_Object* column);
  void m_CreateButtonRow(Evas_Object* column);
  void m_CreateSideInfo(Evas_Object* row);
  void m_SetNextFocusForLastRow();
  void m_ShowWhetherSendable();

  /// Asks the log collector for one report. A failure is only logged.
  static ReportRequest m_SendErrorTypeNDF(const std::string& fileName);
  void m_StartSending();
  std::optional<HandedOver> m_TakeHandedOver();
  std::optional<Asked> m_TakeAsked();
  void m_AwaitNext();
  void m_TakeOutcome(const Asked& asked, const ReportOutcome& outcome);

  std::mutex m_mutex;  ///< guards the three below
  Ticked m_ticked;
  std::deque<HandedOver> m_handedOver;
  std::deque<Asked> m_asked;      ///< what became of it is not known
  std::atomic<int> m_sending{0};  ///< threads that do what was handed over
  int m_send = 0;
  TSSent m_sent;
  std::set<int> m_failures;
  Signal m_sentChanged;
  CScreen m_screen;
  std::array<CWidget, kErrorCategories.size()> m_boxes;
  CWidget m_sendButton;
  CWidget m_cancelButton;
  CWidget m_hint;
  CScreenJob m_sendJob;
  CScreenJob m_awaitJob;
};

}  // namespace QUVA
