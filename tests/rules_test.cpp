// Rules: how they are decided, what is said of each kind of mistake, and those of the set.

#include "support/captured_machine.h"
#include "support/growth.h"
#include "support/test.h"
#include "trevlin/collectors/collectors.h"
#include "trevlin/rules_file.h"

namespace {

using namespace trevlin;

const FactKinds kKinds = {{"n", FactKind::kNumber}, {"t", FactKind::kTruth},   {"x", FactKind::kText},
                          {"l", FactKind::kText},   {"u", FactKind::kNumber},  {"v", FactKind::kTruth},
                          {"w", FactKind::kText},   {"gone", FactKind::kTruth}};
const Facts kFacts = {{"n", 5.0}, {"t", true},        {"x", std::string("a")}, {"l", std::string("a b.c d")},
                      {"u", {}},  {"gone", Absent{}}, {"setting:k", true}};

std::string FileOf(const std::string& rules) {
  return "{\"version\": 1, \"rules\": [\n" + rules + "\n]}";
}

Rule RuleOf(const std::string& members) {
  const RuleFile file = ParseRules(FileOf(R"({"code": 17, "group": "memory", )" + members + "}"), kKinds);
  for (const RuleMistake& mistake : file.mistakes) ADD_FAILURE() << ToText(mistake, members);
  return file.rules.empty() ? Rule() : file.rules[0];
}

char Letter(Truth truth) {
  return "FT?"[static_cast<int>(truth)];
}

constexpr char kHolds[] = R"({"fact": "n", "is": "==", "value": 5})";
constexpr char kFails[] = R"({"fact": "n", "is": "!=", "value": 5})";
constexpr char kUnknown[] = R"({"fact": "u", "is": "==", "value": 5})";

TEST(Rules, AreDecidedInThreeTruths) {
  const std::string holds = kHolds, fails = kFails, unknown = kUnknown;
  const std::pair<std::string, char> cases[] = {
      {R"({"fact": "n", "is": "<", "value": 5})", 'F'},
      {R"({"fact": "n", "is": "<=", "value": 5})", 'T'},
      {R"({"fact": "n", "is": ">=", "value": 5.5})", 'F'},
      {R"({"fact": "x", "is": "==", "value": "a"})", 'T'},
      {R"({"fact": "l", "is": "has", "value": "b.c"})", 'T'},
      {R"({"fact": "l", "is": "has", "value": "b"})", 'F'},
      {R"({"fact": "l", "is": "has", "value": "b.*"})", 'T'},
      {R"({"fact": "l", "is": "has", "value": "*.d"})", 'F'},
      {R"({"fact": "w", "is": "has", "value": "b"})", '?'},
      {R"({"fact": "setting:k", "is": "==", "value": true})", 'T'},
      {R"({"fact": "setting:k", "is": "!=", "value": 1})", '?'},
      {R"({"fact": "setting:none", "is": "==", "value": true})", '?'},
      {R"({"fact": "gone", "is": "==", "value": true})", '?'},
      {R"({"fact": "gone", "is": "absent"})", 'T'},
      {R"({"fact": "n", "is": "absent"})", 'F'},
      {R"({"fact": "u", "is": "absent"})", '?'},
      {unknown, '?'},
      {"{\"not\": " + holds + "}", 'F'},
      {"{\"not\": " + fails + "}", 'T'},
      {"{\"not\": " + unknown + "}", '?'},
  };
  for (const auto& [condition, truth] : cases)
    EXPECT_EQ(Letter(Evaluate(RuleOf("\"when\": " + condition).when, kFacts)), truth) << condition;

  const auto conditionOf = [&](char truth) { return truth == 'T' ? holds : truth == 'F' ? fails : unknown; };
  // Two that are joined, and what comes of them.
  for (const std::string row :
       {"all TTT", "all TFF", "all ?FF", "all ?T?", "any FFF", "any FTT", "any ?TT", "any ?F?"}) {
    const std::string joined =
        "{\"" + row.substr(0, 3) + "\": [" + conditionOf(row[4]) + ", " + conditionOf(row[5]) + "]}";
    EXPECT_EQ(Letter(Evaluate(RuleOf("\"when\": " + joined).when, kFacts)), row[6]) << row;
  }
}

TEST(Rules, FindWhatNoOtherRuleNames) {
  const std::pair<std::string, char> cases[] = {
      {R"({"fact": "l", "is": "has", "value": "a"})", 'T'},
      {R"({"any": [{"fact": "l", "is": "has", "value": "a"}, {"fact": "l", "is": "has", "value": "b.*"}]})", 'T'},
      {R"({"fact": "x", "is": "has", "value": "*"})", 'T'},
      {R"({"fact": "l", "is": "has", "value": "*"})", 'F'},
  };
  for (const auto& [condition, truth] : cases) {
    const RuleFile file = ParseRules(FileOf(R"({"code": 1, "group": "memory", "when": {"fact": "l", "is": "other"}},)"
                                            R"({"code": 2, "group": "memory", "when": )" +
                                            condition + "}"),
                                     kKinds);
    ASSERT_EQ(file.rules.size(), 2U) << ToText(file.mistakes.front(), condition);
    EXPECT_EQ(Letter(DecideNow(file.rules[0], kFacts)), truth) << condition;
  }
  EXPECT_EQ(Letter(DecideNow(RuleOf(R"("when": {"fact": "w", "is": "other"})"), kFacts)), '?');
}

TEST(Rules, HoldForAsLongOrAsOftenAsTheySay) {
  const std::string high = R"("when": {"fact": "n", "is": ">", "value": 10})";
  const struct {
    const char* name;
    const char* members;
    std::vector<std::pair<int, int>> looks;  // seconds and the number "n", 0 for unknown
    const char* decided;
  } cases[] = {
      {"at once", "", {{1, 11}, {2, 10}, {3, 0}, {4, 11}}, "TF?T"},
      {"seconds", R"(, "for": {"seconds": 100})", {{1, 11}, {100, 11}, {101, 11}, {102, 1}, {103, 11}}, "??TF?"},
      {"seconds across a long gap", R"(, "for": {"seconds": 100})", {{1, 11}, {3700, 11}, {3800, 11}}, "??T"},
      {"in a row", R"(, "for": {"runs": 2})", {{10, 11}, {20, 1}, {30, 11}, {40, 0}, {50, 11}}, "?F??T"},
      {"some of the last",
       R"(, "for": {"runs": 2, "of": 3})",
       {{10, 11}, {20, 1}, {30, 11}, {40, 1}, {50, 1}, {60, 11}},
       "?FTFF?"},
      {"runs too close", R"(, "for": {"runs": 2})", {{10, 11}, {19, 11}, {20, 11}}, "??T"},
      {"clear",
       R"(, "clear": {"fact": "n", "is": "<", "value": 5})",
       {{1, 11}, {2, 7}, {3, 11}, {4, 4}, {5, 0}},
       "T?TF?"},
      {"clear while it holds", R"(, "clear": {"fact": "n", "is": ">", "value": 1})", {{1, 11}, {2, 7}}, "TF"},
  };
  for (const auto& each : cases) {
    const Rule rule = RuleOf(high + each.members);
    History history;
    std::string decided;
    for (const auto& [time, number] : each.looks) {
      const Facts facts = {{"n", number ? FactValue(static_cast<double>(number)) : FactValue()}};
      decided += Letter(Decide(rule, facts, time, history));
    }
    EXPECT_EQ(decided, each.decided) << each.name;
  }
}

// The rule starts in the second line; the good one follows in the next.
TEST(RulesFile, NamesEachMistakeAndKeepsTheGoodRules) {
  const std::string good = R"({"code": 18, "group": "cache", "when": {"fact": "t", "is": "==", "value": true}})";
  const std::string head = R"({"code": 17, "group": "memory", )";
  const auto with = [&](const std::string& condition) { return head + "\"when\": " + condition + "}"; };
  const auto holding = [&](const std::string& hold) {
    return head + "\"when\": " + kHolds + ",\n\"for\": " + hold + "}";
  };
  const auto explaining = [&](const std::string& codes) {
    return head + "\"when\": " + kHolds + ",\n\"explains\": " + codes + "}";
  };
  const std::pair<std::string, std::string> cases[] = {
      {"7", "2:1: a rule is not an object"},
      {R"({"group": "memory", "when": {}})", "2:1: a rule has no \"code\""},
      {R"({"code": 0})", "2:10: \"code\" must be a whole number from 1 to 2147483647"},
      {R"({"code": 17, "group": "wifi"})", "2:23: unknown group \"wifi\""},
      {head + "\"wenn\": {}}", "2:41: unknown member \"wenn\" of a rule"},
      {with(R"({"all": [], "any": []})"), "2:41: a condition is one of \"fact\", \"all\", \"any\" and \"not\""},
      {with(R"({"all": []})"), "2:49: \"all\" must be an array of conditions"},
      {with("\n{\"fact\": \"m\", \"is\": \"<\", \"value\": 1}"), "3:10: unknown fact \"m\""},
      {with(R"({"fact": "setting:a b", "is": "==", "value": 1})"), "2:50: \"setting:a b\": "},
      {with(R"({"fact": "n", "is": "=", "value": 1})"), "2:61: unknown operator \"=\""},
      {with(R"({"fact": "n", "is": "<", "value": true})"), "2:75: \"n\" is a number, the value is true or false"},
      {with(R"({"fact": "x", "is": "<", "value": "a"})"), "2:61: \"<\" needs a number, the value is text"},
      {with(R"({"fact": "x", "is": "has", "value": "a b"})"), "2:77: the value is not one word"},
      {with(R"({"fact": "n", "is": "<", "value": null})"), "2:75: \"value\" must be a number, true or false, or text"},
      {holding(R"({"seconds": 0})"), "3:20: \"seconds\" must be a whole number from 1 to 86400"},
      {holding(R"({"seconds": 1, "runs": 1})"), "3:31: unknown member \"runs\" of \"for\" with \"seconds\""},
      {holding(R"({"runs": 3, "of": 2})"), "3:26: \"of\" must be a whole number from 3 to 32"},
      {head + "\"event\": 1, \"when\": " + kHolds + "}", "2:42: \"event\" must be true or false"},
      {with(R"({"fact": "n", "is": "absent", "value": 1})"), "2:80: \"absent\" compares with no value"},
      {with(R"({"fact": "l", "is": "other", "value": "a"})"), "2:79: \"other\" compares with no value"},
      {with(R"({"fact": "n", "is": "other"})"), "2:50: \"other\" needs text, \"n\" is a number"},
      {head + "\"about\": \"t\", \"when\": " + kHolds + "}", "2:42: \"about\" must be a fact that is text"},
      {explaining("18"), "3:13: \"explains\" must be an array of codes"},
      {explaining("[18, 0]"), "3:18: \"explains\" must be a whole number from 1 to 2147483647"},
      {explaining("[18, 17]"), "3:13: code 17 would explain itself"},
      {good, "3:10: code 18 has a rule already"},
      {head + "\n\"when\": {}, \"when\": " + kHolds + "}", "3:13: not valid JSON: Duplicate key: 'when'"},
      {with(R"({"not": {"fact": "n", "fact": "n", "is": "<", "value": 5}})"), "Duplicate key: 'fact'"},
  };
  for (const auto& [rule, mistake] : cases) {
    const RuleFile file = ParseRules(FileOf(rule + ",\n" + good), kKinds);
    ASSERT_EQ(file.mistakes.size(), 1u) << rule;
    EXPECT_THAT(ToText(file.mistakes[0], "f"), HasSubstr(mistake)) << rule;
    ASSERT_EQ(file.rules.size(), 1u) << rule;
    EXPECT_EQ(file.rules[0].code, 18);
  }
}

TEST(RulesFile, OfAnyNumberOfRulesIsReadInProportionToIt) {
  // What may be wrong with a rule; each has a code of its own.
  for (const std::string rest :
       {R"("group": "cache", "when": {"fact": "t", "is": "==", "value": true})", R"("group": "none")",
        R"("group": "cache", "group": "cache")",
        R"("group": "cache", "when": {"fact": "t", "is": "==", "value": true}, "explains": [)"})
    for (const char* end : {",\n", ","}) {
      const auto read = [&](size_t count) {
        std::string rules;
        for (size_t i = 2; i <= count + 1; ++i)
          rules += "{\"code\": " + std::to_string(i) + ", " + rest +
                   (rest.ends_with('[') ? std::to_string(i - 1) + "]" : "") + "}" + end;
        const RuleFile file = ParseRules(FileOf(rules + "7"), kKinds);
        EXPECT_EQ(file.rules.size() + file.mistakes.size(), count + 1);
      };
      EXPECT_LT(GrowthOf(read, 500), kLinear) << rest << end;
    }
}

TEST(RulesFile, ThatIsNoRulesFileIsOneMistake) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "1:1: not valid JSON: "},
      {"{\"version\": 1,\n \"rules\": [}", "2:12: not valid JSON: "},
      {"{\"version\": 1, \"version\": 1, \"rules\": []}", "1:16: not valid JSON: Duplicate key"},
      {"{\"version\": 1, \"rules\": [{\"code\": 1, \"code\": 1}], \"version\": 1}",
       "not valid JSON: Duplicate key: 'version'"},
      {"{\"version\": 2, \"rules\": []}", "1:13: \"version\" must be a whole number from 1 to 1"},
      {"{\"version\": 1, \"rules\": {}}", "1:25: \"rules\" must be an array"},
  };
  for (const auto& [text, mistake] : cases) {
    const RuleFile file = ParseRules(text, kKinds);
    EXPECT_FALSE(file.isRulesFile);
    EXPECT_TRUE(file.rules.empty());
    ASSERT_EQ(file.mistakes.size(), 1u) << text;
    EXPECT_THAT(ToText(file.mistakes[0], "f"), HasSubstr(mistake)) << text;
  }
}

