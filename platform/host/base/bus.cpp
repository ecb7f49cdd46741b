#include "base/bus.h"

#include <algorithm>
#include <cstdlib>

namespace {

using ContextHandle = std::unique_ptr<GMainContext, CRelease<&g_main_context_unref>>;

/// A connection on its way.
struct Attempt {
  GObjectHandle<GDBusConnection> connection;
  GErrorHandle error;
  bool done = false;
};

void OnConnected(GObject*, GAsyncResult* result, void* data) {
  auto* attempt = static_cast<Attempt*>(data);
  attempt->connection.reset(g_dbus_connection_new_for_address_finish(result, attempt->error.Out()));
  attempt->done = true;
}

gboolean OnLimit(void* cancellable) {
  g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
  return G_SOURCE_REMOVE;
}

}  // namespace

std::string SessionBusAddress() {
  const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  // GLib itself would start a bus.
  if (address && *address) return g_str_has_prefix(address, "autolaunch:") ? "" : address;
  const char* const runtimeFolder = std::getenv("XDG_RUNTIME_DIR");
  if (!runtimeFolder || !*runtimeFolder) return "";
  const std::string socket = std::string(runtimeFolder) + "/bus";
  if (!g_file_test(socket.c_str(), G_FILE_TEST_EXISTS)) return "";
  const GText escaped(g_dbus_address_escape_value(socket.c_str()));
  return std::string("unix:path=") + escaped.get();
}

std::string SystemBusAddress() {
  const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return address && *address ? address : "unix:path=/run/dbus/system_bus_socket";
}

// GLib's waiting call takes no limit, so the other one runs here until it has ended, one way or the other.
GObjectHandle<GDBusConnection> ConnectToBus(const std::string& address, std::chrono::milliseconds limit,
                                            GMainContext* context, std::string& problem, bool* isSilent) {
  const ContextHandle own(context ? nullptr : g_main_context_new());
  if (own) context = own.get();
  g_main_context_push_thread_default(context);
  const GObjectHandle<GCancellable> cancellable(g_cancellable_new());
  GSource* const timer = g_timeout_source_new(static_cast<guint>(std::max<int64_t>(limit.count(), 0)));
  g_source_set_callback(timer, OnLimit, cancellable.get(), nullptr);
  g_source_attach(timer, context);

  Attempt attempt;
  const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                       G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  g_dbus_connection_new_for_address(address.c_str(), flags, nullptr, cancellable.get(), OnConnected, &attempt);
  while (!attempt.done) g_main_context_iteration(context, TRUE);

  g_source_destroy(timer);
  g_source_unref(timer);
  g_main_context_pop_thread_default(context);
  if (attempt.connection) {
    g_dbus_connection_set_exit_on_close(attempt.connection.get(), FALSE);
  } else {
    const bool late = attempt.error.Matches(G_IO_ERROR, G_IO_ERROR_CANCELLED);
    problem = late ? "the bus does not answer" : attempt.error.Message();
    if (isSilent) *isSilent = late;
  }
  return std::move(attempt.connection);
}

GVariantHandle CallOnBus(GDBusConnection& bus, const BusMethod& method, GVariant* arguments,
                         std::chrono::milliseconds limit, GErrorHandle& error) {
  const auto* reply = method.reply ? G_VARIANT_TYPE(method.reply) : nullptr;
  const auto flags = static_cast<GDBusCallFlags>(
      G_DBUS_CALL_FLAGS_NO_AUTO_START |
      (method.mayAskPerson ? G_DBUS_CALL_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION : G_DBUS_CALL_FLAGS_NONE));
  return GVariantHandle(
      g_dbus_connection_call_sync(&bus, method.service, method.path, method.interface, method.name, arguments, reply,
                                  flags, static_cast<int>(std::max<int64_t>(limit.count(), 1)), nullptr, error.Out()));
}

bool IsNobodyThere(const GErrorHandle& error) {
  return error.Matches(G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
         error.Matches(G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
}

GVariantHandle ValueOf(GVariant& reply, const char* type) {
  const GVariantHandle boxed(g_variant_get_child_value(&reply, 0));
  GVariantHandle value(g_variant_get_variant(boxed.get()));
  return g_variant_is_of_type(value.get(), G_VARIANT_TYPE(type)) ? std::move(value) : nullptr;
}

GVariantHandle AskSystemBus(const BusMethod& method, GVariant* arguments, bool* isThere) {
  constexpr std::chrono::seconds kLimit(1);
  const GVariantHandle taken(arguments ? g_variant_ref_sink(arguments) : nullptr);
  std::string problem;
  bool isSilent = false;
  const auto bus = ConnectToBus(SystemBusAddress(), kLimit, nullptr, problem, &isSilent);
  GErrorHandle error;
  GVariantHandle reply = bus ? CallOnBus(*bus, method, taken.get(), kLimit, error) : nullptr;
  if (isThere) *isThere = isSilent || (bus && !IsNobodyThere(error));
  return reply;
}
