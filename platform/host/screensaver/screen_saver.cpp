#include "screen_saver.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>

#include "base/glib_handle.h"
#include "base/session_bus.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_names.h"

namespace {

constexpr const char* kTag = log_tags::kScreenSaver;
constexpr char kService[] = "org.freedesktop.ScreenSaver";
constexpr char kObjectPath[] = "/org/freedesktop/ScreenSaver";
constexpr int64_t kLimitUs = 500'000;

using ContextHandle = std::unique_ptr<GMainContext, CRelease<&g_main_context_unref>>;

void LogFailure(const char* what, const char* reason) {
  __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s: %s", what, reason);
}

/// A connection to the session bus, or null after a line in the log. It is made in a main loop of its own here, in
/// which nothing but this happens.
GObjectHandle<GDBusConnection> Connect(int64_t deadline) {
  const std::string address = SessionBusAddress();
  if (address.empty()) {
    LogFailure("no screen saver", "there is no session bus");
    return nullptr;
  }
  const ContextHandle context(g_main_context_new());
  std::string problem;
  const std::chrono::microseconds left(deadline - g_get_monotonic_time());
  auto connection = ConnectToBus(address, std::chrono::ceil<std::chrono::milliseconds>(left), context.get(), problem);
  if (!connection) LogFailure("the session bus cannot be reached", problem.c_str());
  return connection;
}

/// The reply to a call, or null after a line in the log. A service that does not run is not started.
GVariantHandle Call(GDBusConnection* connection, int64_t deadline, const char* service, const char* path,
                    const char* method, GVariant* arguments, const char* replyType) {
  const int64_t left = std::max<int64_t>((deadline - g_get_monotonic_time()) / 1000, 1);
  GErrorHandle error;
  GVariantHandle reply(g_dbus_connection_call_sync(connection, service, path, service, method, arguments,
                                                   G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NO_AUTO_START,
                                                   static_cast<int>(left), nullptr, error.Out()));
  if (!reply) LogFailure(method, error.Message());
  return reply;
}

/// This process's share in the desktop's screen saver: asked for, or kept away, or (at first) neither.
class ScreenSaver {
 public:
  static ScreenSaver& Get() {
    static ScreenSaver& saver = *new ScreenSaver;
    return saver;
  }

  bool Activate() {
    const int64_t deadline = g_get_monotonic_time() + kLimitUs;
    m_activated = IsThere(deadline);
    if (m_activated && m_cookie) {
      // A refusal means that the service was started anew and keeps nothing away any more.
      Call(m_connection.get(), deadline, kService, kObjectPath, "UnInhibit", g_variant_new("(u)", *m_cookie), "()");
      m_cookie.reset();
    }
    return m_activated;
  }

  bool Deactivate() {
    if (!m_activated) {
      LogFailure("the screen saver is not withdrawn", "it was not activated");
      return false;
    }
    const int64_t deadline = g_get_monotonic_time() + kLimitUs;
    m_activated = false;
    if (!IsThere(deadline)) return false;
    const GVariantHandle reply =
        Call(m_connection.get(), deadline, kService, kObjectPath, "Inhibit",
             g_variant_new("(ss)", set_names::kCareApplication, "A tool that was launched is showing"), "(u)");
    if (!reply) return false;
    unsigned int cookie = 0;
    g_variant_get(reply.get(), "(u)", &cookie);
    m_cookie = cookie;
    return true;
  }

 private:
  /// Whether a screen saver's service runs. The connection is kept: with it, the service would forget our request.
  bool IsThere(int64_t deadline) {
    if (m_connection && g_dbus_connection_is_closed(m_connection.get())) m_connection.reset();
    if (!m_connection) {
      m_cookie.reset();
      m_connection = Connect(deadline);
    }
    if (!m_connection) return false;
    constexpr char kBus[] = "org.freedesktop.DBus";
    const GVariantHandle reply = Call(m_connection.get(), deadline, kBus, "/org/freedesktop/DBus", "NameHasOwner",
                                      g_variant_new("(s)", kService), "(b)");
    gboolean owned = FALSE;
    if (reply) g_variant_get(reply.get(), "(b)", &owned);
    if (reply && !owned) LogFailure("no screen saver", "no service of this session has one");
    return owned;
  }

  GObjectHandle<GDBusConnection> m_connection;
  std::optional<unsigned int> m_cookie;  ///< of our request to keep the saver away
  bool m_activated = false;
};

}  // namespace

int activateScreenSaver(const char* id, int type, int timeout, int priority, int mode) {
  __dlog_print(LOG_ID_APPS, DLOG_DEBUG, kTag, "asked for %s, type %d, after %d s, priority %d, mode %d", id ? id : "?",
               type, timeout, priority, mode);
  return ScreenSaver::Get().Activate() ? 0 : -1;
}

int deactivateScreenSaver(void) {
  return ScreenSaver::Get().Deactivate() ? 0 : -1;
}
