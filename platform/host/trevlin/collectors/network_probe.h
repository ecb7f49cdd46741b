#pragma once
/// @file
/// Questions to the network: to its router, to name servers, to an address outside. They wait, for as long as they are
/// given.
///
/// Thread rule: callable from any thread.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "connection/default_routes.h"

namespace trevlin {

enum class RouterAnswer {
  kHeard,   ///< just now
  kGone,    ///< the kernel looked for it, and nobody was there
  kSilent,  ///< it did not answer, and the kernel remembers it from before: it may be one that answers nothing
  kUnknown  ///< it did not answer, and the kernel looks for nobody on such an interface
};

/// Asks a router by the interface of that name and index: an ICMP echo where this user may send one, a TCP connection
/// and a UDP packet to ports that answer or refuse; and has the kernel look for the neighbour, also for one that it
/// remembers where this user may change that (CAP_NET_ADMIN). Any reaction is an answer. `patience` is at least the
/// second that the kernel gives a neighbour.
RouterAnswer AskRouter(const connection::Address& router, const std::string& interface, int index,
                       std::chrono::milliseconds patience);

/// What the kernel knows of it, without a packet: true when it was heard from within its half a minute, false when it
/// did not answer.
std::optional<bool> IsRouterRemembered(const connection::Address& router, int index);

struct NameAnswers {
  /// Whether one says what became of the name: that there is no such name is an answer; silence, refusal and failure
  /// are none. Unknown when the zone cannot be one, which the log says.
  std::optional<bool> resolve{};
  /// What a program waits for a name: for each question that is lost before one is answered, the resolver's time
  /// limit; those that follow go to the next server.
  std::optional<double> delayMs{};
  /// The one that answered denies even the root of all names, as no server does that knows of the world.
  bool isInvented = false;
  std::vector<connection::Address> heard{};  ///< the servers that said anything at all
};

/// Asks the servers of the resolver's configuration, all beside each other and again while they are silent, for a label
/// below `zone` that nobody can have asked for before.
NameAnswers AskNameServers(const std::string& zone, std::chrono::milliseconds patience);

enum class PageAnswer {
  kReached,  ///< it answered 204, as it must
  kOther,    ///< something answered in its place, as a page to sign in does
  kSilent,   ///< nobody
  kUnknown   ///< its name was not found
};

/// Whether it is "http://HOST[:PORT]/PATH".
bool IsWebAddress(const std::string& url);

struct WebAnswer {
  bool isFound = false;         ///< the host has an address
  std::optional<int> status{};  ///< of an answer in HTTP; 0 for one without a number
};

/// Gets such an address, whatever it answers.
WebAnswer AskWeb(const std::string& url, std::chrono::milliseconds patience);

/// Gets the page of [network] probe_page; the log says when that is no such address.
PageAnswer AskPage(const std::string& url, std::chrono::milliseconds patience);

}  // namespace trevlin
