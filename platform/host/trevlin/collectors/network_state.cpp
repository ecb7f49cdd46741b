#include "trevlin/collectors/network_state.h"

#include <algorithm>

#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using Interfaces = std::vector<NetworkInterface>;

constexpr int kDeepestStack = 8;  // a VLAN on a bridge on a bond is three; more than this is a circle

const NetworkInterface* Find(const Interfaces& interfaces, std::string_view name) {
  const auto found = std::find_if(interfaces.begin(), interfaces.end(),
                                  [name](const NetworkInterface& each) { return each.name == name; });
  return found == interfaces.end() ? nullptr : &*found;
}

/// Those that can lead to a network: hardware. Where there is none at all, as in a container, Ethernet that is no
/// plumbing; bridges and tunnels of a machine with hardware lead nowhere by themselves.
std::vector<const NetworkInterface*> Links(const Interfaces& interfaces) {
  std::vector<const NetworkInterface*> hardware, others;
  for (const NetworkInterface& each : interfaces) {
    if (each.isLoopback) continue;
    if (each.hasDevice || each.isWireless)
      hardware.push_back(&each);
    else if (each.isEthernet && !each.isPlumbing)
      others.push_back(&each);
  }
  return hardware.empty() ? others : hardware;
}

/// The link that `interface` is or rests on, one with a carrier where there are several; null when it is a tunnel or
/// a bridge between programs of this machine.
const NetworkInterface* LinkBelow(const Interfaces& interfaces, const std::vector<const NetworkInterface*>& links,
                                  const NetworkInterface* interface, int depth = 0) {
  if (!interface || depth > kDeepestStack) return nullptr;
  if (std::find(links.begin(), links.end(), interface) != links.end()) return interface;
  const NetworkInterface* below = nullptr;
  for (const std::string& lower : interface->lowers) {
    const NetworkInterface* found = LinkBelow(interfaces, links, Find(interfaces, lower), depth + 1);
    if (found && (!below || found->carrier == true)) below = found;
    if (below && below->carrier == true) break;
  }
  return below;
}

/// The default routes, those that the kernel prefers first.
std::vector<const NetworkRoute*> Ranked(const NetworkState& state) {
  std::vector<const NetworkRoute*> routes;
  if (!state.defaultRoutes) return routes;
  for (const NetworkRoute& route : *state.defaultRoutes) routes.push_back(&route);
  std::stable_sort(routes.begin(), routes.end(), [](auto* one, auto* other) { return one->metric < other->metric; });
  return routes;
}

/// The truth of one is enough; all must be known for an untruth.
std::optional<bool> AnyCarrier(const std::vector<const NetworkInterface*>& links) {
  bool allKnown = true;
  for (const NetworkInterface* link : links) {
    if (link->carrier == true) return true;
    allKnown = allKnown && link->carrier.has_value();
  }
  return allKnown ? std::optional(false) : std::nullopt;
}

/// An address counts where it leads out: on a link, on what rests on one, and on what the machine sends all else to
/// (a dialled connection, whose interface has no link below). That of a bridge between containers does not.
bool LeadsOut(const NetworkState& state, const std::vector<const NetworkInterface*>& links,
              const NetworkInterface& interface) {
  if (LinkBelow(*state.interfaces, links, &interface)) return true;
  return state.defaultRoutes &&
         std::any_of(state.defaultRoutes->begin(), state.defaultRoutes->end(),
                     [&](const NetworkRoute& route) { return route.interface == interface.name; });
}

void AddAddressFacts(const NetworkState& state, const std::vector<const NetworkInterface*>& links, Facts& facts) {
  bool hasAddress = false, hasFallback = false;
  for (const NetworkInterface& each : *state.interfaces) {
    if (each.isLoopback || !LeadsOut(state, links, each)) continue;
    hasAddress = hasAddress || each.hasAddress;
    hasFallback = hasFallback || each.hasFallbackAddress;
  }
  AddFact<bool>(facts, "network.address", hasAddress);
  AddFact<bool>(facts, "network.fallback_address", hasFallback && !hasAddress);
}

/// As the kernel's own wireless statistics grade it: -110 dBm is nothing, -40 dBm the best.
double QualityPercent(double dbm) {
  return (std::clamp(dbm, -110.0, -40.0) + 110) / 70 * 100;
}

void AddLinkFacts(const NetworkInterface& link, Facts& facts) {
  if (link.isWireless || link.isEthernet)
    AddFact<std::string>(facts, "network.kind", link.isWireless ? "wireless" : "wired");
  if (link.carrier != true) return;
  if (link.isWireless) {
    AddFact(facts, "network.wireless_signal_dbm", link.signalDbm);
    if (link.signalDbm) AddFact<double>(facts, "network.wireless_quality_percent", QualityPercent(*link.signalDbm));
  } else {
    AddFact(facts, "network.link_speed_mbit", link.speedMbit);
    AddFact(facts, "network.half_duplex", link.halfDuplex);
  }
}

}  // namespace

const NetworkInterface* InterfaceInUse(const NetworkState& state) {
  if (!state.interfaces) return nullptr;
  const auto links = Links(*state.interfaces);
  for (const NetworkRoute* route : Ranked(state))
    if (const auto* link = LinkBelow(*state.interfaces, links, Find(*state.interfaces, route->interface))) return link;
  for (const NetworkInterface* link : links)
    if (link->carrier == true) return link;
  return links.size() == 1 ? links.front() : nullptr;
}

const NetworkRoute* GatewayRoute(const NetworkState& state) {
  if (!state.interfaces) return nullptr;
  const auto links = Links(*state.interfaces);
  const NetworkRoute* best = nullptr;
  for (const NetworkRoute* route : Ranked(state)) {
    if (route->gateway.family == 0) continue;
    if (LinkBelow(*state.interfaces, links, Find(*state.interfaces, route->interface))) return route;
    if (!best) best = route;
  }
  return best;
}

void AddNetworkFacts(const NetworkState& state, Facts& facts) {
  if (state.interfaces) {
    const auto links = Links(*state.interfaces);
    AddFact<bool>(facts, "network.interface", !links.empty());
    AddFact(facts, "network.link", AnyCarrier(links));
    if (state.addressesKnown) AddAddressFacts(state, links, facts);
    if (const NetworkInterface* link = InterfaceInUse(state)) AddLinkFacts(*link, facts);
  }
  if (state.defaultRoutes) AddFact<bool>(facts, "network.default_route", !state.defaultRoutes->empty());
  AddFact(facts, "network.name_server", state.hasNameServer);
  AddFact(facts, "network.receive_errors_percent", state.receiveErrorsPercent);
}

}  // namespace trevlin
