// Asks the settings keys.

#include <cstring>

#include "c_handle.h"
#include "checker.h"
#include "vconf.h"

namespace checker {

bool Equals(const char* key, int value) {
  int found = 0;
  vconf_get_int(key, &found);
  return found == value;
}

bool Equals(const char* key, bool value) {
  int found = 0;
  vconf_get_bool(key, &found);
  return (found != 0) == value;
}

bool Equals(const char* key, const char* value) {
  const CText found(vconf_get_str(key));
  return std::strcmp(found ? found.get() : "", value) == 0;
}

bool Equals(const char* key, double value) {
  double found = 0;
  vconf_get_dbl(key, &found);
  return found == value;
}

}  // namespace checker
