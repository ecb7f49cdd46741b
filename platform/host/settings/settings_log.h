#pragma once

#include <string>

#include "dlog.h"
#include "log_tags.h"

namespace settings {

inline void LogError(const std::string& message) {
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, log_tags::kVconf, "%s", message.c_str());
}

}  // namespace settings
