#include "packages/package_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <tuple>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "c_handle.h"
#include "dlog.h"
#include "flatpak/layout.h"
#include "flatpak/removal.h"
#include "log_tags.h"
#include "packages/identity.h"
#include "packages/manifest.h"
#include "packages/processes.h"
#include "packages/removal.h"
#include "pkgmgr_client.h"
#include "set_paths.h"
#include "system_path.h"

namespace packages {

namespace {

constexpr const char* kTag = log_tags::kPackages;
constexpr std::string_view kRemoving = ".removing-";
constexpr char kHiddenNumber = '~';  // no letter of an id
constexpr int kMaxHidden = 1000;
constexpr size_t kMaxManifestBytes = 65536;

using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;

/// The text of its manifest; else nothing, and `problem` says why.
std::optional<std::string> ReadManifest(const std::string& folder, std::string& problem) {
  const std::string file = folder + "/manifest.json";
  struct stat status;
  std::string text;
  if (lstat(folder.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
    problem = "is no folder";
  else if (!ReadWholeFile(file, text, Links::kRefuse, kMaxManifestBytes))
    problem = "manifest.json: " + WhyUnread(errno, kMaxManifestBytes);
  else
    return text;
  return std::nullopt;
}

std::optional<Package> Load(const std::string& packageId) {
  const std::string folder = SystemPath(InPackages(packageId));
  std::string problem;
  std::optional<Package> package;
  if (const auto text = ReadManifest(folder, problem)) {
    package = ParseManifest(packageId, *text, problem);
    if (!package) problem.insert(0, "manifest.json: ");
  }
  if (package && !package->removable && !IsFixed(packageId)) {
    package->removable = true;
    Complain(InPackages(packageId) + "/manifest.json",
             "\"removable\" can be false for what the set shipped so only; it can be removed");
  }
  // A package may go at any moment, which is no error.
  if (!package && IsThere(InPackages(packageId))) Complain(InPackages(packageId), problem);
  return package;
}

/// Removes what lies under a hidden name. 0 or an errno.
int RemoveHidden(const std::string& name, const TreeProgress& onProgress = {}) {
  const TreeResult result = RemoveTree(InPackages(name), onProgress);
  if (result.error == ENOENT) return 0;
  if (result.error == 0) {
    SyncFolderOf(SystemPath(InPackages(name)));
    Complain(InPackages(name), {});
    return 0;
  }
  Complain(InPackages(name), "the removal is not complete, " + std::to_string(result.kept) +
                                 " entries stay: " + std::strerror(result.error));
  return result.error;
}

/// 0 or an errno, which is in the log.
int RemoveWebCache(const Package& package, const TreeProgress& onProgress = {}) {
  const std::string folder = WebCacheFolderOf(package);
  const TreeResult result = RemoveTree(folder, onProgress, set_paths::kWebCacheDir);
  if (result.error == 0 || result.error == ENOENT) return 0;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not removed, %d entries stay: %s", folder.c_str(), result.kept,
               std::strerror(result.error));
  return result.error;
}

std::string HiddenName(const std::string& packageId, int number) {
  const std::string name = std::string(kRemoving) + packageId;
  return number == 1 ? name : name + kHiddenNumber + std::to_string(number);
}

/// The package that lies under a hidden name, as long as its manifest is there.
std::optional<Package> LoadHidden(const std::string& name) {
  const std::string packageId = name.substr(kRemoving.size(), name.find(kHiddenNumber) - kRemoving.size());
  std::string problem;
  const auto text = ReadManifest(SystemPath(InPackages(name)), problem);
  return text ? ParseManifest(packageId, *text, problem) : std::nullopt;
}

/// The web cache goes too, unless the application is installed again.
void FinishRemoval(const std::string& name, const std::vector<Package>& installed) {
  const FdHandle lock = LockForRemoval(InPackages(name));
  const auto package = lock ? LoadHidden(name) : std::nullopt;
  if (package && std::none_of(installed.begin(), installed.end(),
                              [&package](const Package& one) { return one.appId == package->appId; }))
    RemoveWebCache(*package);
  if (lock && RemoveHidden(name) == 0)
    __dlog_print(LOG_ID_APPS, DLOG_INFO, kTag, "%s: finished a removal that was interrupted", InPackages(name).c_str());
  if (!lock && (errno == ENOTDIR || errno == ELOOP)) unlink(SystemPath(InPackages(name)).c_str());
}

/// The names in the folder of the packages: those of packages, and those of removals. False when it cannot be read.
bool ReadNames(std::vector<std::string>& packageIds, std::vector<std::string>& removals) {
  const DirHandle folder(opendir(SystemPath(set_paths::kPackagesDir).c_str()));
  Complain(InPackages(""), folder ? "" : std::strerror(errno));
  if (!folder) return false;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name.starts_with(kRemoving))
      removals.push_back(name);
    else if (IsId(name))
      packageIds.push_back(name);
    else if (name.front() != '.')
      Complain(InPackages(name), "is no name of a package");
  }
  return true;
}

bool IsFlatpak(const Package& package) {
  return package.source == Source::kFlatpak;
}

/// As people look for a title: whatever the case of its letters.
std::string SortKey(const std::string& title) {
  const GText folded(g_utf8_casefold(title.c_str(), -1));
  const GText key(g_utf8_collate_key(folded.get(), -1));
  return key.get();
}

int Empty(const std::vector<std::pair<std::string, std::string>>& foldersWithin, const TreeStop& stop = {}) {
  int result = PKGMGR_R_OK;
  for (const auto& [folder, within] : foldersWithin) {
    const TreeResult emptied = EmptyTree(folder, {}, within, {.stop = stop});
    if (emptied.error == 0 || emptied.error == ENOENT) continue;
    if (emptied.error == ECANCELED) return ResultOf(ECANCELED);
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not empty, %d entries stay: %s", folder.c_str(), emptied.kept,
                 std::strerror(emptied.error));
    if (result == PKGMGR_R_OK) result = ResultOf(emptied.error);
  }
  return result;
}

