#include "appfw/app_control.h"

#include <cstring>

namespace {

int Assign(std::string* target, const char* text) {
  if (!target || !text) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  *target = text;
  return APP_CONTROL_ERROR_NONE;
}

}  // namespace

bool app_framework::IsExtraKey(std::string_view key) {
  return !key.empty() && key.find('=') == std::string_view::npos;
}

void app_framework::Extras::Set(std::string key, std::string value) {
  const auto [place, isNew] = m_places.try_emplace(key, m_texts.size());
  if (isNew)
    m_texts.emplace_back(std::move(key), std::move(value));
  else
    m_texts[place->second].second = std::move(value);
}

const std::string* app_framework::Extras::Find(const std::string& key) const {
  const auto place = m_places.find(key);
  return place == m_places.end() ? nullptr : &m_texts[place->second].second;
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
  control->extras.Set(key, value);
  return APP_CONTROL_ERROR_NONE;
}

int app_control_get_extra_data(app_control_h control, const char* key, char** value) {
  if (!control || !key || !value) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  const std::string* const text = control->extras.Find(key);
  if (!text) return APP_CONTROL_ERROR_KEY_NOT_FOUND;
  *value = strdup(text->c_str());
  return APP_CONTROL_ERROR_NONE;
}
