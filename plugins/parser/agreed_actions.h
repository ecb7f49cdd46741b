#pragma once
/// @file
/// The actions that free memory and storage: what they would end and remove, and doing so once the viewer has agreed.
///
/// Thread rule: any thread but the main one; they measure and wait.

#include <string>

#include "SolutionPlan.h"

namespace agreed_actions {

/// Whether an action of that type is one of these: "memboost", "deepclean".
bool Handles(const std::string& type);

/// Adds what the action would end and remove that somebody may miss; nothing for another type.
void Plan(const std::string& type, QUVA::SolutionPlan& plan);

/// Does it, with what was agreed to and nothing else that may be missed, and adds to `effect`. SOLUTION_TRIED, or
/// SOLUTION_FAILED after a log line that says why.
int Perform(const std::string& type, const QUVA::SolutionPlan& agreed, QUVA::SolutionEffect& effect);

}  // namespace agreed_actions
