#include "trevlin/collectors/graphics_facts.h"

#include <algorithm>
#include <set>

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

struct Card {
  std::string maker;   // "8086"
  std::string model;   // "3E92"
  std::string driver;  // empty: none
};

/// Makers (PCI vendors) whose cards all draw by themselves.
constexpr std::string_view kDrawing[] = {"1002", "10DE", "8086"};
/// Makers of the remote consoles of servers.
constexpr std::string_view kConsoles[] = {"102B", "19E5", "1A03"};

/// What drives the decoders (VA-API) of cards that have one.
constexpr struct {
  std::string_view kernel;
  std::string_view installed;
} kDecoders[] = {
    {"amdgpu", "radeonsi_drv_video.so"}, {"amdgpu", "r600_drv_video.so"}, {"i915", "iHD_drv_video.so"},
    {"i915", "i965_drv_video.so"},       {"radeon", "r600_drv_video.so"}, {"radeon", "radeonsi_drv_video.so"},
    {"xe", "iHD_drv_video.so"},
};
/// Cards that the kernel's driver i915 has, too, from before there were decoders with a driver (made until 2007).
constexpr std::string_view kBeforeDecoders[] = {"2562", "2572", "2582", "258A", "2592", "2772", "27A2", "27AE",
                                                "2972", "2982", "2992", "29A2", "29B2", "29C2", "29D2", "2A02",
                                                "2A12", "3577", "3582", "358E", "A001", "A011"};
constexpr std::string_view kLibraries[] = {"/run/opengl-driver/lib", "/usr/lib", "/usr/lib64", "/usr/local/lib"};

/// What stands behind "KEY=" in a line.
std::string ValueOf(std::string_view text, std::string_view key) {
  for (const std::string_view line : SplitLines(text))
    if (line.starts_with(key)) return std::string(line.substr(key.size()));
  return "";
}

std::vector<Card> ReadCards(const Machine& machine) {
  std::vector<Card> cards;
  const std::string folder = "/sys/bus/pci/devices/";
  for (const std::string& name : ListNames(machine, folder)) {
    const std::string about = ReadText(machine, folder + name + "/uevent").value_or("");
    const std::string kind = ValueOf(about, "PCI_CLASS=");  // hexadecimal, without zeros before it: display is 3xxxx
    if (kind.size() != 5 || kind[0] != '3') continue;
    const std::string id = ValueOf(about, "PCI_ID=");  // "8086:3E92"
    if (id.size() == 9) cards.push_back({id.substr(0, 4), id.substr(5), ValueOf(about, "DRIVER=")});
  }
  return cards;
}

bool HasRenderNode(const Machine& machine) {
  const auto names = ListNames(machine, "/dev/dri");
  return std::any_of(names.begin(), names.end(), [](const auto& name) { return name.starts_with("renderD"); });
}

/// The names in the folders of drivers below the folder of libraries: dri, or dri-nonfree; va/drivers.
void AddInstalled(const Machine& machine, const std::string& libraries, std::set<std::string>& found) {
  for (std::string& driver : ListNames(machine, libraries + "/va/drivers")) found.insert(std::move(driver));
  for (const std::string& name : ListNames(machine, libraries)) {
    if (name != "dri" && !name.starts_with("dri-")) continue;
    for (std::string& driver : ListNames(machine, libraries + "/" + name)) found.insert(std::move(driver));
  }
}

std::set<std::string> InstalledDecoders(const Machine& machine) {
  std::set<std::string> found;
  for (const std::string_view each : kLibraries) {
    const std::string libraries(each);
    AddInstalled(machine, libraries, found);
    for (const std::string& name : ListNames(machine, libraries))
      if (name.find("-linux-") != name.npos) AddInstalled(machine, libraries + "/" + name, found);
  }
  return found;
}

/// Of those of `radeon` the ones with a decoder are 66xx to 68xx, and 94xx and later.
bool MayDecode(const Card& card) {
  if (card.driver == "radeon") return card.model.starts_with('6') || card.model.starts_with('9');
  return card.driver != "i915" || !IsOneOf(kBeforeDecoders, card.model);
}

/// Unknown without a card that has a decoder.
std::optional<bool> LacksDecoder(const Machine& machine, const std::vector<Card>& cards) {
  std::optional<bool> lacks;
  std::set<std::string> installed;
  for (const Card& card : cards)
    for (const auto& decoder : kDecoders) {
      if (decoder.kernel != card.driver || !MayDecode(card)) continue;
      if (!lacks) installed = InstalledDecoders(machine);
      lacks = lacks.value_or(true) && !installed.contains(std::string(decoder.installed));
    }
  return lacks;
}

}  // namespace

void AddGraphicsFacts(const Machine& machine, Facts& facts) {
  std::vector<Card> cards = ReadCards(machine);
  if (std::any_of(cards.begin(), cards.end(), [](const Card& card) { return IsOneOf(kConsoles, card.maker); })) return;
  std::erase_if(cards, [](const Card& card) { return !IsOneOf(kDrawing, card.maker); });
  if (cards.empty()) return;
  const bool isAnyDriven =
      std::any_of(cards.begin(), cards.end(), [](const Card& card) { return !card.driver.empty(); });
  const bool canRender = HasRenderNode(machine);
  facts["display.software_drawing"] = !isAnyDriven && !canRender;
  if (canRender) AddFact(facts, "display.decoder_missing", LacksDecoder(machine, cards));
}

}  // namespace trevlin
