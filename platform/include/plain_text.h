#pragma once
/// @file
/// What names in this system are made of: characters that a shell, a path and a file of settings take as they stand.

#include <algorithm>
#include <string_view>

/// ASCII letters and digits, whatever the locale.
constexpr bool IsLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// These, '.', '_' and '-'.
constexpr bool IsPlain(char c) {
  return IsLetterOrDigit(c) || c == '.' || c == '_' || c == '-';
}

/// Whether the text has nothing but plain characters and those of `more`.
inline bool IsPlain(std::string_view text, std::string_view more = "") {
  return std::ranges::all_of(text, [more](char c) { return IsPlain(c) || more.find(c) != more.npos; });
}
