#include <arpa/inet.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "c_handle.h"
#include "trevlin/collectors/network_probe.h"

namespace trevlin {

namespace {

using Clock = std::chrono::steady_clock;
using connection::Address;
using namespace std::chrono_literals;

constexpr auto kLook = 50ms;      // between looks at the kernel's entry
constexpr auto kAnother = 500ms;  // until a second echo
// The kernel asks once a second.
constexpr auto kUnanswered = 900ms;
constexpr uint16_t kDiscardPort = 9, kNamesPort = 53;

struct Neighbour {
  uint16_t state = NUD_NONE;
  uint8_t flags = 0;
};

/// The fixed part and the address of a question about a neighbour.
template <size_t kSize>
struct NeighbourRequest {
  ndmsg body{};
  rtattr attribute{RTA_LENGTH(kSize), NDA_DST};
  std::array<uint8_t, kSize> address{};
};

bool IsHere(uint16_t state) {
  return (state & NUD_REACHABLE) != 0;
}

bool IsRemembered(uint16_t state) {
  return (state & (NUD_REACHABLE | NUD_STALE | NUD_DELAY)) != 0;
}

/// Whether packets ask for it right now.
bool IsLookedFor(uint16_t state) {
  return (state & (NUD_INCOMPLETE | NUD_PROBE)) != 0;
}

/// The kernel's entry for a router.
class Entry {
 public:
  Entry(const Address& router, int index) : m_router(router), m_index(index), m_route(NETLINK_ROUTE) {}

  Neighbour Look() {
    Neighbour found;
    ndmsg request{};
    request.ndm_family = static_cast<uint8_t>(m_router.family);
    m_route.Dump(RTM_GETNEIGH, request, [&](const nlmsghdr& message) {
      const auto* body = netlink::BodyOf<ndmsg>(message);
      if (message.nlmsg_type != RTM_NEWNEIGH || !body || body->ndm_ifindex != m_index) return;
      netlink::VisitAttributes(netlink::AttributesOf<ndmsg>(message), [&](const rtattr& attribute) {
        const auto bytes = netlink::Payload(attribute);
        if (attribute.rta_type == NDA_DST && bytes.size() == Size() &&
            std::memcmp(bytes.data(), m_router.bytes.data(), Size()) == 0)
          found = {body->ndm_state, body->ndm_flags};
      });
    });
    return found;
  }

  /// Has the kernel ask one that it remembers, which it would do seconds after the first packet, if at all. False where
  /// this user may not.
  bool Probe(const Neighbour& known) {
    return IsRemembered(known.state) && (m_router.family == AF_INET ? ProbeAs<4>(known) : ProbeAs<16>(known));
  }

 private:
  size_t Size() const { return m_router.family == AF_INET ? 4 : 16; }

  template <size_t kSize>
  bool ProbeAs(const Neighbour& known) {
    NeighbourRequest<kSize> request;
    request.body.ndm_family = static_cast<uint8_t>(m_router.family);
    request.body.ndm_ifindex = m_index;
    request.body.ndm_state = NUD_PROBE;
    request.body.ndm_flags = known.flags;
    std::memcpy(request.address.data(), m_router.bytes.data(), kSize);
    return m_route.Ask(RTM_NEWNEIGH, NLM_F_REPLACE, request, [](const nlmsghdr&) {}) == 0;
  }

