#include "AppRemoval.h"

#include <algorithm>
#include <set>
#include <utility>

#include "VexiloLog.h"

namespace QUVA {

void AppRemoval::SetApps(std::vector<app_list_struct> apps) {
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

void AppRemoval::SetStartFlag(bool started) {
  std::lock_guard lock(m_stateMutex);
  m_startFlag = started;
}

bool AppRemoval::GetStartFlag() const {
  std::lock_guard lock(m_stateMutex);
  return m_startFlag;
}

bool AppRemoval::IsAnySelectedLocked() const {
  std::lock_guard lock(m_stateMutex);
  return std::any_of(m_apps.begin(), m_apps.end(), [](const auto& app) { return app.selected && app.locked; });
}

UninstallState AppRemoval::GetState() const {
  std::lock_guard lock(m_stateMutex);
  return m_state;
}

// ---- the request

bool AppRemoval::RemoveSelected() {
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
  const int result = was_multi_uninstall_webapp(array.data(), static_cast<int>(array.size()), m_onServiceEvent, this);
  VEXILO_LOGI("return value is %d", result);
  if (result == WAS_ERROR_NONE) return m_awaitEnd();
  // No event comes from a request that was refused.
  m_changeRequests(-1);
  std::lock_guard lock(m_stateMutex);
  m_state.refused = result;
  return false;
}

void AppRemoval::m_changeRequests(int by) {
  std::lock_guard lock(m_mutex);
  m_requests = std::max(0, m_requests + by);
  m_condition.notify_all();
}

bool AppRemoval::m_awaitEnd() {
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

void AppRemoval::Remove(const char* appId) {
  m_changeRequests(+1);
  if (was_force_uninstall_webapp(appId, m_onServiceEvent, this) == WAS_ERROR_NONE) return;
  m_changeRequests(-1);
  VEXILO_LOGE("uninstall app failed");
}

// ---- the service's events

void AppRemoval::m_onServiceEvent(const char* appId, was_notify_event_e event, int progress, int reserved, void* self) {
  static_cast<AppRemoval*>(self)->OnEvent(appId ? appId : "", event, progress, reserved);
}

void AppRemoval::OnEvent(const std::string& appId, was_notify_event_e event, int progress, int reserved) {
  {
    std::lock_guard lock(m_mutex);
    ++m_events;
    m_condition.notify_all();
  }
  switch (event) {
    case WAS_EVENT_UNINSTALL_START:
      m_onStart(appId);
      break;
    case WAS_EVENT_UNINSTALL_PROGRESS:
      m_onProgress(progress);
      break;
    case WAS_EVENT_UNINSTALL_COMPLETED:
      VEXILO_LOGI("app_id[%s] uninstall completed", appId.c_str());
      m_onEnded(appId, WAS_ERROR_NONE);
      break;
    case WAS_EVENT_UNINSTALL_FAILED:
      VEXILO_LOGE("app_id[%s] uninstall failed[%d]", appId.c_str(), reserved);
      m_onEnded(appId, reserved != WAS_ERROR_NONE ? reserved : static_cast<int>(WAS_ERROR_FAILED));
      break;
    case WAS_EVENT_CONFIRMATION_CLOSED:
      m_listener.OnQuestionClosed();
      break;
    case WAS_EVENT_MULTI_UNINSTALL_COMPLETE:
      VEXILO_LOGI("Multi-Uninstall complete...");
      m_changeRequests(-1);
      break;
    default:
      VEXILO_LOGI("Unhandled event from WAS caught : %d", event);
  }
}

void AppRemoval::m_onStart(const std::string& appId) {
  {
    std::lock_guard lock(m_stateMutex);
    VEXILO_LOGI("uninstall start now with app id %s %d", appId.c_str(), m_startFlag);
    const auto app = std::find_if(m_apps.begin(), m_apps.end(), [&](const auto& each) { return each.app_id == appId; });
    m_state.appName = app == m_apps.end() ? "" : app->app_name;
    m_state.progress = 0;
  }
  m_listener.OnRemovalStarted();
}

void AppRemoval::m_onProgress(int progress) {
  const int percent = std::clamp(progress, 0, 100);
  {
    std::lock_guard lock(m_stateMutex);
    m_state.progress = percent;
  }
  m_listener.OnRemovalProgress(percent);
}

void AppRemoval::m_onEnded(const std::string& appId, int error) {
  {
    std::lock_guard lock(m_stateMutex);
    m_state.ended[appId] = error;
    ++m_state.finished;
  }
  m_listener.OnRemovalEnded();
}

}  // namespace QUVA
