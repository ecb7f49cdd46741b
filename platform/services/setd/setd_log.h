#pragma once
/// @file
/// The daemon's lines in the platform log. Any thread.

#include <string>

#include "dlog.h"
#include "log_tags.h"

namespace setd {

inline void Log(int priority, const std::string& text) {
  __dlog_print(LOG_ID_APPS, priority, log_tags::kSetd, "%s", text.c_str());
}

}  // namespace setd
