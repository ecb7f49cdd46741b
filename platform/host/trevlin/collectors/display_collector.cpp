#include <algorithm>

#include "display/connectors.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/display_facts.h"
#include "trevlin/collectors/graphics_facts.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

class DisplayCollector final : public Collector {
 public:
  std::string_view Name() const override { return "display"; }
  std::chrono::milliseconds Period() const override { return 30s; }
  std::chrono::milliseconds Deadline() const override { return 2s; }

  std::vector<FactDescription> Describe() const override {
    using enum FactKind;
    return {
        {"display.connectors", kNumber, "", "plugs for screens, built-in panels included"},
        {"display.connected", kNumber, "", "of these, the ones with a screen"},
        {"display.mode", kText, "", "what the largest screen shows, as 1920x1080"},
        {"display.mode_pixels", kNumber, "", "of that: 2073600 are Full HD"},
        {"display.mode_below_preferred", kTruth, "", "a screen shows fewer pixels than it prefers"},
        {"display.edid_present", kTruth, "", "all screens with a plug (DP, DVI, HDMI, VGA) describe themselves"},
        {"display.edid_valid", kTruth, "", "header, checksum and length of all descriptions are right"},
        {"display.plays_sound", kTruth, "", "a screen that is showing a picture plays the sound that comes with it"},
        {"display.software_drawing", kTruth, "", "no graphics card is in use, though there is one that could draw"},
        {"display.renderer_is_software", kTruth, "", "the processor draws, though the kernel drives a graphics card"},
        {"display.decoder_missing", kTruth, "",
         "the graphics card has a decoder for videos, whose driver is not installed"},
        {"display.board_decoder_missing", kTruth, "",
         "the board has a decoder for videos, and nothing that uses it is installed"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    auto connectors = display::ReadConnectors(machine);
    if (connectors) {
      std::erase_if(*connectors, [](const display::Connector& each) { return !each.isForViewers; });
      AddDisplayFacts(*connectors, facts);
    }
    const auto isConnected = [](const display::Connector& each) { return each.isConnected == true; };
    m_graphics.AddFacts(machine, connectors && std::any_of(connectors->begin(), connectors->end(), isConnected), facts);
  }

 private:
  GraphicsReader m_graphics;
};

}  // namespace

std::unique_ptr<Collector> MakeDisplayCollector() {
  return std::make_unique<DisplayCollector>();
}

}  // namespace trevlin
