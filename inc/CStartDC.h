#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "CScreen.h"
#include "CScreenJob.h"
#include "QUVA_Records.h"

namespace QUVA {

/// The scan: starts an automatic diagnosis, shows the diagnosis categories at a pace of its own while the results come,
/// has the device optimised on the way, and opens the issues list. It is not on the return stack, and Back is blocked
/// while it runs.
/// Thread rule: main loop thread, but for the rows, which any thread may set and ask for.
class CStartDC {
 public:
  /// Created on first use, never destroyed.
  static CStartDC* Instance();

  CStartDC(const CStartDC&) = delete;
  CStartDC& operator=(const CStartDC&) = delete;

  // ---- the screen

  void m_StartDC();
  /// Deletes its widgets, cancels what runs and lets Back through again.
  void m_CleanObjects();
  /// The same, and forgets the rows.
  void m_ClearStartDCScreen();
  void m_HighContrastChangeCB();
  /// A timer's callback: speaks how far the scan is.
  static Eina_Bool m_SetVoiceGuideText(void* self);

  /// Plays the scan in `frames` frames. The worker's routine; it blocks for the optimisation as well.
  void m_AnimationStart(const CScreenJob::Control& control, const CWidget& image, const CWidget& text, int frames);
  /// Shows the categories of a step of the scan, 0 to 9: the one that is running and up to two before it.
  void m_AddInDCItemGenList(int step);
  /// Whether the set has a tuner.
  bool m_CheckIfDiagnoseBroadcastVisible();

  // ---- the results

  /// Forgets the rows and starts an automatic diagnosis.
  void m_GetDiagResults();
  /// Takes its rows, on the engine's thread.
  void m_DiagResCallback(std::vector<MapToDBTable> rows);

  bool m_IsResultReceived() const { return m_isResultReceived; }
  std::vector<MapToDBTable> m_GetRows() const;
  /// Calls on the main loop when a scan is over that found issues, however late.
  void ConnectFoundCB(std::function<void(const std::vector<MapToDBTable>& rows)> slot);
  /// Calls on the main loop when a scan could not be started; its widgets are gone then.
  void ConnectFailedCB(std::function<void()> slot);

 private:
  struct Signals;

  CStartDC();

  void m_BuildBody();
  void m_EnlargeChangeCB();
  void m_FitFrame();
  void m_ShowCategoriesAnew();
  void m_StartVoiceGuide();
  void m_StopVoiceGuide();
  std::vector<const char*> m_VisibleCategories();
  void m_AddCategoryRow(const char* sid, bool done);
  void m_ShowFrame(const CWidget& image, const CWidget& text, int frame, int percent);
  void m_ShowAllDone();
  void m_OptimizeOnce();
  void m_WaitForResults();
  static Eina_Bool m_LookForResults(void* self);
  void m_OpenIssues();
  void m_TellFound();

  std::atomic<bool> m_isResultReceived{false};
  mutable std::mutex m_rowsMutex;
  std::vector<MapToDBTable> m_rows;
  const std::unique_ptr<Signals> m_signals;

  CScreen m_screen{[this] { m_StartVoiceGuide(); }};
  CWidget m_progressImage;
  CWidget m_percentText;
  CWidget m_lower;  ///< the place of the frame that the categories are in
  CWidget m_frame;
  CWidget m_categoryList;
  CWidget m_currentCategory;  ///< the texts of the last row
  CWidget m_currentStatus;
  CScreenJob m_job;
  Ecore_Timer* m_voiceTimer = nullptr;
  Ecore_Timer* m_resultTimer = nullptr;
  Ecore_Event_Handler* m_enlargeHandler = nullptr;
  int m_waitRounds = 0;
  std::vector<const char*> m_categories;  ///< of the steps
  int m_step = 0;
  int m_framesShown = 0;
  bool m_isAllDone = false;  ///< the last category, too
  std::atomic<int> m_percent{0};
  bool m_isOptimized = false;  ///< the worker's
};

}  // namespace QUVA
