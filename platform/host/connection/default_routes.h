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

/// Adds what one message of an answer says, as ReadDefaultRoutes() takes it.
void AddDefaultRoutes(const nlmsghdr& message, std::vector<DefaultRoute>& routes);

/// Adds the default routes of the main table that packets can take, one for each way of those that have several. The
/// kernel keeps those of an interface that lost its cable, and marks them: these are left out. 0 or an errno.
int ReadDefaultRoutes(netlink::Socket& socket, std::vector<DefaultRoute>& routes);

}  // namespace connection
