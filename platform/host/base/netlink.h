#pragma once
/// @file
/// Questions to the kernel over netlink (netlink(7), rtnetlink(7)): dumps, read to their end.

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

#include "c_handle.h"

namespace netlink {

using Visitor = std::function<void(const nlmsghdr& message)>;

/// One datagram of an answer: each whole message in it that answers `question` goes to `visit`, up to the answer's end.
/// Then 0, or the errno that the kernel tells; nothing when more datagrams follow. Any bytes may be in it: what claims
/// to be longer than the datagram, and all behind it, is left out. `datagram` is aligned for a header.
std::optional<int> VisitMessages(std::span<const std::byte> datagram, uint32_t question, const Visitor& visit);

/// One conversation with the kernel. For one thread at a time.
class Socket {
 public:
  /// `protocol`: NETLINK_ROUTE, NETLINK_GENERIC. When it does not become one, errno tells why.
  explicit Socket(int protocol);
  explicit operator bool() const { return static_cast<bool>(m_fd); }

  /// Asks for all of a kind: `type` as in the header (RTM_GETLINK), `body` what follows the header, attributes
  /// included. Each message of the answer, at least a header long, goes to `visit`; what others than the kernel send is
  /// not looked at. 0 or an errno: ETIME when the answer did not end within a second, EMSGSIZE when a part of it was
  /// cut off; what was visited until then may be part of the whole.
  template <typename Body>
  int Dump(uint16_t type, const Body& body, const Visitor& visit) {
    return Converse(type, NLM_F_DUMP, std::as_bytes(std::span(&body, 1)), visit);
  }

  /// Asks for one thing, or to change one: `flags` beside NLM_F_REQUEST, as NLM_F_REPLACE. What the kernel says before
  /// it is done goes to `visit`. 0 or an errno, which may be the kernel's: EPERM, ENETUNREACH for no route.
  template <typename Body>
  int Ask(uint16_t type, uint16_t flags, const Body& body, const Visitor& visit) {
    return Converse(type, static_cast<uint16_t>(NLM_F_ACK | flags), std::as_bytes(std::span(&body, 1)), visit);
  }

 private:
  int Converse(uint16_t type, uint16_t flags, std::span<const std::byte> body, const Visitor& visit);
  int Receive(std::span<std::byte> buffer, std::span<const std::byte>& datagram);
  bool Send(uint16_t type, uint16_t flags, std::span<const std::byte> body);

  FdHandle m_fd;
  uint32_t m_question = 0;  // tells its answer from one that came too late
};

/// Whether an event of the kernel (uevent: texts with a zero after each, "SUBSYSTEM=drm" among them) is of the
/// subsystem.
bool IsEventOf(std::string_view event, std::string_view subsystem);

/// Events that the kernel sends when a device comes, goes or changes. For one thread at a time. In a container there
/// may be none.
class DeviceEvents {
 public:
  DeviceEvents();
  /// Readable when there are some; -1 when they cannot be had.
  int Fd() const { return m_fd.get(); }
  /// Takes all that wait. Whether one is of the subsystem ("drm"), or some were lost that might have been.
  bool Take(std::string_view subsystem);

 private:
  FdHandle m_fd;
};

/// The fixed part of a message; null when the message is too short for one.
template <typename Body>
const Body* BodyOf(const nlmsghdr& message) {
  return message.nlmsg_len >= NLMSG_LENGTH(sizeof(Body)) ? static_cast<const Body*>(NLMSG_DATA(&message)) : nullptr;
}

/// Attributes that follow each other in `bytes`, to `visit`. Ends at the first that claims more than there is.
void VisitAttributes(std::span<const std::byte> bytes, const std::function<void(const rtattr& attribute)>& visit);

/// What an attribute holds; also the attributes nested in it.
inline std::span<const std::byte> Payload(const rtattr& attribute) {
  return {static_cast<const std::byte*>(RTA_DATA(&attribute)), RTA_PAYLOAD(&attribute)};
}

/// The attributes of a message whose fixed part is a Body.
template <typename Body>
std::span<const std::byte> AttributesOf(const nlmsghdr& message) {
  const size_t from = NLMSG_LENGTH(NLMSG_ALIGN(sizeof(Body)));
  if (message.nlmsg_len <= from) return {};
  return {reinterpret_cast<const std::byte*>(&message) + from, message.nlmsg_len - from};
}

/// The number in an attribute; nothing when the attribute is shorter.
template <typename Number>
std::optional<Number> NumberOf(const rtattr& attribute) {
  if (RTA_PAYLOAD(&attribute) < sizeof(Number)) return std::nullopt;
  Number number;
  std::memcpy(&number, RTA_DATA(&attribute), sizeof number);
  return number;
}

/// The text in an attribute, up to its end or its first zero.
inline std::string_view TextOf(const rtattr& attribute) {
  const auto* text = static_cast<const char*>(RTA_DATA(&attribute));
  return {text, strnlen(text, RTA_PAYLOAD(&attribute))};
}

}  // namespace netlink
