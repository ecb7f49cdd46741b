// vexilo-test TOOL [KEY=VALUE…]: the test tools of self-diagnosis. docs/test-tools.md.

#include <libintl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "CMainView.h"
#include "CUtils.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "app_framework.h"
#include "appfw/app_control.h"
#include "appfw/ui_app.h"
#include "base/bus.h"
#include "c_handle.h"
#include "kpi_logger.h"
#include "set_names.h"
#include "set_paths.h"
#include "system_path.h"
#include "tools.h"

namespace {

enum ExitCode { kEnded = 0, kNotShown = 1, kUsage = 2 };

// Who launched a tool says so by one of these.
constexpr const char* kLaunchers[] = {"launchedFrom", "PrevSubmenu"};

/// What runs, from main() on.
struct Run {
  const tools::Tool* tool;
  std::string launcher{};  ///< the application that launched it; empty for none
  bool isShown = false;
};

int NotShown(const tools::Tool& tool) {
  VEXILO_LOGE("cannot show \"%s\": there is no screen that can be opened", tool.appId);
  return kNotShown;
}

/// Goes back to the application that launched the tool, which may have made room for it meanwhile. Where there is no
/// session bus to ask a running one, its window is behind this one, or it is gone.
void GoBack(const Run& run) {
  ui_app_exit();
  if (run.launcher.empty() || SessionBusAddress().empty()) return;
  app_control_h handle = nullptr;
  if (app_control_create(&handle) != APP_CONTROL_ERROR_NONE) return;
  const std::unique_ptr<app_control_s, CRelease<&app_control_destroy>> control(handle);
  app_control_set_app_id(handle, run.launcher.c_str());
  app_control_add_extra_data(handle, set_names::kLaunchMechanism, run.tool->launchSource);
  app_control_send_launch_request(handle, nullptr, nullptr);
}

bool OnCreate(void*) {
  return true;
}

void OnTerminate(void*) {
  KPILogFramework::CLogger::GetInstance()->Flush();
  _exit(kEnded);
}

/// A test that nobody sees is over, unless it waits for the viewer to come back.
void OnPause(void*) {
  if (!QUVA::CUtils::Instance().m_GetMultitaskingStatus()) ui_app_exit();
}

void OnRequest(app_control_h request, void* data) {
  auto& run = *static_cast<Run*>(data);
  for (const char* key : kLaunchers)
    if (const std::string* const launcher = request->extras.Find(key)) run.launcher = *launcher;
  if (run.isShown) return;  // the window comes to the front
  run.isShown = true;
  QUVA::CUtils::Instance().m_SetLeave([&run] { GoBack(run); });
  const auto open = [&run, extras = request->extras] { run.tool->open(*run.tool, extras); };
  if (!QUVA::CMainView::Instance().m_OpenWindow(QUVA::CUtils::m_GetText(run.tool->titleSid).c_str(), open))
    _exit(NotShown(*run.tool));
}

}  // namespace

int main(int argc, char** argv) {
  Run run{argc > 1 ? tools::FindTool(argv[1]) : nullptr};
  if (!run.tool) {
    std::fprintf(stderr, "Usage: vexilo-test TOOL [KEY=VALUE...]; TOOL is one of: %s\n", tools::ToolNames().c_str());
    return kUsage;
  }
  bindtextdomain(QUVA::kApplicationId, SystemPath(set_paths::kLocaleDir).c_str());
  app_framework::SetApplicationId(run.tool->appId);
  ui_app_lifecycle_callback_s callbacks = {OnCreate, OnTerminate, OnPause, nullptr, OnRequest};
  return ui_app_main(argc - 1, argv + 1, &callbacks, &run) == 0 ? kEnded : NotShown(*run.tool);
}
