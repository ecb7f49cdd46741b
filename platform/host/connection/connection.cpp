#include "connection.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "c_handle.h"
#include "dlog.h"

// The kernel's routes are read anew for each question: there is nothing to keep up to date, so no main loop is needed.

struct connection_s {
  FdHandle routes;
  uint32_t question = 0;  // tells its answer from one that came too late
};

namespace {

constexpr char kTag[] = "CONNECTION";

/// The kernel answers within the call; this only keeps a broken one from holding the caller.
constexpr timeval kPatience = {1, 0};

bool Ask(int socket, uint32_t question) {
  struct {
    nlmsghdr header{};
    rtmsg message{};
  } request;
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = question;
  request.message.rtm_family = AF_UNSPEC;
  return send(socket, &request, sizeof request, MSG_NOSIGNAL) == sizeof request;
}

bool IsUp(unsigned int flags) {
  return (flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN)) == 0;
}

bool HasGateway(const rtattr* part, int left) {
  for (; RTA_OK(part, left); part = RTA_NEXT(part, left))
    if (part->rta_type == RTA_GATEWAY || part->rta_type == RTA_VIA) return true;
  return false;
}

/// Several ways at once are marked one by one.
bool HasUsableWay(const rtattr* ways) {
  auto left = static_cast<int>(RTA_PAYLOAD(ways));
  for (const auto* way = static_cast<const rtnexthop*>(RTA_DATA(ways));
       left >= static_cast<int>(sizeof *way) && RTNH_OK(way, left);
       left -= RTNH_ALIGN(way->rtnh_len), way = RTNH_NEXT(way)) {
    const int inside = way->rtnh_len - static_cast<int>(RTNH_LENGTH(0));
    if (IsUp(way->rtnh_flags) && HasGateway(static_cast<const rtattr*>(RTNH_DATA(way)), inside)) return true;
  }
  return false;
}

/// A default route by a gateway that packets can take. The kernel keeps those of an interface that lost its cable, and
/// marks them.
bool IsUsableDefault(const nlmsghdr* message) {
  if (message->nlmsg_type != RTM_NEWROUTE || message->nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg))) return false;
  const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(message));
  if ((route->rtm_family != AF_INET && route->rtm_family != AF_INET6) || route->rtm_dst_len != 0 ||
      route->rtm_type != RTN_UNICAST || route->rtm_table != RT_TABLE_MAIN)
    return false;
  auto left = static_cast<int>(RTM_PAYLOAD(message));
  if (IsUp(route->rtm_flags) && HasGateway(RTM_RTA(route), left)) return true;
  for (const rtattr* part = RTM_RTA(route); RTA_OK(part, left); part = RTA_NEXT(part, left))
    if (part->rta_type == RTA_MULTIPATH && HasUsableWay(part)) return true;
  return false;
}

/// Reads the answer to its end. 0 or an errno.
int ReadRoutes(int socket, uint32_t question, bool& found) {
  alignas(nlmsghdr) char buffer[32768];
  for (;;) {
    const ssize_t got = recv(socket, buffer, sizeof buffer, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return got < 0 ? errno : EPROTO;
    auto left = static_cast<unsigned int>(got);
    for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(message, left);
         message = NLMSG_NEXT(message, left)) {
      if (message->nlmsg_seq != question) continue;
      if (message->nlmsg_type == NLMSG_DONE) return 0;
      if (message->nlmsg_type == NLMSG_ERROR) return EPROTO;
      found = found || IsUsableDefault(message);
    }
  }
}

}  // namespace

extern "C" {

int connection_create(connection_h* connection) {
  if (!connection) return CONNECTION_ERROR_INVALID_PARAMETER;
  FdHandle routes(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!routes || setsockopt(routes.get(), SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience) != 0) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "cannot ask for routes: %s", std::strerror(errno));
    return CONNECTION_ERROR_FAILED;
  }
  auto* handle = new (std::nothrow) connection_s{std::move(routes)};
  if (!handle) return CONNECTION_ERROR_FAILED;
  *connection = handle;
  return CONNECTION_ERROR_NONE;
}

int connection_destroy(connection_h connection) {
  if (!connection) return CONNECTION_ERROR_INVALID_PARAMETER;
  delete connection;
  return CONNECTION_ERROR_NONE;
}

int connection_is_gateway_reachable(connection_h connection, bool* reachable) {
  if (!connection || !reachable) return CONNECTION_ERROR_INVALID_PARAMETER;
  bool found = false;
  const int socket = connection->routes.get();
  const uint32_t question = ++connection->question;
  const int error = Ask(socket, question) ? ReadRoutes(socket, question, found) : errno;
  if (error != 0) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "cannot read the routes: %s", std::strerror(error));
    return CONNECTION_ERROR_FAILED;
  }
  *reachable = found;
  return CONNECTION_ERROR_NONE;
}

}  // extern "C"
