#include "base/netlink.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

namespace netlink {

namespace {

using Clock = std::chrono::steady_clock;

/// The kernel answers at once; this only keeps a broken one, or a router's million routes, from holding the caller.
constexpr std::chrono::seconds kPatience{1};

/// Waits for the next part of an answer. 0 or an errno.
int AwaitPart(int fd, Clock::time_point end) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) return ETIME;
    pollfd wait{fd, POLLIN, 0};
    const int ready = poll(&wait, 1, static_cast<int>(left));
    if (ready > 0) return 0;
    if (ready < 0 && errno != EINTR) return errno;
  }
}

/// One datagram; empty when somebody else sent it. 0 or an errno: EAGAIN when none waits.
int ReceiveFromKernel(int fd, std::span<std::byte> buffer, std::span<const std::byte>& datagram) {
  sockaddr_nl sender{};
  iovec part{buffer.data(), buffer.size()};
  msghdr message{};
  message.msg_name = &sender;
  message.msg_namelen = sizeof sender;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  datagram = {};
  const ssize_t got = recvmsg(fd, &message, 0);
  if (got < 0 && errno == EINTR) return 0;
  if (got <= 0) return got < 0 ? errno : EPROTO;
  // Any process may send to this socket; the kernel is number 0.
  if (message.msg_namelen != sizeof sender || sender.nl_pid != 0) return 0;
  if (message.msg_flags & MSG_TRUNC) return EMSGSIZE;
  datagram = buffer.first(static_cast<size_t>(got));
  return 0;
}

/// Whether a message with its header lies within the bytes that are left.
bool IsWhole(const nlmsghdr* message, int left) {
  return left >= static_cast<int>(sizeof *message) && message->nlmsg_len >= sizeof *message &&
         message->nlmsg_len <= static_cast<uint32_t>(left);
}

/// 0 for one that only says that the request was done. What no kernel says is EPROTO.
int ErrorIn(const nlmsghdr& message) {
  constexpr int kLargestErrno = 4095;  // the kernel's MAX_ERRNO
  const auto* error = BodyOf<nlmsgerr>(message);
  return error && error->error <= 0 && error->error >= -kLargestErrno ? -error->error : EPROTO;
}

}  // namespace

std::optional<int> VisitMessages(std::span<const std::byte> datagram, uint32_t question, const Visitor& visit) {
  // Signed: the last message's padding may be missing, and then less than nothing is left.
  auto left = static_cast<int>(datagram.size());
  for (const auto* message = reinterpret_cast<const nlmsghdr*>(datagram.data()); IsWhole(message, left);
       message = NLMSG_NEXT(message, left)) {
    if (message->nlmsg_seq != question) continue;
    if (message->nlmsg_type == NLMSG_DONE) return 0;
    if (message->nlmsg_type == NLMSG_ERROR) return ErrorIn(*message);
    visit(*message);
  }
  return std::nullopt;
}

Socket::Socket(int protocol) : m_fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol)) {}

bool Socket::Send(uint16_t type, uint16_t flags, std::span<const std::byte> body) {
  nlmsghdr header{};
  header.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(body.size()));
  header.nlmsg_type = type;
  header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
  header.nlmsg_seq = ++m_question;
  iovec parts[] = {{&header, sizeof header}, {const_cast<std::byte*>(body.data()), body.size()}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = std::size(parts);
  return sendmsg(m_fd.get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(header.nlmsg_len);
}

int Socket::Receive(std::span<std::byte> buffer, std::span<const std::byte>& datagram) {
  const int error = ReceiveFromKernel(m_fd.get(), buffer, datagram);
  return error == EAGAIN ? 0 : error;
}

int Socket::Converse(uint16_t type, uint16_t flags, std::span<const std::byte> body, const Visitor& visit) {
  if (!m_fd) return EBADF;
  const Clock::time_point end = Clock::now() + kPatience;
  if (!Send(type, flags, body)) return errno;
  alignas(nlmsghdr) std::byte buffer[32768];
  for (;;) {
    std::span<const std::byte> datagram;
    if (const int error = AwaitPart(m_fd.get(), end)) return error;
    if (const int error = Receive(buffer, datagram)) return error;
    if (const std::optional<int> result = VisitMessages(datagram, m_question, visit)) return *result;
  }
}

bool IsEventOf(std::string_view event, std::string_view subsystem) {
  constexpr std::string_view kKey = "SUBSYSTEM=";
  for (size_t at = 0; at < event.size();) {
    const std::string_view text = event.substr(at, event.find('\0', at) - at);
    if (text.starts_with(kKey) && text.substr(kKey.size()) == subsystem) return true;
    at += text.size() + 1;
  }
  return false;
}

DeviceEvents::DeviceEvents()
    : m_fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT)) {
  constexpr unsigned kFromKernel = 1;  // a group; the other has what a device manager makes of them
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = kFromKernel;
  if (m_fd && bind(m_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) m_fd.reset();
}

bool DeviceEvents::Take(std::string_view subsystem) {
  alignas(nlmsghdr) std::byte buffer[8192];
  for (bool found = false;;) {
    std::span<const std::byte> event;
    const int error = ReceiveFromKernel(m_fd.get(), buffer, event);
    if (error == ENOBUFS || error == EMSGSIZE)
      found = true;
    else if (error != 0)
      return found;
    found = found || IsEventOf({reinterpret_cast<const char*>(event.data()), event.size()}, subsystem);
  }
}

void VisitAttributes(std::span<const std::byte> bytes, const std::function<void(const rtattr& attribute)>& visit) {
  auto left = static_cast<int>(bytes.size());
  for (const auto* attribute = reinterpret_cast<const rtattr*>(bytes.data()); RTA_OK(attribute, left);
       attribute = RTA_NEXT(attribute, left))
    visit(*attribute);
}

}  // namespace netlink
