#include "homedata/home_deck_data.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

#include "base/atomic_file.h"
#include "base/file_lock.h"
#include "base/folder.h"
#include "dlog.h"
#include "log_tags.h"
#include "packages/package_store.h"
#include "packages/processes.h"
#include "packages/safe_tree.h"
#include "set_names.h"
#include "set_paths.h"
#include "settings/settings_store.h"
#include "system_path.h"
#include "vconf.h"

namespace homedata {

namespace {

// Names beside the web engine's store: what is to go, and what it has begun anew before that came back.
constexpr char kStore[] = "Cobalt", kAside[] = "Cobalt.reset", kNewer[] = "Cobalt.newer";
constexpr std::chrono::seconds kLockPatience{2};
constexpr double kAsideShare = 0.1;  // of the progress

std::string Beside(const char* name) {
  return (std::filesystem::path(set_paths::kCobaltDir).parent_path() / name).native();
}

bool IsThere(const std::string& path) {
  struct stat status;
  return lstat(SystemPath(path).c_str(), &status) == 0;
}

bool Fail(std::string& problem, const std::string& path, int reason) {
  if (problem.empty()) problem = path + ": " + std::strerror(reason);
  return false;
}

/// Flushes the folders of all that is renamed.
void Sync() {
  SyncFolderOf(SystemPath(set_paths::kHomeDeckReset));
  SyncFolderOf(SystemPath(set_paths::kSettingsDir) + "/");
  SyncFolderOf(SystemPath(set_paths::kCobaltDir));
}

/// True also where there is no such folder.
bool Remove(const std::string& folder, const packages::TreeProgress& onProgress, std::string& problem) {
  const auto removed = packages::RemoveTree(folder, onProgress);
  return removed.error == 0 || removed.error == ENOENT || Fail(problem, folder, removed.error);
}

bool Rename(const std::string& folder, const char* name, std::string& problem) {
  const int error = packages::RenameTree(folder, name);
  return error == 0 || error == ENOENT || Fail(problem, folder, error);
}

/// What was set meanwhile is newer, and stays.
bool PutBackSettings(std::string& problem) {
  bool isAllBack = true;
  for (const auto& file : EntriesOf(SystemPath(set_paths::kHomeDeckReset))) {
    const std::string back = SystemPath(set_paths::kSettingsDir) + "/" + file.filename().native();
    if (renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, back.c_str(), RENAME_NOREPLACE) == 0) continue;
    if (errno == EEXIST && unlink(file.c_str()) == 0) continue;
    isAllBack = Fail(problem, set_paths::kHomeDeckReset + ("/" + file.filename().native()), errno);
  }
  return isAllBack;
}

bool PutBackStore(std::string& problem) {
  if (!Remove(Beside(kNewer), {}, problem)) return false;
  if (!IsThere(Beside(kAside))) return true;
  return Rename(set_paths::kCobaltDir, kNewer, problem) && Rename(Beside(kAside), kStore, problem) &&
         Remove(Beside(kNewer), {}, problem);
}

bool PutBack(std::string& problem) {
  const bool isBack = PutBackStore(problem);
  if (!PutBackSettings(problem) || !isBack) return false;
  Sync();
  return Remove(set_paths::kHomeDeckReset, {}, problem);
}

void LogProblem(const std::string& problem) {
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, log_tags::kHomeData, "what a reset left: %s", problem.c_str());
}

/// After a failure; what cannot be put back now is when the next application starts.
bool Undo() {
  if (std::string rest; !PutBack(rest)) LogProblem(rest);
  return false;
}

bool Finish(const packages::TreeProgress& onProgress, std::string& problem) {
  return Remove(Beside(kAside), onProgress, problem) && Remove(set_paths::kHomeDeckResetDone, {}, problem);
}

bool Mend(std::string& problem) {
  if (IsThere(set_paths::kHomeDeckReset)) return PutBack(problem);
  return !IsThere(set_paths::kHomeDeckResetDone) || Finish({}, problem);
}

