#pragma once
/// @file
/// The platform log.
///
/// Thread rule: callable from any thread. A line is written whole; lines of different threads and processes never mix.

extern "C" {

/// Which log a line goes to; the application writes to one only.
typedef enum { LOG_ID_APPS = 0 } log_id_t;

/// Priorities, least important first.
typedef enum { DLOG_VERBOSE = 2, DLOG_DEBUG, DLOG_INFO, DLOG_WARN, DLOG_ERROR, DLOG_FATAL, DLOG_SILENT } log_priority;

/// Writes one line. `tag` and `format` are not kept. The priority is compared with the log's level before anything is
/// formatted, so a line that is not wanted costs a call and a comparison. A line is cut after 4,096 bytes.
/// Returns the number of bytes of the line, 0 when the level keeps it out, -1 when no target took it. Blocks for as
/// long as writing to the target takes; in a process that runs ui_app_main() another thread writes to all targets but
/// standard error, and the call waits for it with an error's line only, for 20 ms at most.
int __dlog_print(log_id_t log, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
}
