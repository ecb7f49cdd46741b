#include <algorithm>
#include <future>

#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/network_reach.h"
#include "trevlin/collectors/network_state.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::hours kWindow{1};
constexpr double kFewestPackets = 100;  // one bad packet of three is no share

/// All is asked beside each other.
NetworkAnswers Ask(const NetworkProbes& probes, const std::optional<Gateway>& gateway, bool hasNameServer) {
  std::future<RouterAnswer> router;
  std::future<PageAnswer> page;
  if (gateway)
    router = std::async(std::launch::async, AskRouter, gateway->address, gateway->interface, gateway->index,
                        kRouterPatience);
  if (!probes.page.empty()) page = std::async(std::launch::async, AskPage, probes.page, kNamesPatience);
  NetworkAnswers answers;
  if (hasNameServer) answers.names = AskNameServers(probes.zone, kNamesPatience);
  if (router.valid()) answers.router = router.get();
  if (page.valid()) answers.page = page.get();
  return answers;
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
    const NetworkProbes probes = ReadNetworkProbes();
    AddFact<bool>(facts, "network.internet_wanted", !probes.zone.empty());
    // Without a way out nobody is asked.
    if (!state.defaultRoutes || state.defaultRoutes->empty()) return;
    const auto gateway = FindGateway(state);
    NetworkAnswers answers;
    if (!probes.zone.empty()) answers = Ask(probes, gateway, state.hasNameServer == true);
    AddReachabilityFacts(probes, state, answers, facts);
  }
};

}  // namespace

std::unique_ptr<Collector> MakeNetworkCollector() {
  return std::make_unique<NetworkCollector>();
}

}  // namespace trevlin
