#pragma once
/// @file
/// The application's log lines: the platform log, the tag, and the prefix that every line begins with.
/// Usage: VEXILO_LOGI("Path : %s", path); the format is checked by the compiler.

#include "dlog.h"
#include "log_tags.h"

#define VEXILO_LOG(priority, format, ...)                                                                      \
  __dlog_print(LOG_ID_APPS, (priority), log_tags::kApplication, "%s: %s(%d) > [%s:%d] " format, __FILE_NAME__, \
               __func__, __LINE__, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

/// What a developer wants to see of every element of a long list; off by default.
#define VEXILO_LOGD(...) VEXILO_LOG(DLOG_DEBUG, __VA_ARGS__)
/// What happens, a few lines for each thing that a user does.
#define VEXILO_LOGI(...) VEXILO_LOG(DLOG_INFO, __VA_ARGS__)
/// What went wrong.
#define VEXILO_LOGE(...) VEXILO_LOG(DLOG_ERROR, __VA_ARGS__)
