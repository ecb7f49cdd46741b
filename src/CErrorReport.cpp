// The error report's workers, which do what ErrorReportSender knows.

#include "CErrorReport.h"

#include <memory>
#include <optional>

#include "VexiloLog.h"
#include "set_paths.h"

namespace QUVA {

CErrorReport* CErrorReport::Instance() {
  static auto* instance = new CErrorReport;
  return instance;
}

void CErrorReport::m_StartSending() {
  if (m_sendJob.m_IsRunning()) return;  // at its end it looks for more
  m_sendJob.m_Start([this](const CScreenJob::Control&) { m_SendBtnBackendCall(this); }, [this] { end_function_ER(); },
                    [this] { error_function_ER(); });
}

void CErrorReport::m_SendBtnBackendCall(CErrorReport* screen) {
  VEXILO_LOGI("Send Btn backend call");
  if (screen)
    screen->m_sender.Send();
  else
    VEXILO_LOGE("pThis is NULL");
}

void CErrorReport::m_FinishSending() {
  if (m_sender.IsAnyHandedOver()) m_SendBtnBackendCall(this);
  m_sender.AwaitSend();
}

ReportRequest CErrorReport::m_SendErrorTypeNDF(const std::string& fileName) {
  return LeaveReportTrigger(set_paths::kReportTriggers, fileName);
}

void CErrorReport::end_function_ER() {
  VEXILO_LOGI("end for KOV send ");
  if (m_sender.IsAnyHandedOver()) m_StartSending();
  m_AwaitNext();
  m_sender.SetWaiting(m_IsWaiting());
}

// No worker could be had.
void CErrorReport::error_function_ER() {
  VEXILO_LOGI("Error_Funtion for KOV send  called");
  m_sender.GiveUp();
  m_AwaitNext();
}

// One after the other.
void CErrorReport::m_AwaitNext() {
  if (m_awaitJob.m_IsRunning()) return;
  const std::optional<ErrorReportSender::Asked> next = m_sender.TakeAsked();
  if (!next) return m_sender.SetWaiting(m_sendJob.m_IsRunning());
  const auto outcome = std::make_shared<ReportOutcome>();
  const auto take = [this, next, outcome] {
    m_sender.TakeOutcome(*next, *outcome);
    m_AwaitNext();
  };
  m_awaitJob.m_Start(
      [next, outcome](const CScreenJob::Control& control) {
        *outcome = ErrorReportSender::Await(*next, [&control] { return control.m_IsCancelled(); });
      },
      take,
      [outcome, take] {
        if (outcome->report.empty()) outcome->problem = "no worker to wait for it";
        take();
      });
}

bool CErrorReport::m_IsWaiting() {
  return m_sendJob.m_IsRunning() || m_awaitJob.m_IsRunning() || m_sender.IsAnyAsked();
}

}  // namespace QUVA
