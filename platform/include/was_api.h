#pragma once
/// @file
/// The web-application service: the list of applications that a viewer can manage, and their removal.
///
/// Thread rule: callable from any thread. Callbacks come on a thread of the service, one at a time.

extern "C" {

/// Results. Every other negative value is a negative errno.
enum {
  WAS_ERROR_NONE = 0,
  WAS_ERROR_INVALID_PARAMETER = -1,
  WAS_ERROR_NOT_FOUND = -2,
  WAS_ERROR_FAILED = -3,
  WAS_ERROR_NOT_PERMITTED = -13,  ///< the application is locked, or belongs to the set
};

/// Which applications a list holds. The numbers are the platform's.
typedef enum {
  WAS_LIST_ALL = 0,
  WAS_LIST_REMOVABLE = 2,  ///< those that can be removed, by title
} was_list_kind_e;

/// Why an application must not be removed.
typedef enum {
  WAS_UNLOCKED = 0,
  WAS_LOCKED_BY_VIEWER = 1,
  WAS_LOCKED_FOR_ADMINISTRATOR = 2,  ///< the user of this process may not remove it, an administrator may
} was_lock_e;

typedef struct {
  char* service_id;
  char* app_id;
  char* package_id;
  char* title;     ///< as shown to the viewer
  char* icon_dir;  ///< absolute, of the set, ends with '/'
  int attribute1;  ///< not interpreted by callers
  int attribute2;  ///< not interpreted by callers
  int locked;      ///< a was_lock_e
} was_app_info_s;

/// The number of removable applications.
int was_get_app_count(int* count);
/// A list that the caller frees with was_free_app_list(); null and 0 when there is none. Untouched on failure.
int was_get_app_list(was_list_kind_e kind, was_app_info_s** list, int* count);
void was_free_app_list(was_app_info_s* list, int count);

typedef enum {
  WAS_EVENT_UNINSTALL_START = 120,          ///< removal of one application starts
  WAS_EVENT_UNINSTALL_PROGRESS = 121,       ///< `progress` is 0 to 100
  WAS_EVENT_UNINSTALL_COMPLETED = 122,      ///< one application is removed
  WAS_EVENT_UNINSTALL_FAILED = 123,         ///< one application could not be removed; `reserved` is the error
  WAS_EVENT_CONFIRMATION_CLOSED = 142,      ///< the service's own question to the viewer is closed
  WAS_EVENT_MULTI_UNINSTALL_COMPLETE = 143  ///< the whole request has ended; the last event of a request
} was_notify_event_e;

/// `app_id` is valid during the call; it is empty for the events 142 and 143.
typedef void (*was_uninstall_cb)(const char* app_id, was_notify_event_e event, int progress, int reserved,
                                 void* user_data);

/// Removes applications, one after the other, and returns once the request is accepted. An id that is given twice is
/// removed and reported once. Events: 142 first; then for each application 120, 121 with rising progress and 122, or
/// 123 (without 120 where the removal does not begin: an unknown, locked or not removable application); at last 143.
/// Requests are served in the order in which they came. A negative result means that nothing is removed and no event
/// comes. A removal that is interrupted by a crash or a power cut is finished when the service is used next.
int was_multi_uninstall_webapp(const char** app_ids, int count, was_uninstall_cb callback, void* user_data);
/// Removes one application without asking the viewer; the same events but 142.
int was_force_uninstall_webapp(const char* app_id, was_uninstall_cb callback, void* user_data);
}
