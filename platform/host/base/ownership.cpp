#include "ownership.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "base/state.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

using Owner = std::optional<struct stat>;

/// A look at a folder that may be on a disk that hangs.
struct Look {
  std::chrono::steady_clock::time_point end{};  ///< it is waited for until then
  std::shared_future<Owner> owner{};

  bool IsDue() const {
    using namespace std::chrono_literals;
    return !owner.valid() || (owner.wait_for(0s) == std::future_status::ready && !owner.get());
  }
};

Owner OwnerOf(const std::string& folder) {
  struct stat status;
  return stat(folder.c_str(), &status) == 0 ? Owner(status) : std::nullopt;
}

Look Begin(const std::string& folder) {
  const auto found = std::make_shared<std::promise<Owner>>();
  const Look look{std::chrono::steady_clock::now() + std::chrono::seconds(1), found->get_future().share()};
  try {
    std::thread([folder, found] { found->set_value(OwnerOf(folder)); }).detach();
  } catch (const std::system_error&) {  // no thread can be had
    found->set_value(OwnerOf(folder));
  }
  return look;
}

/// What was seen once is kept: by folder, as there is more than one set in a process's life.
Owner SetOwner() {
  // Never destroyed: what is left to write is written while the process ends.
  static auto& mutex = *new std::mutex;
  static auto& looks = *new std::map<std::string, Look>;
  const std::string folder = SystemPath(set_paths::kOwnerHome);
  std::unique_lock lock(mutex);
  Look& look = looks[folder];
  if (look.IsDue()) look = Begin(folder);
  const Look mine = look;
  lock.unlock();
  return mine.owner.wait_until(mine.end) == std::future_status::ready ? mine.owner.get() : std::nullopt;
}

}  // namespace

bool IsTrustedUser(uid_t user) {
  if (user == geteuid() || user == 0) return true;
  const auto owner = SetOwner();
  return owner && owner->st_uid == user;
}

void GiveToSetOwner(int fd) {
  const auto owner = geteuid() == 0 ? SetOwner() : std::nullopt;
  // Where root may not either, it stays root's, who can do his part.
  if (owner && fchownat(fd, "", owner->st_uid, owner->st_gid, AT_EMPTY_PATH) != 0) return;
}

void KeepPrivate(const std::string& path) {
  const std::string full = SystemPath(path);
  const FdHandle made(open(full.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (made) return GiveToSetOwner(made.get());
  const FdHandle file(open(full.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (file && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)) Narrow(file.get(), status, 0600);
}

namespace exchange {

namespace {

constexpr char kLink[] = "it is a symbolic link, which is not followed";
constexpr char kStrangers[] = "it belongs to another user";

/// What stands against a folder; an error of 0 when nothing does.
struct Problem {
  int error = 0;
  const char* text = "";
};

/// One step of the way to a folder.
struct Step {
  int in;
  std::string name;
  bool isMachines;  ///< /tmp, /run
  bool isMade;      ///< where it is missing
};

Problem ProblemOf(const struct stat& status, bool isMachines) {
  if (S_ISLNK(status.st_mode)) return {ELOOP, kLink};
  if (!S_ISDIR(status.st_mode)) return {ENOTDIR, "it is no folder"};
  if (!IsTrustedUser(status.st_uid)) return {EPERM, kStrangers};
  const bool isOpen = (status.st_mode & (isMachines ? S_IWOTH : S_IWOTH | S_IWGRP)) != 0;
  if (isOpen && (status.st_mode & S_ISVTX) == 0) return {EPERM, "other users may put anything into it"};
  return {};
}

bool Make(const Step& step) {
  if (mkdirat(step.in, step.name.c_str(), 0755) != 0) return errno == EEXIST;
  const FdHandle made(openat(step.in, step.name.c_str(), O_PATH | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
  if (!made) return false;
  GiveToSetOwner(made.get());
  return ChangeMode(made.get(), 0755);
}

/// Opens the folder of the step; without a handle, `problem` tells why.
FdHandle Take(const Step& step, Problem& problem) {
  constexpr int kFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  FdHandle folder(openat(step.in, step.name.c_str(), kFlags));
  if (!folder && errno == ENOENT && step.isMade && Make(step)) folder.reset(openat(step.in, step.name.c_str(), kFlags));
  struct stat status;
  if (!folder || fstat(folder.get(), &status) != 0) {
    problem = {errno, std::strerror(errno)};
    return {};
  }
  problem = ProblemOf(status, step.isMachines);
  if (problem.error == EPERM && step.isMade && !step.isMachines && IsTrustedUser(status.st_uid)) {
    Narrow(folder.get(), status, 07755);
    if (fstat(folder.get(), &status) == 0) problem = ProblemOf(status, false);
  }
  return problem.error == 0 ? std::move(folder) : FdHandle();
}

/// Gives what a stranger has put in the place of the step's folder another name; returns that, empty where it stays.
std::string SetAside(const Step& step) {
  struct stat status;
  if (fstatat(step.in, step.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || IsTrustedUser(status.st_uid)) return {};
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::string aside = step.name + "#" + std::to_string(now.tv_sec) + "." + std::to_string(now.tv_nsec);
  return renameat2(step.in, step.name.c_str(), step.in, aside.c_str(), RENAME_NOREPLACE) == 0 ? aside : "";
}

FdHandle Walk(const std::string& path, bool isMade, std::string& problem) {
  problem.clear();
  FdHandle folder(open(SystemPath("/").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (size_t start = 1, end; folder && start < path.size(); start = end + 1) {
    end = std::min(path.find('/', start), path.size());
    const Step step{folder.get(), path.substr(start, end - start), start == 1, isMade};
    Problem found;
    FdHandle next = Take(step, found);
    if (!next) problem = path.substr(0, end) + ": " + found.text;
    if (!next && isMade && !step.isMachines) {
      const std::string aside = SetAside(step);
      if (!aside.empty()) {
        problem += "; it is called " + aside + " now";
        next = Take(step, found);
      }
    }
    folder = std::move(next);
    errno = found.error;
  }
  return folder;
}

}  // namespace

FdHandle OpenFolder(const std::string& path, std::string& problem) {
  return Walk(path, false, problem);
}

FdHandle MakeFolder(const std::string& path, std::string& problem) {
  return Walk(path, true, problem);
}

FdHandle OpenFile(const std::string& path, int flags) {
  const size_t slash = path.rfind('/');
  std::string ignored;
  const FdHandle folder = OpenFolder(path.substr(0, slash), ignored);
  if (!folder) return {};
  const int safe = O_NOFOLLOW | O_CLOEXEC | ((flags & O_PATH) != 0 ? 0 : O_NONBLOCK | O_NOCTTY);
  FdHandle file(openat(folder.get(), path.c_str() + slash + 1, flags | safe, 0666));
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) return {};
  int error = 0;
  if (!S_ISREG(status.st_mode))
    error = S_ISLNK(status.st_mode) ? ELOOP : EINVAL;
  else if (!IsTrustedUser(status.st_uid))
    error = EPERM;
  else if ((flags & O_ACCMODE) != O_RDONLY && status.st_nlink > 1)
    error = EMLINK;
  if (error == 0) return file;
  file.reset();
  errno = error;
  return {};
}

const char* WhyNot(int error) {
  switch (error) {
    case ELOOP:
      return kLink;
    case EINVAL:
      return "it is not a regular file";
    case EPERM:
      return "it, or a folder on the way to it, belongs to another user or is open to others";
    default:
      return std::strerror(error);
  }
}

}  // namespace exchange
