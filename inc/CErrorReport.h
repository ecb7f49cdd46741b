#pragma once

#include <array>
#include <string>

#include "CScreen.h"
#include "CScreenJob.h"
#include "ErrorReportSender.h"

namespace QUVA {

/// The error report: the viewer ticks what gave trouble, and the log collector is asked for a report of each, which
/// ErrorReportSender does on workers of this screen. Thread rule: main loop thread, but for m_SendBtnBackendCall() and
/// m_SendErrorTypeNDF(), which any thread may call.
class CErrorReport {
 public:
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

  bool m_CheckIfAnyCheckboxIsSelected() { return m_sender.IsAnyTicked(); }

  // ---- sending

  /// The worker's routine: ErrorReportSender::Send(). Without a screen it logs that and does nothing.
  static void m_SendBtnBackendCall(CErrorReport* screen);
  /// Asks the log collector for one report.
  static ReportRequest m_SendErrorTypeNDF(const std::string& fileName);
  /// Before the process ends: does what of that is not done yet, and waits for what a worker does, three seconds at
  /// most.
  void m_FinishSending();
  void end_function_ER();
  void error_function_ER();
  /// Whether more is to be known, of whatever was sent.
  bool m_IsWaiting();

 private:
  CErrorReport();

  void m_CreateMainBanner();
  void m_CreateBannerInfo();
  void m_CreateCheckBoxes(Evas_Object* column);
  void m_CreateButtonRow(Evas_Object* column);
  void m_CreateSideInfo(Evas_Object* row);
  void m_SetNextFocusForLastRow();
  void m_ShowWhetherSendable();
  void m_ShowWhetherCollected();

  void m_StartSending();
  void m_AwaitNext();

  ErrorReportSender& m_sender = ErrorReportSender::Instance();
  CScreen m_screen{[this] { m_SetVoiceGuideText(); }};
  std::array<CWidget, kErrorCategories.size()> m_boxes;
  CWidget m_sendButton;
  CWidget m_cancelButton;
  CWidget m_hint;
  CWidget m_sideIcon;
  CWidget m_notice;
  CScreenJob m_collectorJob;
  CScreenJob m_sendJob;
  CScreenJob m_awaitJob;
};

}  // namespace QUVA
