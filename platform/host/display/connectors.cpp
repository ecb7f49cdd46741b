#include "display/connectors.h"

#include <algorithm>
#include <set>
#include <utility>

#include "display/card_device.h"
#include "trevlin/collectors/readings.h"

// The kernel's files tell what is plugged in and what it could show; what it shows now only the device itself tells.

namespace display {

namespace {

using trevlin::Machine;
using trevlin::ReadLine;
using trevlin::ReadText;

constexpr std::string_view kFolder = "/sys/class/drm";

/// Whether the card's driver is one of these.
template <size_t kCount>
bool IsDrivenBy(const std::string_view (&drivers)[kCount], const Machine& machine, const std::string& card) {
  const std::string about = ReadText(machine, std::string(kFolder) + "/" + card + "/device/uevent").value_or("");
  const auto lines = trevlin::SplitLines(about);
  return std::find_first_of(lines.begin(), lines.end(), std::begin(drivers), std::end(drivers)) != lines.end();
}

/// Whose plug leads to a remote console of a server, which is always there.
constexpr std::string_view kRemoteConsoles[] = {"DRIVER=ast", "DRIVER=hibmc-drm", "DRIVER=mgag200"};
/// Adapters, at USB and the like, whose sound is none of the picture's.
constexpr std::string_view kWithoutSound[] = {"DRIVER=evdi", "DRIVER=gud", "DRIVER=udl"};

bool CarriesSound(const Machine& machine, const Connector& connector) {
  return (connector.name.starts_with("HDMI-") || connector.name.starts_with("DP-")) &&
         !IsDrivenBy(kWithoutSound, machine, connector.card);
}

/// "card0-HDMI-A-1"
std::optional<Connector> ReadConnector(const Machine& machine, const std::string& name) {
  const size_t dash = name.find('-');
  if (!name.starts_with("card") || dash == name.npos) return std::nullopt;
  Connector connector;
  connector.card = name.substr(0, dash);
  connector.name = name.substr(dash + 1);
  if (connector.name.starts_with("Writeback-")) return std::nullopt;
  connector.isForViewers =
      !connector.name.starts_with("Virtual-") && !IsDrivenBy(kRemoteConsoles, machine, connector.card);
  const std::string folder = std::string(kFolder) + "/" + name;
  const auto status = ReadLine(machine, folder + "/status");
  if (status == "connected" || status == "disconnected") connector.isConnected = status == "connected";
  if (connector.isConnected != true) return connector;
  connector.edid = ReadText(machine, folder + "/edid");
  // One that sleeps shows nothing, and takes no sound.
  connector.isShowing =
      ReadLine(machine, folder + "/enabled") == "enabled" && ReadLine(machine, folder + "/dpms").value_or("On") == "On";
  connector.takesSound = connector.isShowing && CarriesSound(machine, connector);
  return connector;
}

}  // namespace

std::optional<std::vector<Connector>> ReadConnectors(const Machine& machine) {
  if (!trevlin::Exists(machine, kFolder)) return std::nullopt;
  std::vector<Connector> found;
  for (const std::string& name : trevlin::ListNames(machine, kFolder))
    if (auto connector = ReadConnector(machine, name)) found.push_back(std::move(*connector));
  if (machine.IsCaptured()) return found;
  std::set<std::string> cards;
  for (const Connector& each : found)
    if (each.isConnected == true) cards.insert(each.card);
  for (const std::string& card : cards) AskCard(card, found);
  return found;
}

}  // namespace display
