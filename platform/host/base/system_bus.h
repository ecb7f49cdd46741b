#pragma once
/// @file
/// Calls on the system bus for those who change something there, and what stood in the way. None is without an end, and
/// nobody is asked for a password.
///
/// Thread rule: one thread at a time; calls block.

#include <functional>

#include "base/bus.h"

class SystemBus {
 public:
  /// Waits `limit` at most for the bus, and by default as long for each reply.
  explicit SystemBus(std::chrono::milliseconds limit);

  /// Null where the method fails, with Problem() when somebody was there to refuse. Takes `arguments`, a floating tuple
  /// or null. Zero is the limit of the constructor.
  GVariantHandle Call(const BusMethod& method, GVariant* arguments, std::chrono::milliseconds limit = {});
  /// A property of a service's object, of that type; null where there is none.
  GVariantHandle Get(const char* service, const std::string& path, const char* interface, const char* name,
                     const char* type);
  /// Has the bus start a service that runs only while it is needed; without effect on one that is there.
  void Start(const char* service);

  /// Why the last call that was refused was; empty where none was.
  const std::string& Problem() const { return m_problem; }

 private:
  const std::chrono::milliseconds m_limit;
  std::string m_problem;
  const GObjectHandle<GDBusConnection> m_connection;
};

/// Asks `isThere` until it holds, for `limit` at most, ten times a second. Whether it does.
bool Await(std::chrono::milliseconds limit, const std::function<bool()>& isThere);
