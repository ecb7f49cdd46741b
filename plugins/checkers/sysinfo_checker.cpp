// Asks the system information: a feature by its name, or an entry of the set's profile by the names below.

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>

#include "c_handle.h"
#include "checker.h"
#include "dlog.h"
#include "log_tags.h"
#include "system_info.h"

namespace checker {

namespace {

constexpr const char* kTag = log_tags::kMenuChecker;

constexpr struct ProfileKey {
  const char* name;
  system_info_key_e key;
} kProfileKeys[] = {
    {"sw_model", SYSTEM_INFO_KEY_SW_MODEL},           {"model_name", SYSTEM_INFO_KEY_MODEL_NAME},
    {"serial_number", SYSTEM_INFO_KEY_SERIAL_NUMBER}, {"region_kind", SYSTEM_INFO_KEY_REGION_KIND},
    {"num_of_tuner", SYSTEM_INFO_KEY_NUM_OF_TUNER},   {"local_set", SYSTEM_INFO_KEY_LOCAL_SET},
};

const ProfileKey* FindProfileKey(const char* name) {
  const auto* found = std::find_if(std::begin(kProfileKeys), std::end(kProfileKeys),
                                   [name](const ProfileKey& each) { return std::strcmp(each.name, name) == 0; });
  return found == std::end(kProfileKeys) ? nullptr : found;
}

/// Whether the set says it or is silent; false, after a log line, when what it says is of another type.
bool IsUsable(const char* key, const char* type, int result) {
  if (result == SYSTEM_INFO_ERROR_NONE || result == SYSTEM_INFO_ERROR_NO_DATA) return true;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: no %s", key, type);
  return false;
}

std::optional<int> Number(const char* key) {
  int value = 0;
  const ProfileKey* const profile = FindProfileKey(key);
  const int result =
      profile ? system_info_get_value_int(profile->key, &value) : system_info_get_custom_int(key, &value);
  return IsUsable(key, "integer", result) ? std::optional(value) : std::nullopt;
}

std::optional<std::string> Text(const char* key) {
  char* value = nullptr;
  const ProfileKey* const profile = FindProfileKey(key);
  const int result =
      profile ? system_info_get_value_string(profile->key, &value) : system_info_get_custom_string(key, &value);
  const CText owned(value);
  return IsUsable(key, "text", result) ? std::optional<std::string>(owned ? owned.get() : "") : std::nullopt;
}

}  // namespace

bool Equals(const char* key, int value) {
  return Number(key) == value;
}

/// A number is true when it is not 0.
bool Equals(const char* key, bool value) {
  if (!FindProfileKey(key)) {
    const auto text = Text(key);
    if (text == "true" || text == "false") return (text == "true") == value;
  }
  const auto number = Number(key);
  return number && (*number != 0) == value;
}

bool Equals(const char* key, const char* value) {
  return Text(key) == value;
}

bool Equals(const char* key, double value) {
  const auto text = Text(key);
  if (!text) return false;
  if (text->empty()) return value == 0;
  double number = 0;
  const char* const end = text->data() + text->size();
  const auto read = std::from_chars(text->data(), end, number);
  if (read.ec == std::errc() && read.ptr == end) return number == value;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: \"%s\" is no number", key, text->c_str());
  return false;
}

}  // namespace checker
