#pragma once
/// @file
/// What the runs of all processes have seen of each rule's condition: set_paths::kTrevlinRun/histories.json, published
/// by rename. It is of this start of the machine; what an earlier one left counts for nothing.
///
/// Thread rule: callable from any thread.

#include <chrono>
#include <functional>
#include <map>

#include "trevlin/rules.h"

namespace trevlin {

/// By issue code. A rule whose condition does not hold has none.
using Histories = std::map<int, History>;

/// Calls `change` with the histories while no other process changes them, and stores what it leaves. Where they cannot
/// be locked (waited for a second at most, and until `waitUntil`), read or stored, the log says so and `change` is
/// called all the same, with those that could be read. What could not be stored is kept in memory, and counts in this
/// process as long as nothing can be stored.
void ChangeHistories(const std::function<void(Histories&)>& change,
                     std::chrono::steady_clock::time_point waitUntil = std::chrono::steady_clock::time_point::max());

}  // namespace trevlin
