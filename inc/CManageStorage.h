#pragma once

#include <string>
#include <vector>

#include "CGetData.h"
#include "CScreen.h"
#include "CScreenJob.h"
#include "StorageSummary.h"

namespace QUVA {

/// The storage manager: how the storage is used, and the removable applications with their sizes, to be looked at one
/// by one, or selected and deleted.
/// Thread rule: main loop thread, but for the worker bodies, which touch no widget.
class CManageStorage {
 public:
  /// Created on first use, never destroyed.
  static CManageStorage* Instance();

  CManageStorage(const CManageStorage&) = delete;
  CManageStorage& operator=(const CManageStorage&) = delete;

  // ---- the screen

  void m_CreateManageStorageScreen();
  void m_ShowManageStorage();
  void m_HideManageStorage();
  void m_ShowScreenPostReturn();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_EnlargeChangeCB();
  void m_SetVoiceGuideText();
  /// Says what the screen shows, once it is known.
  void m_FirstTtsRead();

  // ---- gathering sizes

  /// Shows that the list is being made, and has it made by a worker. Rows keep their selection and the focus.
  void m_ShowLoadingAndApplist();
  void m_FillDataForApplist(const CScreenJob::Control& control);
  void m_FillData_end_function();
  void m_FillData_error_function();
  /// Refreshes the sizes of the storage, and then the summary.
  void m_UpdateProgressBarThread();
  void m_UpdateProgressBarValues(const CScreenJob::Control& control);
  void m_UpdateProgBar_end_function();
  void m_UpdateProgBar_error_function();
  /// Whose worker it is; null when none runs. Hiding the screen cancels it.
  void SetHandlerProgBarUpdateThread(CScreenJob* handler) { m_progBarUpdateThread = handler; }
  CScreenJob* GetProgBarUpdateHandler() const { return m_progBarUpdateThread; }

  // ---- the summary

  /// Builds the usage bar anew, at its full value, for a value of the enlarge setting.
  void m_SetProgressBar(int enlarge);
  /// Computes and shows the summary, from the sizes that the device data service has.
  void m_SetUsedAvailableValues();

  // ---- the list

  /// Replaces the size of the row that was activated last.
  void m_UpdateAppsSize(const std::string& size);
  /// Fills a row; `known`: the size is the whole of it.
  void m_SetNameAndSizeOfApps(int row, const std::string& name, const std::string& size, bool known);
  void m_ShowCheckbox(int row);
  /// Takes the row's selection back.
  void m_ResetStructValues(int row);
  void m_SetSelectedIndex(int index) { m_selectedIndex = index; }
  int m_GetSelectedIndex() const { return m_selectedIndex; }
  void m_ParentBtnFocusCall(int row);

  // ---- the buttons

  void m_ViewDetailsBtnClickCall();
  void m_ViewDetailsBtnFocus();
  void m_DeleteBtnClickCall();
  void m_DeleteBtnFocus();
  void m_DeSelectBtnClickCall();
  void m_DeSelectBtnFocus();

 private:
  CManageStorage();

  struct RowText {
    std::string name;
    std::string size;
  };
  struct LegendItem;

  bool m_IsRow(int row) const { return row >= 0 && row < static_cast<int>(m_apps.size()); }
  app_list_struct& m_App(int row) { return m_apps[static_cast<size_t>(row)]; }
  bool m_IsNominal() const { return m_localSet == kNominalLocalSet; }
  void m_BuildBody();
  void m_BuildPanel(Evas_Object* parent);
  void m_BuildNominalBar();
  void m_BuildLegend();
  void m_BuildButton(Evas_Object* parent, CWidget& button, const char* sid, void (CManageStorage::*clicked)(),
                     void (CManageStorage::*focused)());
  void m_BuildList(Evas_Object* parent);
  void m_BuildEmptyText(Evas_Object* parent);
  void m_TakeApps();
  void m_FillRow(int row);
  std::string m_TextOfRow(int row, const std::string& part);
  std::string m_SpeechOfRow();
  void m_OnRowSelected(int row);
  void m_ShowSelection();
  int m_RowOf(const std::string& appId) const;
  int m_RowForDetails() const;
  void m_OnDetailsClosed();
  void m_OnDeleted(const std::string& message);

  std::vector<app_list_struct> m_apps;  ///< the rows, the largest first
  std::vector<RowText> m_texts;
  int m_selectedIndex = -1;
  std::string m_focusedApp;  ///< its id, to find its row again
  int m_focusedRow = 0;
  bool m_isFirstRead = false;  ///< the screen reader has not yet said what there is
  std::string m_localSet;
  StorageSummary m_summary;
  CScreen m_screen{[this] { m_SetVoiceGuideText(); }};
  CWidget m_barArea;
  CWidget m_bar;
  CWidget m_usedText;
  CWidget m_availableText;
  CWidget m_systemText;
  CWidget m_list;
  CWidget m_viewDetails;
  CWidget m_delete;
  CWidget m_deselect;
  CScreenJob m_listJob;
  CScreenJob m_sizesJob;
  CScreenJob* m_progBarUpdateThread = nullptr;
};

}  // namespace QUVA
