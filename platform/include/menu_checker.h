#pragma once
/// @file
/// What a checker library below set_paths::kCheckerDir may export. A library exports those that it answers; the result
/// is the answer, non-zero meaning yes. `key` and text values are zero-terminated and not kept.
///
/// Thread rule: called on the main thread; a call waits for nobody.

/// Stands in a key between what is looked at and a settings key: while that one is true, there is nothing of it.
/// "sound unless db/vexilo/tools_locked"
inline constexpr char kUnless[] = " unless ";

extern "C" {

int check_enable_int(const char* key, int value);
int check_enable_bool(const char* key, bool value);
int check_enable_string(const char* key, const char* value);
int check_enable_double(const char* key, double value);

int check_visibility_int(const char* key, int value);
int check_visibility_bool(const char* key, bool value);
int check_visibility_string(const char* key, const char* value);
int check_visibility_double(const char* key, double value);
}
