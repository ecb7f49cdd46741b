#pragma once
/// @file
/// The page of the tools that tell or do something: a line on top, rows of a fact and its value, buttons below.
///
/// Thread rule: main loop thread.

#include <functional>
#include <string>
#include <vector>

#include "CScreen.h"
#include "fact.h"
#include "tool.h"

namespace tools {

class FactsPage {
 public:
  /// Builds it, titled as the tool, and makes it the screen that Back leaves the tool from.
  explicit FactsPage(const Tool& tool);
  FactsPage(const FactsPage&) = delete;
  FactsPage& operator=(const FactsPage&) = delete;

  /// What stands above the rows, in two lines at most; spoken when it changes. Empty for nothing.
  void SetNote(const std::string& text);
  /// Shows these rows; the focus stays on the row where it is. Enter on one calls `onSelect` with its number.
  void SetFacts(std::vector<Fact> facts);
  void OnSelect(std::function<void(int row)> onSelect) { m_onSelect = std::move(onSelect); }
  /// Adds a button at the lower edge; the first one has the focus unless rows that can be chosen were there before it.
  /// Owned by the page.
  Evas_Object* AddButton(const char* sid, std::function<void()> onClick);
  /// A button that leaves the tool.
  void AddDone();
  /// The focus goes to the rows.
  void RemoveButtons();
  /// Takes it off the screen, for what fills the panel, and shows it again with the focus where it was.
  void Hide() { m_screen.m_Hide(); }
  void Show();
  /// A message in the header for some seconds, or until it is dismissed.
  void Toast(const std::string& text);
  void DismissToast() { m_screen.m_DismissToast(); }
  /// Between the rows and the buttons, for what a tool draws itself: a vertical layout, empty at first.
  Evas_Object* Area() const { return m_area; }

 private:
  std::string TextOf(int row, const std::string& part) const;
  std::string SpeechOf(int row) const;
  void Announce();
  void BuildList();
  void Focus();

  const Tool& m_tool;
  QUVA::CScreen m_screen;
  QUVA::CWidget m_note, m_listArea, m_list, m_area, m_buttons, m_firstButton;
  bool m_listIsFirst = false;  ///< it has the focus first
  std::vector<Fact> m_facts;
  std::string m_noteText;
  std::function<void(int row)> m_onSelect;
};

}  // namespace tools
