#include <fcntl.h>
#include <xf86drm.h>
#include <xf86drmMode.h>

#include <algorithm>
#include <memory>
#include <set>

#include "c_handle.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/display_facts.h"
#include "trevlin/collectors/graphics_facts.h"
#include "trevlin/collectors/readings.h"

// The kernel's files tell what is plugged in and what it could show; what it shows now only the device itself tells.

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view kFolder = "/sys/class/drm";

using Resources = std::unique_ptr<drmModeRes, CRelease<&drmModeFreeResources>>;
using DrmConnector = std::unique_ptr<drmModeConnector, CRelease<&drmModeFreeConnector>>;
using Encoder = std::unique_ptr<drmModeEncoder, CRelease<&drmModeFreeEncoder>>;
using Crtc = std::unique_ptr<drmModeCrtc, CRelease<&drmModeFreeCrtc>>;

struct CardConnector {
  std::string card;  // "card0"
  Connector connector;
};

/// Whether the card's driver is one of these.
template <size_t kCount>
bool IsDrivenBy(const std::string_view (&drivers)[kCount], const Machine& machine, const std::string& card) {
  const std::string about = ReadText(machine, std::string(kFolder) + "/" + card + "/device/uevent").value_or("");
  const auto lines = SplitLines(about);
  return std::find_first_of(lines.begin(), lines.end(), std::begin(drivers), std::end(drivers)) != lines.end();
}

/// Whose plug leads to a remote console of a server, which is always there.
constexpr std::string_view kRemoteConsoles[] = {"DRIVER=ast", "DRIVER=hibmc-drm", "DRIVER=mgag200"};
/// Adapters, at USB and the like, whose sound is none of the picture's.
constexpr std::string_view kWithoutSound[] = {"DRIVER=evdi", "DRIVER=gud", "DRIVER=udl"};

/// Whether the plug can carry sound, and its screen is showing a picture: one that sleeps takes none.
bool TakesSound(const Machine& machine, const CardConnector& found) {
  const std::string folder = std::string(kFolder) + "/" + found.card + "-" + found.connector.name;
  const bool carries = found.connector.name.starts_with("HDMI-") || found.connector.name.starts_with("DP-");
  return carries && ReadLine(machine, folder + "/enabled") == "enabled" &&
         ReadLine(machine, folder + "/dpms").value_or("On") == "On" && !IsDrivenBy(kWithoutSound, machine, found.card);
}

/// "card0-HDMI-A-1". Plugs without a screen are none: those that lead into memory, or to another machine's window.
std::optional<CardConnector> ReadConnector(const Machine& machine, const std::string& name) {
  const size_t dash = name.find('-');
  if (!name.starts_with("card") || dash == name.npos) return std::nullopt;
  CardConnector found{name.substr(0, dash), {}};
  Connector& connector = found.connector;
  connector.name = name.substr(dash + 1);
  if (connector.name.starts_with("Writeback-") || connector.name.starts_with("Virtual-") ||
      IsDrivenBy(kRemoteConsoles, machine, found.card))
    return std::nullopt;
  const std::string folder = std::string(kFolder) + "/" + name;
  const auto status = ReadLine(machine, folder + "/status");
  if (status == "connected" || status == "disconnected") connector.isConnected = status == "connected";
  if (connector.isConnected == true) {
    connector.edid = ReadText(machine, folder + "/edid");
    connector.takesSound = TakesSound(machine, found);
  }
  return found;
}

std::optional<Resolution> ShownOn(int device, const drmModeConnector& connector) {
  const Encoder encoder(drmModeGetEncoder(device, connector.encoder_id));
  const Crtc crtc(encoder ? drmModeGetCrtc(device, encoder->crtc_id) : nullptr);
  if (!crtc || !crtc->mode_valid) return std::nullopt;
  return Resolution{crtc->mode.hdisplay, crtc->mode.vdisplay};
}

/// Fills what the card's connectors show. Asks for what the kernel remembers, so that no screen is probed or blinks.
void TakeModes(const Machine& machine, const std::string& card, std::vector<CardConnector>& connectors) {
  const FdHandle device(open(machine.Path("/dev/dri/" + card).c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!device) return;
  drmDropMaster(device.get());  // who opens it first is made its master, which is for the one who draws
  const Resources resources(drmModeGetResources(device.get()));
  for (int i = 0; resources && i < resources->count_connectors; ++i) {
    const DrmConnector found(drmModeGetConnectorCurrent(device.get(), resources->connectors[i]));
    const char* type = found ? drmModeGetConnectorTypeName(found->connector_type) : nullptr;
    if (!type) continue;
    const std::string name = std::string(type) + "-" + std::to_string(found->connector_type_id);
    for (CardConnector& each : connectors)
      if (each.card == card && each.connector.name == name) each.connector.mode = ShownOn(device.get(), *found);
  }
}

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
        {"display.decoder_missing", kTruth, "",
         "the graphics card has a decoder for videos, whose driver is not installed"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    AddGraphicsFacts(machine, facts);
    if (!Exists(machine, kFolder)) return;
    std::vector<CardConnector> found;
    for (const std::string& name : ListNames(machine, kFolder))
      if (auto connector = ReadConnector(machine, name)) found.push_back(std::move(*connector));
    if (!machine.IsCaptured()) {
      // One without a screen may sleep to save power, and opening wakes it.
      std::set<std::string> cards;
      for (const CardConnector& each : found)
        if (each.connector.isConnected == true) cards.insert(each.card);
      for (const std::string& card : cards) TakeModes(machine, card, found);
    }
    std::vector<Connector> connectors;
    for (CardConnector& each : found) connectors.push_back(std::move(each.connector));
    AddDisplayFacts(connectors, facts);
  }
};

}  // namespace

std::unique_ptr<Collector> MakeDisplayCollector() {
  return std::make_unique<DisplayCollector>();
}

}  // namespace trevlin