// --- The rules as they ship, on machines that are well and on machines that are not ----------------------------------

/// A television box where every fact is known, and nothing is wrong.
const Facts kWell = FactsOf(R"(
  machine.kind=hardware
  storage.free_percent=40 storage.free_mib=3000 storage.inodes_free_percent=80 storage.read_only=no
  storage.system_read_only_error=no storage.fs_errors=0 storage.wear_percent=30 storage.pre_eol=no storage.smart_failing=no
  storage.removable_full=no storage.removable_error=no storage.system_room_percent=300 storage.io_errors=0
  storage.removable_io_errors=0
  memory.available_percent=35 memory.available_mib=700 memory.swap_used_percent=20 memory.pressure_some_avg60=0.5
  memory.oom_kills_recent=0
  cpu.load5_per_core=0.4 cpu.pressure_some_avg60=2 cpu.temperature=62 cpu.temperature_margin=38 cpu.throttled=no
  network.interface=yes network.link=yes network.kind=wired network.address=yes network.fallback_address=no
  network.default_route=yes network.gateway_reachable=yes network.name_server=yes network.name_resolution=yes
  network.name_delay_ms=30 network.internet=yes network.internet_wanted=yes network.sign_in_page=no
  network.radio_off=no network.wireless_drops=0
  network.receive_errors_percent=0 network.link_speed_mbit=100 network.half_duplex=no
  display.connected=1 display.mode=1920x1080 display.mode_pixels=2073600 display.mode_below_preferred=no
  display.edid_present=yes display.edid_valid=yes display.plays_sound=yes
  display.software_drawing=no display.renderer_is_software=no display.decoder_missing=no
  display.board_decoder_missing=no
  sound.cards=1 sound.muted=no sound.volume_percent=40 sound.hdmi_output=yes sound.elsewhere=no
  input.devices=4 input.remote=yes input.battery_percent=70 input.battery_charging=no
  power.undervoltage=no power.undervoltage_since_start=no power.unclean_shutdown=no power.uptime_days=3 power.watchdog_reset=no
  power.on_battery_low=no
  clock.set=yes clock.date=20261122 clock.synchronised=yes clock.time_service_off=no clock.zone=yes schedule.off=no
  schedule.idle_off=no
  services.failed=0 services.failed_names= services.user_failed_names= services.crashes_week=0
  packages.broken=0 packages.cache_mib=120 packages.unfinished=0
  updates.interrupted=0 updates.work_hours=0 updates.start_failed=no updates.refresh_on=yes updates.list_age_days=1 updates.automatic=yes
  setting:db/menu/system/time/off_timer=0
  setting:db/menu/system/software_update/auto_update=yes
  setting:db/menu/home_deck/homedatacontrol/defaultdisclaimeragree=1
)");

