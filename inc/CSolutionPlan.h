#pragma once
/// @file
/// What a solution would take away, as the content of a popup, and what it did, as a text. Thread rule: main loop
/// thread.

#include <Evas.h>

#include <string>

#include "SolutionPlan.h"

namespace QUVA {

/// Makes it the popup's content: what it means, the largest things with their sizes, how many more there are, and what
/// stays.
void ShowPlan(Evas_Object* popup, const SolutionPlan& plan);

/// What is gone, what came free, and what stays of the plan for want of an administrator; empty for an effect of
/// nothing.
std::string EffectText(const SolutionEffect& effect, const SolutionPlan& plan);

}  // namespace QUVA
