#pragma once
/// @file
/// The application framework: it starts and ends the one instance of an application, tells it what it is asked for
/// (requests, "app controls") and launches others.
///
/// Thread rule: ui_app_main() and ui_app_exit() belong to the main thread, and callbacks are called there. The
/// app_control functions are callable from any thread; a request belongs to one thread at a time.

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
/// Keeps copies, in the order in which they are added. Setting a key again replaces its text in its place.
/// APP_CONTROL_ERROR_INVALID_PARAMETER for a null text, and for a key that is empty or holds a '='.
int app_control_add_extra_data(app_control_h control, const char* key, const char* value);
/// A copy of the text in `*value`, which the caller frees with free(); APP_CONTROL_ERROR_KEY_NOT_FOUND, and `*value`
/// untouched, when the request has none of that name.
int app_control_get_extra_data(app_control_h control, const char* key, char** value);
/// Starts the application or, where it runs, hands it the request. Returns when the request was accepted; does not wait
/// for the application. APP_CONTROL_ERROR_INVALID_PARAMETER for an id that cannot be one (others than letters, digits,
/// '.', '_', '-'), _APP_NOT_FOUND for an unknown one, _LAUNCH_REJECTED when the application cannot be started; the
/// reason is in the platform log.
int app_control_send_launch_request(app_control_h control, app_control_reply_cb callback, void* user_data);

/// Whether what the last successful launch with this request started is a stand-in, which only tells that the device
/// does not have the application.
bool app_control_started_stand_in(app_control_h control);

typedef bool (*app_create_cb)(void* user_data);
typedef void (*app_terminate_cb)(void* user_data);
typedef void (*app_pause_cb)(void* user_data);
typedef void (*app_resume_cb)(void* user_data);
typedef void (*app_control_cb)(app_control_h control, void* user_data);

typedef struct {
  app_create_cb create;        ///< once, first; false ends the application, and nothing else is called
  app_terminate_cb terminate;  ///< once, last; may end the process. On SIGTERM and SIGINT it is called at once when
                               ///< GLib's default context runs, so perhaps inside a request's nested loop
  app_pause_cb pause;          ///< the application is no longer visible
  app_resume_cb resume;        ///< it is visible again
  app_control_cb app_control;  ///< a request; the first one comes right after create. Never nested: a request that
                               ///< arrives during the callback is delivered after it
} ui_app_lifecycle_callback_s;

/// Runs the application until it is ended. Where an instance runs already, hands it the request and returns.
/// The request's extra data are the arguments of the form key=value in UTF-8; others are ignored, with a log line.
/// Returns 0, or a negative error number: APP_CONTROL_ERROR_INVALID_PARAMETER for a null pointer or a second call
/// inside the first, -ECANCELED when create returned false, -ETIMEDOUT when the running instance did not take the
/// request, -EIO when the widget toolkit does not start. Callbacks may be null.
int ui_app_main(int argc, char** argv, ui_app_lifecycle_callback_s* callbacks, void* user_data);

/// Ends the main loop; terminate is called and ui_app_main() returns once the running callback has returned. Requests
/// that wait by then and later ones are refused, and their starts become instances of their own.
/// Does nothing while no application runs.
void ui_app_exit(void);
}
