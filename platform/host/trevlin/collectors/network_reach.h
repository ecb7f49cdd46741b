#pragma once
/// @file
/// What may be asked of the network, and how far it reaches by the answers.
///
/// Thread rule: callable from any thread.

#include <optional>
#include <string>

#include "trevlin/collectors/network_probe.h"
#include "trevlin/collectors/network_state.h"

namespace trevlin {

/// How long a question waits for its answer.
inline constexpr std::chrono::milliseconds kRouterPatience{1200}, kNamesPatience{1900};

/// What the set's owner lets us ask for: the group [network] of the set's profile.
struct NetworkProbes {
  std::string zone{};  ///< empty: nothing is sent at all
  std::string page{};  ///< empty: none
};
NetworkProbes ReadNetworkProbes();

/// The router of this network, and the interface that leads to it.
struct Gateway {
  connection::Address address;
  std::string interface;
  int index;  ///< of the interface
};
std::optional<Gateway> FindGateway(const NetworkState& state);

/// What came back. What was not asked is as it is here.
struct NetworkAnswers {
  RouterAnswer router = RouterAnswer::kUnknown;
  NameAnswers names{};
  PageAnswer page = PageAnswer::kUnknown;
};

/// Adds the facts of docs/facts.md, "network", that follow from answers to what `probes` permits. Asks the kernel
/// alone.
void AddReachabilityFacts(const NetworkProbes& probes, const NetworkState& state, const NetworkAnswers& answers,
                          Facts& facts);

}  // namespace trevlin
