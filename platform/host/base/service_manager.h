#pragma once
/// @file
/// systemd's managers of services: the machine's on the system bus, the user's own on the session bus. Names of methods
/// and properties are those of org.freedesktop.systemd1(5).
///
/// Thread rule: callable from any thread, an object from one at a time; calls block until its deadline at most.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/bus.h"
#include "service_control.h"

struct ServiceUnit {
  std::string name;   ///< "bluetooth.service"; units of other kinds, too
  std::string state;  ///< "active", "activating", "failed" …
  std::string phase;  ///< of the state: "running", "auto-restart" …
  std::string path;   ///< of its object on the bus
  bool isLoaded = false;
  bool hasJob = false;

  /// It has ended, and is about to be started again without anybody asking.
  bool IsAboutToRestart() const { return phase.starts_with("auto-restart"); }
};

/// Whether it is "NAME.service" of letters, digits and "._-@:".
bool IsServiceName(const std::string& name);

class ServiceManager {
 public:
  using Clock = std::chrono::steady_clock;

  ServiceManager(ServicesOf whose, Clock::time_point deadline);

  /// Whether it has the bus's name, be it that it does not answer, or the bus itself does not; known after a call.
  bool IsThere() const { return m_isThere; }
  /// Why the last call that failed did so; empty when none has.
  const std::string& Problem() const { return m_problem; }
  /// Whether that was because this user may not do it.
  bool IsForbidden() const { return m_isForbidden; }
  bool IsLate() const { return Clock::now() >= m_deadline; }

  /// The units in one of these states, that match one of `patterns` where any is given; nothing when it does not tell.
  std::optional<std::vector<ServiceUnit>> UnitsIn(const std::vector<std::string>& states,
                                                  const std::vector<std::string>& patterns = {});
  /// The units of these names, in their order; not loaded where there is none.
  std::optional<std::vector<ServiceUnit>> UnitsNamed(const std::vector<std::string>& names);
  /// A property of a unit's object that is a number: "Unit", "ActiveEnterTimestampMonotonic".
  std::optional<double> Number(const std::string& path, const char* interface, const char* property);
  /// How often it was started again without anybody asking since somebody asked. Of any service, also one that is not
  /// there (0).
  std::optional<double> Restarts(const std::string& service);
  /// Has it restarted; an agent may ask the person at the machine for a password, for half a minute at most. True when
  /// the manager has taken it on.
  bool Restart(const std::string& service);
  /// Start it and stop it, without asking anybody. True when the manager has taken it on.
  bool Start(const std::string& unit);
  bool Stop(const std::string& unit);
  /// Has them started at each start of the machine, and starts them. True when the manager has taken on all of it.
  bool Enable(const std::vector<std::string>& units);

 private:
  std::optional<std::vector<ServiceUnit>> Units(const char* method, GVariant* arguments);
  GVariantHandle Call(const BusMethod& method, GVariant* arguments, std::chrono::milliseconds limit);
  std::chrono::milliseconds Left() const;

  const Clock::time_point m_deadline;
  std::string m_problem;
  bool m_isForbidden = false;
  bool m_isThere = false;
  const GObjectHandle<GDBusConnection> m_connection;
};
