#pragma once
/// @file
/// Transactions of PackageKit, the service for changing the installed software.
///
/// Thread rule: callable from any thread; blocks.

#include <chrono>
#include <optional>
#include <string>

#include "base/glib_handle.h"

/// Runs `method` of a transaction, with `arguments` (a floating tuple, taken), until it has finished, for `limit` at
/// most; then it is cancelled. Empty when it succeeded, else the reason. Nothing where there is no PackageKit.
std::optional<std::string> RunPackageKit(const char* method, GVariant* arguments, std::chrono::seconds limit);
