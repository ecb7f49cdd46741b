#pragma once
/// @file
/// How rules are written: the JSON of docs/engine.md.
///
/// Thread rule: callable from any thread.

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "trevlin/rules.h"

namespace trevlin {

/// What rules may refer to.
using FactKinds = std::map<std::string, FactKind, std::less<>>;

struct RuleMistake {
  int line = 1;
  int column = 1;  ///< in bytes, from 1
  std::string reason{};
};

/// "/usr/share/trevlin/rules.json:3:14: unknown fact "memory.free""
std::string ToText(const RuleMistake& mistake, std::string_view file);

struct RuleFile {
  std::vector<Rule> rules{};            ///< the good ones, in their order
  std::vector<RuleMistake> mistakes{};  ///< one for each of the others, in the order of the file
  bool isRulesFile = false;             ///< false: not JSON, or of another form or version
};

/// Never fails as a whole: a text that is not a rules file is one mistake and has no rules.
RuleFile ParseRules(std::string_view text, const FactKinds& facts);

}  // namespace trevlin
