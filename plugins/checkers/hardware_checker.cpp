// Asks the machine whether it has what a tool is for: "displays" is a connector for one, "signal" a picture or a tuner
// that can be told of. "displays unless KEY" is no as well while the settings key is true.

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "checker.h"
#include "dlog.h"
#include "hardware.h"
#include "log_tags.h"
#include "menu_checker.h"
#include "vconf.h"

namespace checker {

namespace {

constexpr struct {
  std::string_view name;
  bool (*isThere)();
} kHardware[] = {{"displays", hardware::HasDisplayConnector}, {"signal", hardware::HasSignal}};

bool Answer(std::string_view key) {
  const size_t unless = key.find(menu_checker::kUnless);
  const std::string_view name = key.substr(0, unless);
  const auto* const found =
      std::find_if(std::begin(kHardware), std::end(kHardware), [name](const auto& each) { return each.name == name; });
  if (found == std::end(kHardware)) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, log_tags::kMenuChecker, "%s: no hardware that this checker knows",
                 std::string(name).c_str());
    return false;
  }
  int isForbidden = 0;
  if (unless != key.npos)
    vconf_get_bool(std::string(key.substr(unless + menu_checker::kUnless.size())).c_str(), &isForbidden);
  return !isForbidden && found->isThere();
}

}  // namespace

bool Equals(const char* key, int value) {
  return Answer(key) == (value != 0);
}

bool Equals(const char* key, bool value) {
  return Answer(key) == value;
}

bool Equals(const char* key, const char* value) {
  return Answer(key) == (std::string_view(value) == "yes");
}

bool Equals(const char* key, double value) {
  return Answer(key) == (value != 0);
}

}  // namespace checker
