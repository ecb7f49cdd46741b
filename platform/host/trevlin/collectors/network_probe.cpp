#include "trevlin/collectors/network_probe.h"

#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <resolv.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "c_handle.h"

namespace trevlin {

namespace {

using Clock = std::chrono::steady_clock;
using connection::Address;

constexpr int kServers = 2;
constexpr int kTries = 2;
constexpr size_t kLongestName = 253;  // RFC 1035
constexpr uint16_t kSequence = 1;

bool Connect(int fd, const Address& host, int interface) {
  if (host.family == AF_INET) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::memcpy(&address.sin_addr, host.bytes.data(), sizeof address.sin_addr);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_scope_id = static_cast<uint32_t>(interface);
  std::memcpy(&address.sin6_addr, host.bytes.data(), sizeof address.sin6_addr);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

Echo FromError(int error) {
  const bool isAway = error == EHOSTUNREACH || error == ENETUNREACH || error == ENETDOWN || error == EHOSTDOWN;
  return isAway ? Echo::kUnreachable : Echo::kNotPermitted;
}

/// Both families begin with type, code, checksum, identifier (the kernel fills these two) and sequence.
Echo Converse(int fd, uint8_t request, uint8_t reply, std::chrono::milliseconds patience) {
  icmphdr header{};
  header.type = request;
  header.un.echo.sequence = htons(kSequence);
  if (send(fd, &header, sizeof header, MSG_NOSIGNAL) < 0) return FromError(errno);
  const Clock::time_point end = Clock::now() + patience;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd wait{fd, POLLIN, 0};
    const int ready = left > 0 ? poll(&wait, 1, static_cast<int>(left)) : 0;
    if (ready == 0) return Echo::kSilent;
    if (ready < 0 && errno == EINTR) continue;
    icmphdr answer{};
    const ssize_t got = recv(fd, &answer, sizeof answer, MSG_DONTWAIT);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got < 0) return FromError(errno);
    if (got == sizeof answer && answer.type == reply && answer.un.echo.sequence == htons(kSequence))
      return Echo::kAnswered;
  }
}

/// res_state of one question; the resolver's own is for threads that live long.
class Resolver {
 public:
  Resolver() : m_ready(res_ninit(&m_state) == 0) {}
  ~Resolver() {
    if (m_ready) res_nclose(&m_state);
  }
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  explicit operator bool() const { return m_ready; }
  res_state Get() { return &m_state; }

 private:
  struct __res_state m_state {};
  const bool m_ready;
};

}  // namespace

Echo AskEcho(const Address& host, int interface, std::chrono::milliseconds patience) {
  const bool is4 = host.family == AF_INET;
  const FdHandle fd(socket(host.family, SOCK_DGRAM | SOCK_CLOEXEC, is4 ? int{IPPROTO_ICMP} : int{IPPROTO_ICMPV6}));
  if (!fd) return Echo::kNotPermitted;
  if (!Connect(fd.get(), host, interface)) return FromError(errno);
  return is4 ? Converse(fd.get(), ICMP_ECHO, ICMP_ECHOREPLY, patience)
             : Converse(fd.get(), ICMP6_ECHO_REQUEST, ICMP6_ECHO_REPLY, patience);
}

std::optional<bool> IsNeighbourThere(const Address& host, int interface) {
  netlink::Socket route(NETLINK_ROUTE);
  std::optional<bool> there;
  ndmsg request{};
  request.ndm_family = static_cast<uint8_t>(host.family);
  const size_t size = host.family == AF_INET ? 4 : 16;
  route.Dump(RTM_GETNEIGH, request, [&](const nlmsghdr& message) {
    const auto* body = netlink::BodyOf<ndmsg>(message);
    if (message.nlmsg_type != RTM_NEWNEIGH || !body || body->ndm_ifindex != interface) return;
    netlink::VisitAttributes(netlink::AttributesOf<ndmsg>(message), [&](const rtattr& attribute) {
      const auto bytes = netlink::Payload(attribute);
      if (attribute.rta_type != NDA_DST || bytes.size() != size ||
          std::memcmp(bytes.data(), host.bytes.data(), size) != 0)
        return;
      // Stale, delayed and probed ones are remembered from before; nobody knows whether they still answer.
      if ((body->ndm_state & (NUD_REACHABLE | NUD_PERMANENT | NUD_NOARP)) != 0) there = true;
      if ((body->ndm_state & (NUD_FAILED | NUD_INCOMPLETE)) != 0) there = false;
    });
  });
  return there;
}

std::optional<bool> DoNamesResolve(const std::string& name, const std::optional<sockaddr_in>& server) {
  if (name.empty() || name.size() > kLongestName) return std::nullopt;
  Resolver resolver;
  if (!resolver) return std::nullopt;
  const res_state state = resolver.Get();
  state->retrans = 1;  // seconds; twice that for the second try, divided among the servers
  state->retry = kTries;
  state->nscount = std::min(state->nscount, kServers);
  // By TCP it would wait as long as a connection takes; a part of the answer is enough here.
  state->options = (state->options | RES_IGNTC) & ~static_cast<unsigned long>(RES_USEVC);
  if (server) {
    state->nscount = 1;
    state->nsaddr_list[0] = *server;
  }
  unsigned char answer[NS_PACKETSZ];
  if (res_nquery(state, name.c_str(), ns_c_in, ns_t_a, answer, sizeof answer) >= 0) return true;
  const int problem = state->res_h_errno;
  if (problem == HOST_NOT_FOUND || problem == NO_DATA) return true;
  return problem == TRY_AGAIN ? std::optional(false) : std::nullopt;
}

}  // namespace trevlin
