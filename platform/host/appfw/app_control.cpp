#include "appfw/app_control.h"

#include <algorithm>
#include <cstring>

namespace {

int Assign(std::string* target, const char* text) {
  if (!target || !text) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  *target = text;
  return APP_CONTROL_ERROR_NONE;
}

auto Find(app_framework::Extras& extras, std::string_view key) {
  return std::find_if(extras.begin(), extras.end(), [key](const auto& extra) { return extra.first == key; });
}

}  // namespace

bool app_framework::IsExtraKey(std::string_view key) {
  return !key.empty() && key.find('=') == std::string_view::npos;
}

void app_framework::SetExtra(Extras& extras, std::string key, std::string value) {
  const auto known = Find(extras, key);
  if (known == extras.end())
    extras.emplace_back(std::move(key), std::move(value));
  else
    known->second = std::move(value);
}

int app_control_create(app_control_h* control) {
  if (!control) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  *control = new app_control_s;
  return APP_CONTROL_ERROR_NONE;
}

int app_control_destroy(app_control_h control) {
  if (!control) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  delete control;
  return APP_CONTROL_ERROR_NONE;
}

int app_control_set_operation(app_control_h control, const char* operation) {
  return Assign(control ? &control->operation : nullptr, operation);
}

int app_control_set_app_id(app_control_h control, const char* app_id) {
  return Assign(control ? &control->appId : nullptr, app_id);
}

int app_control_add_extra_data(app_control_h control, const char* key, const char* value) {
  if (!control || !key || !value || !app_framework::IsExtraKey(key)) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  app_framework::SetExtra(control->extras, key, value);
  return APP_CONTROL_ERROR_NONE;
}

int app_control_get_extra_data(app_control_h control, const char* key, char** value) {
  if (!control || !key || !value) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  const auto extra = Find(control->extras, key);
  if (extra == control->extras.end()) return APP_CONTROL_ERROR_KEY_NOT_FOUND;
  *value = strdup(extra->second.c_str());
  return APP_CONTROL_ERROR_NONE;
}
