#pragma once
/// @file
/// What the kernel tells of its sound cards. Any thread.

#include <optional>

#include "trevlin/facts.h"

namespace trevlin {

/// Nothing where the kernel has no sound at all.
std::optional<double> CountCards(const Machine& machine);

/// Whether a screen or receiver that plays sound is at the other end of a digital output: its description (ELD) came.
/// Nothing where there is no such output.
std::optional<bool> HasHdmiOutput(const Machine& machine);

}  // namespace trevlin
