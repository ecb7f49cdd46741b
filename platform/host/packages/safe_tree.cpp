#include "packages/safe_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <memory>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "c_handle.h"
#include "system_path.h"

namespace packages {

namespace {

using Status = struct statx;
using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;

constexpr unsigned int kWanted = STATX_BASIC_STATS | STATX_BTIME | STATX_MNT_ID;
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kPassFolder = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
/// Levels of a deep tree whose folders stay open; those above are found again by "..".
constexpr size_t kOpenLevels = 64;
/// A program that still runs may put files into a folder that has just been emptied.
constexpr int kPasses = 3;

/// The entry `name` itself, also where it is a link; an empty name is the folder of `fd`.
int StatusAt(int fd, const char* name, Status& status) {
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | (*name ? 0 : AT_EMPTY_PATH);
  return statx(fd, name, flags, kWanted, &status) == 0 ? 0 : errno;
}

bool IsFolder(const Status& status) {
  return S_ISDIR(status.stx_mode);
}

mode_t OpenedUp(const Status& folder) {
  return (folder.stx_mode & 07777u) | S_IRWXU;
}

auto Device(const Status& status) {
  return std::pair(status.stx_dev_major, status.stx_dev_minor);
}

/// What tells one folder from any other; an inode number alone may be used again.
auto Identity(const Status& status) {
  return std::tuple(Device(status), status.stx_ino, status.stx_btime.tv_sec, status.stx_btime.tv_nsec);
}

bool IsMountPoint(const Status& status) {
  return (status.stx_attributes & (STATX_ATTR_MOUNT_ROOT | STATX_ATTR_AUTOMOUNT)) != 0;
}

/// Why an entry below `base` must be left alone, as an errno, or 0. Kernels before 5.8 tell no mounts; there another
/// device is one. Layered file systems give files, but not folders, devices of their own.
int WhyNotOurs(const Status& entry, const Status& base) {
  if (IsMountPoint(entry)) return EBUSY;
  const bool tellsMount = (entry.stx_mask & base.stx_mask & STATX_MNT_ID) != 0;
  if (tellsMount && entry.stx_mnt_id != base.stx_mnt_id) return EBUSY;
  if ((IsFolder(entry) || !tellsMount) && Device(entry) != Device(base)) return EBUSY;
  return entry.stx_uid == base.stx_uid ? 0 : EACCES;
}

int64_t BytesOf(const Status& status) {
  return static_cast<int64_t>(status.stx_blocks) * 512;
}

/// The names of a path of the set; false when it is none that can be walked.
bool SplitPath(const std::string& path, std::vector<std::string>& names) {
  if (path.empty() || path.front() != '/' || path.find('\0') != std::string::npos) return false;
  for (size_t start = 1; start < path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    std::string name = path.substr(start, end - start);
    if (name == "." || name == "..") return false;
    if (!name.empty()) names.push_back(std::move(name));
    start = end + 1;
  }
  return true;
}

/// The folder that a walk begins with.
struct Start {
  FdHandle parent;
  std::string name;
  FdHandle folder;
  Status status{};
  Status base{};  // whose owner and mount count
};

/// Goes there name by name. Returns 0 or an errno.
int Open(const std::string& folder, const std::string& within, Start& start) {
  std::vector<std::string> names, baseNames;
  if (!SplitPath(folder, names) || names.empty()) return EINVAL;
  if (!SplitPath(within.empty() ? folder : within, baseNames) || baseNames.size() > names.size() ||
      !std::equal(baseNames.begin(), baseNames.end(), names.begin()))
    return EINVAL;
  start.folder.reset(open(SystemPath("/").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (size_t depth = 0; start.folder; ++depth) {
    if (depth >= baseNames.size()) {
      const int error = StatusAt(start.folder.get(), "", start.status);
      if (error != 0) return error;
      if (depth == baseNames.size()) start.base = start.status;
      const int reason = depth == baseNames.size() ? 0 : WhyNotOurs(start.status, start.base);
      if (reason != 0) return reason;
    }
    if (depth == names.size()) return 0;
    start.parent = std::move(start.folder);
    start.name = names[depth];
    const bool last = depth + 1 == names.size();
    start.folder.reset(openat(start.parent.get(), start.name.c_str(), last ? kOpenFolder : kPassFolder));
  }
  return errno;
}

/// Opens up and opens a folder below `base` that its owner has shut. What is looked at and what is opened up are one,
/// also when another folder takes its place meanwhile. Without a handle, errno tells why: EACCES when it is not ours.
FdHandle OpenShut(int in, const char* name, const Status& base) {
  const FdHandle shut(openat(in, name, kPassFolder));
  Status status;
  if (!shut) return {};
  errno = StatusAt(shut.get(), "", status);
  if (errno == 0 && WhyNotOurs(status, base) != 0) errno = EACCES;
  if (errno != 0) return {};
  if (chmod(("/proc/self/fd/" + std::to_string(shut.get())).c_str(), OpenedUp(status)) != 0) return {};
  return FdHandle(openat(shut.get(), ".", kOpenFolder));
}

enum class Action { kMeasure, kPrepare, kEmpty, kRemove };

class Walk {
 public:
  explicit Walk(Action action, TreeProgress onProgress = {}, TreeSelection selection = {})
      : m_action(action), m_onProgress(std::move(onProgress)), m_selection(std::move(selection)) {}

  TreeResult Run(const std::string& folder, const std::string& within);

 private:
  struct Level {
    FdHandle folder;
    Status status{};
    std::string name;
    std::vector<std::string> folders{};  // still to be entered
    int passes = 0;
    bool kept = false;  // something in it stays
  };

  void Scan(Level& level);
  void Visit(Level& level, const char* name);
  void Enter(const std::string& name);
  bool Leave();
  void RemoveFolder(int parent, Level& level, bool& parentKept);
  bool OpenAgain(Level& parent, const Level& child);
  void Push(FdHandle folder, const Status& status, const std::string& name);

  bool OnlyMeasures() const { return m_action == Action::kMeasure || m_action == Action::kPrepare; }
  bool SelectsSome() const { return m_selection.before || m_selection.names; }
  bool IsToStay(const Status& status, const char* name) const;
  bool IsStopped();
  void Count(const Status& status);
  void Removed(const Status& status);
  void Fail(int error) {
    if (m_result.error == 0) m_result.error = error;
  }
  void Keep(bool& kept, int error) {
    kept = true;
    ++m_result.kept;
    if (m_action != Action::kMeasure) Fail(error);
  }

  const Action m_action;
  const TreeProgress m_onProgress;
  const TreeSelection m_selection;
  bool m_stopped = false;
  TreeResult m_result;
  Start m_start;
  std::deque<Level> m_levels;
  std::set<std::tuple<std::pair<uint32_t, uint32_t>, uint64_t>> m_linked;  // counted files with further links
};

TreeResult Walk::Run(const std::string& folder, const std::string& within) {
  int error = Open(folder, within, m_start);
  const bool goesItself = m_action == Action::kRemove || m_action == Action::kPrepare;
  if (error == 0 && goesItself && IsMountPoint(m_start.status)) error = EBUSY;
  // A package that is mounted from elsewhere is emptied no more than it is removed.
  if (error == 0 && m_action != Action::kMeasure && !within.empty() && IsMountPoint(m_start.base)) error = EBUSY;
  if (error != 0) {
    Fail(error);
    return m_result;
  }
  Push(std::move(m_start.folder), m_start.status, m_start.name);
  while (!m_levels.empty() && !m_stopped) {
    Level& level = m_levels.back();
    if (level.folders.empty()) {
      if (!Leave()) break;
      continue;
    }
    const std::string name = std::move(level.folders.back());
    level.folders.pop_back();
    Enter(name);
  }
  return m_result;
}

void Walk::Push(FdHandle folder, const Status& status, const std::string& name) {
  const bool goes = m_action != Action::kMeasure && (m_action != Action::kEmpty || !m_levels.empty());
  // A folder of ours may have been made read-only, which must not keep us from removing it.
  if (goes && !SelectsSome() && (status.stx_mode & S_IRWXU) != S_IRWXU) fchmod(folder.get(), OpenedUp(status));
  if (OnlyMeasures() && !SelectsSome()) Count(status);
  m_levels.push_back({.folder = std::move(folder), .status = status, .name = name});
  if (m_levels.size() > kOpenLevels) m_levels[m_levels.size() - 1 - kOpenLevels].folder.reset();
  Scan(m_levels.back());
}

/// Deals with all but the folders, which are noted for later: so one stream is open at a time.
void Walk::Scan(Level& level) {
  ++level.passes;
  FdHandle copy(fcntl(level.folder.get(), F_DUPFD_CLOEXEC, 0));
  const DirHandle stream(copy ? fdopendir(copy.get()) : nullptr);
  if (!stream) {
    Fail(errno);
    return;
  }
  copy.release();
  rewinddir(stream.get());
  errno = 0;
  for (const dirent* entry; !m_stopped && (entry = readdir(stream.get())) != nullptr;) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") Visit(level, entry->d_name);
    errno = 0;
  }
  if (errno != 0) Fail(errno);
}

void Walk::Visit(Level& level, const char* name) {
  Status status;
  const int error = StatusAt(level.folder.get(), name, status);
  if (error == ENOENT) return;
  int reason = error != 0 ? error : WhyNotOurs(status, m_start.base);
  if (m_selection.ownedByUs && (reason == 0 || reason == EACCES) && !IsFolder(status))
    reason = status.stx_uid == geteuid() ? 0 : EACCES;
  if (reason != 0) return Keep(level.kept, reason);
  if (IsFolder(status)) {
    level.folders.emplace_back(name);
  } else if (OnlyMeasures()) {
    if (!IsToStay(status, name)) Count(status);
  } else if (IsToStay(status, name) || IsStopped()) {
    level.kept = true;
  } else if (unlinkat(level.folder.get(), name, 0) == 0) {
    Removed(status);
  } else if (errno != ENOENT) {
    Keep(level.kept, errno);
  }
}

void Walk::Enter(const std::string& name) {
  Level& parent = m_levels.back();
  const int in = parent.folder.get();
  FdHandle folder(openat(in, name.c_str(), kOpenFolder));
  if (!folder && errno == EACCES && m_action != Action::kMeasure && !SelectsSome()) {
    folder = OpenShut(in, name.c_str(), m_start.base);
  }
  if (!folder) {
    // What is no folder any more is found by the next pass.
    if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) return;
    if (OnlyMeasures()) return Fail(errno);
    return Keep(parent.kept, errno);
  }
  Status status;
  int reason = StatusAt(folder.get(), "", status);
  if (reason == 0) reason = WhyNotOurs(status, m_start.base);
  if (reason != 0) return Keep(parent.kept, reason);
  Push(std::move(folder), status, name);
}

/// The last level is done. False when the way up is lost.
bool Walk::Leave() {
  Level& level = m_levels.back();
  if (m_levels.size() == 1) {
    bool kept = false;
    if (m_action == Action::kRemove) RemoveFolder(m_start.parent.get(), level, kept);
    if (level.folders.empty()) m_levels.pop_back();
    return true;
  }
  Level& parent = m_levels[m_levels.size() - 2];
  if (!parent.folder && !OpenAgain(parent, level)) {
    Keep(level.kept, ESTALE);
    Fail(ESTALE);
    return false;
  }
  if (!OnlyMeasures()) RemoveFolder(parent.folder.get(), level, parent.kept);
  if (level.folders.empty()) m_levels.pop_back();
  return true;
}

/// A folder that was moved away meanwhile has another parent, which is none of ours.
bool Walk::OpenAgain(Level& parent, const Level& child) {
  FdHandle folder(openat(child.folder.get(), "..", kOpenFolder));
  Status status;
  if (!folder || StatusAt(folder.get(), "", status) != 0 || Identity(status) != Identity(parent.status)) return false;
  parent.folder = std::move(folder);
  return true;
}

/// Where the folder has filled again, it gets another pass and may then have folders to enter.
void Walk::RemoveFolder(int parent, Level& level, bool& parentKept) {
  if (IsToStay(level.status, level.name.c_str()) || IsStopped()) level.kept = true;
  while (!level.kept) {
    if (unlinkat(parent, level.name.c_str(), AT_REMOVEDIR) == 0) return Removed(level.status);
    if (errno == ENOENT) return;
    const bool filled = errno == ENOTEMPTY || errno == EEXIST;
    if (!filled || level.passes == kPasses) return Keep(parentKept, errno);
    Scan(level);
    if (!level.folders.empty()) return;
  }
  parentKept = true;
}

bool Walk::IsToStay(const Status& status, const char* name) const {
  if (!SelectsSome()) return false;
  const bool isFolder = IsFolder(status);
  if (!isFolder && !S_ISREG(status.stx_mode) && !S_ISLNK(status.stx_mode)) return true;
  if (m_selection.names && (isFolder || !m_selection.names(static_cast<int>(m_levels.size()) - 1, name))) return true;
  if (!m_selection.before) return false;
  const auto last =
      m_selection.countsUse ? std::max(status.stx_atime.tv_sec, status.stx_mtime.tv_sec) : status.stx_mtime.tv_sec;
  return last >= *m_selection.before;
}

bool Walk::IsStopped() {
  if (m_stopped || OnlyMeasures() || !m_selection.stop || !m_selection.stop()) return m_stopped;
  m_stopped = true;
  Fail(ECANCELED);
  return true;
}

void Walk::Count(const Status& status) {
  if (!IsFolder(status) && status.stx_nlink > 1 && !m_linked.emplace(Device(status), status.stx_ino).second) return;
  m_result.bytes += BytesOf(status);
  ++m_result.files;
}

void Walk::Removed(const Status& status) {
  if (IsFolder(status) || status.stx_nlink <= 1) m_result.bytes += BytesOf(status);
  ++m_result.files;
  if (m_onProgress) m_onProgress(m_result.bytes);
}

}  // namespace

TreeResult MeasureTree(const std::string& folder, const std::string& within) {
  return Walk(Action::kMeasure).Run(folder, within);
}

TreeResult MeasureSelection(const std::string& folder, const std::string& within, const TreeSelection& selection) {
  return Walk(Action::kMeasure, {}, selection).Run(folder, within);
}

TreeResult PrepareTree(const std::string& folder, const std::string& within) {
  return Walk(Action::kPrepare).Run(folder, within);
}

TreeResult EmptyTree(const std::string& folder, const TreeProgress& onProgress, const std::string& within,
                     const TreeSelection& selection) {
  return Walk(Action::kEmpty, onProgress, selection).Run(folder, within);
}

TreeResult RemoveTree(const std::string& folder, const TreeProgress& onProgress, const std::string& within,
                      const TreeStop& stop) {
  return Walk(Action::kRemove, onProgress, {.stop = stop}).Run(folder, within);
}

int RenameTree(const std::string& folder, const std::string& name) {
  Start start;
  if (const int error = Open(folder, {}, start)) return error;
  if (IsMountPoint(start.status)) return EBUSY;
  const int parent = start.parent.get();
  return renameat2(parent, start.name.c_str(), parent, name.c_str(), RENAME_NOREPLACE) == 0 ? 0 : errno;
}

}  // namespace packages
