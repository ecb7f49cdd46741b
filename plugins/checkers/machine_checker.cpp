// Asks the machine what it has: "sound", or "sound unless db/vexilo/tools_locked", which counts as none while that
// settings key is true.

#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "checker.h"
#include "dlog.h"
#include "log_tags.h"
#include "machine_abilities.h"
#include "menu_checker.h"
#include "vconf.h"

namespace checker {

namespace {

/// Nothing, after a log line, for what nobody knows.
std::optional<int> Count(std::string_view key) {
  const size_t unless = key.find(kUnless);
  const auto count = CountMachineAbility(key.substr(0, unless));
  if (!count) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, log_tags::kMenuChecker, "%.*s: the machine is not asked for this",
                 static_cast<int>(key.size()), key.data());
    return std::nullopt;
  }
  int isSet = 0;
  if (unless != key.npos) vconf_get_bool(std::string(key.substr(unless + std::strlen(kUnless))).c_str(), &isSet);
  return isSet ? 0 : *count;
}

}  // namespace

bool Equals(const char* key, int value) {
  return Count(key) == value;
}

bool Equals(const char* key, bool value) {
  const auto count = Count(key);
  return count && (*count != 0) == value;
}

bool Equals(const char* key, const char* value) {
  const auto count = Count(key);
  return count && std::to_string(*count) == value;
}

bool Equals(const char* key, double value) {
  const auto count = Count(key);
  return count && *count == value;
}

}  // namespace checker
