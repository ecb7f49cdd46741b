#pragma once
/// @file
/// Graphics cards: whether they draw, and whether they could decode videos that the processor has to.

#include <optional>
#include <string>
#include <vector>

#include "trevlin/facts.h"

namespace trevlin {

/// Thread rule: one thread at a time.
class GraphicsReader {
 public:
  /// Adds display.software_drawing, display.renderer_is_software, display.decoder_missing and
  /// display.board_decoder_missing of docs/facts.md. Where a card is driven and a screen is plugged in, it is asked who draws: that takes a program's start, so one
  /// process asks for all after a start of the machine, and again when drivers were installed or removed. Without an
  /// answer each process asks three times.
  void AddFacts(const Machine& machine, bool hasScreen, Facts& facts);

 private:
  std::optional<bool> AskWhoDraws(const Machine& machine, const std::vector<std::string>& nodes);

  std::optional<bool> m_isSoftware;
  int m_unanswered = 0;
  std::string m_state;  ///< of the machine, for which these are
};

}  // namespace trevlin
