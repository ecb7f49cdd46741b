#include "base/system_bus.h"

#include <thread>

SystemBus::SystemBus(std::chrono::milliseconds limit)
    : m_limit(limit), m_connection(ConnectToBus(SystemBusAddress(), limit, nullptr, m_problem)) {}

GVariantHandle SystemBus::Call(const BusMethod& method, GVariant* arguments, std::chrono::milliseconds limit) {
  const GVariantHandle taken(arguments ? g_variant_ref_sink(arguments) : nullptr);
  if (!m_connection) return nullptr;
  GErrorHandle error;
  GVariantHandle reply = CallOnBus(*m_connection, method, taken.get(), limit.count() > 0 ? limit : m_limit, error);
  if (!reply && !IsNobodyThere(error)) m_problem = std::string(method.service) + ": " + error.Message();
  return reply;
}

GVariantHandle SystemBus::Get(const char* service, const std::string& path, const char* interface, const char* name,
                              const char* type) {
  const GVariantHandle reply = Call({service, path.c_str(), "org.freedesktop.DBus.Properties", "Get", "(v)"},
                                    g_variant_new("(ss)", interface, name));
  return reply ? ValueOf(*reply, type) : nullptr;
}

void SystemBus::Start(const char* service) {
  constexpr char kBus[] = "org.freedesktop.DBus";
  Call({kBus, "/org/freedesktop/DBus", kBus, "StartServiceByName", nullptr}, g_variant_new("(su)", service, 0u));
}

bool Await(std::chrono::milliseconds limit, const std::function<bool()>& isThere) {
  using Clock = std::chrono::steady_clock;
  for (const auto end = Clock::now() + limit; !isThere();) {
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return true;
}
