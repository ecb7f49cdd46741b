#include "appfw/ui_app.h"

#include <Elementary.h>
#include <glib-unix.h>

#include <cerrno>
#include <csignal>
#include <deque>
#include <string>

#include "app_framework.h"
#include "appfw/app_control.h"
#include "appfw/launcher.h"
#include "appfw/single_instance.h"
#include "appfw/toolkit.h"
#include "base/background_writing.h"
#include "base/bus.h"
#include "base/glib_handle.h"
#include "base/state.h"
#include "dlog.h"
#include "homedata/home_deck_data.h"
#include "log_tags.h"
#include "settings/menu_language.h"
#include "vconf.h"

namespace app_framework {

namespace {

constexpr const char* kTag = log_tags::kAppfw;

/// A signal handler in GLib's default context, so that it is called also while a callback runs a loop of GLib's. Made
/// after the toolkit, it replaces the toolkit's.
class SignalSource {
 public:
  SignalSource(int number, GSourceFunc handler, void* data) : m_id(g_unix_signal_add(number, handler, data)) {}
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;
  ~SignalSource() { g_source_remove(m_id); }

 private:
  const unsigned int m_id;
};

/// The request that the arguments say.
Extras ParseArguments(int argc, char** argv) {
  Extras extras;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    const std::string_view key = argument.substr(0, argument.find('='));
    if (key.empty() || key.size() == argument.size() || !g_utf8_validate(argv[i], -1, nullptr)) {
      const GText printable(g_strescape(argv[i], nullptr));
      __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "argument \"%s\" ignored: it is not key=value in UTF-8",
                   printable.get());
      continue;
    }
    extras.Set(std::string(key), std::string(argument.substr(key.size() + 1)));
  }
  return extras;
}

/// A request that waits to be delivered, and the start that waits for that.
struct Request {
  Extras extras;
  SingleInstance::Answer answer;
};

/// Whether a request is to be worked off without a screen.
bool IsForBackground(const Extras& extras) {
  const std::string* const mechanism = extras.Find(set_names::kLaunchMechanism);
  return mechanism && *mechanism == set_names::kBackgroundLaunch;
}

std::string& ApplicationId() {
  static auto& id = *new std::string(set_names::kCareApplication);
  return id;
}

void TakeForeground() {
  vconf_set_str(kForegroundAppKey, ApplicationId().c_str());
}

class Application {
 public:
  Application(int argc, char** argv, const ui_app_lifecycle_callback_s& callbacks, void* userData)
      : m_argc(argc), m_argv(argv), m_callbacks(callbacks), m_userData(userData) {}

  int Run();
  void Exit();
  void SetVisible(bool visible);

 private:
  int RunInstance(Extras firstRequest);
  void RunMainLoop();
  void Accept(Extras extras, SingleInstance::Answer answer);
  void ScheduleDelivery();
  void Deliver();
  void Terminate();

  static gboolean OnDelivery(void* self);
  static gboolean OnSignal(void* self);

  const int m_argc;
  char** const m_argv;
  const ui_app_lifecycle_callback_s m_callbacks;
  void* const m_userData;
  const std::string m_busAddress = SessionBusAddress();  // before the environment is changed
  ToolkitEnvironment m_environment;
  SingleInstance m_instance{ApplicationId()};
  std::deque<Request> m_requests;
  unsigned int m_deliverySource = 0;
  bool m_delivering = false;
  bool m_visible = true;
  bool m_inLoop = false;
  bool m_exiting = false;
  bool m_terminated = false;
};

Application* g_application = nullptr;
void (*g_bringToFront)() = nullptr;

int Application::Run() {
  Extras firstRequest = ParseArguments(m_argc, m_argv);
  switch (m_instance.Settle(m_busAddress, firstRequest, [this](Extras extras, SingleInstance::Answer answer) {
    Accept(std::move(extras), std::move(answer));
  })) {
    case SingleInstance::Role::kForwarded:
      return 0;
    case SingleInstance::Role::kNoAnswer:
      return -ETIMEDOUT;
    case SingleInstance::Role::kInstance:
      break;
  }
  return RunInstance(std::move(firstRequest));
}

