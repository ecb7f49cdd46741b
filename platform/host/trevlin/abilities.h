#pragma once
/// @file
/// What a machine has, at a glance: by files alone, in less than a millisecond or two.
///
/// Thread rule: callable from any thread.

#include <optional>
#include <string_view>

#include "trevlin/facts.h"

namespace trevlin {

/// As CountMachineAbility() of machine_abilities.h, of any machine.
std::optional<int> CountAbility(const Machine& machine, std::string_view name);

}  // namespace trevlin
