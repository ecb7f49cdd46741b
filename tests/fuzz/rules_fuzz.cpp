#include "fuzz.h"
#include "trevlin/rules_file.h"

void FuzzOne(std::string_view bytes) {
  using namespace trevlin;
  static const FactKinds kinds{{"network.link", FactKind::kTruth},
                               {"memory.available_percent", FactKind::kNumber},
                               {"set.model", FactKind::kText}};
  const RuleFile file = ParseRules(bytes, kinds);
  const Facts facts{{"network.link", true}, {"memory.available_percent", 3.5}};
  for (const Rule& rule : file.rules) {
    History history;
    Decide(rule, facts, 1000, history);
    DecideNow(rule, facts);
    ToText(rule);
  }
  for (const RuleMistake& mistake : file.mistakes)
    Promise(mistake.line > 0 && mistake.column > 0, "a mistake has a place");
  Promise(file.isRulesFile || (file.rules.empty() && file.mistakes.size() == 1),
          "what is no rules file is one mistake");
}