/// The folder whose owner counts in the package's data and cache.
std::string WithinOf(const Package& package) {
  return IsFlatpak(package) ? flatpak::DataDir() : FolderOf(package);
}

TreeResult Sum(const TreeResult& one, const TreeResult& other) {
  return {.bytes = one.bytes + other.bytes,
          .files = one.files + other.files,
          .kept = one.kept + other.kept,
          .error = one.error != 0 ? one.error : other.error};
}

/// A part of a package: its lack is no error.
TreeResult MeasurePart(const std::string& folder, const std::string& within) {
  TreeResult measured = MeasureTree(folder, within);
  if (measured.error == ENOENT) measured.error = 0;
  return measured;
}

/// From here on the package is not there any more, and `hidden` is its name. Names of removals that could not be
/// finished are passed over. 0 or an errno.
int Hide(const std::string& packageId, std::string& hidden) {
  const std::string from = SystemPath(InPackages(packageId));
  for (int number = 1; number <= kMaxHidden; ++number) {
    hidden = HiddenName(packageId, number);
    if (rename(from.c_str(), SystemPath(InPackages(hidden)).c_str()) == 0)
      return SyncFolderOf(SystemPath(InPackages(hidden))) ? 0 : errno;
    if (errno != ENOTEMPTY && errno != EEXIST && errno != ENOTDIR && errno != EBUSY) return errno;
  }
  return EEXIST;
}

}  // namespace

std::vector<Package> List() {
  std::vector<std::string> packageIds, removals;
  ReadNames(packageIds, removals);
  std::vector<Package> packages;
  for (const std::string& packageId : packageIds)
    if (auto package = Load(packageId)) packages.push_back(std::move(*package));
  flatpak::FinishRemovals();
  for (Package& one : flatpak::List()) packages.push_back(std::move(one));
  KeepRightful(packages, packageIds);
  for (const std::string& name : removals) FinishRemoval(name, packages);
  std::vector<std::tuple<std::string, std::string, size_t>> order;
  for (size_t i = 0; i < packages.size(); ++i) order.emplace_back(SortKey(packages[i].title), packages[i].packageId, i);
  std::sort(order.begin(), order.end());
  std::vector<Package> sorted;
  for (const auto& [key, packageId, index] : order) sorted.push_back(std::move(packages[index]));
  return sorted;
}

namespace {

/// Whether a package is used depends on the others, so all are read.
std::optional<Package> Find(std::string Package::*member, const std::string& id) {
  if (!IsId(id)) return std::nullopt;
  for (Package& package : List())
    if (package.*member == id) return std::move(package);
  return std::nullopt;
}

}  // namespace

std::optional<Package> ReadPackage(const std::string& packageId) {
  if (!IsId(packageId)) return std::nullopt;
  auto package = Load(packageId);
  return package ? package : flatpak::Read(packageId);
}

std::optional<Package> FindByPackageId(const std::string& packageId) {
  return Find(&Package::packageId, packageId);
}

std::optional<Package> FindByAppId(const std::string& appId) {
  return Find(&Package::appId, appId);
}

