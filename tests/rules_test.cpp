// Rules: how they are decided, and what is said of each kind of mistake.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "trevlin/collectors/collectors.h"
#include "trevlin/rules_file.h"

namespace {

using namespace trevlin;

const FactKinds kKinds = {{"n", FactKind::kNumber}, {"t", FactKind::kTruth},  {"x", FactKind::kText},
                          {"l", FactKind::kText},   {"u", FactKind::kNumber}, {"v", FactKind::kTruth},
                          {"w", FactKind::kText}};
const Facts kFacts = {{"n", 5.0}, {"t", true},        {"x", std::string("a")}, {"l", std::string("a b.c d")},
                      {"u", {}},  {"setting:k", true}};

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
  const auto joined = [](const char* how, const std::string& a, const std::string& b) {
    return std::string("{\"") + how + "\": [" + a + ", " + b + "]}";
  };
  const std::pair<std::string, char> cases[] = {
      {R"({"fact": "n", "is": "<", "value": 5})", 'F'},
      {R"({"fact": "n", "is": "<=", "value": 5})", 'T'},
      {R"({"fact": "n", "is": ">", "value": 4.5})", 'T'},
      {R"({"fact": "n", "is": ">=", "value": 5.5})", 'F'},
      {R"({"fact": "x", "is": "==", "value": "a"})", 'T'},
      {R"({"fact": "x", "is": "!=", "value": "a"})", 'F'},
      {R"({"fact": "t", "is": "==", "value": false})", 'F'},
      {R"({"fact": "l", "is": "has", "value": "b.c"})", 'T'},
      {R"({"fact": "l", "is": "has", "value": "b"})", 'F'},
      {R"({"fact": "w", "is": "has", "value": "b"})", '?'},
      {R"({"fact": "v", "is": "!=", "value": false})", '?'},
      {R"({"fact": "w", "is": "!=", "value": ""})", '?'},
      {R"({"fact": "setting:k", "is": "==", "value": true})", 'T'},
      {R"({"fact": "setting:k", "is": "!=", "value": 1})", '?'},
      {R"({"fact": "setting:none", "is": "==", "value": true})", '?'},
      {unknown, '?'},
      {"{\"not\": " + holds + "}", 'F'},
      {"{\"not\": " + fails + "}", 'T'},
      {"{\"not\": " + unknown + "}", '?'},
      {joined("all", holds, holds), 'T'},
      {joined("all", holds, fails), 'F'},
      {joined("all", unknown, fails), 'F'},
      {joined("all", unknown, holds), '?'},
      {joined("any", fails, fails), 'F'},
      {joined("any", fails, holds), 'T'},
      {joined("any", unknown, holds), 'T'},
      {joined("any", unknown, fails), '?'},
      {joined("all", holds, joined("any", unknown, "{\"not\": " + fails + "}")), 'T'},
  };
  for (const auto& [condition, truth] : cases)
    EXPECT_EQ(Letter(Evaluate(RuleOf("\"when\": " + condition).when, kFacts)), truth) << condition;
}

struct Course {
  const char* name;
  const char* members;
  /// Seconds and the number "n"; 0 for unknown.
  std::vector<std::pair<int, int>> looks;
  const char* decided;
};

