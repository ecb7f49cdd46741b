#include "CErrorReport.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "QUVA_KPISender.h"
#include "VexiloLog.h"
#include "set_paths.h"

namespace QUVA {

namespace {

constexpr char kKpiItem[] = "ErrorReport";
constexpr std::chrono::seconds kLongestWait{60};  // for the reports of a press of "Send"; each takes a few seconds
constexpr std::chrono::seconds kLongestEnd{3};
constexpr std::chrono::milliseconds kEndStep{5};

}  // namespace

CErrorReport* CErrorReport::Instance() {
  static auto* instance = new CErrorReport;
  return instance;
}

bool CErrorReport::m_ToggleCategory(int row) {
  if (row < 0 || row >= static_cast<int>(kErrorCategories.size())) {
    VEXILO_LOGE("no error category %d", row);
    return false;
  }
  std::lock_guard lock(m_mutex);
  if (m_ticked.erase(row) > 0) return false;
  m_ticked.emplace(row, kErrorCategories[static_cast<size_t>(row)]);
  return true;
}

bool CErrorReport::m_CheckIfAnyCheckboxIsSelected() {
  std::lock_guard lock(m_mutex);
  VEXILO_LOGI("map siz is %zu", m_ticked.size());
  return !m_ticked.empty();
}

void CErrorReport::m_UntickAll() {
  std::lock_guard lock(m_mutex);
  m_ticked.clear();
}

void CErrorReport::m_HandOver() {
  std::lock_guard lock(m_mutex);
  m_handedOver.push_back({++m_send, std::exchange(m_ticked, {})});
  m_sent = {{}, {}, true};
}

void CErrorReport::m_StartSending() {
  if (m_sendJob.m_IsRunning()) return;  // at its end it looks for more
  m_sendJob.m_Start([this](const CScreenJob::Control&) { m_SendBtnBackendCall(this); }, [this] { end_function_ER(); },
                    [this] { error_function_ER(); });
}

void CErrorReport::m_SendBtnBackendCall(CErrorReport* screen) {
  VEXILO_LOGI("Send Btn backend call");
  if (!screen) {
    VEXILO_LOGE("pThis is NULL");
    return;
  }
  ++screen->m_sending;
  while (const std::optional<HandedOver> sent = screen->m_TakeHandedOver()) {
    VEXILO_LOGI("size of map is %zu", sent->categories.size());
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    for (const auto& [row, category] : sent->categories) {
      QUVA_KPISender::GetInstance()->SendVexiloKPI(kKpiItem, category.kpiValue);
      ReportRequest request = m_SendErrorTypeNDF(category.triggerFile);
      VEXILO_LOGI("Send NDF to KOV for : %s and QUVA KPI : %s", category.triggerFile, category.kpiValue);
      std::lock_guard lock(screen->m_mutex);
      screen->m_asked.push_back({sent->send, row, deadline, std::move(request)});
    }
  }
  --screen->m_sending;
}

void CErrorReport::m_FinishSending() {
  const bool isMore = [this] {
    std::lock_guard lock(m_mutex);
    return !m_handedOver.empty();
  }();
  if (isMore) m_SendBtnBackendCall(this);
  const auto end = std::chrono::steady_clock::now() + kLongestEnd;
  while (m_sending > 0 && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(kEndStep);
}

ReportRequest CErrorReport::m_SendErrorTypeNDF(const std::string& fileName) {
  return LeaveReportTrigger(set_paths::kReportTriggers, fileName);
}

std::optional<CErrorReport::HandedOver> CErrorReport::m_TakeHandedOver() {
  std::lock_guard lock(m_mutex);
  if (m_handedOver.empty()) return std::nullopt;
  HandedOver first = std::move(m_handedOver.front());
  m_handedOver.pop_front();
  return first;
}

void CErrorReport::end_function_ER() {
  VEXILO_LOGI("end for KOV send ");
  const bool isMore = [this] {
    std::lock_guard lock(m_mutex);
    return !m_handedOver.empty();
  }();
  if (isMore) m_StartSending();
  m_AwaitNext();
}

// No worker could be had.
void CErrorReport::error_function_ER() {
  VEXILO_LOGI("Error_Funtion for KOV send  called");
  while (const std::optional<HandedOver> lost = m_TakeHandedOver())
    for (const auto& [row, category] : lost->categories) m_TakeOutcome({lost->send, row, {}, {}}, {"", "no worker"});
  m_AwaitNext();
}

// ---- what becomes of what was asked for, one after the other

std::optional<CErrorReport::Asked> CErrorReport::m_TakeAsked() {
  std::lock_guard lock(m_mutex);
  if (m_asked.empty()) return std::nullopt;
  Asked first = std::move(m_asked.front());
  m_asked.pop_front();
  return first;
}

void CErrorReport::m_AwaitNext() {
  if (m_awaitJob.m_IsRunning()) return;
  const std::optional<Asked> next = m_TakeAsked();
  if (!next) {
    m_sent.isWaiting = m_sendJob.m_IsRunning();
    return m_sentChanged();
  }
  const auto outcome = std::make_shared<ReportOutcome>();
  const auto take = [this, next, outcome] {
    m_TakeOutcome(*next, *outcome);
    m_AwaitNext();
  };
  m_awaitJob.m_Start(
      [next, outcome](const CScreenJob::Control& control) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(next->deadline - std::chrono::steady_clock::now());
        *outcome = AwaitReport(next->request, std::max(left, std::chrono::milliseconds(0)),
                               [&control] { return control.m_IsCancelled(); });
      },
      take,
      [outcome, take] {
        if (outcome->report.empty()) outcome->problem = "no worker to wait for it";
        take();
      });
}

void CErrorReport::m_TakeOutcome(const Asked& asked, const ReportOutcome& outcome) {
  const bool isOfLast = asked.send == m_send;
  const char* const trigger = kErrorCategories[static_cast<size_t>(asked.row)].triggerFile;
  if (!outcome.problem.empty()) VEXILO_LOGE("the report of %s: %s", trigger, outcome.problem.c_str());
  if (!outcome.report.empty()) {
    if (isOfLast) m_sent.reports.push_back(outcome.report);
  } else {
    if (isOfLast) m_sent.failed.insert(asked.row);
    m_failures.insert(asked.row);
  }
  m_sentChanged();
}

bool CErrorReport::m_IsWaiting() {
  std::lock_guard lock(m_mutex);
  return m_sendJob.m_IsRunning() || m_awaitJob.m_IsRunning() || !m_asked.empty();
}

void CErrorReport::m_ForgetFailures(const std::set<int>& told) {
  for (const int row : told) m_failures.erase(row);
}

std::string CErrorReport::m_NamesOf(const std::set<int>& rows) {
  std::string names;
  for (const int row : rows)
    names += (names.empty() ? "" : ", ") + CUtils::m_GetText(kErrorCategories[static_cast<size_t>(row)].labelSid);
  return names;
}

}  // namespace QUVA
