#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CScreen.h"
#include "CScreenJob.h"
#include "QUVA_Records.h"
#include "SolutionPlan.h"

namespace QUVA {

/// The outcome of a scan, or the remaining issues: the device's state and the list of issues, each of which opens a
/// popup with its solution. An issue that is solved leaves the list and the stored remaining problems; one whose
/// solution has opened another application stays, marked, until it is found to be gone; so does one whose solution
/// freed memory or storage, until the engine has looked again. What such a solution would end or remove that somebody
/// may miss is asked about first. Thread rule: main loop thread.
class CStartDCIssues {
 public:
  /// Created on first use, never destroyed.
  static CStartDCIssues* Instance();

  CStartDCIssues(const CStartDCIssues&) = delete;
  CStartDCIssues& operator=(const CStartDCIssues&) = delete;

  // ---- the screen

  void m_StartDCIssues(std::vector<MapToDBTable> rows);
  void m_HideStartDCIssue();
  void m_ShowScreenPostReturn();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_SetVoiceGuideText();
  /// What the screen reader says of row `index`.
  std::string m_SetVoiceGuideOnIssue(int index);
  /// What the screen reader says of the Done button.
  std::string m_VoiceGuideOnDone();
  void m_DoneBtnClickCall();

  // ---- the list

  /// The list or, without rows, what to do then; and the Done button.
  void m_CreateGenlistOrMsg();
  void m_CreateGenList();
  /// The text of a part of row `index`: "MainText" the issue, "SubText1" its date. Empty for others.
  std::string m_item_label_get(int index, const std::string& part);
  /// The date of row `index` in the user's order; empty when no real time is known.
  void GetDateInFormat(int index, char (&out)[1024]);
  /// Takes a row away that has been handled. Nothing happens for an index that is none.
  void m_RemoveItemFromIndex(int index);
  /// Calls on the main loop when an issue has been solved.
  void ConnectSolvedCB(const std::function<void(const std::string& issueCode)>& slot);

  // ---- the popup and the toast

  void m_CreateIssueDetailsPopUp(int index);
  /// Asks whether what the solution of row `index` would take away may go.
  void m_CreateQuestionPopUp(int index, const SolutionPlan& plan);
  void m_IssueDetailBtn_1_Click();
  void m_IssueDetailBtn_2_Click();
  void m_ShowToastMsg(int index);
  void m_HandleReturnOnToast();
  void m_ShowScreenPostToastReturn();
  void m_AutoTimeOutToast();

 private:
  struct SolvedSignal;

  CStartDCIssues();

  bool m_IsRow(int index) const { return index >= 0 && index < static_cast<int>(m_rows.size()); }
  void m_BuildState(Evas_Object* parent);
  void m_BuildDone();
  void m_AddPopupButtons(const MapToDBTable& row);
  void m_ClosePopup();
  void m_TellSubject(const MapToDBTable& row);
  void m_Choose(const char* button);
  void m_Handle(int index, bool apply);
  void m_HandleNext();
  void m_EndWork();
  void m_EndHandling(int outcome);
  void m_AskWhenFree();
  void m_CloseQuestion();
  void m_Withdraw();
  void m_TellOutcome(const std::string& issueCode, int outcome);
  void m_TellEffect(int row);
  std::string m_Heading() const;
  std::string m_NoIssuesText() const;
  void m_TellState();
  void m_TakeAway(const std::string& issueCode);
  void m_LookForGoneNowAndThen();
  void m_StopLookingForGone();
  void m_LookForGone();
  void m_TellStillThere(const std::string& issueCode);
  bool m_IsWaitedFor(const MapToDBTable& row) const;
  std::string m_WaitingText(const MapToDBTable& row) const;
  int m_RowOf(const std::string& issueCode) const;
  bool m_IsBeingHandled(const std::string& issueCode) const;
  void m_ShowToastText(const std::string& text, double seconds = CScreen::kToastTime);

  enum class Step { kPlan, kAsk, kApply };
  /// What the viewer decided on an issue.
  struct Decision {
    std::string issueCode;
    bool apply;
    Step step = Step::kPlan;
    SolutionPlan plan{};
    SolutionEffect effect{};
    int outcome = 0;
  };
  /// An issue of which it shows later whether it is gone.
  struct Waiting {
    std::string since;                          ///< when the issue was found
    bool opened;                                ///< another application was opened; else the engine looks again
    std::chrono::steady_clock::time_point end;  ///< by then it has
    bool isStillThere = false;                  ///< as the engine says
  };

  static void m_Work(Decision& decision);

  std::vector<MapToDBTable> m_rows;
  const std::unique_ptr<SolvedSignal> m_solved;
  int m_index = -1;  ///< the row whose popup is, or was last, open
  CScreen m_screen{[this] { m_SetVoiceGuideText(); }};
  CWidget m_heading;
  CWidget m_stateImage;
  CWidget m_verdict;
  CWidget m_listArea;
  CWidget m_list;
  CWidget m_done;
  CWidget m_popup;
  std::string m_popupIssue;  ///< whose details it shows; empty for another popup
  int m_deviceState = 0;
  bool m_isAnySolved = false;  ///< since the screen was opened
  bool m_isToastGone = false;  ///< by Back, just now
  CScreenJob m_animationJob;
  CScreenJob m_job;
  CScreenJob m_lookJob;
  CScreenJob m_subjectJob;
  Ecore_Timer* m_lookTimer = nullptr;
  std::deque<Decision> m_decisions;  ///< the first one is being carried out
  bool m_isAgreed = false;           ///< the question that is open, or was last
  std::map<std::string, Waiting> m_waiting;
};

}  // namespace QUVA