TEST(Rules, HoldForAsLongOrAsOftenAsTheySay) {
  const std::string high = R"("when": {"fact": "n", "is": ">", "value": 10})";
  const Course cases[] = {
      {"at once", "", {{1, 11}, {2, 10}, {3, 0}, {4, 11}}, "TF?T"},
      {"seconds", R"(, "for": {"seconds": 100})", {{1, 11}, {100, 11}, {101, 11}, {102, 1}, {103, 11}}, "??TF?"},
      {"seconds across what is unknown", R"(, "for": {"seconds": 100})", {{1, 11}, {50, 0}, {101, 11}}, "??T"},
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
  for (const Course& each : cases) {
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

TEST(Rules, AreWrittenForPeople) {
  const Rule rule = RuleOf(std::string(R"("when": {"all": [)") + kHolds + R"(, {"any": [)" + kFails +
                           ", {\"not\": " + kUnknown + R"(}]}]}, "for": {"runs": 2, "of": 3}, "clear": )" + kFails);
  EXPECT_EQ(ToText(rule), "n == 5 and (n != 5 or not u == 5), for 2 of 3 runs, until n != 5");
}

// The rule starts in the second line; the good one follows in the next.
TEST(RulesFile, NamesEachMistakeAndKeepsTheGoodRules) {
  const std::string good = R"({"code": 18, "group": "cache", "when": {"fact": "t", "is": "==", "value": true}})";
  const std::string head = R"({"code": 17, "group": "memory", )";
  const auto with = [&](const std::string& condition) { return head + "\"when\": " + condition + "}"; };
  const auto holding = [&](const std::string& hold) {
    return head + "\"when\": " + kHolds + ",\n\"for\": " + hold + "}";
  };
  const std::pair<std::string, std::string> cases[] = {
      {"7", "2:1: a rule is no object"},
      {R"({"group": "memory", "when": {}})", "2:1: a rule has no \"code\""},
      {R"({"code": 0})", "2:10: \"code\" is no whole number from 1 to 2147483647"},
      {R"({"code": "17"})", "2:10: \"code\" is no whole number from 1 to 2147483647"},
      {R"({"code": 17, "group": "wifi"})", "2:23: unknown group \"wifi\""},
      {R"({"code": 17, "group": 4})", "2:23: unknown group that is no text"},
      {head + "\"wenn\": {}}", "2:41: unknown member \"wenn\" of a rule"},
      {R"({"code": 17, "group": "memory"})", "2:1: a rule has no \"when\""},
      {with("true"), "2:41: a condition is no object"},
      {with("{}"), "2:41: a condition is one of \"fact\", \"all\", \"any\" and \"not\""},
      {with(R"({"all": [], "any": []})"), "2:41: a condition is one of \"fact\", \"all\", \"any\" and \"not\""},
      {with(R"({"all": []})"), "2:49: \"all\" is no array of conditions"},
      {with(R"({"fact": "n", "is": "<"})"), "2:41: a comparison has no \"value\""},
      {with("\n{\"fact\": \"m\", \"is\": \"<\", \"value\": 1}"), "3:10: unknown fact \"m\""},
      {with(R"({"fact": "setting:a b", "is": "==", "value": 1})"), "2:50: \"setting:a b\": "},
      {with(R"({"fact": "n", "is": "=", "value": 1})"), "2:61: unknown operator \"=\""},
      {with(R"({"fact": "n", "is": "<", "value": true})"), "2:75: \"n\" is a number, the value is a truth"},
      {with(R"({"fact": "x", "is": "<", "value": "a"})"), "2:61: \"<\" needs a number, the value is a text"},
      {with(R"({"fact": "x", "is": "has", "value": "a b"})"), "2:77: the value is not one word"},
      {with(R"({"fact": "n", "is": "<", "value": null})"), "2:75: \"value\" is no number, truth or text"},
      {with(R"({"fact": "n", "is": "<", "value": 1, "for": 2})"), "unknown member \"for\" of a comparison"},
      {holding("60"), "3:8: \"for\" is no object"},
      {holding(R"({"seconds": 0})"), "3:20: \"seconds\" is no whole number from 1 to 86400"},
      {holding(R"({"seconds": 1, "runs": 1})"), "3:31: unknown member \"runs\" of \"for\" with \"seconds\""},
      {holding(R"({"runs": 3, "of": 2})"), "3:26: \"of\" is no whole number from 3 to 32"},
      {head + "\"event\": 1, \"when\": " + kHolds + "}", "2:42: \"event\" is no truth"},
      {holding(R"({"of": 2})"), "3:8: \"for\" has no \"runs\""},
      {good, "3:10: code 18 has a rule already"},
  };
  for (const auto& [rule, mistake] : cases) {
    const RuleFile file = ParseRules(FileOf(rule + ",\n" + good), kKinds);
    ASSERT_EQ(file.mistakes.size(), 1u) << rule;
    const std::string text = ToText(file.mistakes[0], "f");
    EXPECT_NE(text.find(mistake), std::string::npos) << text << "\nfor " << rule;
    ASSERT_EQ(file.rules.size(), 1u) << rule;
    EXPECT_EQ(file.rules[0].code, 18);
  }
}

TEST(RulesFile, ThatIsNoRulesFileIsOneMistake) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "1:1: no JSON: "},
      {"{\"version\": 1,\n \"rules\": [}", "2:12: no JSON: "},
      {"{\"version\": 1, \"version\": 1, \"rules\": []}", "no JSON: Duplicate key"},
      {"{\"version\": 1, \"rules\": []} x", "no JSON: "},
      {std::string(5000, '['), "no JSON: "},
      {"[]", "1:1: the file is no object"},
      {"{\"version\": 2, \"rules\": []}", "1:13: \"version\" is no whole number from 1 to 1"},
      {"{\"version\": 1}", "1:1: the file has no \"rules\""},
      {"{\"version\": 1, \"rules\": {}}", "1:25: \"rules\" is no array"},
  };
  for (const auto& [text, mistake] : cases) {
    const RuleFile file = ParseRules(text, kKinds);
    EXPECT_TRUE(file.rules.empty());
    ASSERT_EQ(file.mistakes.size(), 1u) << text;
    EXPECT_NE(ToText(file.mistakes[0], "f").find(mistake), std::string::npos)
        << ToText(file.mistakes[0], "f") << "\nfor " << text;
  }
}

TEST(RulesFile, OfTheSetHasNoMistakes) {
  FactKinds kinds;
  for (const auto& collector : MakeCollectors())
    for (const FactDescription& fact : collector->Describe()) kinds.emplace(fact.name, fact.kind);
  std::ifstream stream(VEXILO_SOURCE_DIR "/platform/set/rules.json");
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  for (const RuleMistake& mistake : ParseRules(text, kinds).mistakes) ADD_FAILURE() << ToText(mistake, "rules.json");
}

}  // namespace
