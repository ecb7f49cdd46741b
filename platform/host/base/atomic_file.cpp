#include "base/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

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

bool Publish(const std::string& path, std::string_view content, mode_t mode, int (*move)(const char*, const char*)) {
  std::string temporary = path + "#XXXXXX";
  FdHandle file(mkostemp(temporary.data(), O_CLOEXEC));
  if (!file) return false;
  if (WriteFully(file.get(), content) && fchmod(file.get(), mode) == 0 && fsync(file.get()) == 0 && Close(file) &&
      move(temporary.c_str(), path.c_str()) == 0)
    return SyncFolderOf(path);
  const int reason = errno;
  unlink(temporary.c_str());
  errno = reason;
  return false;
}

}  // namespace

bool MakeFolders(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (!error && !std::filesystem::is_directory(path, error) && !error)
    error = std::make_error_code(std::errc::not_a_directory);
  if (error) errno = error.value();
  return !error;
}

bool PublishFile(const std::string& path, std::string_view content) {
  return Publish(path, content, 0644, rename);
}

bool PublishPrivateFile(const std::string& path, std::string_view content) {
  return Publish(path, content, 0600, RenameToFree);
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
  FdHandle file(open(path.c_str(), flags, 0644));
  if (!file && errno == ENOENT && MakeFolders(std::filesystem::path(path).parent_path()))
    file.reset(open(path.c_str(), flags, 0644));
  struct stat status;
  if (file && (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))) {
    file.reset();
    errno = EINVAL;
  }
  return file;
}
