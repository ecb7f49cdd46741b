#include <cstring>

#include "connection/default_routes.h"
#include "fuzz.h"

/// One message of an answer.
void FuzzOne(std::string_view bytes) {
  if (bytes.size() < sizeof(nlmsghdr)) return;
  std::vector<uint32_t> aligned((bytes.size() + 3) / 4);
  std::memcpy(aligned.data(), bytes.data(), bytes.size());
  auto& message = *reinterpret_cast<nlmsghdr*>(aligned.data());
  message.nlmsg_len = static_cast<uint32_t>(bytes.size());
  std::vector<connection::DefaultRoute> routes;
  connection::AddDefaultRoutes(message, routes);
  netlink::VisitAttributes(netlink::AttributesOf<rtmsg>(message), [](const rtattr& attribute) {
    netlink::TextOf(attribute);
    netlink::VisitAttributes(netlink::Payload(attribute), [](const rtattr& nested) { netlink::NumberOf<int>(nested); });
  });
}
