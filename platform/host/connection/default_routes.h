#pragma once
/// @file
/// Where the kernel sends packets for the world outside.
///
/// Thread rule: callable from any thread.

#include <array>
#include <cstdint>
#include <vector>

#include "base/netlink.h"

namespace connection {

/// An address of either family in network order; of IPv4 the first four bytes.
struct Address {
  int family = 0;  ///< AF_INET, AF_INET6; 0 for none
  std::array<uint8_t, 16> bytes{};
  bool operator==(const Address&) const = default;
};

struct DefaultRoute {
  int interface = 0;    ///< its index
  uint32_t metric = 0;  ///< the kernel takes the lowest
  Address gateway;      ///< none where the interface leads to one other end only, a tunnel say
};

/// Adds what one message of an answer says, of the default routes of the main table.
void AddDefaultRoutes(const nlmsghdr& message, std::vector<DefaultRoute>& routes);

/// Adds the ways that packets to an address take now, whichever table and rule decides on it; none, and ENETUNREACH
/// or another errno, when there is none.
int AskRoute(netlink::Socket& socket, const Address& to, std::vector<DefaultRoute>& routes);

/// Adds the ways into the world outside that packets can take: the default routes of the main table, one for each way
/// of those that have several, and before them, with the metric 0, what else the kernel takes to an address outside: a
/// default route of another table, or two halves in its place. The kernel keeps the routes of an interface that lost
/// its cable, and marks them: these are left out. 0 or an errno.
int ReadDefaultRoutes(netlink::Socket& socket, std::vector<DefaultRoute>& routes);

}  // namespace connection
