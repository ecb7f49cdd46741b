#include "trevlin/collectors/system_bus.h"

#include <chrono>
#include <cstdlib>

#include "base/session_bus.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kLimit = 1s;

using ContextHandle = std::unique_ptr<GMainContext, CRelease<&g_main_context_unref>>;

}  // namespace

GVariantHandle AskSystemBus(const BusMethod& method, GVariant* arguments) {
  const GVariantHandle taken(arguments ? g_variant_ref_sink(arguments) : nullptr);
  const char* const given = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string address = given && *given ? given : "unix:path=/run/dbus/system_bus_socket";
  const ContextHandle context(g_main_context_new());
  std::string problem;
  const auto bus = ConnectToBus(address, kLimit, context.get(), problem);
  if (!bus) return nullptr;
  return GVariantHandle(g_dbus_connection_call_sync(
      bus.get(), method.service, method.path, method.interface, method.name, taken.get(), G_VARIANT_TYPE(method.reply),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, static_cast<int>(kLimit.count()), nullptr, nullptr));
}

}  // namespace trevlin
