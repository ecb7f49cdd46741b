#include "base/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/state.h"
#include "ownership.h"
#include "system_path.h"

namespace {

bool WriteFully(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    content.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// close() may tell of a write that the file system had only promised.
bool Close(FdHandle& file) {
  return close(file.release()) == 0;
}

/// rename() to what must be no file's name yet.
int RenameToFree(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL) return -1;
  // A file system that cannot look and rename at once.
  struct stat status;
  if (lstat(to, &status) != 0) return rename(from, to);
  errno = EEXIST;
  return -1;
}

/// Makes a file beside `path` and locks it: TidyState() removes those that nobody holds. Should it come in between,
/// there is another one.
FdHandle MakeTemporary(const std::string& path, std::string& temporary) {
  while (true) {
    temporary = path + "#XXXXXX";
    FdHandle file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) return file;
    const bool isTaken = flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    struct stat status;
    if (!isTaken && (fstat(file.get(), &status) != 0 || status.st_nlink > 0)) return file;
  }
}

bool Publish(const std::string& path, std::string_view content, mode_t mode, int (*move)(const char*, const char*)) {
  StagedFile file;
  return file.Write(path, content, mode) && fsync(file.Fd()) == 0 && file.Publish(move) && SyncFolderOf(path);
}

/// True when it is there afterwards, also where it is a link to one.
bool MakeOneFolder(const std::string& path) {
  if (mkdir(path.c_str(), ModeOfFolder(path)) == 0) {
    const FdHandle made(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (made && IsState(path)) GiveToSetOwner(made.get());
    return made && fchmod(made.get(), ModeOfFolder(path)) == 0;
  }
  struct stat status;
  if (errno != EEXIST && errno != EROFS && errno != EACCES) return false;
  const int reason = errno;
  const bool isThere = stat(path.c_str(), &status) == 0;
  if (isThere && S_ISDIR(status.st_mode)) return true;
  errno = isThere ? ENOTDIR : reason;
  return false;
}

}  // namespace

bool MakeFolders(const std::string& path) {
  for (size_t end = path.find_first_not_of('/'); end < path.size(); ++end) {
    end = std::min(path.find('/', end), path.size());
    if (!MakeOneFolder(path.substr(0, end))) return false;
  }
  return true;
}

bool PublishFile(const std::string& path, std::string_view content, Readers readers) {
  return Publish(path, content, readers == Readers::kOwner ? 0600 : 0644, rename);
}

bool PublishPrivateFile(const std::string& path, std::string_view content) {
  return Publish(path, content, 0600, RenameToFree);
}

bool StagedFile::Write(const std::string& path, std::string_view content, mode_t mode) {
  m_path = path;
  m_file = MakeTemporary(path, m_temporary);
  if (!m_file) return false;
  m_lock.reset(fcntl(m_file.get(), F_DUPFD_CLOEXEC, 0));
  if (IsState(path)) GiveToSetOwner(m_file.get());
  return WriteFully(m_file.get(), content) && fchmod(m_file.get(), mode) == 0;
}

bool StagedFile::Publish(int (*move)(const char*, const char*)) {
  const FdHandle lock = std::move(m_lock);
  if (Close(m_file) && move(m_temporary.c_str(), m_path.c_str()) == 0) return true;
  const int reason = errno;
  unlink(m_temporary.c_str());
  errno = reason;
  return false;
}

StagedFile::~StagedFile() {
  if (!m_file) return;
  const int reason = errno;
  unlink(m_temporary.c_str());
  errno = reason;
}

bool SyncFolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path();
  const FdHandle handle(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!handle) return false;
  return fsync(handle.get()) == 0 || errno == EINVAL || errno == ENOTSUP;
}

bool ReadWholeFile(const std::string& path, std::string& content, Links links, size_t limit) {
  // Without O_NONBLOCK a planted pipe would hold the caller for ever.
  const int noFollow = links == Links::kRefuse ? O_NOFOLLOW : 0;
  const FdHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | noFollow));
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  if (static_cast<size_t>(status.st_size) > limit) {
    errno = EFBIG;
    return false;
  }
  std::string read(static_cast<size_t>(status.st_size), '\0');
  size_t size = 0;
  while (size <= limit) {
    // Files of the kernel have no size, and others may grow.
    if (size == read.size()) read.resize(std::min(size + 4096, limit + 1));
    const ssize_t got = ::read(file.get(), read.data() + size, read.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) {
      read.resize(size);
      content = std::move(read);
      return true;
    }
    size += static_cast<size_t>(got);
  }
  errno = EFBIG;
  return false;
}

std::string WhyUnread(int reason, size_t limit) {
  if (reason != EFBIG) return std::strerror(reason);
  const char* const units[] = {" bytes", " KiB", " MiB"};
  size_t unit = 0;
  for (; unit < 2 && limit % 1024 == 0; ++unit) limit /= 1024;
  return "it is larger than " + std::to_string(limit) + units[unit];
}

FdHandle OpenToAppend(const std::string& path) {
  const int flags = O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  FdHandle file(open(path.c_str(), flags, 0600));
  if (!file && errno == ENOENT && MakeFolders(std::filesystem::path(path).parent_path()))
    file.reset(open(path.c_str(), flags, 0600));
  if (!file) return file;
  struct stat status;
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    file.reset();
    errno = EINVAL;
    return file;
  }
  if (status.st_size == 0 && IsState(path)) GiveToSetOwner(file.get());
  Narrow(file.get(), status, 0600);
  return file;
}
