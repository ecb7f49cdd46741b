#include "service_control.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <thread>

#include "base/bus.h"
#include "plain_text.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kLimit = 10s;
constexpr auto kPoll = 100ms;
constexpr size_t kLongestName = 255;

struct Unit {
  std::string name;
  std::string state;
  bool loaded = false;
  bool hasJob = false;

  bool IsSettled() const { return !hasJob && state != "activating" && state != "deactivating"; }
};

bool IsServiceName(const std::string& name) {
  constexpr std::string_view kEnd = ".service";
  return name.size() > kEnd.size() && name.size() <= kLongestName && name.ends_with(kEnd) &&
         (IsLetterOrDigit(name.front()) || name.front() == '_') && IsPlain(name, "@:");
}

/// systemd's manager. Calls block until `deadline` at most.
class Systemd {
 public:
  explicit Systemd(Clock::time_point deadline)
      : m_deadline(deadline), m_connection(ConnectToBus(SystemBusAddress(), Left(), nullptr, m_problem)) {}

  /// What it knows of the services; nothing, with the problem, when it does not tell.
  std::vector<Unit> Units(const std::vector<std::string>& services) {
    std::vector<const char*> names;
    for (const std::string& service : services) names.push_back(service.c_str());
    names.push_back(nullptr);
    const GVariantHandle reply = Call("ListUnitsByNames", g_variant_new("(^as)", names.data()), "(a(ssssssouso))");
    return UnitsIn(reply.get());
  }

  /// The names, with those that have failed of a template's in the place of the template.
  std::vector<std::string> WithInstances(const std::vector<std::string>& services) {
    std::vector<std::string> names;
    for (const std::string& service : services) {
      const size_t at = service.find("@.");
      if (at == service.npos) {
        names.push_back(service);
        continue;
      }
      const std::string pattern = service.substr(0, at + 1) + "*" + service.substr(at + 1);
      const char* const states[] = {"failed", nullptr};
      const char* const patterns[] = {pattern.c_str(), nullptr};
      const GVariantHandle reply =
          Call("ListUnitsByPatterns", g_variant_new("(^as^as)", states, patterns), "(a(ssssssouso))");
      for (const Unit& unit : UnitsIn(reply.get())) names.push_back(unit.name);
    }
    return names;
  }

  bool Restart(const std::string& service) {
    return Call("RestartUnit", g_variant_new("(ss)", service.c_str(), "replace"), "(o)") != nullptr;
  }

  bool IsLate() const { return Clock::now() >= m_deadline; }
  const std::string& Problem() const { return m_problem; }

 private:
  static std::vector<Unit> UnitsIn(GVariant* reply) {
    std::vector<Unit> units;
    if (!reply) return units;
    GVariantIter* rows = nullptr;
    g_variant_get(reply, "(a(ssssssouso))", &rows);
    const char *name, *load, *state;
    guint32 job;
    while (g_variant_iter_next(rows, "(&s&s&s&s&s&s&ou&s&o)", &name, nullptr, &load, &state, nullptr, nullptr, nullptr,
                               &job, nullptr, nullptr))
      units.push_back({name, state, g_strcmp0(load, "loaded") == 0, job != 0});
    g_variant_iter_free(rows);
    return units;
  }

  GVariantHandle Call(const char* method, GVariant* arguments, const char* reply) {
    const GVariantHandle owned(g_variant_ref_sink(arguments));
    if (!m_connection) return nullptr;
    GErrorHandle error;
    GVariantHandle result = CallOnBus(
        *m_connection,
        {"org.freedesktop.systemd1", "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager", method, reply},
        owned.get(), Left(), error);
    if (!result) m_problem = error.Message();
    return result;
  }

  std::chrono::milliseconds Left() const {
    return std::chrono::ceil<std::chrono::milliseconds>(m_deadline - Clock::now());
  }

  const Clock::time_point m_deadline;
  std::string m_problem;
  const GObjectHandle<GDBusConnection> m_connection;
};

std::string Sentence(const std::string& service, const std::string& why) {
  return "cannot restart " + service + ": " + why;
}

/// Waits until nothing is going on with the services. Empty when all run then, else the problem.
std::string WaitFor(Systemd& systemd, const std::vector<std::string>& services) {
  while (true) {
    const std::vector<Unit> units = systemd.Units(services);
    if (units.empty()) return Sentence(services.front(), systemd.Problem());
    const auto dead = std::find_if(units.begin(), units.end(), [](const Unit& unit) { return unit.state != "active"; });
    const bool settled = std::all_of(units.begin(), units.end(), [](const Unit& unit) { return unit.IsSettled(); });
    if (dead == units.end() && settled) return "";
    if (dead != units.end() && settled) return Sentence(dead->name, "it does not start: " + dead->state);
    if (systemd.IsLate()) return Sentence(services.front(), "it takes too long");
    std::this_thread::sleep_for(kPoll);
  }
}

std::string RestartFailed(const std::vector<std::string>& services) {
  for (const std::string& service : services)
    if (!IsServiceName(service)) return Sentence('"' + service + '"', "it is no name of a service");
  if (services.empty()) return "no service is named";

  Systemd systemd(Clock::now() + kLimit);
  std::vector<std::string> failed;
  bool isAnyRunning = false;
  for (const Unit& unit : systemd.Units(systemd.WithInstances(services))) {
    if (unit.loaded && unit.state == "failed") failed.push_back(unit.name);
    isAnyRunning |= unit.state == "active";
  }
  if (!systemd.Problem().empty()) return Sentence(services.front(), systemd.Problem());
  if (failed.empty())
    return isAnyRunning ? "" : Sentence(services.front(), "neither it nor another of its kind is on this machine");
  for (const std::string& service : failed)
    if (!systemd.Restart(service)) return Sentence(service, systemd.Problem());
  return WaitFor(systemd, failed);
}

}  // namespace

bool RestartFailedServices(const std::vector<std::string>& services, std::string& problem) {
  problem = RestartFailed(services);
  return problem.empty();
}
