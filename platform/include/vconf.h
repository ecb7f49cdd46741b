#pragma once
/// @file
/// Settings keys: typed values under path-like names ("db/vexilo/db_reset"), shared by every process of the set.
/// Keys that begin with "memory/" are volatile: they are gone after a restart of the set. All others last.
///
/// A key is 1 to 150 bytes of printable ASCII without blanks, with no empty, "." or ".." part between its slashes.
/// A text value is at most 65,536 bytes.
///
/// Thread rule: get and set are callable from any thread. vconf_notify_key_changed() and vconf_ignore_key_changed()
/// belong to the main thread, and change callbacks are called there, by the GLib default context.
///
/// Unless said otherwise a function returns 0 for success and -1 for failure; the reason of a failure other than
/// "never set" is in the platform log. Outputs are untouched on failure. Calls touch the disk but wait for nobody.

extern "C" {

typedef struct _keynode_t keynode_t;
typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

/// Fail when the key was never set or holds a value of another type.
int vconf_get_int(const char* key, int* value);
int vconf_get_bool(const char* key, int* value);
int vconf_get_dbl(const char* key, double* value);
/// The text, which the caller frees with free(); null on failure.
char* vconf_get_str(const char* key);

/// Store a value, of whatever type the key held before. Setting what is already there writes nothing and notifies
/// nobody. The value is on the disk when the call returns, and a power cut leaves the old value or the new one. In a
/// process that runs ui_app_main() another thread stores it a little later, so that the call waits for no disk. Such a
/// process reads back at once what it has set, a value that cannot be stored then is told in the log, and an orderly
/// end stores all. On a disk that takes longer than 200 ms to flush a power cut may leave a damaged value there.
int vconf_set_int(const char* key, int value);
int vconf_set_bool(const char* key, int value);
int vconf_set_dbl(const char* key, double value);
int vconf_set_str(const char* key, const char* value);

/// Calls `callback` after each change of the key by any process, this one included. A burst of changes may be reported
/// once, with the last value. One callback function can be registered once for a key; again is a failure.
int vconf_notify_key_changed(const char* key, vconf_callback_fn callback, void* user_data);
/// Ends that. No call is made after it returns.
int vconf_ignore_key_changed(const char* key, vconf_callback_fn callback);

/// The changed key, valid during the callback.
enum vconf_type { VCONF_TYPE_NONE = 0, VCONF_TYPE_STRING = 40, VCONF_TYPE_INT, VCONF_TYPE_DOUBLE, VCONF_TYPE_BOOL };
const char* vconf_keynode_get_name(keynode_t* node);
int vconf_keynode_get_type(keynode_t* node);
/// 0, 0.0 and null when the value is of another type.
int vconf_keynode_get_int(keynode_t* node);
int vconf_keynode_get_bool(keynode_t* node);
double vconf_keynode_get_dbl(keynode_t* node);
char* vconf_keynode_get_str(keynode_t* node);
}
