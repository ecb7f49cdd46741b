#include "SettingsKeys.h"

#include <string>

#include "VexiloLog.h"
#include "vconf.h"

namespace QUVA {

namespace {

void SetId(const char* key, const char* id) {
  const std::string text = std::string("{\"id\" : \"") + id + "\"}";
  if (vconf_set_str(key, text.c_str()) != 0) VEXILO_LOGE("Setting %s failed", key);
}

}  // namespace

void SetEngineOperation(const char* id) {
  SetId(kEngineOperationKey, id);
}

void SetEngineScenario(const char* id) {
  SetId(kEngineScenarioKey, id);
}

}  // namespace QUVA
