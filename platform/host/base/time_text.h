#pragma once
/// @file
/// Points in time as files of this platform show them.
///
/// Thread rule: callable from any thread; allocates nothing.

#include <array>
#include <chrono>
#include <cstdio>

/// "2031-05-07 21:04:59.123", with `between` in the place of the blank.
inline std::array<char, 40> TimeText(std::chrono::sys_time<std::chrono::milliseconds> time, char between) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u%c%02ld:%02ld:%02ld.%03ld", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), between,
                static_cast<long>(clock.hours().count()), static_cast<long>(clock.minutes().count()),
                static_cast<long>(clock.seconds().count()), static_cast<long>(clock.subseconds().count()));
  return text;
}
