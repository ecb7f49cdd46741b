#include "connection/default_routes.h"
#include "fuzz.h"

/// One datagram of an answer.
void FuzzOne(std::string_view bytes) {
  std::vector<connection::DefaultRoute> routes;
  netlink::VisitMessages(std::as_bytes(std::span(bytes)), 0, [&](const nlmsghdr& message) {
    connection::AddDefaultRoutes(message, routes);
    netlink::VisitAttributes(netlink::AttributesOf<rtmsg>(message), [](const rtattr& attribute) {
      netlink::TextOf(attribute);
      netlink::VisitAttributes(netlink::Payload(attribute),
                               [](const rtattr& nested) { netlink::NumberOf<int>(nested); });
    });
  });
}