bool SetAside(const std::function<void(double)>& onProgress, std::string& problem) {
  const std::string folder = SystemPath(set_paths::kHomeDeckReset);
  if (!MakeFolders(folder)) return Fail(problem, set_paths::kHomeDeckReset, errno);
  SyncFolderOf(folder);
  auto keys = settings::KeysBelow(kHomeDeckKeys);
  double steps = 0;
  const auto step = [&] { onProgress(kAsideShare * ++steps / static_cast<double>(keys.size() + 2)); };
  step();
  if (!Rename(set_paths::kCobaltDir, kAside, problem)) return false;
  step();
  // The consent last: without it nobody gets to the tool.
  std::stable_partition(keys.begin(), keys.end(), [](const std::string& key) { return key != set_names::kConsentKey; });
  for (const std::string& key : keys) {
    const std::string name = "/" + settings::FileNameOfKey(key);
    const std::string from = SystemPath(settings::FolderOfKey(key)) + name;
    if (std::rename(from.c_str(), (folder + name).c_str()) != 0 && errno != ENOENT)
      return Fail(problem, settings::FolderOfKey(key) + name, errno);
    step();
  }
  return true;
}

FdHandle Lock(std::string& problem, std::chrono::seconds patience = kLockPatience) {
  FdHandle lock = LockBeside(SystemPath(set_paths::kHomeDeckReset), std::chrono::steady_clock::now() + patience);
  if (!lock && errno == EWOULDBLOCK)
    problem = "another reset is going on";
  else if (!lock)
    Fail(problem, set_paths::kHomeDeckReset, errno);
  return lock;
}

}  // namespace

HomeDeckData MeasureHomeDeck() {
  HomeDeckData data;
  int consent = 0;
  data.isConsentGiven = vconf_get_int(set_names::kConsentKey, &consent) == 0 && consent == 1;
  const auto keys = settings::KeysBelow(kHomeDeckKeys);
  data.settings =
      static_cast<int>(std::ranges::count_if(keys, [](const auto& key) { return key != set_names::kConsentKey; }));
  data.cacheBytes = packages::MeasureTree(set_paths::kCobaltDir).bytes;
  return data;
}

bool MendHomeDeckReset(std::string& problem) {
  const FdHandle lock = Lock(problem);
  return lock && Mend(problem);
}

void MendHomeDeckResetAtStart() {
  const auto mend = [] {
    std::string problem;
    const FdHandle lock = Lock(problem, std::chrono::seconds(0));  // who has it is at work
    if (lock && !Mend(problem)) LogProblem(problem);
  };
  if (IsThere(set_paths::kHomeDeckReset)) return mend();
  if (IsThere(set_paths::kHomeDeckResetDone)) std::thread(mend).detach();
}

bool ResetHomeDeck(const std::function<void(double)>& onProgress, std::string& problem) {
  const FdHandle lock = Lock(problem);
  if (!lock || !Mend(problem)) return false;
  if (const auto engine = packages::FindByPackageId(set_names::kCobaltPackage); engine && !packages::EndAll(*engine))
    return Fail(problem, set_names::kCobaltPackage, EBUSY);
  // What cannot go is found out before anything is moved.
  const auto store = packages::PrepareTree(set_paths::kCobaltDir);
  if (store.error != 0 && store.error != ENOENT) return Fail(problem, set_paths::kCobaltDir, store.error);
  // Left by a reset whose folder is gone: it would be in the way, and undoing would take it for the store.
  if (!Remove(Beside(kAside), {}, problem)) return false;
  if (!SetAside(onProgress, problem)) return Undo();
  Sync();
  if (std::rename(SystemPath(set_paths::kHomeDeckReset).c_str(), SystemPath(set_paths::kHomeDeckResetDone).c_str()) !=
      0) {
    Fail(problem, set_paths::kHomeDeckResetDone, errno);
    return Undo();
  }
  SyncFolderOf(SystemPath(set_paths::kHomeDeckReset));
  onProgress(kAsideShare);
  const auto total = static_cast<double>(std::max<int64_t>(store.bytes, 1));
  const auto tell = [&](int64_t bytes) {
    onProgress(std::min(1.0, kAsideShare + (1 - kAsideShare) * static_cast<double>(bytes) / total));
  };
  // It is done; what stays of what was set aside goes the next time.
  if (std::string rest; !Finish(tell, rest)) LogProblem(rest);
  onProgress(1);
  return true;
}

}  // namespace homedata
