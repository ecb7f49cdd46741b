// The removal itself: the worker, and the service's events.

#include "CDeleteApps.h"

#include <algorithm>
#include <set>
#include <utility>

#include "VexiloLog.h"
#include "was_api.h"

namespace QUVA {

namespace {

// What the user sees changes between two turns of the main loop.
class MainLoopSection {
 public:
  MainLoopSection() { ecore_thread_main_loop_begin(); }
  ~MainLoopSection() { ecore_thread_main_loop_end(); }
  MainLoopSection(const MainLoopSection&) = delete;
  MainLoopSection& operator=(const MainLoopSection&) = delete;
};

}  // namespace

CDeleteApps* CDeleteApps::Instance() {
  static auto* instance = new CDeleteApps;
  return instance;
}

CDeleteApps::CDeleteApps() {
  CUtils::Instance().ConnectHighContrastChangeCB([this] { m_HighContrastChangeCB(); });
}

void CDeleteApps::m_SetApps(std::vector<app_list_struct> apps) {
  std::lock_guard lock(m_stateMutex);
  m_apps = std::move(apps);
  m_state = UninstallState();
  std::set<std::string> ids;
  for (const app_list_struct& app : m_apps) {
    if (!app.selected) continue;
    if (ids.empty()) m_state.appName = app.app_name;  // until the service says which one it removes
    ids.insert(app.app_id);
  }
  m_state.count = static_cast<int>(ids.size());
}

void CDeleteApps::m_SetStartFlag(bool started) {
  std::lock_guard lock(m_stateMutex);
  m_startFlag = started;
}

int CDeleteApps::m_CheckIfAnyAppIsLocked() const {
  std::lock_guard lock(m_stateMutex);
  return std::none_of(m_apps.begin(), m_apps.end(), [](const auto& app) { return app.selected && app.locked; });
}

UninstallState CDeleteApps::m_GetState() const {
  std::lock_guard lock(m_stateMutex);
  return m_state;
}

// ---- the request

bool CDeleteApps::m_UninstallAppThreadFn() {
  VEXILO_LOGI("uninstall thread fn ");
  std::set<std::string> ids;
  std::vector<std::string> list;
  {
    std::lock_guard lock(m_stateMutex);
    VEXILO_LOGI("count of apps is %d", static_cast<int>(m_apps.size()));
    for (const app_list_struct& app : m_apps) {
      if (!app.selected) continue;
      VEXILO_LOGI("apps name and lock part is %s && %d", app.app_name.c_str(), app.locked);
      VEXILO_LOGI("app id to be deleted is %s", app.app_id.c_str());
      ids.insert(app.app_id);
      list.push_back(app.app_id);
    }
  }
  std::vector<const char*> array;
  for (const std::string& id : list) array.push_back(id.c_str());
  VEXILO_LOGI("list of apps created %d && %zu ", static_cast<int>(array.size()), ids.size());
  m_changeRequests(+1);
  const int result = was_multi_uninstall_webapp(array.data(), static_cast<int>(array.size()), uninstall_cb, this);
  VEXILO_LOGI("return value is %d", result);
  if (result == WAS_ERROR_NONE) return m_awaitEnd();
  // No event comes from a request that was refused.
  m_changeRequests(-1);
  std::lock_guard lock(m_stateMutex);
  m_state.refused = result;
  return false;
}

void CDeleteApps::m_changeRequests(int by) {
  std::lock_guard lock(m_mutex);
  m_requests = std::max(0, m_requests + by);
  m_condition.notify_all();
}

bool CDeleteApps::m_awaitEnd() {
  std::unique_lock lock(m_mutex);
  // The service works on requests in their order, and an end does not say whose it is.
  while (m_requests > 0) {
    const unsigned seen = m_events;
    if (m_condition.wait_for(lock, m_patience, [this, seen] { return m_requests == 0 || m_events != seen; })) continue;
    VEXILO_LOGE("the removal gives no sign of life: not waited for any longer");
    return false;
  }
  VEXILO_LOGI("Condition signalled..");
  return true;
}

void CDeleteApps::m_UninstallApp(const char* appId) {
  m_changeRequests(+1);
  if (was_force_uninstall_webapp(appId, uninstall_cb, this) == WAS_ERROR_NONE) return;
  m_changeRequests(-1);
  VEXILO_LOGE("uninstall app failed");
}

// ---- the service's events

void CDeleteApps::uninstall_cb(const char* appId, was_notify_event_e event, int progress, int reserved,
                               void* userData) {
  if (userData) static_cast<CDeleteApps*>(userData)->m_onEvent(appId ? appId : "", event, progress, reserved);
}

void CDeleteApps::m_onEvent(const std::string& appId, was_notify_event_e event, int progress, int reserved) {
  {
    std::lock_guard lock(m_mutex);
    ++m_events;
    m_condition.notify_all();
  }
  switch (event) {
    case WAS_EVENT_UNINSTALL_START:
      m_onStart(appId);
      break;
    case WAS_EVENT_UNINSTALL_PROGRESS: {
      const MainLoopSection section;
      m_SetUninstallProgress(progress);
      break;
    }
    case WAS_EVENT_UNINSTALL_COMPLETED:
      VEXILO_LOGI("app_id[%s] uninstall completed", appId.c_str());
      m_onEnded(appId, WAS_ERROR_NONE);
      break;
    case WAS_EVENT_UNINSTALL_FAILED:
      VEXILO_LOGE("app_id[%s] uninstall failed[%d]", appId.c_str(), reserved);
      m_onEnded(appId, reserved != WAS_ERROR_NONE ? reserved : static_cast<int>(WAS_ERROR_FAILED));
      break;
    case WAS_EVENT_CONFIRMATION_CLOSED: {
      const MainLoopSection section;
      m_HideServiceQuestion();
      break;
    }
    case WAS_EVENT_MULTI_UNINSTALL_COMPLETE:
      VEXILO_LOGI("Multi-Uninstall complete...");
      m_changeRequests(-1);
      break;
    default:
      VEXILO_LOGI("Unhandled event from WAS caught : %d", event);
  }
}

void CDeleteApps::m_onStart(const std::string& appId) {
  const bool anyLocked = m_CheckIfAnyAppIsLocked() == 0;
  const MainLoopSection section;
  bool isPopupWanted = false;
  {
    std::lock_guard lock(m_stateMutex);
    VEXILO_LOGI("uninstall start now with app id %s %d", appId.c_str(), m_startFlag);
    isPopupWanted = anyLocked && !m_startFlag;
    const auto app = std::find_if(m_apps.begin(), m_apps.end(), [&](const auto& each) { return each.app_id == appId; });
    m_state.appName = app == m_apps.end() ? "" : app->app_name;
    m_state.progress = 0;
  }
  if (isPopupWanted) m_ShowDeleteProgressPopup();
  m_ShowState();
  m_SetVoiceGuideText();
}

void CDeleteApps::m_onEnded(const std::string& appId, int error) {
  const MainLoopSection section;
  {
    std::lock_guard lock(m_stateMutex);
    m_state.ended[appId] = error;
  }
  m_AfterUninstallCompleted();
}

}  // namespace QUVA
