#pragma once

#include <map>
#include <string>

namespace QUVA {

/// Who answers a question about a menu item, and what it is asked: one for each item and question.
struct MenuItemChecker {
  std::string CheckerSOPath;      ///< the checker library, a path of the set
  std::string Key;                ///< handed to the checker
  std::string Type;               ///< "integer", "bool", "string" or "double"
  std::string Value;              ///< handed to the checker as a value of the type
  void* EntryFunction = nullptr;  ///< the library's entry for question and type (menu_checker.h); null: there is none
};

/// Which items of the self-diagnosis menu are shown and which can be chosen: the configuration (docs/menu-items.md)
/// names for each item the checker libraries that decide. Thread rule: main thread.
class MenuItemParser {
 public:
  /// On first use reads the configuration and loads the checkers; never destroyed.
  static MenuItemParser* GetInstance();

  MenuItemParser(const MenuItemParser&) = delete;
  MenuItemParser& operator=(const MenuItemParser&) = delete;

  /// Reads the configuration at `path` (of the set). Both maps get an entry for every item that the application knows,
  /// also where the file lacks it; other members of the file are ignored. What cannot be read or is no JSON object
  /// leaves the maps as they were, and the log says why. GetCheckerFnPtrs() has to follow.
  void ParseJson(std::string path);
  /// Loads the checkers and resolves their entries. What is missing is logged and stays null.
  void GetCheckerFnPtrs();

  /// The checker's answer, non-zero for yes; 0 as well when there is none to ask or the value is not of its type, after
  /// a log line that says why. The first answers 1 for "SID_PICTURE_TEST" and "SID_SOUND_TEST" without asking. The
  /// second reads the configuration again while nothing is known.
  int GetEnableCheck(std::string item);
  int GetVisibleCheck(std::string item);
  /// What the checker that decides on enabling looks at; empty for an item without one.
  std::string GetEnableKey(const std::string& item) const;

  /// Logs both maps.
  void printParsedData();

 private:
  using CheckerMap = std::map<std::string, MenuItemChecker>;

  MenuItemParser() = default;

  CheckerMap m_enableCheckerMap;
  CheckerMap m_visibleCheckerMap;
  static MenuItemParser* m_pInstance;
};

}  // namespace QUVA