int Application::RunInstance(Extras firstRequest) {
  const Toolkit toolkit(m_argc, m_argv);
  if (!toolkit) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the widget toolkit does not start");
    return -EIO;
  }
  const SignalSource terminate(SIGTERM, OnSignal, this);
  const SignalSource interrupt(SIGINT, OnSignal, this);
  const SignalSource hangUp(SIGHUP, OnSignal, this);
  if (m_callbacks.create && !m_callbacks.create(m_userData)) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "the application's create callback failed");
    return -ECANCELED;
  }
  m_requests.push_back({std::move(firstRequest), [](bool) {}});
  RunMainLoop();
  Terminate();
  return 0;
}

void Application::RunMainLoop() {
  if (!IsForBackground(m_requests.front().extras)) TakeForeground();
  ScheduleDelivery();
  m_inLoop = true;
  if (!m_exiting) elm_run();
  m_inLoop = false;
  Exit();
  if (m_deliverySource != 0) g_source_remove(m_deliverySource);
}

void Application::Exit() {
  if (m_exiting) return;
  m_exiting = true;
  m_instance.GiveUpName();
  // Their starts become instances themselves.
  for (const Request& request : m_requests) request.answer(false);
  m_requests.clear();
  if (m_inLoop) elm_exit();
}

void Application::Accept(Extras extras, SingleInstance::Answer answer) {
  if (m_exiting) return answer(false);
  m_requests.push_back({std::move(extras), std::move(answer)});
  ScheduleDelivery();
}

void Application::ScheduleDelivery() {
  if (m_deliverySource != 0 || m_delivering || m_requests.empty() || m_exiting) return;
  m_deliverySource = g_idle_add_full(G_PRIORITY_DEFAULT, OnDelivery, this, nullptr);
}

gboolean Application::OnDelivery(void* self) {
  auto* const application = static_cast<Application*>(self);
  application->m_deliverySource = 0;
  if (!application->m_exiting) application->Deliver();
  return G_SOURCE_REMOVE;
}

void Application::Deliver() {
  app_control_s request;
  request.extras = std::move(m_requests.front().extras);
  m_requests.front().answer(true);
  m_requests.pop_front();
  m_delivering = true;
  if (m_callbacks.app_control) m_callbacks.app_control(&request, m_userData);
  m_delivering = false;
  if (!m_exiting && g_bringToFront && !IsForBackground(request.extras)) {
    g_bringToFront();
    TakeForeground();
  }
  ScheduleDelivery();
}

void Application::SetVisible(bool visible) {
  if (visible == m_visible) return;
  m_visible = visible;
  if (visible) TakeForeground();
  const auto callback = visible ? m_callbacks.resume : m_callbacks.pause;
  if (callback) callback(m_userData);
}

gboolean Application::OnSignal(void* self) {
  auto* const application = static_cast<Application*>(self);
  application->Exit();
  // At once: the callback that runs this may never return.
  application->Terminate();
  return G_SOURCE_CONTINUE;
}

void Application::Terminate() {
  if (m_terminated) return;
  m_terminated = true;
  // Now, as the callback may end the process.
  m_environment.RemovePrivateFolder();
  EndBackgroundWriting();
  if (m_callbacks.terminate) m_callbacks.terminate(m_userData);
}

}  // namespace

void SetApplicationId(const std::string& id) {
  ApplicationId() = id;
}

void SetBringToFront(void (*bringToFront)()) {
  g_bringToFront = bringToFront;
}

void PauseApplication() {
  if (g_application) g_application->SetVisible(false);
}

void ResumeApplication() {
  if (g_application) g_application->SetVisible(true);
}

}  // namespace app_framework

int ui_app_main(int argc, char** argv, ui_app_lifecycle_callback_s* callbacks, void* user_data) {
  using namespace app_framework;
  if (!callbacks || !argv || g_application) return APP_CONTROL_ERROR_INVALID_PARAMETER;
  TidyState();
  homedata::MendHomeDeckResetAtStart();
  ApplyMenuLanguage();
  KeepLaunchEnvironment();
  BeginBackgroundWriting();
  Application application(argc, argv, *callbacks, user_data);
  g_application = &application;
  const int result = application.Run();
  g_application = nullptr;
  EndBackgroundWriting();
  return result;
}

void ui_app_exit(void) {
  if (app_framework::g_application) app_framework::g_application->Exit();
}
