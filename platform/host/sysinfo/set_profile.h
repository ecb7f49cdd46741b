#pragma once
/// @file
/// The set's profile, set_paths::kSetProfile, as its groups and keys. docs/set-profile.md has the format.
///
/// Thread rule: callable from any thread. The file is read again when it has changed; until then a call costs one look
/// at the file's times. A file that cannot be read or is malformed says nothing, and the platform log says why, once
/// for each state of the file.

#include <string>

namespace set_profile {

enum class Answer {
  kNone,   ///< the profile does not say
  kValue,  ///< `value` is set
  kWrong,  ///< what it says is no such value; the platform log has group, key and reason. `value` is untouched.
};

Answer Text(const char* group, const char* key, std::string& value);
Answer Int(const char* group, const char* key, int& value);
Answer Bool(const char* group, const char* key, bool& value);

}  // namespace set_profile
