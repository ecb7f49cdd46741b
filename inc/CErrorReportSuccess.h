#pragma once

#include "CScreen.h"

namespace QUVA {

/// The colour of the error report's texts.
inline constexpr char kReportTextColor[] = "#FFFFFFAF";

/// Confirms that an error report was handed over, in the place of the screen that sent it, and tells where it lies.
/// Thread rule: main loop thread.
class CErrorReportSuccess {
 public:
  /// Created on first use, never destroyed.
  static CErrorReportSuccess* Instance();

  CErrorReportSuccess(const CErrorReportSuccess&) = delete;
  CErrorReportSuccess& operator=(const CErrorReportSuccess&) = delete;

  void m_CreateSuccessErrorReport();
  void m_HideSuccessErrorReportScreen();
  void m_ShowScreenPostReturn();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_SetVoiceGuideText();
  void m_CloseBtnBtnClickCall();

 private:
  CErrorReportSuccess();

  void m_CreateMainBanner();
  void m_CreateBannerInfo();
  void m_CreateDummyLayout();
  void m_ShowSent();

  CScreen m_screen{[this] { m_SetVoiceGuideText(); }};
  CWidget m_checkMark;
  CWidget m_banner;
  CWidget m_info;
  CWidget m_sentPlace;
  CWidget m_sentNames;
  CWidget m_sentRest;
  bool m_isTold = false;  ///< all that there is to be known has been said
};

}  // namespace QUVA
