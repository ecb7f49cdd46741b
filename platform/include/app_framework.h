#pragma once
/// @file
/// The application framework: it starts and ends the one instance of an application, tells it what it is asked for
/// (requests, "app controls") and launches others.
///
/// Thread rule: everything here belongs to the main thread, and callbacks are called there.

extern "C" {

enum {
  APP_CONTROL_ERROR_NONE = 0,
  APP_CONTROL_ERROR_INVALID_PARAMETER = -22,
  APP_CONTROL_ERROR_KEY_NOT_FOUND = -126,
  APP_CONTROL_ERROR_APP_NOT_FOUND = -2,
  APP_CONTROL_ERROR_LAUNCH_REJECTED = -13,
};

/// A request: an operation, the id of the application that it is for, and named texts ("extra data").
typedef struct app_control_s* app_control_h;

#define APP_CONTROL_OPERATION_DEFAULT "http://tornelo.example/appcontrol/operation/default"

/// Called with the launched application's answer. The host platform's applications give none.
typedef void (*app_control_reply_cb)(app_control_h request, app_control_h reply, int result, void* user_data);

/// The request is the caller's, who destroys it.
int app_control_create(app_control_h* control);
int app_control_destroy(app_control_h control);
int app_control_set_operation(app_control_h control, const char* operation);
int app_control_set_app_id(app_control_h control, const char* app_id);
/// Keeps copies. Setting a key again replaces its text.
int app_control_add_extra_data(app_control_h control, const char* key, const char* value);
/// A copy of the text in `*value`, which the caller frees with free(); APP_CONTROL_ERROR_KEY_NOT_FOUND, and `*value`
/// untouched, when the request has none of that name.
int app_control_get_extra_data(app_control_h control, const char* key, char** value);
/// Starts the application or, where it runs, hands it the request. Returns when the request was accepted; does not wait
/// for the application. APP_CONTROL_ERROR_APP_NOT_FOUND for an unknown id.
int app_control_send_launch_request(app_control_h control, app_control_reply_cb callback, void* user_data);

typedef bool (*app_create_cb)(void* user_data);
typedef void (*app_terminate_cb)(void* user_data);
typedef void (*app_pause_cb)(void* user_data);
typedef void (*app_resume_cb)(void* user_data);
typedef void (*app_control_cb)(app_control_h control, void* user_data);

typedef struct {
  app_create_cb create;        ///< once, first; false ends the application
  app_terminate_cb terminate;  ///< once, last
  app_pause_cb pause;          ///< the application is no longer visible
  app_resume_cb resume;        ///< it is visible again
  app_control_cb app_control;  ///< a request; the first one comes right after create. Never nested: a request that
                               ///< arrives during the callback is delivered after it
} ui_app_lifecycle_callback_s;

/// Runs the application until it is ended. Where an instance runs already, hands it the request and returns.
/// The request's extra data are the arguments of the form key=value. Returns 0, or a negative error number.
int ui_app_main(int argc, char** argv, ui_app_lifecycle_callback_s* callbacks, void* user_data);

/// Ends the main loop; terminate is called and ui_app_main() returns once the running callback has returned.
void ui_app_exit(void);
}
