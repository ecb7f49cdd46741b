#include "ErrorReportSender.h"

#include <algorithm>
#include <boost/signals2/signal.hpp>
#include <thread>
#include <utility>

#include "QUVA_KPISender.h"
#include "Texts.h"
#include "VexiloLog.h"
#include "set_paths.h"

namespace QUVA {

namespace {

constexpr char kKpiItem[] = "ErrorReport";
constexpr std::chrono::seconds kLongestWait{60};  // for the reports of a press of "Send"; each takes a few seconds
constexpr std::chrono::seconds kLongestEnd{3};
constexpr std::chrono::milliseconds kEndStep{5};

}  // namespace

struct ErrorReportSender::Signal : boost::signals2::signal<void()> {};

ErrorReportSender::ErrorReportSender() : m_sentChanged(std::make_unique<Signal>()) {}

ErrorReportSender& ErrorReportSender::Instance() {
  static auto* instance = new ErrorReportSender;
  return *instance;
}

bool ErrorReportSender::Toggle(int row) {
  if (row < 0 || row >= static_cast<int>(kErrorCategories.size())) {
    VEXILO_LOGE("no error category %d", row);
    return false;
  }
  std::lock_guard lock(m_mutex);
  if (m_ticked.erase(row) > 0) return false;
  m_ticked.emplace(row, kErrorCategories[static_cast<size_t>(row)]);
  return true;
}

bool ErrorReportSender::IsAnyTicked() {
  std::lock_guard lock(m_mutex);
  VEXILO_LOGI("map siz is %zu", m_ticked.size());
  return !m_ticked.empty();
}

void ErrorReportSender::UntickAll() {
  std::lock_guard lock(m_mutex);
  m_ticked.clear();
}

// ---- sending

void ErrorReportSender::HandOver() {
  std::lock_guard lock(m_mutex);
  m_handedOver.push_back({++m_send, std::exchange(m_ticked, {})});
  m_sent = {{}, {}, true};
}

bool ErrorReportSender::IsAnyHandedOver() {
  std::lock_guard lock(m_mutex);
  return !m_handedOver.empty();
}

void ErrorReportSender::Send() {
  ++m_sending;
  LookForCollector();
  while (const std::optional<HandedOver> sent = m_takeHandedOver()) {
    VEXILO_LOGI("size of map is %zu", sent->categories.size());
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    for (const auto& [row, category] : sent->categories) {
      QUVA_KPISender::GetInstance()->SendVexiloKPI(kKpiItem, category.kpiValue);
      ReportRequest request = LeaveReportTrigger(set_paths::kReportTriggers, category.triggerFile);
      VEXILO_LOGI("Send NDF to KOV for : %s and QUVA KPI : %s", category.triggerFile, category.kpiValue);
      std::lock_guard lock(m_mutex);
      m_asked.push_back({sent->send, row, deadline, std::move(request)});
    }
  }
  --m_sending;
}

void ErrorReportSender::AwaitSend() {
  const auto end = std::chrono::steady_clock::now() + kLongestEnd;
  while (m_sending > 0 && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(kEndStep);
}

std::optional<ErrorReportSender::HandedOver> ErrorReportSender::m_takeHandedOver() {
  std::lock_guard lock(m_mutex);
  if (m_handedOver.empty()) return std::nullopt;
  HandedOver first = std::move(m_handedOver.front());
  m_handedOver.pop_front();
  return first;
}

void ErrorReportSender::GiveUp() {
  while (const std::optional<HandedOver> lost = m_takeHandedOver())
    for (const auto& [row, category] : lost->categories) TakeOutcome({lost->send, row, {}, {}}, {"", "no worker"});
}

// ---- what becomes of the reports

std::optional<ErrorReportSender::Asked> ErrorReportSender::TakeAsked() {
  std::lock_guard lock(m_mutex);
  if (m_asked.empty()) return std::nullopt;
  Asked first = std::move(m_asked.front());
  m_asked.pop_front();
  return first;
}

bool ErrorReportSender::IsAnyAsked() {
  std::lock_guard lock(m_mutex);
  return !m_asked.empty();
}

ReportOutcome ErrorReportSender::Await(const Asked& asked, const std::function<bool()>& isCancelled) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(asked.deadline - std::chrono::steady_clock::now());
  return AwaitReport(asked.request, std::max(left, std::chrono::milliseconds(0)), isCancelled);
}

void ErrorReportSender::TakeOutcome(const Asked& asked, const ReportOutcome& outcome) {
  const bool isOfLast = asked.send == m_send;
  const char* const trigger = kErrorCategories[static_cast<size_t>(asked.row)].triggerFile;
  if (!outcome.problem.empty()) VEXILO_LOGE("the report of %s: %s", trigger, outcome.problem.c_str());
  if (!outcome.report.empty()) {
    if (isOfLast) m_sent.reports.push_back(outcome.report);
  } else {
    if (isOfLast) m_sent.failed.insert(asked.row);
    m_failures.insert(asked.row);
  }
  (*m_sentChanged)();
}

void ErrorReportSender::ConnectSentChangeCB(std::function<void()> slot) {
  m_sentChanged->connect(slot);
}

void ErrorReportSender::SetWaiting(bool isWaiting) {
  m_sent.isWaiting = isWaiting;
  (*m_sentChanged)();
}

void ErrorReportSender::ForgetFailures(const std::set<int>& told) {
  for (const int row : told) m_failures.erase(row);
}

std::string ErrorReportSender::NamesOf(const std::set<int>& rows) {
  std::string names;
  for (const int row : rows)
    names += (names.empty() ? "" : ", ") + GetText(kErrorCategories[static_cast<size_t>(row)].labelSid);
  return names;
}

}  // namespace QUVA
