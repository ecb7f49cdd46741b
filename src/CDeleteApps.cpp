#include "CDeleteApps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>
#include <utility>

#include "VexiloLog.h"
#include "c_handle.h"
#include "flux_resources.h"
#include "set_paths.h"
#include "system_path.h"
#include "was_api.h"

namespace QUVA {

namespace {

constexpr double kRowGap = 2;  // units, as all sizes here
constexpr double kNameHeight = 8;
constexpr double kCountWidth = 28;
constexpr double kBarHeight = 5;

// "2 of 5"
std::string Of(int number, int count) {
  return CStringUtil::CombinateStrings(
      CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_OF", CUtils::m_GetStringOfNumber(number)),
      CUtils::m_GetStringOfNumber(count));
}

/// What is free on the file systems that applications lie on, in bytes, as these say. Blocks: what was removed counts
/// as free once that has reached the disk.
int64_t FreeBytes() {
  int64_t bytes = 0;
  std::set<dev_t> counted;
  for (const char* path : {set_paths::kUserPartition, set_paths::kPackagesDir, "/", "/var", "/home"}) {
    struct stat status {};
    struct statvfs info {};
    const FdHandle folder(open(SystemPath(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || fstat(folder.get(), &status) != 0 || !counted.insert(status.st_dev).second) continue;
    if (syncfs(folder.get()) == 0 && fstatvfs(folder.get(), &info) == 0)
      bytes += static_cast<int64_t>(info.f_bavail) * static_cast<int64_t>(info.f_frsize);
  }
  return bytes;
}

std::string LockText(const app_list_struct& app) {
  return CUtils::m_GetTextWith(app.locked == WAS_LOCKED_FOR_ADMINISTRATOR ? "TV_SID_VEXILO_MIX_APP_IS_ADMINISTRATORS"
                                                                          : "TV_SID_VEXILO_MIX_APP_IS_LOCKED",
                               app.app_name);
}

const char* ReasonOf(int error) {
  switch (error) {
    case WAS_ERROR_NOT_FOUND:
      return "TV_SID_VEXILO_REASON_GONE";
    case WAS_ERROR_NOT_PERMITTED:  // what the file system does not permit, too
      return "TV_SID_VEXILO_REASON_NOT_PERMITTED";
    case -EBUSY:
      return "TV_SID_VEXILO_REASON_BUSY";
    case -EROFS:
      return "TV_SID_VEXILO_REASON_READ_ONLY";
    case -ENOSPC:
    case -EDQUOT:
      return "TV_SID_VEXILO_REASON_FULL";
    case -ETIMEDOUT:
      return "TV_SID_VEXILO_REASON_NO_ANSWER";
    default:
      return "TV_SID_VEXILO_REASON_OTHER";
  }
}

std::string OneOrMany(const char* one, const char* many, const std::string& name, size_t count) {
  return count == 1 ? CUtils::m_GetTextWith(one, name)
                    : CUtils::m_GetTextWith(many, CUtils::m_GetStringOfNumber(static_cast<int32_t>(count)));
}

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

// ---- the service's events, on its thread

void CDeleteApps::uninstall_cb(const char* appId, was_notify_event_e event, int progress, int reserved,
                               void* userData) {
  if (userData) static_cast<CDeleteApps*>(userData)->m_removal.OnEvent(appId ? appId : "", event, progress, reserved);
}

void CDeleteApps::OnRemovalStarted() {
  const bool isPopupWanted = m_removal.IsAnySelectedLocked() && !m_removal.GetStartFlag();
  const MainLoopSection section;
  if (isPopupWanted) m_ShowDeleteProgressPopup();
  m_ShowState();
  m_SetVoiceGuideText();
}

void CDeleteApps::OnRemovalProgress(int progress) {
  const MainLoopSection section;
  m_SetUninstallProgress(progress);
}

void CDeleteApps::OnRemovalEnded() {
  const MainLoopSection section;
  m_AfterUninstallCompleted();
}

void CDeleteApps::OnQuestionClosed() {
  const MainLoopSection section;
  m_HideServiceQuestion();
}

// ---- the question

void CDeleteApps::m_CreateDeletePopup(const std::vector<app_list_struct>& apps,
                                      std::function<void(const std::string&)> onEnd) {
  if (m_popup || m_IsRemoving()) return;
  m_onEnd = std::move(onEnd);
  m_toDelete.clear();
  std::vector<app_list_struct> locked;
  for (const app_list_struct& app : apps)
    if (app.selected) (app.locked ? locked : m_toDelete).push_back(app);
  if (m_toDelete.empty() && locked.empty()) return;
  m_OpenPopup(m_toDelete.empty() ? CUtils::m_GetText("TV_SID_VEXILO_CANNOT_DELETE")
                                 : OneOrMany("TV_SID_VEXILO_MIX_DELETE_ONE", "TV_SID_VEXILO_MIX_DELETE_MANY",
                                             m_toDelete.front().app_name, m_toDelete.size()),
              m_QuestionText(locked));
  m_AddQuestionButtons();
}

void CDeleteApps::m_OpenPopup(const std::string& title, const std::string& text) {
  CUtils& utils = CUtils::Instance();
  utils.m_ShowDimBackground();
  m_popup = elm_flux_popup_add(utils.m_pGetAppWindow());
  elm_flux_popup_title_set(m_popup, title);
  elm_flux_popup_text_set(m_popup, text);
  utils.m_RegisterForReturnStack({[this] { m_ShowScreenPostReturn(); }, [this] { m_HideDeletePopup(); }}, false);
}

std::string CDeleteApps::m_QuestionText(const std::vector<app_list_struct>& locked) const {
  std::string names;
  long long bytes = 0;
  bool isWhole = true;
  for (const app_list_struct& app : m_toDelete) {
    names += (names.empty() ? "" : ", ") + app.app_name;
    bytes += std::max<long long>(0, app.size);
    isWhole = isWhole && app.measured;
  }
  std::string text;
  if (!m_toDelete.empty())
    text = CUtils::m_GetTextWith(isWhole ? "TV_SID_VEXILO_MIX_DELETE_MSG" : "TV_SID_VEXILO_MIX_DELETE_MSG_AT_LEAST",
                                 CUtils::m_ConvertBytes(bytes));
  for (const app_list_struct& app : locked) text += (text.empty() ? "" : "\n") + LockText(app);
  // At last, as there may be many.
  if (m_toDelete.size() > 1) text += "\n" + names;
  return text;
}

void CDeleteApps::m_AddQuestionButtons() {
  const auto add = [this](const char* sid, const std::function<void()>& clicked) {
    OnEvent(elm_flux_popup_button_add(m_popup, CUtils::m_GetText(sid)), "clicked", [clicked](void*) { clicked(); });
  };
  // The first one has the focus: never what takes something away.
  add(m_toDelete.empty() ? "COM_SID_CLOSE" : "SID_CANCEL", [] { CUtils::Instance().m_ExecuteReturn(); });
  if (!m_toDelete.empty()) add("TV_SID_VEXILO_DELETE", [this] { m_DeleteBtnClickCall(); });
}

void CDeleteApps::m_HideDeletePopup() {
  if (!m_popup) return;
  CUtils::Instance().m_HideDimBackground();
  m_popup.m_Delete();
}

// Nothing opens above the popup that would have to come back to it.
void CDeleteApps::m_ShowScreenPostReturn() {}

void CDeleteApps::m_CleanObjects() {
  m_HideDeletePopup();
  m_CloseProgress();
}

// The widget set redraws all that is in the popups.
void CDeleteApps::m_HighContrastChangeCB() {
  m_ShowState();
}

void CDeleteApps::m_DeleteBtnClickCall() {
  CUtils::Instance().m_ExecuteReturn();
  m_StartRemoval();
}

// ---- the progress

void CDeleteApps::m_StartRemoval() {
  m_SetApps(m_toDelete);
  m_SetStartFlag(true);
  m_ShowDeleteProgressPopup();
  // The service may have a question of its own, above all else.
  CUtils::Instance().m_ShowDimBackground();
  m_isServiceAsking = true;
  m_freed = 0;
  const auto answered = std::make_shared<bool>(false);
  m_job.m_Start(
      [this, answered](const CScreenJob::Control&) {
        const int64_t before = FreeBytes();
        *answered = m_UninstallAppThreadFn();
        m_freed = FreeBytes() - before;
      },
      [this, answered] {
        if (*answered)
          m_Uninstall_end_function();
        else
          m_Uninstall_error_function();
      },
      [this] { m_Uninstall_error_function(); });
}

void CDeleteApps::m_ShowDeleteProgressPopup() {
  if (m_progressPopup) return;
  CUtils& utils = CUtils::Instance();
  if (!utils.m_pGetAppWindow()) return;
  utils.m_SetKeyBlock(true);  // it is not asked for and not stopped any more
  utils.m_ShowDimBackground();
  m_progressPopup = elm_flux_popup_add(utils.m_pGetAppWindow());
  elm_flux_popup_title_set(m_progressPopup, CUtils::m_GetText("TV_SID_VEXILO_DELETING"));
  Evas_Object* const content = elm_flux_layout_add(m_progressPopup, FLUX_LAYOUT_VERTICAL, FLUX_ALIGN_TOP);
  elm_flux_layout_gap_set(content, kRowGap);
  Evas_Object* const row = AddLayout(content, FLUX_LAYOUT_HORIZONTAL, FLUX_ALIGN_CENTER, 0, kNameHeight);
  elm_flux_expand_set(row, true);
  m_name = AddText(row, "", FLUX_FONT_600, kTextColor, FLUX_TEXT_BODY, FLUX_ALIGN_LEFT, 0, 0);
  elm_flux_expand_set(m_name, true);
  m_count = AddText(row, "", FLUX_FONT_400, kFaintTextColor, FLUX_TEXT_ROW, FLUX_ALIGN_RIGHT, kCountWidth, 0);
  m_bar = elm_flux_progress_add(content, FLUX_PROGRESS_BAR);
  elm_flux_size_set(m_bar, 0, kBarHeight);
  elm_flux_expand_set(m_bar, true);
  elm_flux_progress_unit_set(m_bar, "%.0f%%");
  elm_flux_layout_pack(content, m_bar);
  elm_object_content_set(m_progressPopup, content);
  m_ShowState();
}

void CDeleteApps::m_ShowState() {
  if (!m_progressPopup) return;
  const UninstallState state = m_GetState();
  const int count = state.count;
  elm_object_text_set(m_name, state.appName.c_str());
  elm_object_text_set(m_count, count > 1 ? Of(std::min(state.finished + 1, count), count).c_str() : "");
  elm_flux_progress_value_set(m_bar, state.progress / 100.0);
}

void CDeleteApps::m_SetVoiceGuideText() {
  const UninstallState state = m_GetState();
  if (!m_progressPopup || !elm_config_access_get() || state.appName.empty()) return;
  CUtils::m_SayVoiceGuideText(CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_DELETING", state.appName));
}

void CDeleteApps::m_SetUninstallProgress(int progress) {
  if (m_bar) elm_flux_progress_value_set(m_bar, progress / 100.0);
}

void CDeleteApps::m_AfterUninstallCompleted() {
  m_ShowState();
}

void CDeleteApps::m_HideServiceQuestion() {
  if (!m_isServiceAsking && m_popup) return;  // late: the layer is the popup's
  CUtils::Instance().m_HideDimBackground();
  m_isServiceAsking = false;
}

void CDeleteApps::m_CloseProgress() {
  if (!m_progressPopup) return;
  CUtils& utils = CUtils::Instance();
  if (m_isServiceAsking) m_HideServiceQuestion();
  utils.m_HideDimBackground();
  utils.m_SetKeyBlock(false);
  m_progressPopup.m_Delete();
  m_SetStartFlag(false);
}

// ---- the end

void CDeleteApps::m_Uninstall_end_function() {
  m_Tell(true);
}

// The service has refused, given no sign of life, or there was no thread to ask it.
void CDeleteApps::m_Uninstall_error_function() {
  m_Tell(false);
}

void CDeleteApps::m_Tell(bool answered) {
  m_CloseProgress();
  const UninstallState state = m_GetState();
  std::vector<std::string> done;
  std::vector<Failure> failures;
  for (const app_list_struct& app : m_toDelete) {
    const auto ended = state.ended.find(app.app_id);
    if (ended != state.ended.end() && ended->second == WAS_ERROR_NONE) {
      done.push_back(app.app_name);
      continue;
    }
    const int error = ended != state.ended.end()        ? ended->second
                      : state.refused != WAS_ERROR_NONE ? state.refused
                      : answered                        ? static_cast<int>(WAS_ERROR_FAILED)
                                                        : -ETIMEDOUT;
    failures.push_back({app.app_name, CUtils::m_GetText(ReasonOf(error))});
  }
  std::string message;
  if (!done.empty()) {
    message = OneOrMany("TV_SID_VEXILO_MIX_DELETED_ONE", "TV_SID_VEXILO_MIX_DELETED_MANY", done.front(), done.size());
    // What the file system says, and nothing where others have filled it meanwhile.
    if (m_freed > 0) message += " " + CUtils::m_GetTextWith("TV_SID_VEXILO_MIX_FREED", CUtils::m_ConvertBytes(m_freed));
  }
  if (!failures.empty()) m_ShowFailures(failures, message);
  if (m_onEnd) m_onEnd(failures.empty() ? message : "");
}

void CDeleteApps::m_ShowFailures(const std::vector<Failure>& failures, const std::string& done) {
  if (!CUtils::Instance().m_pGetAppWindow() || m_popup) return;
  std::string text;
  for (const Failure& failure : failures) text += failure.appName + ": " + failure.reason + "\n";
  text += done;
  while (text.ends_with('\n')) text.pop_back();
  m_OpenPopup(OneOrMany("TV_SID_VEXILO_MIX_NOT_DELETED_ONE", "TV_SID_VEXILO_MIX_NOT_DELETED_MANY",
                        failures.front().appName, failures.size()),
              text);
  OnEvent(elm_flux_popup_button_add(m_popup, CUtils::m_GetText("COM_SID_CLOSE")), "clicked",
          [](void*) { CUtils::Instance().m_ExecuteReturn(); });
}

}  // namespace QUVA