  const Address m_router;
  const int m_index;
  netlink::Socket m_route;
};

/// A socket whose packets leave by the interface, whatever the routes say, where this user may choose.
FdHandle OpenSocket(int family, int type, int protocol, const std::string& interface) {
  FdHandle fd(socket(family, type | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol));
  if (fd)
    setsockopt(fd.get(), SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(), static_cast<socklen_t>(interface.size() + 1));
  return fd;
}

int Connect(int fd, const Address& host, int index, uint16_t port) {
  if (host.family == AF_INET) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    std::memcpy(&address.sin_addr, host.bytes.data(), sizeof address.sin_addr);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(port);
  address.sin6_scope_id = static_cast<uint32_t>(index);
  std::memcpy(&address.sin6_addr, host.bytes.data(), sizeof address.sin6_addr);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

/// The packets that a router may answer.
class Packets {
 public:
  Packets(const Address& router, const std::string& interface, int index)
      : m_isIp4(router.family == AF_INET),
        m_echo(OpenSocket(router.family, SOCK_DGRAM, m_isIp4 ? int{IPPROTO_ICMP} : int{IPPROTO_ICMPV6}, interface)),
        m_discard(OpenSocket(router.family, SOCK_DGRAM, 0, interface)),
        m_names(OpenSocket(router.family, SOCK_STREAM, 0, interface)) {
    if (m_echo && Connect(m_echo.get(), router, index, 0) != 0) m_echo.reset();
    if (m_discard && Connect(m_discard.get(), router, index, kDiscardPort) != 0) m_discard.reset();
    if (m_names && Connect(m_names.get(), router, index, kNamesPort) != 0 && errno != EINPROGRESS) m_names.reset();
    SendEcho();
    const char byte = 0;
    if (m_discard) send(m_discard.get(), &byte, sizeof byte, MSG_NOSIGNAL);
  }

  /// Both families begin with type, code, checksum, identifier (the kernel fills these two) and sequence.
  void SendEcho() const {
    icmphdr header{};
    header.type = m_isIp4 ? int{ICMP_ECHO} : int{ICMP6_ECHO_REQUEST};
    if (m_echo) send(m_echo.get(), &header, sizeof header, MSG_NOSIGNAL);
  }

  /// Waits for a reaction: an answer, or an error that came back, be it from the kernel itself.
  bool Await(std::chrono::milliseconds patience) {
    pollfd waits[] = {{m_echo.get(), POLLIN, 0}, {m_discard.get(), POLLIN, 0}, {m_names.get(), POLLOUT, 0}};
    if (poll(waits, std::size(waits), static_cast<int>(patience.count())) <= 0) return false;
    if (waits[0].revents != 0 && Read(m_echo)) return true;
    if (waits[1].revents != 0 && Read(m_discard)) return true;
    if (waits[2].revents == 0) return false;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(m_names.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    m_names.reset();
    return error == 0 || IsReaction(error);
  }

 private:
  /// Nobody is at the port; no such host, or it lets nobody in.
  static bool IsReaction(int error) { return error == ECONNREFUSED || error == EHOSTUNREACH || error == EACCES; }

  static bool Read(FdHandle& fd) {
    char answer[64];
    if (recv(fd.get(), answer, sizeof answer, 0) >= 0) return true;
    const int error = errno;
    if (error != EAGAIN && error != EINTR) fd.reset();
    return IsReaction(error);
  }

  const bool m_isIp4;
  FdHandle m_echo, m_discard, m_names;
};

}  // namespace

RouterAnswer AskRouter(const Address& router, const std::string& interface, int index,
                       std::chrono::milliseconds patience) {
  Entry entry(router, index);
  Neighbour known = entry.Look();
  // One that is remembered as here says nothing until the kernel has asked it again.
  bool isNews = entry.Probe(known) || !IsHere(known.state);
  Packets packets(router, interface, index);
  const auto start = Clock::now();
  auto echoDue = start + kAnother;
  std::optional<Clock::time_point> lookedForSince;
  for (auto now = start; now < start + patience; now = Clock::now()) {
    const bool hasReacted = packets.Await(kLook);
    known = entry.Look();
    if ((known.state & NUD_FAILED) != 0) return RouterAnswer::kGone;
    // To one whose hardware address is not known nothing was sent: that reaction was the kernel's, giving up.
    const bool isAnswer = hasReacted && (known.state & NUD_INCOMPLETE) == 0;
    if (isAnswer || (isNews && IsHere(known.state))) return RouterAnswer::kHeard;
    isNews = isNews || !IsHere(known.state);
    if (!IsLookedFor(known.state))
      lookedForSince.reset();
    else if (!lookedForSince)
      lookedForSince = now;
    if (Clock::now() < echoDue) continue;
    packets.SendEcho();
    echoDue = Clock::time_point::max();
  }
  if (lookedForSince && Clock::now() - *lookedForSince >= kUnanswered) return RouterAnswer::kGone;
  return IsRemembered(known.state) || IsLookedFor(known.state) ? RouterAnswer::kSilent : RouterAnswer::kUnknown;
}

std::optional<bool> IsRouterRemembered(const Address& router, int index) {
  const uint16_t state = Entry(router, index).Look().state;
  if (IsHere(state)) return true;
  return (state & NUD_FAILED) != 0 ? std::optional(false) : std::nullopt;
}

}  // namespace trevlin
