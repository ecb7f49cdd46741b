#include "trevlin/collectors/network_reach.h"

#include <sys/socket.h>

#include <algorithm>

#include "sysinfo/set_profile.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

constexpr char kGroup[] = "network", kZoneKey[] = "probe_zone", kPageKey[] = "probe_page";
constexpr char kOurZone[] = "probe.tornelo.example";

bool IsLoopback(const connection::Address& address) {
  constexpr connection::Address kLoopback6{AF_INET6, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
  return address.family == AF_INET ? address.bytes[0] == 127 : address == kLoopback6;
}

bool IsBeyondRouter(const connection::Address& address) {
  netlink::Socket socket(NETLINK_ROUTE);
  std::vector<connection::DefaultRoute> ways;
  connection::AskRoute(socket, address, ways);
  return std::any_of(ways.begin(), ways.end(), [](const auto& way) { return way.gateway.family != 0; });
}

/// Whether the world beyond the router is there. A server of this network that is silent or fails only for what it
/// would have to ask others about is cut off itself; one that runs on this machine, or that is outside, may be ill.
std::optional<bool> IsInternetThere(const NetworkAnswers& answers) {
  if (answers.page == PageAnswer::kReached) return true;
  if (answers.page != PageAnswer::kUnknown || answers.names.isInvented) return false;
  if (answers.names.resolve == true) return true;
  const auto& heard = answers.names.heard;
  if (std::any_of(heard.begin(), heard.end(), IsBeyondRouter)) return std::nullopt;
  if (std::any_of(heard.begin(), heard.end(), [](const auto& each) { return !IsLoopback(each); })) return false;
  return std::nullopt;
}

/// A router may answer nothing at all: what it lets through, or that it does not, tells then.
std::optional<bool> IsGatewayReachable(const NetworkAnswers& answers, const Gateway& gateway) {
  const auto& heard = answers.names.heard;
  if (answers.router == RouterAnswer::kHeard) return true;
  if (answers.router == RouterAnswer::kGone) return false;
  if (answers.page == PageAnswer::kReached || answers.page == PageAnswer::kOther) return true;
  if (std::find(heard.begin(), heard.end(), gateway.address) != heard.end()) return true;
  if (std::any_of(heard.begin(), heard.end(), IsBeyondRouter)) return true;
  // A server of this machine is heard without any network.
  const bool isCutOff = answers.names.resolve == false && std::all_of(heard.begin(), heard.end(), IsLoopback);
  return answers.router == RouterAnswer::kSilent && isCutOff ? std::optional(false) : std::nullopt;
}

void AddAsked(Facts& facts, std::string_view name, const std::optional<bool>& value) {
  value ? AddFact(facts, name, value) : AddUnknown(facts, name);
}

}  // namespace

NetworkProbes ReadNetworkProbes() {
  NetworkProbes probes{kOurZone};
  set_profile::Text(kGroup, kZoneKey, probes.zone);
  set_profile::Text(kGroup, kPageKey, probes.page);
  return probes;
}

std::optional<Gateway> FindGateway(const NetworkState& state) {
  const NetworkRoute* route = GatewayRoute(state);
  if (!route) return std::nullopt;
  const auto interface = std::find_if(state.interfaces->begin(), state.interfaces->end(),
                                      [route](const auto& each) { return each.name == route->interface; });
  if (interface == state.interfaces->end()) return std::nullopt;
  return Gateway{route->gateway, route->interface, interface->index};
}

void AddReachabilityFacts(const NetworkProbes& probes, const NetworkState& state, const NetworkAnswers& answers,
                          Facts& facts) {
  const auto gateway = FindGateway(state);
  if (probes.zone.empty()) {
    if (gateway) AddAsked(facts, "network.gateway_reachable", IsRouterRemembered(gateway->address, gateway->index));
    return;
  }
  const bool hasNameServer = state.hasNameServer == true;
  if (gateway) AddAsked(facts, "network.gateway_reachable", IsGatewayReachable(answers, *gateway));
  if (hasNameServer) AddAsked(facts, "network.name_resolution", answers.names.resolve);
  AddFact(facts, "network.name_delay_ms", answers.names.delayMs);
  if (hasNameServer || !probes.page.empty()) AddAsked(facts, "network.internet", IsInternetThere(answers));
  if (probes.page.empty()) return;
  AddAsked(facts, "network.sign_in_page",
           answers.page == PageAnswer::kUnknown ? std::nullopt : std::optional(answers.page == PageAnswer::kOther));
}

}  // namespace trevlin
