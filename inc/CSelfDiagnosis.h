#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CScreen.h"

namespace QUVA {

/// The self-diagnosis menu: a card for each test tool of the set, which are applications of their own. The menu-item
/// checkers decide which are shown and which can be chosen.
/// Thread rule: main loop thread.
class CSelfDiagnosis {
 public:
  /// Size of the buffer of getGuideMsg(), in bytes.
  static constexpr size_t kGuideSize = 1024;

  /// Created on first use, never destroyed.
  static CSelfDiagnosis* Instance();

  CSelfDiagnosis(const CSelfDiagnosis&) = delete;
  CSelfDiagnosis& operator=(const CSelfDiagnosis&) = delete;

  // ---- the screen

  /// `registers`: puts it on the return stack, which a screen that is there already does not need. The first focus is
  /// on the card that the launch source names, else on the first.
  void m_CreateSelfDiagnosis(bool registers);
  /// Whether a launch from there is meant for this screen.
  static bool m_IsLaunchSource(std::string_view source);
  void m_HideSelfDiagnosis();
  void m_ShowScreenPostReturn();
  /// Deletes its widgets; m_CreateSelfDiagnosis(false) builds it again.
  void m_ClearSelfDiagnosis();
  void m_CleanObjects();
  void m_HighContrastChangeCB();
  void m_SetVoiceGuideText();

  // ---- the cards

  /// Fills the list of cards: the picture test always, each other tool of the set if its checker wants it shown.
  void m_InsertAppsNameAndIcon();
  void m_ShowAppsGenGrid();
  /// The path of a card's icon; empty for a label that is no tool's.
  static std::string getIconPath(const std::string& labelSid);
  /// Writes what a card is for, ended by a zero byte; cut between characters where it is too long. Empty for a label
  /// that is no tool's.
  static void getGuideMsg(const std::string& labelSid, char (&buffer)[kGuideSize]);
  int m_GetSelectedIndex() const { return m_selectedIndex; }
  void m_SetSelectedIndex(int index) { m_selectedIndex = index; }
  /// Gives the focus to the selected card, when the main loop has nothing else to do.
  void m_SetFocusOnElement();

  /// A card was pressed.
  void m_ParentBtnClickCall(int index);
  void m_onParentBtnFocused(int index);
  /// The focus is about to move by an arrow key, or by a turn of the wheel that counts as `key`.
  void m_OnKeyDown(const char* key, bool isWheel);
  /// Launches the tool of the selected card, or says why it cannot be chosen.
  void m_launchProcess();
  /// Tell the diagnosis engine which tool the viewer has started.
  void m_CallScenarioMark();
  void m_InsertScenarioMark(const std::string& labelSid, const char* mark);

  // ---- the toast

  void m_ShowToast(const std::string& text);
  void m_HandleReturnOnToast();
  void m_ShowScreenPostToastReturn();
  void m_AutoTimeOut();

 private:
  struct Card {
    std::string labelSid;
    bool enabled = true;
    std::string reason;  ///< why it is not, in the menu language
  };

  CSelfDiagnosis();

  int m_CardOfLaunchSource() const;
  const Card* m_Selected() const;
  std::string m_Speech() const;

  std::vector<Card> m_cards;
  int m_selectedIndex = 0;
  bool m_isSignage = false;
  double m_launchTime = 0;  ///< when a tool was launched last, of the main loop's clock
  CScreen m_screen{[this] { m_SetVoiceGuideText(); }};
  CWidget m_grid;
  CWidget m_guide;
  CWidget m_reason;
};

}  // namespace QUVA
