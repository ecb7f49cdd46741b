#pragma once
/// @file
/// Deep clean.
///
/// Thread rule: any thread but the main one; it blocks for as long as it takes.

#include <chrono>
#include <vector>

#include "cleaning/cleanup.h"
#include "cleaning/hoards.h"
#include "setd/jobs.h"

namespace setd {

/// cleaning::CleanUp() and the removal of reports of more than a week, with its lines in this daemon's log. False when
/// it was interrupted.
bool CleanAll(const StopFlag& stop, std::chrono::milliseconds patience = cleaning::kPatience);

/// Removes what the viewer was asked about; the log has what each came to. False when it was interrupted.
bool CleanHoards(const std::vector<cleaning::Hoard>& hoards, const StopFlag& stop);

}  // namespace setd
