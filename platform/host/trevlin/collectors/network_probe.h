#pragma once
/// @file
/// Questions to the network's own router and name server. They wait, for as long as they are given.
///
/// Thread rule: callable from any thread.

#include <netinet/in.h>

#include <chrono>
#include <optional>
#include <string>

#include "connection/default_routes.h"

namespace trevlin {

enum class Echo {
  kAnswered,
  kSilent,        ///< within the time
  kUnreachable,   ///< the kernel or a router says so
  kNotPermitted,  ///< this user may not ask (net.ipv4.ping_group_range), or it cannot be asked
};

/// Sends one ICMP echo request to `host`, by the interface of that index where the address alone does not tell, and
/// waits for the reply. Needs no privilege where the machine permits it.
Echo AskEcho(const connection::Address& host, int interface, std::chrono::milliseconds patience);

/// What the kernel knows of a neighbour on an interface: true when it was heard from just now or is not asked for on
/// such an interface, false when it did not answer, unknown when nobody asked, or asked long ago.
std::optional<bool> IsNeighbourThere(const connection::Address& host, int interface);

/// Whether a resolver answers when asked for `name`: that there is no such name is an answer, too; none in time,
/// refusal and failure are not. The first two servers of /etc/resolv.conf are asked, twice, or `server` in their place;
/// it takes at most four seconds. Unknown when `name` cannot be one.
std::optional<bool> DoNamesResolve(const std::string& name, const std::optional<sockaddr_in>& server = std::nullopt);

}  // namespace trevlin
