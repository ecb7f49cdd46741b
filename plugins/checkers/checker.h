#pragma once
/// @file
/// What a checker library defines; checker_entries.cpp makes the entries of menu_checker.h from it. A checker answers
/// whether what it finds at a key equals the value, the same for enabling and for visibility.
///
/// Thread rule: main thread.

namespace checker {

/// What the set does not say counts as 0, false or the empty text.
bool Equals(const char* key, int value);
bool Equals(const char* key, bool value);
bool Equals(const char* key, const char* value);
bool Equals(const char* key, double value);

}  // namespace checker
