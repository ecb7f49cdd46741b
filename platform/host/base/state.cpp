#include "base/state.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>

#include "c_handle.h"
#include "ownership.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

using DirHandle = std::unique_ptr<DIR, CRelease<&closedir>>;

constexpr mode_t kPrivateFile = 0600, kPublicFile = 0644;
constexpr int kDeepest = 8;
constexpr size_t kMarkSize = 7;  // "#XXXXXX", as base/atomic_file.h has it

bool IsIn(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool IsHalfWritten(std::string_view name) {
  return name.size() > kMarkSize && name[name.size() - kMarkSize] == '#' &&
         std::all_of(name.end() - kMarkSize + 1, name.end(), [](unsigned char c) { return std::isalnum(c); });
}

/// Who writes a file holds its lock until it has its name.
void RemoveUnlessWritten(int folder, const char* name) {
  const FdHandle file(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0) unlinkat(folder, name, 0);
}

/// `path` is what the folder is called on the set.
void Tidy(int folder, const std::string& path, int depth) {
  struct stat status;
  if (fstat(folder, &status) != 0 || !IsTrustedUser(status.st_uid)) return;
  Narrow(folder, status, ModeOfFolder(SystemPath(path)));
  const mode_t ofFiles = path == set_paths::kReportResults ? kPublicFile : kPrivateFile;
  const DirHandle entries(fdopendir(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
    const std::string name = entry->d_name;
    const FdHandle each(openat(folder, entry->d_name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (name == "." || name == ".." || !each || fstat(each.get(), &status) != 0 || !IsTrustedUser(status.st_uid))
      continue;
    if (S_ISDIR(status.st_mode) && depth < kDeepest)
      Tidy(each.get(), path + "/" + name, depth + 1);
    else if (S_ISREG(status.st_mode) && IsHalfWritten(name))
      RemoveUnlessWritten(folder, entry->d_name);
    else if (S_ISREG(status.st_mode))
      Narrow(each.get(), status, ofFiles);
  }
}

}  // namespace

bool IsState(std::string_view path) {
  const std::string_view onSet = NameOnSet(path);
  return IsIn(onSet, set_paths::kHostState) || IsIn(onSet, set_paths::kHostRun);
}

mode_t ModeOfFolder(std::string_view path) {
  // What every user may read lies in it.
  if (NameOnSet(path) == set_paths::kHostRun) return 0711;
  const bool isPrivate = IsState(path) || IsIn(NameOnSet(path), set_paths::kTrevlinDatabases);
  return isPrivate && NameOnSet(path) != set_paths::kReportResults ? 0700 : 0755;
}

bool ChangeMode(int fd, mode_t mode) {
  return chmod(("/proc/self/fd/" + std::to_string(fd)).c_str(), mode) == 0;
}

void Narrow(int fd, const struct stat& status, mode_t most) {
  const mode_t mode = status.st_mode & 07777u;
  if ((mode & ~most) != 0 && (status.st_uid == geteuid() || geteuid() == 0)) ChangeMode(fd, mode & most);
}

void TidyState() {
  for (const char* path : {set_paths::kHostState, set_paths::kHostRun, set_paths::kTrevlinDatabases}) {
    const FdHandle folder(open(SystemPath(path).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder) Tidy(folder.get(), path, 0);
  }
}