std::optional<State> Inspect() {
  std::vector<std::string> packageIds, removals;
  if (!ReadNames(packageIds, removals)) return std::nullopt;
  std::sort(packageIds.begin(), packageIds.end());
  State state;
  for (const std::string& packageId : packageIds) {
    struct stat status;
    if (auto package = Load(packageId))
      state.usable.push_back(std::move(*package));
    else if (stat(SystemPath(InPackages(packageId)).c_str(), &status) == 0 && S_ISDIR(status.st_mode))
      state.broken.push_back(packageId);
  }
  for (const std::string& name : removals)
    if (LockForRemoval(InPackages(name))) ++state.unfinished;
  state.unfinished += flatpak::UnfinishedRemovals();
  for (Package& one : flatpak::List()) state.usable.push_back(std::move(one));
  return state;
}

std::string FolderOf(const Package& package) {
  return IsFlatpak(package) ? flatpak::ProgramFolderOf(package) : InPackages(package.packageId);
}

std::string DataFolderOf(const Package& package) {
  return IsFlatpak(package) ? flatpak::DataFolderOf(package.packageId) : FolderOf(package) + "/data";
}

std::string CacheFolderOf(const Package& package) {
  return IsFlatpak(package) ? flatpak::CacheFolderOf(package.packageId) : FolderOf(package) + "/cache";
}

std::string WebCacheFolderOf(const Package& package) {
  return std::string(set_paths::kWebCacheDir) + "/" + package.appId;
}

TreeResult MeasureWhole(const Package& package) {
  const TreeResult folder = MeasureTree(FolderOf(package));
  return IsFlatpak(package) ? Sum(folder, MeasurePart(DataFolderOf(package), WithinOf(package))) : folder;
}

TreeResult MeasureData(const Package& package) {
  TreeResult data = MeasurePart(DataFolderOf(package), WithinOf(package));
  if (!IsFlatpak(package)) return data;
  const TreeResult cache = MeasureCache(package);
  // It may be running meanwhile.
  data.bytes = std::max<int64_t>(0, data.bytes - cache.bytes);
  data.files = std::max<int64_t>(0, data.files - cache.files);
  data.kept = std::max(0, data.kept - cache.kept);
  return data;
}

TreeResult MeasureCache(const Package& package) {
  return MeasurePart(CacheFolderOf(package), WithinOf(package));
}

TreeResult MeasureWebCache(const Package& package) {
  return MeasurePart(WebCacheFolderOf(package), set_paths::kWebCacheDir);
}

int ClearCache(const Package& package, const TreeStop& stop) {
  if (IsFlatpak(package) && !EndAll(package)) return -EBUSY;
  return Empty({{CacheFolderOf(package), WithinOf(package)}, {WebCacheFolderOf(package), set_paths::kWebCacheDir}},
               stop);
}

int ClearData(const Package& package) {
  if (IsFlatpak(package) && !EndAll(package)) return -EBUSY;
  const int data = Empty({{DataFolderOf(package), WithinOf(package)}});
  const int cache = ClearCache(package);
  return data != PKGMGR_R_OK ? data : cache;
}

const char* WhyNotRemovable(const Package& package) {
  if (!package.removable) return "it belongs to the set";
  if (package.locked) return "it is locked";
  if (package.forAdministrator) return "only an administrator may remove it";
  return nullptr;
}

int Remove(const Package& package, const std::function<void(int)>& onProgress) {
  if (IsFlatpak(package)) return flatpak::Remove(package, onProgress);
  const std::string folder = FolderOf(package);
  const FdHandle lock = LockForRemoval(folder);
  if (!lock) {
    const int reason = errno;
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not removed: %s", folder.c_str(),
                 reason == EAGAIN ? "it is being removed already" : std::strerror(reason));
    return reason == ENOENT ? static_cast<int>(PKGMGR_R_ENOPKG) : ResultOf(reason);
  }
  const TreeResult whole = PrepareTree(folder);
  if (whole.error != 0) {
    const std::string reason =
        whole.kept == 0 ? std::strerror(whole.error)
                        : std::to_string(whole.kept) + " entries in it are mount points or belong to another user";
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not removed: %s", folder.c_str(), reason.c_str());
    return ResultOf(whole.error);
  }
  if (!EndAll(package)) return ResultOf(EBUSY);
  const int64_t webBytes = MeasureWebCache(package).bytes;
  Percent percent(whole.bytes + webBytes, onProgress);

  std::string hidden;
  if (const int error = Hide(package.packageId, hidden)) {
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not removed: %s", folder.c_str(), std::strerror(error));
    return ResultOf(error);
  }
  // The web cache first: as long as the manifest is there, it may have to go again.
  const int web = RemoveWebCache(package, [&percent](int64_t bytes) { percent.Removed(bytes); });
  const int error = RemoveHidden(hidden, [&percent, webBytes](int64_t bytes) { percent.Removed(webBytes + bytes); });
  if (error == 0 && web == 0) percent.Done();
  return ResultOf(error != 0 ? error : web);
}

}  // namespace packages
