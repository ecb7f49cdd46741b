#include <algorithm>

#include "settings/settings_store.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/network_probe.h"
#include "trevlin/collectors/network_state.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr char kResolveNameKey[] = "db/trevlin/resolve_name";
constexpr char kServiceName[] = "service.tornelo.example";
constexpr auto kEchoPatience = 700ms;
constexpr std::chrono::hours kErrorWindow{1};
constexpr double kFewestPackets = 100;  // one bad packet of three is no share

/// The set's owner may choose the name, or with an empty one that nobody is asked.
std::string NameToResolve() {
  settings::Value value;
  std::string error;
  if (settings::Read(kResolveNameKey, value, error) != settings::ReadResult::kOk) return kServiceName;
  const auto* name = std::get_if<std::string>(&value);
  return name ? *name : kServiceName;
}

/// Routers often leave an echo unanswered, but asking makes the kernel look for the neighbour.
std::optional<bool> IsGatewayReachable(const NetworkState& state) {
  const NetworkRoute* route = GatewayRoute(state);
  if (!route) return std::nullopt;
  const auto interface = std::find_if(state.interfaces->begin(), state.interfaces->end(),
                                      [route](const auto& each) { return each.name == route->interface; });
  if (interface == state.interfaces->end()) return std::nullopt;
  if (IsNeighbourThere(route->gateway, interface->index) == true) return true;
  switch (AskEcho(route->gateway, interface->index, kEchoPatience)) {
    case Echo::kAnswered:
      return true;
    case Echo::kUnreachable:
      return false;
    case Echo::kSilent:
    case Echo::kNotPermitted:
      break;
  }
  return IsNeighbourThere(route->gateway, interface->index);
}

std::optional<double> ReceiveErrorsPercent(const Machine& machine, const NetworkState& state) {
  const NetworkInterface* interface = InterfaceInUse(state);
  if (!interface || !interface->receivedPackets || !interface->receiveErrors) return std::nullopt;
  const std::string counter = "network." + interface->name;
  const auto packets = RiseWithin(machine, counter + ".received", *interface->receivedPackets, kErrorWindow);
  const auto errors = RiseWithin(machine, counter + ".receive_errors", *interface->receiveErrors, kErrorWindow);
  if (!packets || !errors || *packets + *errors < kFewestPackets) return std::nullopt;
  return *errors / (*packets + *errors) * 100;
}

class NetworkCollector final : public Collector {
 public:
  std::string_view Name() const override { return "network"; }
  std::chrono::milliseconds Period() const override { return 30s; }
  std::chrono::milliseconds Deadline() const override { return 6s; }

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
        {"network.name_resolution", kTruth, "", "it answers, be it that there is no such name"},
        {"network.wireless_signal_dbm", kNumber, "dBm", "signal of the access point in use"},
        {"network.wireless_quality_percent", kNumber, "%", "the signal, from -110 dBm (0) to -40 dBm (100)"},
        {"network.receive_errors_percent", kNumber, "%",
         "share of what was received with errors within an hour, of at least 100 packets"},
        {"network.link_speed_mbit", kNumber, "Mbit/s", "of the wired interface in use"},
        {"network.half_duplex", kTruth, "", "the wired interface in use cannot send and receive at once"},
    };
  }

  void Collect(const Machine& machine, Facts& facts) override {
    NetworkState state = machine.IsCaptured() ? ReadCapturedNetwork(machine) : ReadLiveNetwork(machine);
    state.receiveErrorsPercent = ReceiveErrorsPercent(machine, state);
    if (!machine.IsCaptured()) {
      // This first: its packets make the kernel look for the router, also where no echo is permitted.
      if (state.hasNameServer == true) state.namesResolve = DoNamesResolve(NameToResolve());
      state.gatewayReachable = IsGatewayReachable(state);
    }
    AddNetworkFacts(state, facts);
  }
};

}  // namespace

std::unique_ptr<Collector> MakeNetworkCollector() {
  return std::make_unique<NetworkCollector>();
}

}  // namespace trevlin
