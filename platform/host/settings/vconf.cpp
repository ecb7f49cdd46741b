// Settings keys for callers in C: their values.

#include "vconf.h"

#include <cstring>
#include <string>

#include "settings/settings_log.h"
#include "settings/settings_store.h"

namespace {

using settings::LogError;

template <typename Type>
bool Get(const char* key, Type& value) {
  if (!key) {
    LogError("get: no key");
    return false;
  }
  settings::Value stored;
  std::string error;
  switch (settings::Read(key, stored, error)) {
    case settings::ReadResult::kNotSet:
      return false;
    case settings::ReadResult::kFailed:
      LogError(error);
      return false;
    case settings::ReadResult::kOk:
      break;
  }
  if (auto* held = std::get_if<Type>(&stored)) {
    value = std::move(*held);
    return true;
  }
  LogError("settings key \"" + std::string(key) + "\": is of type " + settings::TypeName(stored) + ", asked for as " +
           settings::TypeName(settings::Value(Type())));
  return false;
}

template <typename Type, typename Output>
int GetNumber(const char* key, Output* output) {
  Type value{};
  if (!output) {
    LogError("settings key \"" + std::string(key ? key : "") + "\": no place for the value");
    return -1;
  }
  if (!Get(key, value)) return -1;
  *output = value;
  return 0;
}

int Set(const char* key, const settings::Value& value) {
  std::string error;
  if (key && settings::WriteSoon(key, value, error)) return 0;
  LogError(key ? error : "set: no key");
  return -1;
}

}  // namespace

int vconf_get_int(const char* key, int* value) {
  return GetNumber<int>(key, value);
}

int vconf_get_bool(const char* key, int* value) {
  return GetNumber<bool>(key, value);
}

int vconf_get_dbl(const char* key, double* value) {
  return GetNumber<double>(key, value);
}

char* vconf_get_str(const char* key) {
  std::string value;
  return Get(key, value) ? strdup(value.c_str()) : nullptr;
}

int vconf_set_int(const char* key, int value) {
  return Set(key, value);
}

int vconf_set_bool(const char* key, int value) {
  return Set(key, value != 0);
}

int vconf_set_dbl(const char* key, double value) {
  return Set(key, value);
}

int vconf_set_str(const char* key, const char* value) {
  if (value) return Set(key, std::string(value));
  LogError("settings key \"" + std::string(key ? key : "") + "\": no text to set");
  return -1;
}
