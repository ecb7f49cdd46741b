#include <sys/socket.h>

#include <algorithm>
#include <future>

#include "sysinfo/set_profile.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/network_probe.h"
#include "trevlin/collectors/network_state.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr char kGroup[] = "network", kZoneKey[] = "probe_zone", kPageKey[] = "probe_page";
constexpr char kOurZone[] = "probe.tornelo.example";
constexpr auto kRouterPatience = 1200ms, kNamesPatience = 1900ms;
constexpr std::chrono::hours kWindow{1};
constexpr double kFewestPackets = 100;  // one bad packet of three is no share

/// What the set's owner lets us ask for.
struct Probes {
  std::string zone = kOurZone;  ///< empty: nothing is sent at all
  std::string page;             ///< empty: none
};

Probes ReadProbes() {
  Probes probes;
  set_profile::Text(kGroup, kZoneKey, probes.zone);
  set_profile::Text(kGroup, kPageKey, probes.page);
  return probes;
}

/// The router of this network, and the interface that leads to it.
struct Gateway {
  connection::Address address;
  std::string interface;
  int index;
};

std::optional<Gateway> FindGateway(const NetworkState& state) {
  const NetworkRoute* route = GatewayRoute(state);
  if (!route) return std::nullopt;
  const auto interface = std::find_if(state.interfaces->begin(), state.interfaces->end(),
                                      [route](const auto& each) { return each.name == route->interface; });
  if (interface == state.interfaces->end()) return std::nullopt;
  return Gateway{route->gateway, route->interface, interface->index};
}

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

/// What came back, of all that was asked beside each other.
struct Answers {
  RouterAnswer router = RouterAnswer::kUnknown;
  NameAnswers names;
  PageAnswer page = PageAnswer::kUnknown;
};

Answers Ask(const Probes& probes, const std::optional<Gateway>& gateway, bool hasNameServer) {
  std::future<RouterAnswer> router;
  std::future<PageAnswer> page;
  if (gateway)
    router = std::async(std::launch::async, AskRouter, gateway->address, gateway->interface, gateway->index,
                        kRouterPatience);
  if (!probes.page.empty()) page = std::async(std::launch::async, AskPage, probes.page, kNamesPatience);
  Answers answers;
  if (hasNameServer) answers.names = AskNameServers(probes.zone, kNamesPatience);
  if (router.valid()) answers.router = router.get();
  if (page.valid()) answers.page = page.get();
  return answers;
}

/// Whether the world beyond the router is there. A server of this network that is silent or fails only for what it
/// would have to ask others about is cut off itself; one that runs on this machine, or that is outside, may be ill.
std::optional<bool> IsInternetThere(const Answers& answers) {
  if (answers.page == PageAnswer::kReached) return true;
  if (answers.page != PageAnswer::kUnknown || answers.names.isInvented) return false;
  if (answers.names.resolve == true) return true;
  const auto& heard = answers.names.heard;
  if (std::any_of(heard.begin(), heard.end(), IsBeyondRouter)) return std::nullopt;
  if (std::any_of(heard.begin(), heard.end(), [](const auto& each) { return !IsLoopback(each); })) return false;
  return std::nullopt;
}

/// A router may answer nothing at all: what it lets through, or that it does not, tells then.
std::optional<bool> IsGatewayReachable(const Answers& answers, const Gateway& gateway) {
  const auto& heard = answers.names.heard;
  if (answers.router == RouterAnswer::kHeard) return true;
  if (answers.router == RouterAnswer::kGone) return false;
  if (answers.page == PageAnswer::kReached || answers.page == PageAnswer::kOther) return true;
  if (std::find(heard.begin(), heard.end(), gateway.address) != heard.end()) return true;
  if (std::any_of(heard.begin(), heard.end(), IsBeyondRouter)) return true;
  const bool isNothingHeard = answers.names.resolve == false && heard.empty();
  return answers.router == RouterAnswer::kSilent && isNothingHeard ? std::optional(false) : std::nullopt;
}

std::optional<double> ReceiveErrorsPercent(const Machine& machine, const NetworkState& state) {
  const NetworkInterface* interface = InterfaceInUse(state);
  if (!interface || !interface->receivedPackets || !interface->receiveErrors) return std::nullopt;
  const std::string counter = "network." + interface->name;
  const auto packets = RiseWithin(machine, counter + ".received", *interface->receivedPackets, kWindow);
  const auto errors = RiseWithin(machine, counter + ".receive_errors", *interface->receiveErrors, kWindow);
  if (!packets || !errors || *packets + *errors < kFewestPackets) return std::nullopt;
  return *errors / (*packets + *errors) * 100;
}

