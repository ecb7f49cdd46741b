// An application that writes a line to standard output for each callback, and does what the request's "do" says.

#include <glib-unix.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "appfw/app_control.h"
#include "appfw/ui_app.h"
#include "c_handle.h"

namespace {

void Say(const std::string& text) {
  const std::string line = text + "\n";
  if (write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::abort();
}

/// Runs a loop of GLib's inside the callback until SIGUSR1.
void RunNestedLoop() {
  GMainLoop* const loop = g_main_loop_new(nullptr, TRUE);
  const auto quit = [](void* data) -> gboolean {
    Say("nested loop ends");
    g_main_loop_quit(static_cast<GMainLoop*>(data));
    return G_SOURCE_REMOVE;
  };
  g_unix_signal_add(SIGUSR1, quit, loop);
  Say("nested loop");
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
}

void Launch(const char* id) {
  app_control_h request = nullptr;
  app_control_create(&request);
  app_control_set_app_id(request, id);
  Say("launch " + std::to_string(app_control_send_launch_request(request, nullptr, nullptr)));
  app_control_destroy(request);
}

bool Create(void* argument) {
  const std::string what = static_cast<const char*>(argument);
  Say("create");
  if (what == "at_create=exit") ui_app_exit();
  return what != "at_create=fail";
}

void Terminate(void*) {
  Say("terminate");
  if (std::getenv("PROBE_HARD_END")) _exit(0);
}

void Request(app_control_h request, void*) {
  std::string line = "request";
  for (const auto& [key, value] : request->extras) line.append(" <").append(key).append("=").append(value).append(">");
  Say(line);
  char* text = nullptr;
  app_control_get_extra_data(request, "do", &text);
  const CText owned(text);
  const std::string what = text ? text : "";
  if (what == "exit" || what == "exit and linger") ui_app_exit();
  if (what == "nest" || what == "exit and linger") RunNestedLoop();
  if (what == "launch") Launch("org.example.show");
  if (what == "open") app_framework::SetBringToFront([] { Say("front"); });
  if (what == "hide and show") {
    for (int i = 0; i < 2; ++i) app_framework::PauseApplication();
    for (int i = 0; i < 2; ++i) app_framework::ResumeApplication();
  }
  Say("done");
}

}  // namespace

int main(int argc, char** argv) {
  ui_app_lifecycle_callback_s callbacks = {Create, Terminate, [](void*) { Say("pause"); }, [](void*) { Say("resume"); },
                                           Request};
  static char none[] = "";
  const int result = ui_app_main(argc, argv, &callbacks, argc > 1 ? argv[1] : none);
  return result == 0 ? 0 : 1;
}
