// What the kernel tells of the network over netlink (rtnetlink(7), linux/nl80211.h).

#include <linux/genetlink.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/nl80211.h>

#include <algorithm>

#include "trevlin/collectors/network_state.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using netlink::NumberOf;
using Interfaces = std::vector<NetworkInterface>;

NetworkInterface* Find(Interfaces& interfaces, int index) {
  const auto found = std::find_if(interfaces.begin(), interfaces.end(),
                                  [index](const NetworkInterface& each) { return each.index == index; });
  return found == interfaces.end() ? nullptr : &*found;
}

void TakeCounters(const rtattr& attribute, NetworkInterface& interface) {
  const auto payload = netlink::Payload(attribute);
  // Later kernels append to it.
  if (payload.size() < offsetof(rtnl_link_stats64, tx_errors)) return;
  rtnl_link_stats64 counters{};
  std::memcpy(&counters, payload.data(), std::min(payload.size(), sizeof counters));
  interface.receivedPackets = static_cast<double>(counters.rx_packets);
  interface.receiveErrors = static_cast<double>(counters.rx_errors);
}

void AddInterface(const nlmsghdr& message, Interfaces& interfaces) {
  const auto* body = netlink::BodyOf<ifinfomsg>(message);
  if (message.nlmsg_type != RTM_NEWLINK || !body) return;
  NetworkInterface interface;
  interface.index = body->ifi_index;
  interface.isLoopback = body->ifi_type == ARPHRD_LOOPBACK;
  interface.isEthernet = body->ifi_type == ARPHRD_ETHER;
  interface.isPlumbing = (body->ifi_flags & IFF_NOARP) != 0;
  interface.carrier = (body->ifi_flags & IFF_UP) != 0 && (body->ifi_flags & IFF_LOWER_UP) != 0;
  netlink::VisitAttributes(netlink::AttributesOf<ifinfomsg>(message), [&interface](const rtattr& attribute) {
    if (attribute.rta_type == IFLA_IFNAME) interface.name = netlink::TextOf(attribute);
    if (attribute.rta_type == IFLA_STATS64) TakeCounters(attribute, interface);
  });
  if (!interface.name.empty()) interfaces.push_back(std::move(interface));
}

bool IsFallback(const rtattr& address) {
  const auto bytes = netlink::Payload(address);
  return bytes.size() == 4 && bytes[0] == std::byte{169} && bytes[1] == std::byte{254};
}

void TakeAddress(const nlmsghdr& message, Interfaces& interfaces) {
  const auto* body = netlink::BodyOf<ifaddrmsg>(message);
  NetworkInterface* interface = body ? Find(interfaces, static_cast<int>(body->ifa_index)) : nullptr;
  if (message.nlmsg_type != RTM_NEWADDR || !interface) return;
  uint32_t flags = body->ifa_flags;
  bool isFallback = false;
  netlink::VisitAttributes(netlink::AttributesOf<ifaddrmsg>(message), [&](const rtattr& attribute) {
    if (attribute.rta_type == IFA_FLAGS) flags = NumberOf<uint32_t>(attribute).value_or(flags);
    if (attribute.rta_type == IFA_LOCAL || attribute.rta_type == IFA_ADDRESS)
      isFallback = isFallback || (body->ifa_family == AF_INET && IsFallback(attribute));
  });
  if ((flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) != 0) return;
  // Programs differ in the scope that they give to a fallback address.
  if (isFallback)
    interface->hasFallbackAddress = true;
  else if (body->ifa_scope < RT_SCOPE_LINK)
    interface->hasAddress = true;
}

/// The number of the kernel's wireless family; nothing where there is no wireless.
std::optional<uint16_t> WirelessFamily(netlink::Socket& generic) {
  std::optional<uint16_t> family;
  generic.Dump(GENL_ID_CTRL, genlmsghdr{CTRL_CMD_GETFAMILY, 1, 0}, [&family](const nlmsghdr& message) {
    std::optional<uint16_t> id;
    bool isWireless = false;
    netlink::VisitAttributes(netlink::AttributesOf<genlmsghdr>(message), [&](const rtattr& attribute) {
      if (attribute.rta_type == CTRL_ATTR_FAMILY_ID) id = NumberOf<uint16_t>(attribute);
      if (attribute.rta_type == CTRL_ATTR_FAMILY_NAME) isWireless = netlink::TextOf(attribute) == NL80211_GENL_NAME;
    });
    if (isWireless) family = id;
  });
  return family;
}

/// The signal of the station that the interface is associated with. /proc/net/wireless does not have it on kernels
/// without the older wireless interface, nor of the newest devices.
std::optional<double> AskSignal(netlink::Socket& generic, uint16_t family, int index) {
  struct {
    genlmsghdr header{NL80211_CMD_GET_STATION, 1, 0};
    rtattr attribute{RTA_LENGTH(sizeof(int)), NL80211_ATTR_IFINDEX};
    int index;
  } const request{.index = index};
  std::optional<double> signal;
  generic.Dump(family, request, [&signal](const nlmsghdr& message) {
    netlink::VisitAttributes(netlink::AttributesOf<genlmsghdr>(message), [&](const rtattr& attribute) {
      if ((attribute.rta_type & NLA_TYPE_MASK) != NL80211_ATTR_STA_INFO) return;
      netlink::VisitAttributes(netlink::Payload(attribute), [&](const rtattr& nested) {
        if (nested.rta_type == NL80211_STA_INFO_SIGNAL) signal = NumberOf<int8_t>(nested);
      });
    });
  });
  return signal && *signal < 0 ? signal : std::nullopt;
}

void CompleteSignals(Interfaces& interfaces) {
  const auto isMissing = [](const NetworkInterface& each) {
    return each.isWireless && each.carrier == true && !each.signalDbm;
  };
  if (std::none_of(interfaces.begin(), interfaces.end(), isMissing)) return;
  netlink::Socket generic(NETLINK_GENERIC);
  const auto family = WirelessFamily(generic);
  if (!family) return;
  for (NetworkInterface& each : interfaces)
    if (isMissing(each)) each.signalDbm = AskSignal(generic, *family, each.index);
}

}  // namespace

NetworkState ReadLiveNetwork(const Machine& machine) {
  NetworkState state;
  state.hasNameServer = ReadHasNameServer(machine);
  netlink::Socket route(NETLINK_ROUTE);
  Interfaces interfaces;
  if (route.Dump(RTM_GETLINK, ifinfomsg{}, [&](const nlmsghdr& message) { AddInterface(message, interfaces); }) != 0)
    return state;
  for (NetworkInterface& each : interfaces) ReadHardware(machine, each);
  CompleteSignals(interfaces);
  state.addressesKnown =
      route.Dump(RTM_GETADDR, ifaddrmsg{}, [&](const nlmsghdr& message) { TakeAddress(message, interfaces); }) == 0;

  std::vector<connection::DefaultRoute> routes;
  if (connection::ReadDefaultRoutes(route, routes) == 0) {
    state.defaultRoutes.emplace();
    for (const connection::DefaultRoute& each : routes)
      if (const NetworkInterface* interface = Find(interfaces, each.interface))
        state.defaultRoutes->push_back({interface->name, each.metric, each.gateway});
  }
  state.interfaces = std::move(interfaces);
  return state;
}

}  // namespace trevlin
