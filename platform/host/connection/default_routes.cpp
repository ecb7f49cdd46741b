#include "connection/default_routes.h"

#include <sys/socket.h>

#include <algorithm>

namespace connection {

namespace {

/// Of the AS112 project (RFC 7534, RFC 7535): everyone's, and in nobody's own network. Nothing is sent there.
constexpr Address kOutside[] = {{AF_INET, {192, 175, 48, 1}},
                                {AF_INET6, {0x26, 0x20, 0, 0x4f, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}}};

bool IsUp(unsigned int flags) {
  return (flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN)) == 0;
}

Address AddressIn(std::span<const std::byte> bytes, int family) {
  Address address;
  const size_t size = family == AF_INET ? 4 : 16;
  if (bytes.size() < size) return address;
  address.family = family;
  std::memcpy(address.bytes.data(), bytes.data(), size);
  return address;
}

/// What both a route and one of its ways may say.
void TakeAttribute(const rtattr& attribute, int family, DefaultRoute& route) {
  const auto payload = netlink::Payload(attribute);
  if (attribute.rta_type == RTA_GATEWAY) {
    route.gateway = AddressIn(payload, family);
  } else if (attribute.rta_type == RTA_VIA && payload.size() > sizeof(rtvia)) {
    const auto via = netlink::NumberOf<decltype(rtvia::rtvia_family)>(attribute).value_or(0);
    route.gateway = AddressIn(payload.subspan(offsetof(rtvia, rtvia_addr)), via);
  }
}

/// Several ways at once are marked one by one.
void AddWays(const rtattr& ways, int family, const DefaultRoute& common, std::vector<DefaultRoute>& routes) {
  auto left = static_cast<int>(RTA_PAYLOAD(&ways));
  for (const auto* way = static_cast<const rtnexthop*>(RTA_DATA(&ways));
       left >= static_cast<int>(sizeof *way) && RTNH_OK(way, left);
       left -= RTNH_ALIGN(way->rtnh_len), way = RTNH_NEXT(way)) {
    if (!IsUp(way->rtnh_flags)) continue;
    DefaultRoute route = common;
    route.interface = way->rtnh_ifindex;
    const auto* inside = reinterpret_cast<const std::byte*>(RTNH_DATA(way));
    netlink::VisitAttributes({inside, way->rtnh_len - RTNH_LENGTH(0)},
                             [&](const rtattr& attribute) { TakeAttribute(attribute, family, route); });
    routes.push_back(route);
  }
}

/// The ways of a route that packets can take, whatever it leads to.
void AddWaysOf(const nlmsghdr& message, std::vector<DefaultRoute>& routes) {
  const auto* body = netlink::BodyOf<rtmsg>(message);
  if (message.nlmsg_type != RTM_NEWROUTE || !body || (body->rtm_family != AF_INET && body->rtm_family != AF_INET6) ||
      body->rtm_type != RTN_UNICAST)
    return;
  DefaultRoute route;
  const rtattr* ways = nullptr;
  netlink::VisitAttributes(netlink::AttributesOf<rtmsg>(message), [&](const rtattr& attribute) {
    if (attribute.rta_type == RTA_MULTIPATH) ways = &attribute;
    if (attribute.rta_type == RTA_OIF) route.interface = netlink::NumberOf<int>(attribute).value_or(0);
    if (attribute.rta_type == RTA_PRIORITY) route.metric = netlink::NumberOf<uint32_t>(attribute).value_or(0);
    TakeAttribute(attribute, body->rtm_family, route);
  });
  if (ways)
    AddWays(*ways, body->rtm_family, route, routes);
  else if (IsUp(body->rtm_flags))
    routes.push_back(route);
}

template <size_t kSize>
int AskWays(netlink::Socket& socket, const Address& to, std::vector<DefaultRoute>& routes) {
  struct {
    rtmsg body{};
    rtattr attribute{RTA_LENGTH(kSize), RTA_DST};
    std::array<uint8_t, kSize> address{};
  } request;
  request.body.rtm_family = static_cast<uint8_t>(to.family);
  request.body.rtm_dst_len = 8 * kSize;
  request.body.rtm_flags = RTM_F_FIB_MATCH;  // the route itself, which says when its cable is out
  std::copy_n(to.bytes.begin(), kSize, request.address.begin());
  return socket.Ask(RTM_GETROUTE, 0, request, [&routes](const nlmsghdr& message) { AddWaysOf(message, routes); });
}

}  // namespace

void AddDefaultRoutes(const nlmsghdr& message, std::vector<DefaultRoute>& routes) {
  const auto* body = netlink::BodyOf<rtmsg>(message);
  if (body && body->rtm_dst_len == 0 && body->rtm_table == RT_TABLE_MAIN) AddWaysOf(message, routes);
}

int AskRoute(netlink::Socket& socket, const Address& to, std::vector<DefaultRoute>& routes) {
  return to.family == AF_INET ? AskWays<4>(socket, to, routes) : AskWays<16>(socket, to, routes);
}

int ReadDefaultRoutes(netlink::Socket& socket, std::vector<DefaultRoute>& routes) {
  std::vector<DefaultRoute> found;
  const int error =
      socket.Dump(RTM_GETROUTE, rtmsg{}, [&found](const nlmsghdr& message) { AddDefaultRoutes(message, found); });
  if (error != 0) return error;
  for (const Address& outside : kOutside) {
    std::vector<DefaultRoute> ways;
    AskRoute(socket, outside, ways);
    for (DefaultRoute& way : ways) {
      const auto isSame = [&way](const DefaultRoute& each) {
        return each.interface == way.interface && each.gateway == way.gateway;
      };
      if (std::any_of(found.begin(), found.end(), isSame)) continue;
      way.metric = 0;
      found.insert(found.begin(), way);
    }
  }
  routes.insert(routes.end(), found.begin(), found.end());
  return 0;
}

}  // namespace connection
