#include "base/service_manager.h"

#include <algorithm>
#include <string_view>

#include "plain_text.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kAnswer = 5s;
constexpr auto kPassword = 30s;
constexpr size_t kLongestName = 255;

constexpr char kName[] = "org.freedesktop.systemd1";
constexpr char kPath[] = "/org/freedesktop/systemd1";
constexpr char kManager[] = "org.freedesktop.systemd1.Manager";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";
constexpr char kUnits[] = "(a(ssssssouso))";

std::vector<const char*> CTexts(const std::vector<std::string>& texts) {
  std::vector<const char*> pointers;
  for (const std::string& text : texts) pointers.push_back(text.c_str());
  pointers.push_back(nullptr);
  return pointers;
}

/// Of a unit's object: all but letters and digits, and a digit in front, is "_" and two hexadecimal digits.
std::string PathOf(const std::string& unit) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string path = std::string(kPath) + "/unit/";
  for (size_t i = 0; i < unit.size(); ++i) {
    const auto c = static_cast<unsigned char>(unit[i]);
    if (IsLetterOrDigit(unit[i]) && (i > 0 || c > '9'))
      path += unit[i];
    else
      path += {'_', kDigits[c >> 4], kDigits[c & 15]};
  }
  return path;
}

/// Errors of the bus's own policy, of systemd and of the service that it asks for permissions, and of an agent whose
/// question nobody answers.
bool IsRefusal(const GErrorHandle& error) {
  constexpr std::string_view kRefusals[] = {"org.freedesktop.DBus.Error.AccessDenied",
                                            "org.freedesktop.DBus.Error.AuthFailed",
                                            "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired"};
  const std::string name = error.RemoteName();
  return std::find(std::begin(kRefusals), std::end(kRefusals), name) != std::end(kRefusals);
}

}  // namespace

bool IsServiceName(const std::string& name) {
  constexpr std::string_view kEnd = ".service";
  return name.size() > kEnd.size() && name.size() <= kLongestName && name.ends_with(kEnd) &&
         (IsLetterOrDigit(name.front()) || name.front() == '_') && IsPlain(name, "@:");
}

ServiceManager::ServiceManager(ServicesOf whose, Clock::time_point deadline)
    : m_deadline(deadline),
      m_connection(ConnectToBus(whose == ServicesOf::kUser ? SessionBusAddress() : SystemBusAddress(),
                                std::min<std::chrono::milliseconds>(Left(), kAnswer), nullptr, m_problem, &m_isThere)) {
}

std::optional<std::vector<ServiceUnit>> ServiceManager::UnitsIn(const std::vector<std::string>& states,
                                                                const std::vector<std::string>& patterns) {
  if (patterns.empty()) return Units("ListUnitsFiltered", g_variant_new("(^as)", CTexts(states).data()));
  return Units("ListUnitsByPatterns", g_variant_new("(^as^as)", CTexts(states).data(), CTexts(patterns).data()));
}

std::optional<std::vector<ServiceUnit>> ServiceManager::UnitsNamed(const std::vector<std::string>& names) {
  return Units("ListUnitsByNames", g_variant_new("(^as)", CTexts(names).data()));
}

std::optional<double> ServiceManager::Number(const std::string& path, const char* interface, const char* property) {
  const std::string whole = std::string(kName) + "." + interface;
  const GVariantHandle reply =
      Call({kName, path.c_str(), kProperties, "Get", "(v)"}, g_variant_new("(ss)", whole.c_str(), property), kAnswer);
  if (!reply) return std::nullopt;
  if (const GVariantHandle number = ValueOf(*reply, "u")) return g_variant_get_uint32(number.get());
  const GVariantHandle number = ValueOf(*reply, "t");
  return number ? std::optional(static_cast<double>(g_variant_get_uint64(number.get()))) : std::nullopt;
}

std::optional<double> ServiceManager::Restarts(const std::string& service) {
  return Number(PathOf(service), "Service", "NRestarts");
}

bool ServiceManager::Restart(const std::string& service) {
  return Call({kName, kPath, kManager, "RestartUnit", "(o)", true}, g_variant_new("(ss)", service.c_str(), "replace"),
              kPassword) != nullptr;
}

bool ServiceManager::Start(const std::string& unit) {
  return Call({kName, kPath, kManager, "StartUnit", "(o)"}, g_variant_new("(ss)", unit.c_str(), "replace"), kAnswer) !=
         nullptr;
}

bool ServiceManager::Stop(const std::string& unit) {
  return Call({kName, kPath, kManager, "StopUnit", "(o)"}, g_variant_new("(ss)", unit.c_str(), "replace"), kAnswer) !=
         nullptr;
}

bool ServiceManager::Enable(const std::vector<std::string>& units) {
  GVariant* const files = g_variant_new("(^asbb)", CTexts(units).data(), FALSE, FALSE);
  return Call({kName, kPath, kManager, "EnableUnitFiles", nullptr}, files, kAnswer) &&
         Call({kName, kPath, kManager, "Reload", nullptr}, g_variant_new("()"), kAnswer) &&
         std::ranges::all_of(units, [this](const std::string& unit) { return Start(unit); });
}

std::optional<std::vector<ServiceUnit>> ServiceManager::Units(const char* method, GVariant* arguments) {
  const GVariantHandle reply = Call({kName, kPath, kManager, method, kUnits}, arguments, kAnswer);
  if (!reply) return std::nullopt;
  std::vector<ServiceUnit> units;
  GVariantIter* rows = nullptr;
  g_variant_get(reply.get(), kUnits, &rows);
  const char *name, *load, *state, *phase, *path;
  guint32 job;
  while (g_variant_iter_next(rows, "(&s&s&s&s&s&s&ou&s&o)", &name, nullptr, &load, &state, &phase, nullptr, &path, &job,
                             nullptr, nullptr))
    units.push_back({name, state, phase, path, g_strcmp0(load, "loaded") == 0, job != 0});
  g_variant_iter_free(rows);
  return units;
}

GVariantHandle ServiceManager::Call(const BusMethod& method, GVariant* arguments, std::chrono::milliseconds limit) {
  const GVariantHandle owned(g_variant_ref_sink(arguments));
  if (!m_connection) return nullptr;
  GErrorHandle error;
  GVariantHandle result = CallOnBus(*m_connection, method, owned.get(), std::min(Left(), limit), error);
  m_isThere = !IsNobodyThere(error);
  if (result) return result;
  m_problem = error.Message();
  m_isForbidden = IsRefusal(error) || (method.mayAskPerson && error.Matches(G_IO_ERROR, G_IO_ERROR_TIMED_OUT));
  return nullptr;
}

std::chrono::milliseconds ServiceManager::Left() const {
  return std::chrono::ceil<std::chrono::milliseconds>(m_deadline - Clock::now());
}
