#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dlog.h"
#include "flatpak/icons.h"
#include "log_tags.h"
#include "packages/package_store.h"
#include "pkgmgr_client.h"
#include "was_api.h"

namespace {

constexpr const char* kTag = log_tags::kWas;

struct Request {
  std::vector<std::string> appIds;
  was_uninstall_cb callback;
  void* userData;
  bool asksViewer;
};

/// One thread that serves one request after the other.
class Service {
 public:
  /// Lives to the end of the process: its thread may still remove while the process ends.
  static Service& Get() {
    static Service& service = *new Service;
    return service;
  }

  void Accept(Request request);

 private:
  [[noreturn]] void Run();
  static void Serve(const Request& request);
  static void Uninstall(const Request& request, const std::string& appId);

  std::mutex m_mutex;
  std::condition_variable m_queued;
  std::deque<Request> m_queue;
  bool m_running = false;
};

void Service::Accept(Request request) {
  const std::lock_guard guard(m_mutex);
  if (!m_running) std::thread(&Service::Run, this).detach();
  m_running = true;
  m_queue.push_back(std::move(request));
  m_queued.notify_one();
}

void Service::Run() {
  pthread_setname_np(pthread_self(), "was");
  for (;;) {
    std::unique_lock lock(m_mutex);
    m_queued.wait(lock, [this] { return !m_queue.empty(); });
    const Request request = std::move(m_queue.front());
    m_queue.pop_front();
    lock.unlock();
    Serve(request);
  }
}

/// The host has no question of its own to the viewer, so what asks is answered at once.
void Service::Serve(const Request& request) {
  if (request.asksViewer) request.callback("", WAS_EVENT_CONFIRMATION_CLOSED, 0, 0, request.userData);
  for (const std::string& appId : request.appIds) Uninstall(request, appId);
  request.callback("", WAS_EVENT_MULTI_UNINSTALL_COMPLETE, 0, 0, request.userData);
}

/// Why an application is not to be removed, or null.
const char* WhyNot(const std::optional<packages::Package>& package) {
  return package ? packages::WhyNotRemovable(*package) : "no such application";
}

int ErrorOf(int packageResult) {
  switch (packageResult) {
    case PKGMGR_R_OK:
      return WAS_ERROR_NONE;
    case PKGMGR_R_EINVAL:
      return WAS_ERROR_INVALID_PARAMETER;
    case PKGMGR_R_ENOPKG:
      return WAS_ERROR_NOT_FOUND;
    case PKGMGR_R_ERROR:
      return WAS_ERROR_FAILED;
    default:
      return packageResult;
  }
}

void Service::Uninstall(const Request& request, const std::string& appId) {
  int progress = 0;
  const auto tell = [&](was_notify_event_e event, int error = WAS_ERROR_NONE) {
    request.callback(appId.c_str(), event, progress, error, request.userData);
  };
  const auto package = packages::FindByAppId(appId);
  if (const char* reason = WhyNot(package)) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not removed: %s", appId.c_str(), reason);
    return tell(WAS_EVENT_UNINSTALL_FAILED, package ? WAS_ERROR_NOT_PERMITTED : WAS_ERROR_NOT_FOUND);
  }
  tell(WAS_EVENT_UNINSTALL_START);
  const int error = ErrorOf(packages::Remove(*package, [&](int percent) {
    progress = percent;
    tell(WAS_EVENT_UNINSTALL_PROGRESS);
  }));
  tell(error == WAS_ERROR_NONE ? WAS_EVENT_UNINSTALL_COMPLETED : WAS_EVENT_UNINSTALL_FAILED, error);
}

int Accept(const char** appIds, int count, was_uninstall_cb callback, void* userData, bool asksViewer) {
  if (!appIds || count <= 0 || !callback) return WAS_ERROR_INVALID_PARAMETER;
  Request request{{}, callback, userData, asksViewer};
  for (int i = 0; i < count; ++i) {
    if (!appIds[i] || !*appIds[i]) return WAS_ERROR_INVALID_PARAMETER;
    auto& known = request.appIds;
    if (std::find(known.begin(), known.end(), appIds[i]) == known.end()) known.emplace_back(appIds[i]);
  }
  try {
    Service::Get().Accept(std::move(request));
  } catch (const std::exception& exception) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "a request is not accepted: %s", exception.what());
    return WAS_ERROR_FAILED;
  }
  return WAS_ERROR_NONE;
}

std::vector<packages::Package> ListOf(was_list_kind_e kind) {
  std::vector<packages::Package> packages = packages::List();
  if (kind == WAS_LIST_REMOVABLE) std::erase_if(packages, [](const auto& package) { return !package.removable; });
  return packages;
}

was_app_info_s InfoOf(const packages::Package& package) {
  return {.service_id = strdup(package.serviceId.c_str()),
          .app_id = strdup(package.appId.c_str()),
          .package_id = strdup(package.packageId.c_str()),
          .title = strdup(package.title.c_str()),
          .icon_dir = strdup(package.iconDir.c_str()),
          .attribute1 = package.attribute1,
          .attribute2 = package.attribute2,
          .locked = package.locked             ? WAS_LOCKED_BY_VIEWER
                    : package.forAdministrator ? WAS_LOCKED_FOR_ADMINISTRATOR
                                               : WAS_UNLOCKED};
}

}  // namespace

extern "C" {

int was_get_app_count(int* count) {
  if (!count) return WAS_ERROR_INVALID_PARAMETER;
  *count = static_cast<int>(ListOf(WAS_LIST_REMOVABLE).size());
  return WAS_ERROR_NONE;
}

int was_get_app_list(was_list_kind_e kind, was_app_info_s** list, int* count) {
  if (!list || !count || (kind != WAS_LIST_ALL && kind != WAS_LIST_REMOVABLE)) return WAS_ERROR_INVALID_PARAMETER;
  const std::vector<packages::Package> packages = ListOf(kind);
  flatpak::RenewIcons(packages);
  was_app_info_s* infos = nullptr;
  if (!packages.empty()) {
    infos = static_cast<was_app_info_s*>(std::calloc(packages.size(), sizeof(was_app_info_s)));
    if (!infos) return WAS_ERROR_FAILED;
    std::transform(packages.begin(), packages.end(), infos, InfoOf);
  }
  *list = infos;
  *count = static_cast<int>(packages.size());
  return WAS_ERROR_NONE;
}

void was_free_app_list(was_app_info_s* list, int count) {
  for (int i = 0; list && i < count; ++i)
    for (char* text : {list[i].service_id, list[i].app_id, list[i].package_id, list[i].title, list[i].icon_dir})
      std::free(text);
  std::free(list);
}

int was_multi_uninstall_webapp(const char** app_ids, int count, was_uninstall_cb callback, void* user_data) {
  return Accept(app_ids, count, callback, user_data, true);
}

int was_force_uninstall_webapp(const char* app_id, was_uninstall_cb callback, void* user_data) {
  return Accept(&app_id, 1, callback, user_data, false);
}

}  // extern "C"
