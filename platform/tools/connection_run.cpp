#include "connection_run.h"

#include <algorithm>
#include <sstream>

#include "VexiloLog.h"
#include "set_paths.h"
#include "sysinfo/set_profile.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/collectors/readings.h"

namespace tools {

namespace {

using std::chrono::milliseconds;
using trevlin::Machine;

constexpr char kGroup[] = "connection", kServicesKey[] = "services";
constexpr milliseconds kServicePatience{1900};
constexpr int kServerErrors = 500;  // and above: the service is there and does not work

/// By which fact a step has passed.
constexpr struct {
  ConnectionStep step;
  const char* fact;
} kPassing[] = {{ConnectionStep::kLink, "network.link"},
                {ConnectionStep::kAddress, "network.address"},
                {ConnectionStep::kRouter, "network.gateway_reachable"},
                {ConnectionStep::kNames, "network.name_resolution"},
                {ConnectionStep::kInternet, "network.internet"},
                {ConnectionStep::kTime, "clock.synchronised"}};

/// What a step fails of, the cause before what comes of it; the codes are those of the rules of docs/engine.md.
struct Failure {
  ConnectionStep step;
  int issue;
  const char* fact;
  bool value;
  const char* alsoFact = nullptr;  ///< null for nothing more
  bool alsoValue = false;
};
constexpr Failure kFailures[] = {
    {ConnectionStep::kLink, 10000013, "network.link", false, "network.radio_off", true},
    {ConnectionStep::kLink, 10000014, "network.interface", false},
    {ConnectionStep::kLink, 10000001, "network.link", false},
    {ConnectionStep::kAddress, 10000006, "network.address", false, "network.fallback_address", true},
    {ConnectionStep::kAddress, 10000005, "network.address", false},
    {ConnectionStep::kRouter, 10000007, "network.default_route", false, "network.internet_wanted", true},
    {ConnectionStep::kRouter, 10000002, "network.gateway_reachable", false},
    {ConnectionStep::kNames, 10000008, "network.name_server", false, "network.internet_wanted", true},
    {ConnectionStep::kInternet, 10000012, "network.sign_in_page", true},
    {ConnectionStep::kInternet, 10000011, "network.internet", false},
    {ConnectionStep::kTime, 10060001, "clock.set", false},
    {ConnectionStep::kTime, 10060002, "clock.synchronised", false},
};
/// Not where the server answers and cannot get into the Internet itself.
constexpr Failure kNoNames = {ConnectionStep::kNames, 10000003, "network.name_resolution", false};

/// Until then a time service may still be at work.
constexpr double kTimeToSynchronise = 1800;  // seconds since the start

/// Whether this system keeps its own clock: a guest or a container has that of the machine below it.
bool HasOwnClock() {
  trevlin::Facts facts;
  trevlin::MakeMachineCollector()->Collect(Machine{}, facts);
  return facts["machine.kind"] == trevlin::FactValue("hardware");
}

std::string Trimmed(const std::string& text) {
  const size_t from = text.find_first_not_of(" \t"), to = text.find_last_not_of(" \t");
  return from == text.npos ? "" : text.substr(from, to - from + 1);
}

}  // namespace

ConnectionRun::ConnectionRun() {
  using enum ConnectionStep;
  for (const ConnectionStep step : {kLink, kAddress, kRouter, kNames, kInternet, kTime}) {
    const bool isOutside = step == kNames || step == kInternet;
    const bool isThere = step == kTime ? HasOwnClock() : !isOutside || !m_probes.zone.empty();
    if (isThere) m_rows.push_back({step});
  }
  m_facts["network.internet_wanted"] = !m_probes.zone.empty();
  AddServices();
}

void ConnectionRun::AddServices() {
  std::string text;
  set_profile::Text(kGroup, kServicesKey, text);
  std::istringstream entries(text);
  for (std::string entry; std::getline(entries, entry, ';');) {
    entry = Trimmed(entry);
    if (entry.empty()) continue;
    const size_t blank = entry.find_last_of(" \t");
    const std::string url = blank == entry.npos ? entry : entry.substr(blank + 1);
    const std::string name = blank == entry.npos ? "" : Trimmed(entry.substr(0, blank));
    if (!name.empty() && trevlin::IsWebAddress(url))
      m_rows.push_back({ConnectionStep::kService, name, url});
    else
      VEXILO_LOGE("%s: [connection] services: \"%s\" is not NAME http://HOST[:PORT]/PATH", set_paths::kSetProfile,
                  entry.c_str());
  }
}

bool ConnectionRun::Begin() {
  if (Failed() || m_current == m_rows.size()) return false;
  m_rows[m_current].state = StepState::kRunning;
  return true;
}

void ConnectionRun::Ask() {
  ConnectionRow& row = m_rows[m_current];
  const auto start = std::chrono::steady_clock::now();
  AskFor(row);
  const auto took = std::chrono::ceil<milliseconds>(std::chrono::steady_clock::now() - start);
  if (row.took == milliseconds{}) row.took = std::max(took, milliseconds{1});
  if (row.step != ConnectionStep::kService) Judge(row);
  ++m_current;
}

void ConnectionRun::AskFor(ConnectionRow& row) {
  const Machine machine;
  switch (row.step) {
    case ConnectionStep::kLink:
    case ConnectionStep::kAddress:
      m_network = trevlin::ReadLiveNetwork(machine);
      trevlin::AddNetworkFacts(m_network, m_facts);
      return trevlin::AddFact(m_facts, "network.radio_off", trevlin::ReadRadioOff(machine));
    case ConnectionStep::kRouter:
      if (const auto gateway = trevlin::FindGateway(m_network); gateway && !m_probes.zone.empty())
        m_answers.router =
            trevlin::AskRouter(gateway->address, gateway->interface, gateway->index, trevlin::kRouterPatience);
      break;
    case ConnectionStep::kNames:
      AskNames();
      break;
    case ConnectionStep::kInternet:
      if (m_probes.page.empty())
        AskNames();
      else
        m_answers.page = trevlin::AskPage(m_probes.page, trevlin::kNamesPatience);
      break;
    case ConnectionStep::kTime:
      trevlin::MakeClockCollector()->Collect(machine, m_facts);
      if (trevlin::SecondsSinceStart(machine).value_or(0) < kTimeToSynchronise && Is("clock.synchronised", false))
        m_facts.erase("clock.synchronised");
      return;
    case ConnectionStep::kService: {
      const trevlin::WebAnswer answer = trevlin::AskWeb(row.url, kServicePatience);
      const bool isThere = answer.status && *answer.status < kServerErrors;
      row.state = isThere ? StepState::kPassed : StepState::kFailed;
      if (!isThere)
        VEXILO_LOGE("%s does not work: %s", row.url.c_str(),
                    answer.status    ? ("it answers " + std::to_string(*answer.status)).c_str()
                    : answer.isFound ? "nobody answers"
                                     : "no address is found for it");
      return;
    }
  }
  trevlin::AddReachabilityFacts(m_probes, m_network, m_answers, m_facts);
  // What a program waits for a name, without what is asked beside it.
  const bool areNames =
      row.step == ConnectionStep::kNames || (row.step == ConnectionStep::kInternet && m_probes.page.empty());
  if (areNames && m_answers.names.delayMs)
    row.took = std::max(milliseconds{1}, milliseconds{static_cast<int64_t>(*m_answers.names.delayMs)});
}

void ConnectionRun::AskNames() {
  if (m_network.hasNameServer == true)
    m_answers.names = trevlin::AskNameServers(m_probes.zone, trevlin::kNamesPatience);
}

void ConnectionRun::Judge(ConnectionRow& row) {
  const auto isThere = [this, &row](const Failure& failure) {
    if (failure.step == ConnectionStep::kLink && HasOtherWayOut()) return false;
    return failure.step <= row.step && Is(failure.fact, failure.value) &&
           (!failure.alsoFact || Is(failure.alsoFact, failure.alsoValue));
  };
  const Failure* failure = std::find_if(std::begin(kFailures), std::end(kFailures), isThere);
  if (failure == std::end(kFailures) && isThere(kNoNames) && !Is("network.internet", false)) failure = &kNoNames;
  if (failure != std::end(kFailures)) {
    if (failure->step != row.step) row = {row.step};
    const auto failed = std::ranges::find(m_rows, failure->step, &ConnectionRow::step);
    failed->state = StepState::kFailed;
    failed->issue = failure->issue;
    return;
  }
  const auto* const passing = std::ranges::find(kPassing, row.step, [](const auto& each) { return each.step; });
  row.state = Is(passing->fact, true) ? StepState::kPassed : StepState::kUnknown;
}

/// By a modem, say, which is no link: until no name is found over it.
bool ConnectionRun::HasOtherWayOut() const {
  return Is("network.default_route", true) && !Is("network.name_resolution", false);
}

bool ConnectionRun::Is(std::string_view fact, bool value) const {
  const auto found = m_facts.find(fact);
  return found != m_facts.end() && found->second == trevlin::FactValue(value);
}

const ConnectionRow* ConnectionRun::Failed() const {
  const auto failed = std::ranges::find(m_rows, StepState::kFailed, &ConnectionRow::state);
  return failed == m_rows.end() ? nullptr : &*failed;
}

}  // namespace tools
