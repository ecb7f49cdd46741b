#include "connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "connection/default_routes.h"
#include "dlog.h"
#include "log_tags.h"

// The kernel's routes are read anew for each question: there is nothing to keep up to date, so no main loop is needed.

struct connection_s {
  netlink::Socket routes;
};

namespace {

constexpr const char* kTag = log_tags::kConnection;

}  // namespace

extern "C" {

int connection_create(connection_h* connection) {
  if (!connection) return CONNECTION_ERROR_INVALID_PARAMETER;
  netlink::Socket routes(NETLINK_ROUTE);
  if (!routes) {
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
  std::vector<connection::DefaultRoute> routes;
  const int error = ReadDefaultRoutes(connection->routes, routes);
  if (error != 0) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "cannot read the routes: %s", std::strerror(error));
    return CONNECTION_ERROR_FAILED;
  }
  *reachable = std::any_of(routes.begin(), routes.end(), [](const auto& route) { return route.gateway.family != 0; });
  return CONNECTION_ERROR_NONE;
}

}  // extern "C"
