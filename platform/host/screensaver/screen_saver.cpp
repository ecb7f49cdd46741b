#include "screen_saver.h"

#include <chrono>
#include <optional>
#include <string>

#include "base/bus.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_names.h"

namespace {

constexpr const char* kTag = log_tags::kScreenSaver;
constexpr char kService[] = "org.freedesktop.ScreenSaver";
constexpr char kObjectPath[] = "/org/freedesktop/ScreenSaver";
constexpr char kBus[] = "org.freedesktop.DBus";
constexpr BusMethod kInhibit = {kService, kObjectPath, kService, "Inhibit", "(u)"};
constexpr BusMethod kUnInhibit = {kService, kObjectPath, kService, "UnInhibit", "()"};
constexpr BusMethod kHasOwner = {kBus, "/org/freedesktop/DBus", kBus, "NameHasOwner", "(b)"};
constexpr std::chrono::milliseconds kLimit(500);

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds Left(Clock::time_point deadline) {
  return std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
}

void LogFailure(const char* what, const char* reason) {
  __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s: %s", what, reason);
}

/// A connection to the session bus, or null after a line in the log.
GObjectHandle<GDBusConnection> Connect(Clock::time_point deadline) {
  const std::string address = SessionBusAddress();
  if (address.empty()) {
    LogFailure("no screen saver", "there is no session bus");
    return nullptr;
  }
  std::string problem;
  auto connection = ConnectToBus(address, Left(deadline), nullptr, problem);
  if (!connection) LogFailure("the session bus cannot be reached", problem.c_str());
  return connection;
}

/// This process's share in the desktop's screen saver: asked for, or kept away, or (at first) neither.
class ScreenSaver {
 public:
  static ScreenSaver& Get() {
    static ScreenSaver& saver = *new ScreenSaver;
    return saver;
  }

  bool Activate() {
    const auto deadline = Clock::now() + kLimit;
    m_activated = IsThere(deadline);
    if (m_activated && m_cookie) {
      // A refusal means that the service was started anew and keeps nothing away any more.
      Call(kUnInhibit, g_variant_new("(u)", *m_cookie), deadline);
      m_cookie.reset();
    }
    return m_activated;
  }

  bool Deactivate() {
    if (!m_activated) {
      LogFailure("the screen saver is not withdrawn", "it was not activated");
      return false;
    }
    const auto deadline = Clock::now() + kLimit;
    m_activated = false;
    if (!IsThere(deadline)) return false;
    const GVariantHandle reply = Call(
        kInhibit, g_variant_new("(ss)", set_names::kCareApplication, "A tool that was launched is showing"), deadline);
    if (!reply) return false;
    unsigned int cookie = 0;
    g_variant_get(reply.get(), "(u)", &cookie);
    m_cookie = cookie;
    return true;
  }

 private:
  /// Whether a screen saver's service runs. The connection is kept: with it, the service would forget our request.
  bool IsThere(Clock::time_point deadline) {
    if (m_connection && g_dbus_connection_is_closed(m_connection.get())) m_connection.reset();
    if (!m_connection) {
      m_cookie.reset();
      m_connection = Connect(deadline);
    }
    if (!m_connection) return false;
    const GVariantHandle reply = Call(kHasOwner, g_variant_new("(s)", kService), deadline);
    gboolean owned = FALSE;
    if (reply) g_variant_get(reply.get(), "(b)", &owned);
    if (reply && !owned) LogFailure("no screen saver", "no service of this session has one");
    return owned;
  }

  /// The reply, or null after a line in the log.
  GVariantHandle Call(const BusMethod& method, GVariant* arguments, Clock::time_point deadline) {
    GErrorHandle error;
    GVariantHandle reply = CallOnBus(*m_connection, method, arguments, Left(deadline), error);
    if (!reply) LogFailure(method.name, error.Message());
    return reply;
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
