#pragma once
/// @file
/// Goes through the causes of a missing display with the viewer, at most five, and looks again after each.
///
/// Thread rule: main loop thread.

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "dialog.h"
#include "display/connector.h"
#include "tool.h"

namespace tools {

class HdmiGuide {
 public:
  /// `lookNow` reads the connectors anew, hands them to Take() and then calls what it got.
  HdmiGuide(const Tool& tool, std::function<void(std::function<void()> then)> lookNow)
      : m_tool(tool), m_lookNow(std::move(lookNow)) {}

  /// Begins with the first step.
  void Start();
  /// What the connectors are like now. When the guide runs and there is a display that was not there before, it ends at
  /// once and says so.
  void Take(const std::vector<display::Connector>& connectors);

 private:
  void ShowStep();
  void GoOn();
  void End(const char* status, const std::string& text);
  void ShowDialog(const std::string& title, const std::string& text);

  const Tool& m_tool;
  const std::function<void(std::function<void()> then)> m_lookNow;
  std::set<std::string> m_recognized;  ///< the connectors that had a display at the last look
  bool m_isRunning = false;
  size_t m_step = 0;
  Dialog* m_dialog = nullptr;  ///< the last one
};

}  // namespace tools
