#pragma once
/// @file
/// How a machine is connected: one record, whoever filled it, and the facts that follow from it.

#include <optional>
#include <string>
#include <vector>

#include "connection/default_routes.h"
#include "trevlin/facts.h"

namespace trevlin {

struct NetworkInterface {
  std::string name;
  int index = 0;  ///< the kernel's; 0 in a captured tree that does not tell
  bool isLoopback = false;
  bool isEthernet = false;  ///< by its type, which wireless ones and most virtual ones share
  bool isWireless = false;
  bool hasDevice = false;           ///< hardware stands behind it
  bool isPlumbing = false;          ///< a bridge or bond, a member of one, or one that nobody listens to (dummy, ifb)
  std::vector<std::string> lowers;  ///< the interfaces that it rests on (VLAN, bridge, bond)
  std::optional<bool> carrier;
  std::optional<double> speedMbit;
  std::optional<bool> halfDuplex;
  bool hasAddress = false;          ///< one that is good beyond the link
  bool hasFallbackAddress = false;  ///< one of 169.254.0.0/16, which machines give themselves
  std::optional<double> receivedPackets;
  std::optional<double> receiveErrors;
  std::optional<double> signalDbm;
  std::optional<double> carrierLosses;  ///< since the interface was made
};

struct NetworkRoute {
  std::string interface;
  uint32_t metric = 0;
  connection::Address gateway;
};

/// What is not there is not known.
struct NetworkState {
  std::optional<std::vector<NetworkInterface>> interfaces;
  bool addressesKnown = false;
  std::optional<std::vector<NetworkRoute>> defaultRoutes;  ///< those that packets can take
  std::optional<bool> hasNameServer;
  std::optional<double> receiveErrorsPercent;  ///< of the interface in use
};

/// The interface that carries, or would carry, what goes out: hardware, below whatever VLAN, bridge or tunnel rests on
/// it. In a container, which has no hardware, an Ethernet one. Null when there is none, and when none of several is
/// connected.
const NetworkInterface* InterfaceInUse(const NetworkState& state);

/// The default route whose gateway is this network's own router rather than the far end of a tunnel; the best one when
/// there are several, null when there is none.
const NetworkRoute* GatewayRoute(const NetworkState& state);

/// Adds the facts of docs/facts.md, "network", that follow from it; what others answer is not among them.
void AddNetworkFacts(const NetworkState& state, Facts& facts);

/// Fills what a machine's files tell of each interface's hardware: device, wireless, members, speed, duplex, signal.
void ReadHardware(const Machine& machine, NetworkInterface& interface);

/// Whether /etc/resolv.conf names a server, or one of this machine takes questions in its place; unknown without the
/// file.
std::optional<bool> ReadHasNameServer(const Machine& machine);

/// Whether all radios for wireless networks are switched off (rfkill(8)); nothing where there is none.
std::optional<bool> ReadRadioOff(const Machine& machine);
/// Whether a switch of the device holds one off, which no program changes.
bool IsRadioLocked(const Machine& machine);

/// A captured machine, from /sys/class/net, /proc/net and /etc/resolv.conf alone.
NetworkState ReadCapturedNetwork(const Machine& machine);

/// This machine, from netlink and /sys/class/net. Asks nobody but the kernel.
NetworkState ReadLiveNetwork(const Machine& machine);

}  // namespace trevlin
