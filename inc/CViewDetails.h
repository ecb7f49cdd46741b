#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "CGetData.h"
#include "CScreen.h"
#include "CScreenJob.h"

namespace QUVA {

/// The popup with the sizes of one application, which clears its cache and its data.
/// Thread rule: main loop thread, but for the workers' bodies, which touch no widget.
class CViewDetails {
 public:
  /// Created on first use, never destroyed.
  static CViewDetails* Instance();

  CViewDetails(const CViewDetails&) = delete;
  CViewDetails& operator=(const CViewDetails&) = delete;

  /// The applications that the popup chooses from, and who hears the new size of the chosen one as a text, and of the
  /// popup's end.
  void m_SetApps(std::vector<app_list_struct> apps, std::function<void(const std::string&)> onSize,
                 std::function<void()> onClosed);

  /// Builds and shows the popup for an application of those; nothing happens for an index that is none. It measures at
  /// once.
  void m_ShowViewDetailsPopup(int index);
  /// Shows the sizes that the device data service has.
  void m_UpdateValues();
  /// The total, as rows of the list show it.
  std::string m_GetTotalAppSize();
  /// All three.
  void m_SetButtonsState(bool disabled);
  void m_HandleReturnOnViewDetailsPopup();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_SetVoiceGuideText();

  // ---- the buttons

  void m_ClearCacheBtnClickCall();
  /// Asks first, as it cannot be undone; not for an application whose data stays all the same.
  void m_ClearDataBtnClickCall();
  void m_CloseBtnClickCall();

  // ---- the workers' bodies and what follows on the main loop

  void m_ClearAppCache_function(const CScreenJob::Control& control, const app_list_struct& app);
  void m_ClearAppCache_end_function();
  void m_ClearAppCache_error_function();
  void m_ClearAppData_function(const CScreenJob::Control& control, const app_list_struct& app);
  void m_ClearAppData_end_function();
  void m_ClearAppData_error_function();

 private:
  CViewDetails();

  struct Sizes {
    long app = 0, data = 0, cache = 0, total = 0;  ///< bytes
  };

  const app_list_struct& m_App() const { return m_apps[static_cast<size_t>(m_index)]; }
  void m_AddValues(Evas_Object* parent);
  void m_AddButtons();
  void m_Measure();
  void m_EndMeasuring();
  using Work = void (CViewDetails::*)(const CScreenJob::Control&, const app_list_struct&);
  using Then = void (CViewDetails::*)();
  void m_StartClearing(Evas_Object* button, Work work, Then end, Then error);
  void m_StartClearingData();
  void m_Clear(const CScreenJob::Control& control, const app_list_struct& app, const char* report,
               const std::function<int()>& clear);
  void m_EndClearing(const char* done, long Sizes::*part);
  bool m_IsMissing() const;
  void m_EndWithoutResult();
  void m_AskToClearData();
  void m_CloseQuestion();
  void m_ShowLoading();
  void m_StopLoading();
  void m_ShowHint(Evas_Object* button);
  std::string m_HintFor(Evas_Object* button);
  void m_Tell(const std::string& message);

  std::vector<app_list_struct> m_apps;
  std::function<void(const std::string&)> m_onSize;
  std::function<void()> m_onClosed;
  int m_index = -1;
  std::atomic<bool> m_isBusy{false};  ///< something is being cleared
  std::atomic<int> m_result{0};       ///< of the last clearing
  bool m_isMeasured = false;
  Sizes m_sizes;
  CWidget m_popup;
  CWidget m_values[4];  ///< application, data, cache, total
  CWidget m_hint;
  std::string m_message;  ///< what became of the last operation, in place of the hint
  CWidget m_pressed;      ///< the button of that operation
  CWidget m_clearCache;
  CWidget m_clearData;
  CWidget m_close;
  CWidget m_question;
  CWidget m_loading;
  CScreenJob m_job;
};

}  // namespace QUVA
