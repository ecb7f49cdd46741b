#include "packages/package_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <tuple>

#include "base/atomic_file.h"
#include "base/glib_handle.h"
#include "c_handle.h"
#include "dlog.h"
#include "packages/manifest.h"
#include "pkgmgr_client.h"
#include "set_paths.h"
#include "system_path.h"

namespace packages {

namespace {

constexpr char kTag[] = "PACKAGES";
constexpr std::string_view kRemoving = ".removing-";
constexpr char kHiddenNumber = '~';  // no letter of an id
constexpr int kMaxHidden = 1000;
constexpr size_t kMaxIdBytes = 128;
constexpr size_t kMaxTold = 1000;
constexpr off_t kMaxManifestBytes = 65536;

using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;

std::string InPackages(std::string_view name) {
  return std::string(set_paths::kPackagesDir).append("/").append(name);
}

/// Whether anything has that name, a link that leads nowhere too.
bool IsThere(const std::string& path) {
  return faccessat(AT_FDCWD, SystemPath(path).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

/// Says what is wrong with a package when that is news; an empty problem forgets what was wrong. Of more than
/// kMaxTold wrong ones at once the others are not told.
void Complain(const std::string& name, const std::string& problem) {
  static std::mutex& mutex = *new std::mutex;
  static auto& told = *new std::map<std::string, std::string>;
  const std::lock_guard guard(mutex);
  if (problem.empty()) {
    told.erase(name);
    return;
  }
  if (told.size() >= kMaxTold && !told.contains(name))
    std::erase_if(told, [](const auto& one) { return !IsThere(InPackages(one.first)); });
  if (told.size() >= kMaxTold && !told.contains(name)) return;
  std::string& last = told[name];
  if (last == problem) return;
  last = problem;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s: %s", InPackages(name).c_str(), problem.c_str());
}

/// An errno as a result; the smallest ones would read as other results.
int ResultOf(int error) {
  if (error == 0) return PKGMGR_R_OK;
  return error > -PKGMGR_R_ERROR ? -error : static_cast<int>(PKGMGR_R_ERROR);
}

/// The text of its manifest; else nothing, and `problem` says why.
std::optional<std::string> ReadManifest(const std::string& folder, std::string& problem) {
  const std::string file = folder + "/manifest.json";
  struct stat status;
  std::string text;
  if (lstat(folder.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
    problem = "is no folder";
  else if (lstat(file.c_str(), &status) == 0 && status.st_size > kMaxManifestBytes)
    problem = "manifest.json: is larger than 64 KiB";
  else if (!ReadWholeFile(file, text, Links::kRefuse))
    problem = std::string("manifest.json: ") + std::strerror(errno);
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
  // A package may go at any moment, which is no error.
  if (!package && IsThere(InPackages(packageId))) Complain(packageId, problem);
  return package;
}

/// Held by who removes the folder, for as long as that takes; gone with its process. Without one, errno tells why:
/// ENOENT also when the folder went while it was locked.
FdHandle LockForRemoval(const std::string& folder) {
  const std::string path = SystemPath(folder);
  FdHandle lock(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!lock) return lock;
  struct stat locked, there;
  int error = 0;
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0 || fstat(lock.get(), &locked) != 0 || lstat(path.c_str(), &there) != 0)
    error = errno;
  else if (locked.st_dev != there.st_dev || locked.st_ino != there.st_ino)
    error = ENOENT;
  if (error != 0) lock.reset();
  errno = error;
  return lock;
}

/// Removes what lies under a hidden name. 0 or an errno.
int RemoveHidden(const std::string& name, const TreeProgress& onProgress = {}) {
  const TreeResult result = RemoveTree(InPackages(name), onProgress);
  if (result.error == ENOENT) return 0;
  if (result.error == 0) {
    SyncFolderOf(SystemPath(InPackages(name)));
    Complain(name, {});
    return 0;
  }
  Complain(name, "the removal is not complete, " + std::to_string(result.kept) +
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
  Complain("", folder ? "" : std::strerror(errno));
  if (!folder) return false;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name.starts_with(kRemoving))
      removals.push_back(name);
    else if (IsId(name))
      packageIds.push_back(name);
    else if (name.front() != '.')
      Complain(name, "is no name of a package");
  }
  return true;
}

void SkipDoubles(std::vector<Package>& packages) {
  std::sort(packages.begin(), packages.end(),
            [](const Package& one, const Package& other) { return one.packageId < other.packageId; });
  std::map<std::string, std::string> owners;
  std::erase_if(packages, [&owners](const Package& package) {
    const auto [owner, isNew] = owners.emplace(package.appId, package.packageId);
    Complain(package.packageId,
             isNew ? "" : "manifest.json: \"app_id\" " + package.appId + " is that of " + owner->second);
    return !isNew;
  });
}

/// As people look for a title: whatever the case of its letters.
std::string SortKey(const std::string& title) {
  const GText folded(g_utf8_casefold(title.c_str(), -1));
  const GText key(g_utf8_collate_key(folded.get(), -1));
  return key.get();
}

int Empty(const std::vector<std::pair<std::string, std::string>>& foldersWithin) {
  int result = PKGMGR_R_OK;
  for (const auto& [folder, within] : foldersWithin) {
    const TreeResult emptied = EmptyTree(folder, {}, within);
    if (emptied.error == 0 || emptied.error == ENOENT) continue;
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not empty, %d entries stay: %s", folder.c_str(), emptied.kept,
                 std::strerror(emptied.error));
    if (result == PKGMGR_R_OK) result = ResultOf(emptied.error);
  }
  return result;
}

/// Bytes removed as percents, each told once.
class Percent {
 public:
  Percent(int64_t total, const std::function<void(int)>& tell) : m_total(total), m_tell(tell) { Reach(0); }
  void Removed(int64_t bytes) {
    if (m_total > 0) Reach(static_cast<int>(std::min<int64_t>(99, bytes * 100 / m_total)));
  }
  void Done() { Reach(100); }

 private:
  void Reach(int percent) {
    if (percent <= m_last) return;
    m_last = percent;
    if (m_tell) m_tell(percent);
  }

  const int64_t m_total;
  const std::function<void(int)>& m_tell;
  int m_last = -1;
};

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

bool IsId(const std::string& id) {
  static constexpr std::string_view kMarks = "._-";
  return !id.empty() && id.size() <= kMaxIdBytes && g_ascii_isalnum(id.front()) &&
         std::all_of(id.begin(), id.end(),
                     [](char c) { return g_ascii_isalnum(c) || kMarks.find(c) != std::string_view::npos; });
}

std::vector<Package> List() {
  std::vector<std::string> packageIds, removals;
  ReadNames(packageIds, removals);
  std::vector<Package> packages;
  for (const std::string& packageId : packageIds)
    if (auto package = Load(packageId)) packages.push_back(std::move(*package));
  SkipDoubles(packages);
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
  return IsId(packageId) ? Load(packageId) : std::nullopt;
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
  return state;
}

std::string FolderOf(const Package& package) {
  return InPackages(package.packageId);
}

std::string DataFolderOf(const Package& package) {
  return FolderOf(package) + "/data";
}

std::string CacheFolderOf(const Package& package) {
  return FolderOf(package) + "/cache";
}

std::string WebCacheFolderOf(const Package& package) {
  return std::string(set_paths::kWebCacheDir) + "/" + package.appId;
}

int ClearCache(const Package& package) {
  return Empty({{CacheFolderOf(package), FolderOf(package)}, {WebCacheFolderOf(package), set_paths::kWebCacheDir}});
}

int ClearData(const Package& package) {
  const int data = Empty({{DataFolderOf(package), FolderOf(package)}});
  const int cache = ClearCache(package);
  return data != PKGMGR_R_OK ? data : cache;
}

const char* WhyNotRemovable(const Package& package) {
  if (!package.removable) return "it belongs to the set";
  if (package.locked) return "it is locked";
  return nullptr;
}

int Remove(const Package& package, const std::function<void(int)>& onProgress) {
  const std::string folder = FolderOf(package);
  const FdHandle lock = LockForRemoval(folder);
  if (!lock) return errno == ENOENT ? static_cast<int>(PKGMGR_R_ENOPKG) : ResultOf(errno);
  const TreeResult whole = PrepareTree(folder);
  if (whole.kept > 0 || whole.error != 0) {
    const std::string reason =
        whole.error != 0 ? std::strerror(whole.error)
                         : std::to_string(whole.kept) + " entries in it are mount points or belong to another user";
    __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "%s is not removed: %s", folder.c_str(), reason.c_str());
    return whole.error != 0 ? ResultOf(whole.error) : static_cast<int>(PKGMGR_R_ERROR);
  }
  const int64_t webBytes = MeasureTree(WebCacheFolderOf(package), set_paths::kWebCacheDir).bytes;
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