/// Of the wireless interface that lost its access point most often.
std::optional<double> WirelessDrops(const Machine& machine, const NetworkState& state) {
  std::optional<double> most;
  if (!state.interfaces) return most;
  for (const NetworkInterface& each : *state.interfaces) {
    if (!each.isWireless || !each.carrierLosses) continue;
    const auto rise = RiseWithin(machine, "network." + each.name + ".carrier_losses", *each.carrierLosses, kWindow);
    if (rise) most = std::max(*rise, most.value_or(0));
  }
  return most;
}

class NetworkCollector final : public Collector {
 public:
  std::string_view Name() const override { return "network"; }
  std::chrono::milliseconds Period() const override { return 30s; }
  std::chrono::milliseconds Deadline() const override { return 2400ms; }

  std::vector<FactDescription> Describe() const override {
    using enum FactKind;
    return {
        {"network.interface", kTruth, "", "there is an interface that can lead to a network"},
        {"network.link", kTruth, "", "one of them has a carrier: a cable, or an access point"},
        {"network.kind", kText, "", "of the interface in use: wired or wireless"},
        {"network.address", kTruth, "", "an IPv4 or IPv6 address that is good beyond the link"},
        {"network.fallback_address", kTruth, "", "the only address is one that the machine gave itself (169.254.…)"},
        {"network.default_route", kTruth, "", "there is a way out that packets can take"},
        {"network.gateway_reachable", kTruth, "", "the network's router was heard from"},
        {"network.name_server", kTruth, "", "one is configured"},
        {"network.name_resolution", kTruth, "", "one answers, be it that there is no such name"},
        {"network.name_delay_ms", kNumber, "ms", "how long a program waits for a name that nobody knows yet"},
        {"network.internet", kTruth, "", "something beyond the network's router was heard from"},
        {"network.internet_wanted", kTruth, "", "the set's owner lets the network be asked"},
        {"network.sign_in_page", kTruth, "", "another page answers in the place of the one that the owner named"},
        {"network.wireless_signal_dbm", kNumber, "dBm", "signal of the access point in use"},
        {"network.wireless_quality_percent", kNumber, "%", "the signal, from -110 dBm (0) to -40 dBm (100)"},
        {"network.wireless_drops", kNumber, "", "how often a wireless interface lost its access point within an hour"},
        {"network.radio_off", kTruth, "", "all radios for wireless networks are switched off"},
        {"network.receive_errors_percent", kNumber, "%",
         "share of what was received with errors within an hour, of at least 100 packets"},
        {"network.link_speed_mbit", kNumber, "Mbit/s", "of the wired interface in use"},
        {"network.half_duplex", kTruth, "", "the wired interface in use cannot send and receive at once"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    NetworkState state = machine.IsCaptured() ? ReadCapturedNetwork(machine) : ReadLiveNetwork(machine);
    state.receiveErrorsPercent = ReceiveErrorsPercent(machine, state);
    AddNetworkFacts(state, facts);
    AddFact(facts, "network.radio_off", ReadRadioOff(machine));
    AddFact(facts, "network.wireless_drops", WirelessDrops(machine, state));
    if (machine.IsCaptured()) return;
    const Probes probes = ReadProbes();
    AddFact<bool>(facts, "network.internet_wanted", !probes.zone.empty());
    AddReachability(probes, state, facts);
  }

 private:
  /// Without a way out nobody is asked.
  static void AddReachability(const Probes& probes, const NetworkState& state, Facts& facts) {
    if (!state.defaultRoutes || state.defaultRoutes->empty()) return;
    const auto gateway = FindGateway(state);
    if (probes.zone.empty()) {
      if (gateway) AddAsked(facts, "network.gateway_reachable", IsRouterRemembered(gateway->address, gateway->index));
      return;
    }
    const bool hasNameServer = state.hasNameServer == true;
    const Answers answers = Ask(probes, gateway, hasNameServer);
    if (gateway) AddAsked(facts, "network.gateway_reachable", IsGatewayReachable(answers, *gateway));
    if (hasNameServer) AddAsked(facts, "network.name_resolution", answers.names.resolve);
    AddFact(facts, "network.name_delay_ms", answers.names.delayMs);
    if (hasNameServer || !probes.page.empty()) AddAsked(facts, "network.internet", IsInternetThere(answers));
    if (probes.page.empty()) return;
    AddAsked(facts, "network.sign_in_page",
             answers.page == PageAnswer::kUnknown ? std::nullopt : std::optional(answers.page == PageAnswer::kOther));
  }

  static void AddAsked(Facts& facts, std::string_view name, const std::optional<bool>& value) {
    value ? AddFact(facts, name, value) : AddUnknown(facts, name);
  }
};

}  // namespace

std::unique_ptr<Collector> MakeNetworkCollector() {
  return std::make_unique<NetworkCollector>();
}

}  // namespace trevlin
