#include "appfw/single_instance.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "base/bus.h"
#include "dlog.h"
#include "log_tags.h"
#include "system_path.h"

namespace app_framework {

namespace {

constexpr const char* kTag = log_tags::kAppfw;
constexpr char kInterface[] = "com.tornelo.Application1";
constexpr char kMethod[] = "AppControl";
constexpr char kErrorEnding[] = "com.tornelo.Application1.Error.Ending";
constexpr char kIntrospection[] =
    "<node><interface name='com.tornelo.Application1'>"
    "<method name='AppControl'><arg type='a{ss}' name='extras' direction='in'/></method>"
    "</interface></node>";

constexpr std::chrono::milliseconds kBusLimit(2000);
constexpr std::chrono::milliseconds kInstanceLimit(30000);
constexpr int kAttempts = 5;

// Of the bus's own interface.
constexpr unsigned int kDoNotQueue = 4;
constexpr unsigned int kPrimaryOwner = 1;
constexpr unsigned int kNameExists = 3;

GVariant* ToDictionary(const Extras& extras) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
  for (const auto& [key, value] : extras) g_variant_builder_add(&builder, "{ss}", key.c_str(), value.c_str());
  return g_variant_new("(a{ss})", &builder);
}

}  // namespace

Extras ReadExtras(GVariant& parameters) {
  Extras extras;
  const GVariantHandle dictionary(g_variant_get_child_value(&parameters, 0));
  GVariantIter iterator;
  g_variant_iter_init(&iterator, dictionary.get());
  const char* key = nullptr;
  const char* value = nullptr;
  while (g_variant_iter_next(&iterator, "{&s&s}", &key, &value))
    if (IsExtraKey(key)) extras.Set(key, value);
  return extras;
}

/// The name for the set root; other roots are other sets. FNV-1a, as the name must be the same in every process.
std::string SingleInstance::InstanceName() const {
  if (SystemRoot().empty()) return m_applicationId;
  uint64_t hash = 14695981039346656037u;
  for (const unsigned char byte : SystemRoot()) hash = (hash ^ byte) * 1099511628211u;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016" PRIx64, hash);
  return m_applicationId + ".root_" + digits;
}

/// "/com/tornelo/TVVexilo": as an id, but with the letters that a path may have.
std::string SingleInstance::ObjectPath() const {
  std::string path = "/" + m_applicationId;
  std::replace(path.begin(), path.end(), '.', '/');
  std::replace(path.begin(), path.end(), '-', '_');
  return path;
}

SingleInstance::~SingleInstance() {
  Disconnect();
}

SingleInstance::Role SingleInstance::Settle(const std::string& busAddress, const Extras& request,
                                            RequestHandler handler) {
  m_handler = std::move(handler);
  if (busAddress.empty()) return RunAlone("there is no session bus");
  // The object is there before the name, so that no request meets a name without it.
  if (!Connect(busAddress) || !Export()) return RunAlone(m_problem);

  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::optional<bool> owned = RequestName();
    if (!owned) return RunAlone(m_problem);
    if (*owned) return Role::kInstance;
    switch (Forward(request)) {
      case Outcome::kDone:
        __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "the running instance has the request");
        return Role::kForwarded;
      case Outcome::kNoAnswer:
        __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the running instance (%s) does not answer: %s",
                     InstanceName().c_str(), m_problem.c_str());
        return Role::kNoAnswer;
      case Outcome::kBusFailed:
        return RunAlone(m_problem);
      case Outcome::kInstanceGone:
        break;
    }
  }
  return RunAlone("the owner of " + InstanceName() + " takes no requests: " + m_problem);
}

bool SingleInstance::Connect(const std::string& address) {
  m_connection = ConnectToBus(address, kBusLimit, g_main_context_default(), m_problem);
  if (!m_connection) return false;
  m_closedHandler = g_signal_connect(m_connection.get(), "closed", G_CALLBACK(OnClosed), this);
  return true;
}

bool SingleInstance::Export() {
  static const GDBusInterfaceVTable kMethods = {OnMethodCall, nullptr, nullptr, {}};
  const GNodeInfoHandle node(g_dbus_node_info_new_for_xml(kIntrospection, nullptr));
  GErrorHandle error;
  m_object = g_dbus_connection_register_object(m_connection.get(), ObjectPath().c_str(), node->interfaces[0], &kMethods,
                                               this, nullptr, error.Out());
  if (m_object == 0) m_problem = error.Message();
  return m_object != 0;
}

std::optional<bool> SingleInstance::RequestName() {
  GErrorHandle error;
  const GVariantHandle reply = CallOnBus(
      *m_connection, {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName", "(u)"},
      g_variant_new("(su)", InstanceName().c_str(), kDoNotQueue), kBusLimit, error);
  if (!reply) {
    m_problem = error.Message();
    return std::nullopt;
  }
  unsigned int answer = 0;
  g_variant_get(reply.get(), "(u)", &answer);
  m_ownsName = answer == kPrimaryOwner;
  if (m_ownsName || answer == kNameExists) return m_ownsName;
  m_problem = "the session bus does not give the name " + InstanceName();
  return std::nullopt;
}

SingleInstance::Outcome SingleInstance::Forward(const Extras& request) {
  GErrorHandle error;
  const std::string instance = InstanceName();
  const GVariantHandle reply =
      CallOnBus(*m_connection, {instance.c_str(), ObjectPath().c_str(), kInterface, kMethod, nullptr},
                ToDictionary(request), kInstanceLimit, error);
  if (reply) return Outcome::kDone;
  m_problem = error.Message();
  if (error.Matches(G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) return Outcome::kNoAnswer;
  // An error from the bus or the instance: it ended, or is about to and has given up its name.
  return g_dbus_error_is_remote_error(error.Get()) ? Outcome::kInstanceGone : Outcome::kBusFailed;
}

SingleInstance::Role SingleInstance::RunAlone(const std::string& reason) {
  Disconnect();
  __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "forwarding between starts is off: %s", reason.c_str());
  return Role::kInstance;
}

void SingleInstance::GiveUpName() {
  if (!m_ownsName) return;
  m_ownsName = false;
  // No reply is awaited: the bus handles this before any refusal that we send later.
  g_dbus_connection_call(m_connection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "ReleaseName", g_variant_new("(s)", InstanceName().c_str()), nullptr, G_DBUS_CALL_FLAGS_NONE,
                         -1, nullptr, nullptr, nullptr);
}

void SingleInstance::Disconnect() {
  if (!m_connection) return;
  g_signal_handler_disconnect(m_connection.get(), m_closedHandler);
  if (m_object != 0) g_dbus_connection_unregister_object(m_connection.get(), m_object);
  m_object = 0;
  m_ownsName = false;
  m_connection.reset();
}

void SingleInstance::OnMethodCall(GDBusConnection*, const char*, const char*, const char*, const char*,
                                  GVariant* parameters, GDBusMethodInvocation* invocation, void* self) {
  static_cast<SingleInstance*>(self)->m_handler(ReadExtras(*parameters), [invocation](bool delivered) {
    if (delivered)
      g_dbus_method_invocation_return_value(invocation, nullptr);
    else
      g_dbus_method_invocation_return_dbus_error(invocation, kErrorEnding, "the application is ending");
  });
}

void SingleInstance::OnClosed(GDBusConnection*, gboolean, GError* error, void* self) {
  static_cast<SingleInstance*>(self)->RunAlone(error ? error->message : "the session bus ended");
}

}  // namespace app_framework
