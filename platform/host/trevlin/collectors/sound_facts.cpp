#include "trevlin/collectors/sound_facts.h"

#include <string>
#include <string_view>

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

constexpr std::string_view kFolder = "/proc/asound";

}  // namespace

/// The lines of /proc/asound/cards that begin with a number; each card has a second line that does not.
std::optional<double> CountCards(const Machine& machine) {
  const auto text = ReadText(machine, std::string(kFolder) + "/cards");
  if (!text) return std::nullopt;
  int cards = 0;
  for (const std::string_view line : SplitLines(*text)) {
    const auto words = SplitWords(line);
    if (words.size() >= 2 && ParseNumber(words[0]) && words[1].starts_with('[')) ++cards;
  }
  return cards;
}

std::optional<bool> HasHdmiOutput(const Machine& machine) {
  std::optional<bool> result;
  for (const std::string& card : ListNames(machine, kFolder)) {
    if (!card.starts_with("card") || card == "cards") continue;
    const std::string folder = std::string(kFolder) + "/" + card;
    for (const std::string& name : ListNames(machine, folder)) {
      const auto text = name.starts_with("eld#") ? ReadText(machine, folder + "/" + name) : std::nullopt;
      const auto valid = text ? FindNumber(*text, "eld_valid") : std::nullopt;
      if (valid) result = result.value_or(false) || *valid == 1;
    }
  }
  return result;
}

}  // namespace trevlin
