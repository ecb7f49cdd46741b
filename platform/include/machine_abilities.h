#pragma once
/// @file
/// What the machine has that the test tools try.
///
/// Thread rule: callable from any thread. Answers at once, by what the system knows already.

#include <optional>
#include <string_view>

/// How many of these the machine has; nothing for another name.
///
///     sound       sound cards, and the session's sound server
///     connectors  plugs for a screen, with or without one
///     tuners      receivers of broadcasts
///     signal      what a signal can come by: tuners, and screens that are connected
///     video       programs' parts with a decoder of videos; that of a hardware decoder counts without it, too
std::optional<int> CountMachineAbility(std::string_view name);
