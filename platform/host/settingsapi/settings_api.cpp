#include "settings_api.h"

#include "dlog.h"
#include "log_tags.h"
#include "vconf.h"

namespace {

constexpr const char* kTag = log_tags::kSettingsApi;

/// Records whether `owner` has taken `item` out of use, where a settings menu can read and watch it.
int SetDisabled(const std::string& item, const std::string& owner, bool disabled) {
  // A slash would make one name of two: a/b of c is a of b/c.
  if (item.find('/') != std::string::npos || owner.find('/') != std::string::npos) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "item \"%s\" of owner \"%s\": a name has no slash", item.c_str(),
                 owner.c_str());
    return -1;
  }
  return vconf_set_bool(("memory/settings/disabled/" + item + "/" + owner).c_str(), disabled);
}

}  // namespace

SettingsAPI& SettingsAPI::Get() {
  static SettingsAPI& api = *new SettingsAPI;
  return api;
}

int SettingsAPI::DisableItem(const std::string& item, const std::string& owner) {
  return SetDisabled(item, owner, true);
}

int SettingsAPI::EnableItem(const std::string& item, const std::string& owner) {
  return SetDisabled(item, owner, false);
}
