// The rules as they ship, on machines that are well and on machines that are not.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "trevlin/rules_file.h"

namespace {

using trevlin::FactKind;
using trevlin::Facts;
using trevlin::FactValue;
using trevlin::Truth;

std::string Read(const std::string& path) {
  std::ifstream file(VEXILO_SOURCE_DIR "/" + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The facts that the rules name, with the kinds of the values that they are compared with.
trevlin::FactKinds NamedFacts(const std::string& rules) {
  static const std::regex kComparison(R"re("fact": "([^"]+)", "is": "[^"]+", "value": (.))re");
  trevlin::FactKinds kinds;
  for (std::sregex_iterator at(rules.begin(), rules.end(), kComparison), end; at != end; ++at) {
    const char first = *(*at)[2].first;
    if ((*at)[1].str().starts_with(trevlin::kSettingPrefix)) continue;
    kinds[(*at)[1]] = first == '"'                   ? FactKind::kText
                      : first == 't' || first == 'f' ? FactKind::kTruth
                                                     : FactKind::kNumber;
  }
  return kinds;
}

class ShippedRules : public testing::Test {
 protected:
  void SetUp() override {
    for (const trevlin::RuleMistake& mistake : m_file.mistakes) ADD_FAILURE() << ToText(mistake, "rules.json");
    ASSERT_GE(m_file.rules.size(), 40U);
  }

  std::set<int> Found(const Facts& facts) const {
    std::set<int> codes;
    for (const trevlin::Rule& rule : m_file.rules)
      if (DecideNow(rule, facts) == Truth::kTrue) codes.insert(rule.code);
    return codes;
  }

  const std::string m_text = Read("platform/set/rules.json");
  const trevlin::RuleFile m_file = trevlin::ParseRules(m_text, NamedFacts(m_text));
};

/// A television box where every fact is known, and nothing is wrong.
const Facts kWell = {
    {"storage.free_percent", 40.0},
    {"storage.free_mib", 3000.0},
    {"storage.inodes_free_percent", 80.0},
    {"storage.read_only", false},
    {"storage.system_read_only_error", false},
    {"storage.fs_errors", 0.0},
    {"storage.wear_percent", 30.0},
    {"storage.pre_eol", false},
    {"storage.removable_full", false},
    {"memory.available_percent", 35.0},
    {"memory.available_mib", 700.0},
    {"memory.swap_used_percent", 20.0},
    {"memory.pressure_some_avg60", 0.5},
    {"memory.oom_kills_recent", 0.0},
    {"cpu.load5_per_core", 0.4},
    {"cpu.temperature", 62.0},
    {"cpu.throttled", false},
    {"network.interface", true},
    {"network.link", true},
    {"network.kind", "wired"},
    {"network.address", true},
    {"network.fallback_address", false},
    {"network.default_route", true},
    {"network.gateway_reachable", true},
    {"network.name_server", true},
    {"network.name_resolution", true},
    {"network.receive_errors_percent", 0.0},
    {"network.link_speed_mbit", 100.0},
    {"network.half_duplex", false},
    {"display.connected", 1.0},
    {"display.mode", "1920x1080"},
    {"display.mode_below_preferred", false},
    {"display.edid_present", true},
    {"display.edid_valid", true},
    {"sound.cards", 1.0},
    {"sound.muted", false},
    {"sound.volume_percent", 40.0},
    {"input.devices", 4.0},
    {"input.remote", true},
    {"input.battery_percent", 70.0},
    {"power.undervoltage", false},
    {"power.unclean_shutdown", false},
    {"power.uptime_days", 3.0},
    {"power.watchdog_reset", false},
    {"power.on_battery_low", false},
    {"clock.set", true},
    {"clock.synchronised", true},
    {"clock.zone", true},
    {"services.failed", 0.0},
    {"services.failed_names", ""},
    {"services.crashes_week", 0.0},
    {"packages.broken", 0.0},
    {"packages.cache_mib", 120.0},
    {"packages.unfinished", 0.0},
    {"setting:db/menu/system/time/off_timer", 0.0},
    {"setting:db/menu/system/power/auto_power_off", false},
    {"setting:db/menu/system/software_update/auto_update", true},
    {"setting:db/menu/home_deck/homedatacontrol/defaultdisclaimeragree", 1.0},
    {"setting:db/menu/system/demo_mode", false},
};

/// kWell with other facts in places; std::monostate makes one unknown.
Facts With(const Facts& changes) {
  Facts facts = kWell;
  for (const auto& [name, value] : changes) facts[name] = value;
  return facts;
}

constexpr std::monostate kUnknown;

TEST_F(ShippedRules, NameFactsThatTheEngineKnows) {
  const std::string documented = Read("docs/facts.md");
  if (documented.empty()) return;  // the collectors are not here yet
  const std::map<FactKind, std::string> names = {
      {FactKind::kTruth, "truth"}, {FactKind::kNumber, "number"}, {FactKind::kText, "text"}};
  for (const auto& [fact, kind] : NamedFacts(m_text))
    EXPECT_THAT(documented, testing::HasSubstr("| `" + fact + "` | " + names.at(kind) + " |"));
}

TEST_F(ShippedRules, HaveASolutionEach) {
  const std::string map = Read("platform/set/solutionmap.xml");
  for (const trevlin::Rule& rule : m_file.rules)
    EXPECT_THAT(map, testing::HasSubstr("issue_code=\"" + std::to_string(rule.code) + "\""));
}

// What has been decided true can be decided false again, also where there is a condition of its own for it.
TEST_F(ShippedRules, AreAllOverOnAMachineThatIsWell) {
  for (const trevlin::Rule& rule : m_file.rules)
    EXPECT_EQ(DecideNow(rule, kWell), Truth::kFalse) << rule.code << " " << ToText(rule.when);
}

TEST_F(ShippedRules, FindNothingWhereNothingIsWrong) {
  // A container sees the sensors and the display of its machine, but has neither devices nor a service manager.
  const Facts container = With({{"input.devices", 0.0},
                                {"input.remote", false},
                                {"input.battery_percent", kUnknown},
                                {"sound.muted", kUnknown},
                                {"sound.volume_percent", kUnknown},
                                {"clock.synchronised", false},
                                {"clock.zone", false},
                                {"services.failed", kUnknown},
                                {"network.link_speed_mbit", 10000.0}});
  const Facts virtualMachine = With({{"cpu.temperature", kUnknown},
                                     {"cpu.throttled", kUnknown},
                                     {"display.edid_present", false},
                                     {"display.edid_valid", kUnknown},
                                     {"display.mode", "1024x768"},
                                     {"sound.cards", 0.0},
                                     {"clock.synchronised", false},
                                     {"network.link_speed_mbit", kUnknown},
                                     {"network.half_duplex", kUnknown}});
  // Full HD on an Ultra HD television, warm, wireless, without systemd.
  const Facts box = With({{"cpu.temperature", 84.0},
                          {"display.mode_below_preferred", true},
                          {"services.failed", kUnknown},
                          {"clock.synchronised", false},
                          {"memory.available_percent", 12.0},
                          {"memory.available_mib", 230.0},
                          {"network.kind", "wireless"},
                          {"network.wireless_signal_dbm", -70.0},
                          {"network.wireless_quality_percent", 57.0},
                          {"network.link_speed_mbit", kUnknown}});
  const Facts largeComputer = With({{"storage.free_percent", 4.0},
                                    {"storage.free_mib", 80000.0},
                                    {"memory.available_percent", 6.0},
                                    {"memory.available_mib", 4000.0},
                                    {"memory.swap_used_percent", 100.0},
                                    {"packages.cache_mib", kUnknown},
                                    {"cpu.load5_per_core", 1.8},
                                    {"display.connected", 0.0},
                                    {"power.uptime_days", 400.0}});
  const std::map<std::string, Facts> machines = {{"nothing is known", {}},
                                                 {"container", container},
                                                 {"container without a network", {{"network.interface", false}}},
                                                 {"virtual machine", virtualMachine},
                                                 {"television box", box},
                                                 {"computer without a display", largeComputer}};
  for (const auto& [name, facts] : machines) EXPECT_THAT(Found(facts), testing::IsEmpty()) << name;
}

// Nor does what was wrong before the cable was pulled stay.
TEST_F(ShippedRules, SayNothingElseOfTheNetworkWithoutALink) {
  Facts facts;
  for (const char* untrue : {"link", "address", "fallback_address", "default_route"})
    facts["network." + std::string(untrue)] = false;
  facts["network.interface"] = true;
  for (const char* kind : {"wired", "wireless"}) {
    facts["network.kind"] = kind;
    for (const trevlin::Rule& rule : m_file.rules)
      if (rule.code >= 10000001 && rule.code <= 10009999) {
        EXPECT_EQ(DecideNow(rule, facts), rule.code == 10000001 ? Truth::kTrue : Truth::kFalse) << rule.code;
      }
  }
}

TEST_F(ShippedRules, TellOneThingForOneCause) {
  const struct {
    int code;
    Facts changes;
  } cases[] = {
      {10000001, {{"network.link", false}, {"network.address", false}, {"network.default_route", false}}},
      {10000001, {{"network.link", false}, {"network.default_route", false}}},  // the address is a fixed one
      {10000001,
       {{"network.link", false},
        {"network.address", false},
        {"network.fallback_address", true},
        {"network.default_route", false}}},
      {10000002, {{"network.gateway_reachable", false}, {"network.name_resolution", false}}},
      {10000003, {{"network.name_resolution", false}}},
      {10000004, {{"network.kind", "wireless"}, {"network.wireless_signal_dbm", -84.0}}},
      {10000004, {{"network.kind", "wireless"}, {"network.wireless_quality_percent", 20.0}}},
      {10000005, {{"network.address", false}, {"network.default_route", false}}},
      {10000006, {{"network.address", false}, {"network.fallback_address", true}, {"network.default_route", false}}},
      {10000007, {{"network.default_route", false}, {"network.gateway_reachable", kUnknown}}},
      {10000008, {{"network.name_server", false}, {"network.name_resolution", kUnknown}}},
      {10000009, {{"network.receive_errors_percent", 3.0}}},
      {10000010, {{"network.link_speed_mbit", 10.0}}},
      {10000010, {{"network.half_duplex", true}}},
      {10020003, {{"storage.removable_full", true}}},
      {10030001, {{"sound.muted", true}, {"sound.volume_percent", 0.0}}},
      {10030002, {{"sound.cards", 0.0}, {"sound.muted", kUnknown}, {"sound.volume_percent", kUnknown}}},
      {10030003, {{"sound.volume_percent", 0.0}}},
      {10040001, {{"storage.free_percent", 7.0}, {"storage.free_mib", 560.0}, {"packages.cache_mib", 900.0}}},
      {10040002, {{"storage.free_percent", 2.0}, {"storage.free_mib", 150.0}}},
      {10040004, {{"storage.system_read_only_error", true}}},
      {10040005, {{"storage.inodes_free_percent", 1.0}}},
      {10040006, {{"packages.cache_mib", 900.0}, {"storage.free_percent", 20.0}}},
      {10050001, {{"memory.available_percent", 5.0}, {"memory.available_mib", 100.0}}},
      {10050002, {{"memory.swap_used_percent", 97.0}, {"memory.available_percent", 11.0}}},
      {10050003, {{"cpu.load5_per_core", 5.0}}},
      {10060001, {{"clock.set", false}, {"clock.synchronised", false}}},
      {10060002, {{"clock.synchronised", false}}},
      {10060003, {{"clock.zone", false}}},
      {10070001, {{"input.battery_percent", 15.0}}},
      {10070002, {{"input.remote", false}}},
      {10080001, {{"cpu.temperature", 97.0}}},
      {10080005, {{"power.uptime_days", 200.0}}},
      {10100001, {{"display.mode_below_preferred", true}, {"display.mode", "1280x720"}}},
      {10100002, {{"display.edid_present", false}, {"display.edid_valid", kUnknown}, {"display.mode", "800x600"}}},
      {10100003, {{"display.edid_valid", false}}},
      {20040001, {{"storage.wear_percent", 90.0}}},
      {20050001, {{"services.crashes_week", 3.0}}},
      {20050002, {{"memory.pressure_some_avg60", 40.0}}},
      {20050003, {{"services.failed", 1.0}, {"services.failed_names", "printer.service"}}},
      {20070001, {{"services.failed_names", "anacron.service bluetooth.service"}}},
      {20080001, {{"setting:db/menu/system/time/off_timer", 60.0}}},
      {20080002, {{"setting:db/menu/system/power/auto_power_off", true}}},
      {20090001, {{"setting:db/menu/system/software_update/auto_update", false}}},
      {20090003, {{"packages.unfinished", 1.0}}},
      {20090004, {{"setting:db/menu/home_deck/homedatacontrol/defaultdisclaimeragree", 0.0}}},
      {20100001, {{"setting:db/menu/system/demo_mode", true}}},
  };
  for (const auto& expected : cases)
    EXPECT_THAT(Found(With(expected.changes)), testing::ElementsAre(expected.code)) << expected.code;
}

}  // namespace