class ShippedRules : public testing::Test {
 protected:
  void SetUp() override {
    FactKinds kinds;
    for (const auto& collector : MakeCollectors())
      for (const FactDescription& fact : collector->Describe()) kinds.emplace(fact.name, fact.kind);
    const RuleFile file = ParseRules(Source("platform/set/rules.json"), kinds);
    for (const RuleMistake& mistake : file.mistakes) ADD_FAILURE() << ToText(mistake, "rules.json");
    m_rules = file.rules;
    ASSERT_GE(m_rules.size(), 40U);
  }

  static std::string Source(const std::string& path) {
    std::ifstream file(VEXILO_SOURCE_DIR "/" + path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// But for what others explain.
  std::set<int> Found(const Facts& facts) const {
    std::vector<int> there;
    Explanations explanations;
    for (const Rule& rule : m_rules) {
      if (DecideNow(rule, facts) == Truth::kTrue) there.push_back(rule.code);
      explanations[rule.code] = rule.explains;
    }
    std::set<int> codes(there.begin(), there.end());
    for (const int explained : Explained(there, explanations)) codes.erase(explained);
    return codes;
  }

  /// On the machine that is well, but for some facts.
  std::set<int> FoundWith(const char* changes) const {
    Facts facts = FactsOf(changes);
    facts.insert(kWell.begin(), kWell.end());
    return Found(facts);
  }

  std::vector<Rule> m_rules;
};

TEST_F(ShippedRules, HaveASolutionEach) {
  const std::string map = Source("platform/set/solutionmap.xml");
  for (const Rule& rule : m_rules) EXPECT_THAT(map, HasSubstr("issue_code=\"" + std::to_string(rule.code) + "\""));
}

// What has been decided true can be decided false again, also where there is a condition of its own for it.
TEST_F(ShippedRules, AreAllOverOnAMachineThatIsWell) {
  for (const Rule& rule : m_rules) EXPECT_EQ(DecideNow(rule, kWell), Truth::kFalse) << rule.code << " " << ToText(rule);
}

TEST_F(ShippedRules, FindNothingWhereNothingIsWrong) {
  EXPECT_THAT(Found({}), IsEmpty()) << "nothing is known";
  EXPECT_THAT(Found(FactsOf("network.interface=no")), IsEmpty()) << "a container without a network";
  const std::pair<const char*, const char*> machines[] = {
      {"a container, with the sensors and the display of its machine, without devices and a service manager",
       "machine.kind=container input.devices=0 input.remote=no input.battery_percent=? sound.muted=? "
       "sound.volume_percent=? clock.synchronised=no clock.zone=no network.link_speed_mbit=10000"},
      {"virtual machine with the sensors of its host",
       "machine.kind=vm display.edid_present=no display.edid_valid=? display.mode=1024x768 input.remote=no "
       "sound.cards=0 clock.synchronised=no clock.zone=no power.uptime_days=300"},
      {"Full HD on an Ultra HD television, warm, wireless, without systemd",
       "cpu.temperature=96 cpu.temperature_margin=9 display.mode_below_preferred=yes services.failed=? "
       "clock.synchronised=? "
       "memory.available_percent=12 memory.available_mib=230 network.kind=wireless network.wireless_signal_dbm=-70 "
       "network.wireless_quality_percent=57 network.link_speed_mbit=?"},
      {"large computer without a display",
       "storage.free_percent=4 storage.free_mib=80000 memory.available_percent=6 memory.available_mib=4000 "
       "memory.swap_used_percent=100 packages.cache_mib=? cpu.load5_per_core=1.8 display.connected=0 "
       "power.uptime_days=400 sound.muted=yes sound.volume_percent=0 input.devices=0 input.remote=no"},
      {"large disk and memory, with large caches",
       "packages.cache_mib=900 storage.free_percent=20 storage.free_mib=60000 memory.swap_used_percent=97 "
       "memory.available_percent=12 memory.available_mib=2000"},
      {"a set that needs no Internet, its radio off or without an adapter",
       "network.internet_wanted=no network.link=no network.interface=no network.default_route=no network.radio_off=yes "
       "network.name_server=no network.internet=? network.gateway_reachable=? network.name_resolution=?"},
      {"an address of its own network and no way out, by intent",
       "network.internet_wanted=no network.default_route=no network.name_server=no network.internet=?"},
      {"a server at a cable, with its radio off and without a router that answers",
       "network.radio_off=yes network.gateway_reachable=? display.connected=0"},
      {"a server that is to be turned off tonight", "schedule.off=yes schedule.idle_off=yes display.connected=0"},
      {"a computer without a network and a display",
       "network.interface=no network.link=no network.default_route=no "
       "network.address=no display.connected=0"},
      {"a laptop with a screen without speakers", "display.plays_sound=no sound.hdmi_output=no"},
      {"a television at a board whose drivers tell nothing of its plug", "sound.hdmi_output=?"},
      {"a computer without a display, its graphics card left alone",
       "display.software_drawing=yes display.renderer_is_software=yes display.decoder_missing=yes display.connected=0 "
       "display.board_decoder_missing=yes display.plays_sound=? input.devices=1 input.remote=no"},
      {"a television that sleeps", "display.plays_sound=? sound.hdmi_output=no"},
      {"a screen that is off or has no speakers", "display.plays_sound=no sound.elsewhere=yes"},
      {"a virtual machine with the screen of its host", "machine.kind=vm sound.hdmi_output=no"},
      {"old rules at a time server", "clock.date=20400101"},
      {"a computer in a network of its own, its time service off",
       "clock.time_service_off=yes network.internet_wanted=no"},
      {"a virtual machine that gets the time of its host", "machine.kind=vm clock.time_service_off=yes"},
      {"a set with an updater of its own, switched off in its settings",
       "updates.automatic=? updates.refresh_on=? updates.list_age_days=? updates.interrupted=? "
       "setting:db/menu/system/software_update/auto_update=no"},
      {"a container made of an image", "machine.kind=container updates.automatic=no updates.list_age_days=300"},
      {"a server whose owner updates it",
       "updates.automatic=no updates.refresh_on=no updates.list_age_days=90 "
       "display.connected=0"},
      {"a laptop after the holidays", "updates.list_age_days=60 power.uptime_days=0.1"},
      {"a box that was without the Internet for long", "updates.list_age_days=60 network.internet=?"},
      {"a long installation", "updates.interrupted=? updates.work_hours=1.5"},
      {"a modem or telephone leads out, with nothing in the plug for a cable", "network.link=no network.address=?"},
      {"a repository was out of reach today", "services.failed_names=dnf-makecache.service updates.list_age_days=1"},
      {"the same with its radio off", "network.link=no network.radio_off=yes"},
      {"the same without an adapter", "network.interface=no network.link=no"},
      {"a remote control on its charger", "input.battery_percent=5 input.battery_charging=yes"},
  };
  for (const auto& [name, changes] : machines) EXPECT_THAT(FoundWith(changes), IsEmpty()) << name;
}

// Nor does what was wrong before the cable was pulled stay.
TEST_F(ShippedRules, SayNothingElseOfTheNetworkWithoutALink) {
  for (const char* kind : {"wired", "wireless"}) {
    Facts facts = FactsOf(
        "network.interface=yes network.link=no network.address=no network.fallback_address=no "
        "network.default_route=no network.radio_off=no");
    facts["network.kind"] = kind;
    for (const Rule& rule : m_rules)
      if (rule.code >= 10000001 && rule.code <= 10009999) {
        EXPECT_EQ(DecideNow(rule, facts), rule.code == 10000001 ? Truth::kTrue : Truth::kFalse) << rule.code;
      }
  }
}

TEST_F(ShippedRules, TellAtTheFirstRunWhatStaysAsItIs) {
  Facts facts = FactsOf("network.link_speed_mbit=10 clock.synchronised=no services.failed_names=any");
  facts.insert(kWell.begin(), kWell.end());
  std::set<int> codes;
  for (const Rule& rule : m_rules)
    if (History history; Decide(rule, facts, 1, history) == Truth::kTrue) codes.insert(rule.code);
  EXPECT_THAT(codes, testing::ElementsAre(10000010, 10060002, 20050003));
}

TEST_F(ShippedRules, TellOneThingForOneCause) {
  const std::pair<int, const char*> cases[] = {
      {10000001, "network.link=no network.address=no network.default_route=no"},
      {10000001, "network.link=no network.default_route=no"},
      {10000001, "network.link=no network.address=no network.fallback_address=yes network.default_route=no"},
      {10000001, "network.link=no network.name_resolution=no network.internet=no network.gateway_reachable=no"},
      {10000001, "network.link=no network.name_resolution=no network.internet=? clock.synchronised=no"},
      {10000002, "network.gateway_reachable=no network.name_resolution=no"},
      {10000002, "network.gateway_reachable=no clock.synchronised=no"},
      {10000003, "network.name_resolution=no clock.synchronised=no"},
      {10000004, "network.kind=wireless network.wireless_signal_dbm=-84"},
      {10000005, "network.address=no network.default_route=no"},
      {10000006, "network.address=no network.fallback_address=yes network.default_route=no"},
      {10000007, "network.default_route=no network.gateway_reachable=?"},
      {10000008, "network.name_server=no network.name_resolution=?"},
      {10000009, "network.receive_errors_percent=3"},
      {10000010, "network.link_speed_mbit=10"},
      {10000010, "network.half_duplex=yes"},
      {10000011, "network.internet=no clock.synchronised=no"},
      {10000011, "network.internet=no services.failed_names=dnf5-makecache.service updates.list_age_days=9"},
      {10000011, "network.internet=no network.name_resolution=no network.name_delay_ms=?"},
      {10000011, "network.internet=no network.gateway_reachable=?"},
      {10000002, "network.internet=no network.gateway_reachable=no network.name_resolution=no"},
      {10000012, "network.internet=no network.sign_in_page=yes"},
      {10000013, "network.link=no network.default_route=no network.radio_off=yes"},
      {10000013, "network.interface=no network.link=no network.default_route=no network.radio_off=yes"},
      {10000014, "network.interface=no network.link=no network.default_route=no"},
      {10000015, "network.name_delay_ms=5020"},
      {10000016, "network.kind=wireless network.wireless_drops=6"},
      {10000004, "network.kind=wireless network.wireless_drops=6 network.wireless_signal_dbm=-84"},
      {20000002, "services.failed_names=networking.service network.address=no network.default_route=no"},
      {20000002, "services.failed_names=systemd-resolved.service network.name_resolution=no network.internet=?"},
      {20000002, "services.failed_names=systemd-resolved.service network.name_delay_ms=5020"},
      {20000002, "services.failed=1 services.failed_names=wpa_supplicant@wlan0.service"},
      {10020003, "storage.removable_full=yes"},
      {10020004, "storage.removable_error=yes storage.removable_full=yes"},
      {10030001, "sound.muted=yes sound.volume_percent=0"},
      {10030002, "sound.cards=0 sound.muted=? sound.volume_percent=?"},
      {10030003, "sound.volume_percent=0"},
      {10030004, "sound.hdmi_output=no"},
      {20030001, "services.user_failed_names=wireplumber.service"},
      {10040001, "storage.free_percent=7 storage.free_mib=560 packages.cache_mib=900"},
      {10040002, "storage.free_percent=2 storage.free_mib=150 storage.inodes_free_percent=3"},
      {10040003, "storage.read_only=yes storage.fs_errors=2"},
      {10040004, "storage.system_read_only_error=yes"},
      {10030005, "sound.elsewhere=yes sound.muted=yes"},
      {10040004, "storage.read_only=yes storage.system_read_only_error=yes storage.fs_errors=2"},
      {10040005, "storage.inodes_free_percent=1"},
      {10040007, "storage.system_room_percent=90 storage.system_fullest=/home"},
      {10040006, "packages.cache_mib=900 storage.free_percent=20"},
      {10050001, "memory.available_percent=5 memory.available_mib=100 memory.pressure_some_avg60=40"},
      {10050002, "memory.swap_used_percent=97 memory.available_percent=11 memory.pressure_some_avg60=40"},
      {10050003, "cpu.load5_per_core=5 cpu.pressure_some_avg60=70"},
      {10060001, "clock.set=no clock.synchronised=no"},
      {10060002, "clock.synchronised=no"},
      {10060003, "clock.zone=no"},
      {10060004, "clock.date=20250101"},
      {10060004, "clock.date=20400101 clock.synchronised=no"},
      {20060001, "services.failed_names=chrony.service clock.synchronised=no"},
      {20060002, "clock.time_service_off=yes"},
      {20060002, "clock.time_service_off=yes clock.synchronised=no clock.set=no clock.date=20200101"},
      {10070001, "input.battery_percent=15"},
      {10070002, "input.remote=no"},
      {10070002, "input.devices=0 input.remote=no"},
      {10080001, "cpu.temperature=97 cpu.temperature_margin=3 cpu.throttled=yes"},
      {10080002, "cpu.throttled=yes"},
      {10080005, "power.uptime_days=200"},
      {10100001, "display.mode_below_preferred=yes display.mode=1360x768 display.mode_pixels=1044480"},
      {10080003, "power.undervoltage=yes power.undervoltage_since_start=yes"},
      {20080005, "power.undervoltage_since_start=yes"},
      {10100002, "display.edid_present=no display.edid_valid=? display.mode=800x600"},
      {10100003, "display.edid_valid=no"},
      {10100004, "display.software_drawing=yes display.edid_present=no display.edid_valid=? display.mode=1024x768"},
      {10100004, "display.software_drawing=yes display.connected=?"},
      {10100005, "display.decoder_missing=yes"},
      {10100007, "display.board_decoder_missing=yes"},
      {10100006, "display.renderer_is_software=yes display.decoder_missing=yes"},
      {20040001, "storage.wear_percent=90"},
      {20040002, "storage.fs_errors=2 storage.io_errors=1"},
      {20040002, "storage.fs_errors=? storage.io_errors=3"},
      {10020004, "storage.removable_io_errors=3"},
      {10040004, "storage.system_read_only_error=yes storage.io_errors=30"},
      {20040003, "storage.smart_failing=yes storage.io_errors=30"},
      {20040003, "storage.pre_eol=? storage.smart_failing=yes"},
      {20040003, "storage.pre_eol=yes storage.wear_percent=110"},
      {20050001, "services.crashes_week=3"},
      {20050002, "memory.pressure_some_avg60=40"},
      {20050003, "services.failed=1 services.failed_names=printer.service"},
      {20070001, "services.failed=1 services.failed_names=bluetooth.service input.remote=no"},
      {20080001, "setting:db/menu/system/time/off_timer=60"},
      {20080001, "setting:db/menu/system/time/off_timer=? schedule.off=yes"},
      {20080002, "schedule.idle_off=yes"},
      {20090001, "updates.automatic=no"},
      {20090003, "packages.unfinished=1"},
      {20090004, "setting:db/menu/home_deck/homedatacontrol/defaultdisclaimeragree=0"},
      {20090005, "services.failed_names=apt-daily-upgrade.service"},
      {20090005, "services.failed_names=dnf-makecache.service updates.list_age_days=3"},
      {20090005, "services.failed_names=dnf5-makecache.service updates.list_age_days=- network.internet=-"},
      {20090005, "updates.work_hours=5"},
      {20090005, "updates.start_failed=yes"},
      {20090005, "updates.list_age_days=40"},
      {20090006, "updates.interrupted=2 updates.list_age_days=40 services.failed_names=apt-daily.service"},
  };
  for (const auto& [code, changes] : cases) EXPECT_THAT(FoundWith(changes), testing::ElementsAre(code)) << changes;
}

// What has been told stays until it is decided otherwise.
TEST_F(ShippedRules, TellOneOfTwoOnTheWayFromOneToTheOther) {
  const std::vector<std::pair<const char*, int>> ways[] = {
      {{"storage.free_percent=11 packages.cache_mib=900", 10040006},
       {"storage.free_percent=9.5 storage.free_mib=560 packages.cache_mib=900", 10040001},
       {"storage.free_percent=11 storage.free_mib=660 packages.cache_mib=900", 10040001},
       {"storage.free_percent=13 storage.free_mib=780 packages.cache_mib=900", 10040006}},
      {{"storage.free_percent=2 storage.free_mib=150 storage.inodes_free_percent=3", 10040002},
       {"storage.free_percent=- storage.free_mib=- storage.inodes_free_percent=- storage.read_only=yes", 10040003}},
      {{"display.mode_below_preferred=yes display.mode=1360x768 display.mode_pixels=1044480", 10100001},
       {"display.connected=0 display.mode_below_preferred=- display.mode_pixels=- power.on_battery_low=yes", 10080004},
       {"power.on_battery_low=- display.edid_valid=no", 10100003},
       {"display.edid_valid=- display.edid_present=- sound.muted=yes", 10030001},
       {"sound.cards=0 sound.muted=- sound.volume_percent=-", 10030002},
       {"clock.synchronised=no", 10060002},
       {"clock.synchronised=- storage.pre_eol=yes", 20040003}},
  };
  Explanations explanations;
  for (const Rule& rule : m_rules) explanations[rule.code] = rule.explains;
  for (const auto& way : ways) {
    std::set<int> standing;
    for (const auto& [changes, code] : way) {
      Facts facts = FactsOf(changes);
      facts.insert(kWell.begin(), kWell.end());
      for (const Rule& rule : m_rules) {
        const Truth truth = DecideNow(rule, facts);
        if (truth == Truth::kTrue) standing.insert(rule.code);
        if (truth == Truth::kFalse) standing.erase(rule.code);
      }
      for (const int explained : Explained({standing.begin(), standing.end()}, explanations)) standing.erase(explained);
      EXPECT_THAT(standing, testing::ElementsAre(code)) << changes;
    }
  }
}

TEST_F(ShippedRules, TellOfAnotherFailedServiceBesidesTheOneThatTheyName) {
  Facts facts = kWell;
  facts["services.failed"] = 3.0;
  facts["services.failed_names"] = "bluetooth.service ifup@eth0.service printer.service";
  EXPECT_THAT(Found(facts), testing::ElementsAre(20000002, 20050003, 20070001));
}

}  // namespace
