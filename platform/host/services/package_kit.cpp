#include "package_kit.h"

#include <gio/gio.h>

#include <thread>

#include "base/bus.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using ContextHandle = std::unique_ptr<GMainContext, CRelease<&g_main_context_unref>>;

constexpr auto kReply = 5s;
constexpr auto kLook = 50ms;
constexpr auto kLifeSign = 5s;
constexpr char kName[] = "org.freedesktop.PackageKit";
constexpr char kPath[] = "/org/freedesktop/PackageKit";
constexpr char kTransaction[] = "org.freedesktop.PackageKit.Transaction";
constexpr guint32 kSuccess = 1;  // PK_EXIT_ENUM_SUCCESS

struct Outcome {
  bool isFinished = false;
  guint32 exit = 0;
  std::string problem;
};

void OnSignal(GDBusConnection*, const char*, const char*, const char*, const char* signal, GVariant* values,
              void* data) {
  auto& outcome = *static_cast<Outcome*>(data);
  if (g_str_equal(signal, "ErrorCode") && g_variant_is_of_type(values, G_VARIANT_TYPE("(us)"))) {
    const char* details;
    g_variant_get(values, "(u&s)", nullptr, &details);
    outcome.problem = details;
  } else if (g_str_equal(signal, "Finished") && g_variant_is_of_type(values, G_VARIANT_TYPE("(uu)"))) {
    g_variant_get(values, "(uu)", &outcome.exit, nullptr);
    outcome.isFinished = true;
  }
}

/// The service and one transaction of it, whose signals come while Wait() runs.
class PackageKit {
 public:
  PackageKit() : m_context(g_main_context_new()) {
    m_bus = ConnectToBus(SystemBusAddress(), kReply, m_context.get(), m_problem);
  }
  ~PackageKit() {
    if (m_signals != 0) g_dbus_connection_signal_unsubscribe(m_bus.get(), m_signals);
    while (g_main_context_iteration(m_context.get(), FALSE)) {
    }
  }
  PackageKit(const PackageKit&) = delete;
  PackageKit& operator=(const PackageKit&) = delete;

  /// Starts the service where it runs only while it is needed. False where there is none.
  bool Begin() {
    if (!m_bus) return false;
    constexpr char kBus[] = "org.freedesktop.DBus";
    GErrorHandle none, error;
    CallOnBus(*m_bus, {kBus, "/org/freedesktop/DBus", kBus, "StartServiceByName", nullptr},
              g_variant_new("(su)", kName, 0u), kReply, none);
    const GVariantHandle path =
        CallOnBus(*m_bus, {kName, kPath, kName, "CreateTransaction", "(o)"}, nullptr, kReply, error);
    m_problem = error.Message();
    if (!path) return !IsNobodyThere(error);
    char* text = nullptr;
    g_variant_get(path.get(), "(o)", &text);
    m_path.reset(text);
    g_main_context_push_thread_default(m_context.get());
    m_signals = g_dbus_connection_signal_subscribe(m_bus.get(), kName, kTransaction, nullptr, m_path.get(), nullptr,
                                                   G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, &m_outcome, nullptr);
    g_main_context_pop_thread_default(m_context.get());
    const char* const hints[] = {"interactive=false", nullptr};
    Call("SetHints", g_variant_new("(^as)", hints));
    return true;
  }

  /// Whether the service took it up.
  bool Call(const char* method, GVariant* arguments) {
    GErrorHandle error;
    const GVariantHandle taken(arguments ? g_variant_ref_sink(arguments) : nullptr);
    if (!m_path) return false;
    if (CallOnBus(*m_bus, {kName, m_path.get(), kTransaction, method, nullptr}, taken.get(), kReply, error))
      return true;
    m_problem = error.Message();
    return false;
  }

  std::string Wait(std::chrono::seconds limit) {
    const auto end = Clock::now() + limit;
    for (auto look = Clock::now() + kLifeSign; !m_outcome.isFinished && Clock::now() < end;) {
      while (g_main_context_iteration(m_context.get(), FALSE)) {
      }
      if (!m_outcome.isFinished) std::this_thread::sleep_for(kLook);
      if (Clock::now() < look) continue;
      if (!IsAlive()) return "the service ended without a word";
      look = Clock::now() + kLifeSign;
    }
    if (!m_outcome.isFinished) {
      Call("Cancel", nullptr);
      return "it takes too long";
    }
    if (m_outcome.exit == kSuccess) return "";
    return m_outcome.problem.empty() ? "it failed" : m_outcome.problem;
  }

  const std::string& Problem() const { return m_problem; }

 private:
  bool IsAlive() {
    GErrorHandle error;
    constexpr char kPeer[] = "org.freedesktop.DBus.Peer";
    CallOnBus(*m_bus, {kName, kPath, kPeer, "Ping", nullptr}, nullptr, kReply, error);
    return !IsNobodyThere(error);
  }

  const ContextHandle m_context;
  GObjectHandle<GDBusConnection> m_bus;
  GText m_path;
  guint m_signals = 0;
  Outcome m_outcome;
  std::string m_problem;
};

}  // namespace

std::optional<std::string> RunPackageKit(const char* method, GVariant* arguments, std::chrono::seconds limit) {
  const GVariantHandle taken(g_variant_ref_sink(arguments));
  PackageKit service;
  if (!service.Begin()) return std::nullopt;
  if (!service.Call(method, taken.get())) return service.Problem();
  return service.Wait(limit);
}
