#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ReportTrigger.h"
#include "set_care.h"

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

/// Message id of what is told where nothing collects the records.
inline constexpr char kNoCollectorText[] = "TV_SID_VEXILO_NO_COLLECTOR";

/// What is behind the error report: the ticked categories, asking the log collector for a report of each, and what has
/// become of those. The screen gives it its workers. Thread rule: any thread, but for what has become of the reports,
/// which belongs to the main thread.
class ErrorReportSender {
 public:
  /// Never destroyed.
  static ErrorReportSender& Instance();

  ErrorReportSender(const ErrorReportSender&) = delete;
  ErrorReportSender& operator=(const ErrorReportSender&) = delete;

  // ---- the categories

  /// Ticks the category of a row of the table, or unticks it; whether it is ticked now. A row that is none stays
  /// unticked.
  bool Toggle(int row);
  bool IsAnyTicked();
  void UntickAll();

  // ---- sending

  /// Looks whether anything collects the records here, for HasCollector(). Blocks; not the main thread.
  void LookForCollector() { m_hasCollector = set_care::HasDaemon(); }
  /// As it was when that, or Send(), last looked; true before.
  bool HasCollector() const { return m_hasCollector; }
  /// What is ticked now is to be sent; nothing is ticked afterwards. Main thread.
  void HandOver();
  /// Whether something that was handed over has not been taken by Send().
  bool IsAnyHandedOver();
  /// Records a usage event and asks for a report for each category that was handed over, in the order of the table.
  /// Blocks.
  void Send();
  /// Waits until no thread is in Send(), three seconds at most.
  void AwaitSend();
  /// Nobody can send what was handed over: there will be no report of it. Main thread.
  void GiveUp();

  // ---- what becomes of the reports

  struct Asked {
    int send;  ///< number of the press of "Send"
    int row;
    std::chrono::steady_clock::time_point deadline;  ///< of the news
    ReportRequest request;
  };
  /// The next one of which nobody awaits the news.
  std::optional<Asked> TakeAsked();
  bool IsAnyAsked();
  /// Blocks until the news of it.
  static ReportOutcome Await(const Asked& asked, const std::function<bool()>& isCancelled);
  void TakeOutcome(const Asked& asked, const ReportOutcome& outcome);

  /// What became of the categories that were sent last.
  struct TSSent {
    std::vector<std::string> reports;  ///< file names in set_paths::kReportsDir, in the order of their making
    std::set<int> failed;              ///< rows of which there is no report so far, nor will there be any news
    bool isWaiting = false;            ///< for some it is not known yet
  };
  const TSSent& GetSent() const { return m_sent; }
  void SetWaiting(bool isWaiting);
  /// Rows of which there is no report so far, also of what was sent before, until the viewer has been told of them.
  const std::set<int>& GetFailures() const { return m_failures; }
  void ForgetFailures(const std::set<int>& told);
  /// Calls on the main thread whenever what became of one is known.
  void ConnectSentChangeCB(std::function<void()> slot);
  /// The names of the categories, in the menu language, in the order of the table.
  static std::string NamesOf(const std::set<int>& rows);

 private:
  using Ticked = std::map<int, TSErrorCategory>;  ///< by row, hence in the order of the table
  struct HandedOver {
    int send;
    Ticked categories;
  };

  struct Signal;

  ErrorReportSender();

  std::optional<HandedOver> m_takeHandedOver();

  std::mutex m_mutex;  ///< guards the three below
  Ticked m_ticked;
  std::deque<HandedOver> m_handedOver;
  std::deque<Asked> m_asked;      ///< what became of it is not known
  std::atomic<int> m_sending{0};  ///< threads that do what was handed over
  std::atomic<bool> m_hasCollector{true};
  int m_send = 0;
  TSSent m_sent;
  std::set<int> m_failures;
  const std::unique_ptr<Signal> m_sentChanged;
};

}  // namespace QUVA
